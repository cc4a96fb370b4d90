// What the watch should say of a scene, worked out the long way: every record is kept, every figure is made anew from
// the raw stamps. Slow and plain, for the engine to be compared with.
#ifndef REFERENCE_MODEL_H
#define REFERENCE_MODEL_H

#include <span>
#include <vector>

#include "ReferenceScene.h"
#include "WatchSnapshot.h"

struct SModelField
{
    uint64_t uiTick;
    double flNumber;   // within its regime
    uint32_t uiRegime; // windows begin anew with each
    bool bOnGrid;
    bool bCounts; // in the figures
};

// Something that happened at a tick; the counter of its kind grows by uiCount.
struct SModelFact
{
    EWatchEventKind eKind;
    uint64_t uiTick;
    uint64_t uiCount = 1;
    uint64_t uiBefore = 0;
    uint64_t uiAfter = 0;
    double flSeconds = 0.0;
};

struct SModelLine
{
    SEstimate oSlope; // ticks per field
    double flMeanX = 0.0;
    double flMeanY = 0.0; // ticks from the instant
    double flPart = 0.0;  // of the fields of the window that are there
};

class CReferenceModel
{
public:
    CReferenceModel(const SScene& roScene, const SSceneStream& roStream);

    uint64_t CountFacts(EWatchEventKind eKind, uint64_t uiEndTick) const;
    uint64_t CountFields(uint64_t uiEndTick) const;
    /* As the watch tells them: the first of an episode in the second in which it was, the others in one at its end. */
    std::vector<SModelFact> FoldEvents(uint64_t uiEndTick) const;
    SModelLine Fit(uint64_t uiInstant, uint64_t uiSeconds) const;
    /* Of the field start that is nearest to the instant, relative to it, in seconds. */
    double GetMoment(const SModelLine& roLine) const;
    EStreamState GetState(uint64_t uiEndTick) const;
    uint64_t CountLateWakes(uint64_t uiEndTick) const;

private:
    void TakeField(const SFieldRecord& roRecord);
    void TakeCounter(const SFieldRecord& roRecord);
    void TakeMissing(const SFieldRecord& roRecord, uint64_t uiMissing);
    void TakeGrid(const SFieldRecord& roRecord);
    void TakeOffGrid(double flDeviation);
    void TakeEnd(const SFieldRecord& roRecord);
    void ChangeState(EStreamState eState, uint64_t uiTick);
    bool IsOutside(uint64_t uiMomentNs) const;
    std::vector<SModelField> GetWindow(uint64_t uiBegin, uint64_t uiEnd) const;
    double ToSeconds(double flTicks) const { return flTicks / m_roScene.oSettings.uiTickFrequencyHz; }

    const SScene& m_roScene;
    double m_flPeriod; // nominal, ticks
    std::vector<SFieldRecord> m_aoTaken;
    std::vector<SModelField> m_aoFields;
    std::vector<double> m_aflOff; // deviations of the newest fields, all off the grid
    std::vector<SModelFact> m_aoFacts;
    const SFieldRecord* m_poLast = nullptr; // field
    EStreamState m_eState = EStreamState::IDLE;
    size_t m_uiSearched = 0; // fields since the search for a grid began
    double m_flNumber = 0.0;
    uint32_t m_uiRegime = 0;
};

// Two streams, second by second: the states that follow from offset and drift.
struct SModelPair
{
    void Step(const SPairFigures& roPair, double flThreshold);
    ELockState eLock = ELockState::IDLE;
    bool bIsWithin = false;
    bool bIsPassing = false;
    uint32_t uiLeft = 0; // seconds without drift until it locks: two for each with one, a minute at most
};

#endif
