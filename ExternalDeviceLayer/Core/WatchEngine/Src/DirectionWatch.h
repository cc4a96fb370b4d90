/*
 * The streams of one direction together: pairs, lock groups, and the phases against the reference.
 */
#ifndef DIRECTION_WATCH_H
#define DIRECTION_WATCH_H

#include <memory>
#include <vector>

#include "LockGroups.h"
#include "PairLock.h"
#include "ReferenceChoice.h"
#include "StreamWatch.h"

class CDirectionWatch
{
public:
    CDirectionWatch(SWatchContext& roContext, const SWatchSettings& roSettings, EStreamDirection eDirection,
                    uint32_t uiNbOfStreams);

    CStreamWatch& GetStream(uint32_t uiIndex) { return *m_apoStreams[uiIndex]; }
    uint32_t GetCount() const { return static_cast<uint32_t>(m_apoStreams.size()); }
    /*
     * States and counters at an instant; with a whole second of the chip's clock the phases of all streams, pairs and
     * groups too.
     *   roClock  in  the clocks at the instant
     */
    void Analyse(const SInstant& roInstant, const SClockReading& roClock, bool bIsWholeSecond);
    /* Another clock has become the board's. */
    void ForgetTicks();
    /* Takes in what belongs before the next instant. */
    void Release();
    /* Makes room for what Fill() will fill in, which needs no memory then. */
    void MakeRoom(SDirectionFigures& roFigures) const;
    void Fill(const SClockReading& roClock, SDirectionFigures& roFigures) const;

private:
    void UpdatePairs();
    void UpdateGroups(const SClockReading& roClock);
    void UpdateReference(const SClockReading& roClock);
    void FillReferencePhases();
    double GetLine(const SPairFigures& roPair) const;
    const SPairFigures* FindPair(uint32_t uiA, uint32_t uiB) const;
    void AddLockEvent(uint32_t uiStream, ELockState eBefore, ELockState eAfter, const SClockReading& roClock);
    SWatchEvent MakeEvent(EWatchEventKind eKind, uint32_t uiIndex) const;

    SWatchContext& m_roContext;
    const SWatchSettings& m_roSettings;
    EStreamDirection m_eDirection;
    std::vector<std::unique_ptr<CStreamWatch>> m_apoStreams;
    std::vector<SPairFigures> m_aoPairs; // ordered by first, then second
    CLockGroups m_oGroups;
    CReferenceChoice m_oReference;
};

#endif
