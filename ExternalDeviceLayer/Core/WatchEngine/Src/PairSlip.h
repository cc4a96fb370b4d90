/*
 * When one of two streams gets a picture more than the other: once per period that the offset drifts. Whichever hands
 * pictures from the one to the other drops or repeats one then.
 *
 * The offset is followed from second to second along its drift, and tells where it is in a period. A slip counts when
 * it has left that by the threshold of the lock: what hovers about zero in lock never slips. Where the offset is not
 * where its drift leads, and while it is not known, nothing is counted; then it begins anew.
 */
#ifndef PAIR_SLIP_H
#define PAIR_SLIP_H

#include "PairLock.h"
#include "WatchSnapshot.h"

// What a slip of a pair is measured by, seconds.
struct SSlipScale
{
    double flShort = 0.0;  // the shorter period: the offset is known modulo this
    double flPeriod = 0.0; // that makes a slip: of the slower stream
    double flMargin = 0.0;
    double flElapsed = 0.0; // since the last second
};

// What a second brought.
struct SSlips
{
    int32_t iPeriods = 0;      // positive: the second stream fell behind, one picture of the first was too many
    double flSecondsAgo = 0.0; // when the offset was 0

    uint32_t GetCount() const { return static_cast<uint32_t>(iPeriods < 0 ? -iPeriods : iPeriods); }
};

/* For two streams whose pair compares, so long after the last second. */
SSlipScale PairSlip_GetScale(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SPairContext& roContext,
                             double flElapsed);

/*
 * Of a stream that slipped against another one.
 *   eSlip   in  what became of the picture
 *   uiTick  in  the instant at which that was seen
 */
SWatchEvent PairSlip_MakeEvent(const SStreamKey& roStream, const SStreamKey& roAgainst, const SSlips& roSlips,
                               ESlip eSlip, uint64_t uiTick, uint32_t uiTickFrequencyHz);

class CPairSlip
{
public:
    /* Takes in a second; a pair whose offset is not known begins anew with the next one. */
    SSlips Take(const SPairFigures& roPair, const SSlipScale& roScale);
    /* When it slips, while it is not in lock and drifts; the count is left alone. */
    void Fill(const SPairFigures& roPair, const SSlipScale& roScale, SSlipFigures& roFigures) const;
    void Forget() { m_bIsKnown = false; }

private:
    bool m_bIsKnown = false;
    double m_flAhead = 0.0; // into the period, seconds: from 0 to it, a margin more on either side
};

#endif
