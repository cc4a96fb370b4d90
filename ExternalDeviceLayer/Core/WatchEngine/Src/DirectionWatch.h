/*
 * The streams of one direction together: pairs, lock groups, and the phases against the reference.
 */
#ifndef DIRECTION_WATCH_H
#define DIRECTION_WATCH_H

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "LockGroups.h"
#include "PairLock.h"
#include "PairSlip.h"
#include "ReferenceChoice.h"
#include "StreamWatch.h"

// A reference of the other direction.
struct SAgainst
{
    const SStreamPhase* poReference = nullptr;
    std::span<const SPairFigures* const> apoPairs; // by stream
};

class CDirectionWatch
{
public:
    CDirectionWatch(SWatchContext& roContext, const SWatchSettings& roSettings, EStreamDirection eDirection,
                    uint32_t uiNbOfStreams);

    CStreamWatch& GetStream(uint32_t uiIndex) { return *m_apoStreams[uiIndex]; }
    uint32_t GetCount() const { return static_cast<uint32_t>(m_apoStreams.size()); }
    std::span<const SPairFigures> GetPairs() const { return m_aoPairs; }
    /* That phases are told against; of the other direction where it was set so. */
    std::optional<SStreamKey> GetReference() const;
    /* Of streams in lock with each other one stands for all: the reference, or the first one. */
    bool StandsForGroup(uint32_t uiStream) const;
    /*
     * States and counters at an instant; with a whole second of the chip's clock the phases of all streams and pairs
     * too.
     *   roClock  in  the clocks at the instant
     */
    void Analyse(const SInstant& roInstant, const SClockReading& roClock, bool bIsWholeSecond);
    /*
     * After that, with a whole second: groups, and the phases against the reference.
     *   roAgainst  in  where that is of the other direction, it and the pair of each stream with it
     */
    void Conclude(const SInstant& roInstant, const SClockReading& roClock, const SAgainst& roAgainst);
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
    void UpdateReference(const SInstant& roInstant, const SClockReading& roClock, const SAgainst& roAgainst);
    // True when it is another one.
    bool ChooseReference(const SClockReading& roClock);
    void FillReferencePhases(const SAgainst& roAgainst);
    void UpdateSlips(const SInstant& roInstant, const SClockReading& roClock, const SAgainst& roAgainst);
    double GetLine(const SPairFigures& roPair) const;
    const SPairFigures* FindPair(uint32_t uiA, uint32_t uiB) const;
    const SPairFigures* FindPairWithReference(uint32_t uiStream, const SAgainst& roAgainst) const;
    void AddLockEvent(uint32_t uiStream, ELockState eBefore, ELockState eAfter, const SClockReading& roClock);
    SWatchEvent MakeEvent(EWatchEventKind eKind, uint32_t uiIndex) const;

    SWatchContext& m_roContext;
    const SWatchSettings& m_roSettings;
    EStreamDirection m_eDirection;
    std::vector<std::unique_ptr<CStreamWatch>> m_apoStreams;
    std::vector<SPairFigures> m_aoPairs;  // ordered by first, then second
    std::vector<CPairSlip> m_aoSlips;     // by stream: against the reference
    std::optional<SStreamKey> m_oForeign; // a reference of the other direction
    int64_t m_iLastSecond = 0;
    CLockGroups m_oGroups;
    CReferenceChoice m_oReference;
};

#endif
