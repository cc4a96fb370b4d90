/*
 * One consistent moment of everything that is known: what the analysis publishes once per second of the chip's clock,
 * counters included: what came later is in none of it. Plain data; a copy belongs to whoever holds it. Seconds, hertz
 * and ratios; phases are positive when the stream is later than what it is compared with, and lie within half a period.
 */
#ifndef WATCH_SNAPSHOT_H
#define WATCH_SNAPSHOT_H

#include <array>
#include <cstdint>
#include <vector>

#include "FieldRecord.h"
#include "LockThreshold.h"
#include "PacingHistogram.h"
#include "StreamKey.h"
#include "StreamTrackers.h"
#include "WatchEvent.h"

enum class EStreamState : uint8_t
{
    RUNNING, // fields come
    IDLE,    // nothing has come yet, or nothing is meant to come: not started, powered off
    LOST,    // there was a signal and it went away
    GONE,    // the device or its handle is no more
    COUNT
};

enum class ELockState : uint8_t
{
    LOCKED,    // within the threshold, and the drift does not differ from 0 by 3 sigma
    PASSING,   // within the threshold, but drifting
    FREE,      // outside the threshold
    IDLE,      // one of both does not run, or too little is known yet
    DIFFERENT, // of rates that are no whole multiples of each other
    COUNT
};

// A figure and how sure it is. Valid only when enough was seen.
struct SEstimate
{
    double flValue = 0.0;
    double flStdErr = 0.0;
    bool bIsValid = false;
};

enum class ERateWindow : uint8_t
{
    SECONDS_1,
    SECONDS_10,
    SECONDS_100,
    SECONDS_1000,
    COUNT
};
constexpr std::array<uint32_t, 4> auiRateWindowSeconds = {1, 10, 100, 1000};

enum class ETdevTime : uint8_t
{
    SECONDS_1,
    SECONDS_10,
    SECONDS_100,
    COUNT
};
constexpr std::array<uint32_t, 3> auiTdevSeconds = {1, 10, 100};

// Since the watch began; they only grow.
struct SStreamCounters
{
    uint64_t uiFields = 0;           // fields that the signal had while watched: observed + lost + unobserved
    uint64_t uiFieldsObserved = 0;   // delivered to us
    uint64_t uiFieldsLost = 0;       // we waited, and the board delivered nothing
    uint64_t uiFieldsUnobserved = 0; // we were late
    uint64_t uiFieldsRepeated = 0;   // the counter did not move
    uint64_t uiCounterBackward = 0;  // the counter went back
    uint64_t uiCounterForward = 0;   // the counter went forward without the time for it
    uint64_t uiFieldsEarly = 0;      // off the grid
    uint64_t uiFieldsLate = 0;       // off the grid
    uint64_t uiPhaseSteps = 0;
    uint64_t uiSignalLosses = 0;
    uint64_t uiTimingChanges = 0;
    uint64_t uiFormatChanges = 0;
    uint64_t uiStateChanges = 0; // capture or power
    uint64_t uiBuffersSkipped = 0;
    uint64_t uiBuffersSet = 0;         // outputs
    uint64_t uiBuffersRepeated = 0;    // outputs: shown twice
    uint64_t uiBuffersOverwritten = 0; // outputs
    uint64_t uiRepeatedBeyond = 0;     // outputs: fields that repeated a picture beyond the feed's cadence
    uint64_t uiFeedStalls = 0;         // outputs
    uint64_t uiCadenceChanges = 0;     // outputs
    uint64_t uiFieldOrderSwaps = 0;
    std::array<uint64_t, uiNbOfUnobservedCauses> auiUnobservedCauses = {}; // by EUnobservedCause
    uint64_t uiWaitTimeOuts = 0;
    uint64_t uiForeignStamps = 0;     // fields whose tick cannot be of the clock that the other streams show
    uint64_t uiLateWakes = 0;         // waits that returned to us later than half a field after its start
    uint64_t uiSlips = 0;             // against the reference
    double flSignalLostSeconds = 0.0; // sum of all losses
    double flRunningSeconds = 0.0;
    double flWatchedSeconds = 0.0;
};

// Counts of field intervals by their deviation from the period: bin 0 is everything below -limit, the last one
// everything above.
constexpr uint32_t uiIntervalBins = 41;
struct SIntervalHistogram
{
    double flBinSeconds = 0.0; // width of one inner bin; the middle one is centred on the period
    std::array<uint32_t, uiIntervalBins> auiCounts = {};
};

// Delivery latency (arrival after the envelope), for the watcher's own account: upper bounds in seconds and counts.
constexpr std::array<double, 10> aflWakeBoundsSeconds = {50e-6,  100e-6, 250e-6, 500e-6, 1e-3,
                                                         2.5e-3, 5e-3,   10e-3,  25e-3,  100e-3};
struct SWakeHistogram
{
    std::array<uint64_t, aflWakeBoundsSeconds.size() + 1> auiCounts = {}; // the last one: above all bounds
    double flSumSeconds = 0.0;
};

// The newest event of a stream.
struct SLastEvent
{
    uint64_t uiNumber = 0; // 0: none yet
    EWatchEventKind eKind = EWatchEventKind::WATCH_BEGAN;
    int64_t iUtcNs = 0;
};

struct SStreamFigures
{
    SStreamKey oKey;
    uint32_t uiChip = 0; // of the board, as it counts them
    EStreamState eState = EStreamState::IDLE;
    int64_t iStateSinceUtcNs = 0;
    SStreamDescription oDescription = {};

    // Nominal rate, fields per second: exact as uiNominalNumerator / uiNominalDenominator; 0 / 1 when not known.
    uint64_t uiNominalNumerator = 0;
    uint64_t uiNominalDenominator = 1;
    double flNominalRateHz = 0.0;
    double flLineSeconds = 0.0;     // duration of one line, 0: not known
    bool bStampsAreForeign = false; // its ticks are not of this clock: nothing can be told of its grid

    SStreamCounters oCounters;
    std::array<SEstimate, 4> aoRateHz;      // by ERateWindow
    std::array<SEstimate, 4> aoRatePpm;     // against the nominal rate
    double flJitterRmsSeconds = 0.0;        // about the fit of 10 s
    double flJitterPeakSeconds = 0.0;       // peak to peak of the same
    std::array<SEstimate, 3> aoTdevSeconds; // by ETdevTime
    SIntervalHistogram oIntervals;          // of the last 10 s
    SWakeHistogram oWakes;                  // since the watch began
    SPacingHistogram oPacing;               // likewise
    SPacingWorst oPacingWorst;              // since the snapshot before
    SQueueFigures oQueue;                   // inputs
    SFeedFigures oFeed;                     // outputs
    SFieldOrderFigures oFieldOrder;

    // Moment of the field start nearest to the snapshot's instant, relative to it, and the period behind it.
    SEstimate oGridSeconds;
    double flPeriodSeconds = 0.0;

    SEstimate oPhaseSeconds; // against the direction's reference stream
    SEstimate oDriftRatio;   // growth of that phase, seconds per second; positive: it falls behind
    ELockState eLock = ELockState::IDLE;
    double flPhaseLineSeconds = 0.0; // the line that this phase is told in: the reference's; 0: not known
    SEstimate oSecondsToThreshold;   // until the threshold is crossed; not valid: not drifting, or not known
    SEstimate oSecondsToSlip;        // until both are in step, a whole field further; likewise

    SEstimate oTaiPhaseSeconds;           // against the grid that starts at 1970-01-01T00:00:00 TAI
    double flTaiUncertaintySeconds = 0.0; // how closely that grid is known here
    SLastEvent oLastEvent;
};

// Two streams of one direction; uiFirst < uiSecond.
struct SPairFigures
{
    uint32_t uiFirst = 0;
    uint32_t uiSecond = 0;
    SEstimate oOffsetSeconds;   // the second's field start after the first's, within half of the shorter period
    double flLineSeconds = 0.0; // what offset and threshold are told in: a line of the direction's reference where it
                                // is one of both, of the first otherwise; 0: not known
    double flOffsetLines = 0.0; // in these; 0 when they are not known
    SEstimate oDriftRatio;      // growth of the offset, seconds per second
    SEstimate oLongDriftRatio;  // the same over the longest window, whatever shorter ones say: for what is far ahead
    double flScatterSeconds = 0.0; // of the offset about that
    ELockState eLock = ELockState::IDLE;
    uint32_t uiSecondsToLock = 0; // without drift, until a pair that passes counts as locked
    SEstimate oSecondsToThreshold;
    SEstimate oSecondsToSlip;
};

// When a pair gets a picture too many or too few.
struct SSlipFigures
{
    SEstimate oEverySeconds; // once in so many; not valid: in lock, not drifting, or not known
    SEstimate oNextSeconds;  // after the instant; likewise
    uint64_t uiCount = 0;    // that happened while it was watched
};

// Two streams that are not of one direction. Figures as for a pair of one: its lines are those of the second where that
// is the first one's reference, of the first otherwise; its indexes those of the streams.
struct SAcrossFigures
{
    SStreamKey oFirst;
    SStreamKey oSecond;
    SPairFigures oPair;
    SSlipFigures oSlip;
};

// Streams of both directions in lock with each other.
struct SAcrossGroup
{
    uint32_t uiGroup = 0;                    // identity among these, kept while the group lasts
    std::array<uint32_t, 2> auiMembers = {}; // by EStreamDirection: bit i: stream i
    int64_t iSinceUtcNs = 0;
    uint32_t uiChip = 0; // as in SStreamKey
};

// How long a picture takes from the start of its field at an input to the first field start of an output that can show
// it, by phases and queue alone: what the application takes comes on top.
struct SPathFigures
{
    SStreamKey oInput;
    SStreamKey oOutput;
    ELockState eLock = ELockState::IDLE; // of the pair: DIFFERENT has no delay
    bool bIsKnown = false;
    double flLeastSeconds = 0.0;
    double flMeanSeconds = 0.0;
    double flMostSeconds = 0.0;
    double flStdErrSeconds = 0.0;    // of all three
    double flStepSeconds = 0.0;      // what the next step adds; 0: none is ahead
    SEstimate oNextStepSeconds = {}; // after the instant; likewise
    uint64_t uiSteps = 0;
    double flLastStepSeconds = 0.0;
    int64_t iLastStepUtcNs = 0; // 0: there was none
};

struct SLockGroup
{
    uint32_t uiGroup = 0;   // identity, kept while the group lasts
    uint32_t uiMembers = 0; // bit i: stream i of the direction
    int64_t iSinceUtcNs = 0;
};

struct SDirectionFigures
{
    SStreamKey oReference; // that phases are told against; of either direction
    bool bHasReference = false;
    std::vector<SStreamFigures> aoStreams; // by index
    std::vector<SPairFigures> aoPairs;     // ordered by first, then second
    std::vector<SLockGroup> aoGroups;      // ordered by identity
};

// How the clocks hang together at the snapshot's instant.
struct SClockFigures
{
    int64_t iUtcNs = 0;  // the instant
    uint64_t uiTick = 0; // the same in ticks: a whole second of the chip's clock, but for the last one; 0: not known
    uint64_t uiMonotonicNs = 0;            // the same by CLOCK_MONOTONIC
    double flTickUncertaintySeconds = 0.0; // of tick against CLOCK_MONOTONIC
    double flMomentUncertainty = 0.0;      // the same of this instant, as a bound, seconds
    double flSecondsPerSecond = 1.0;       // seconds of CLOCK_MONOTONIC per second of the chip
    double flRateUncertainty = 0.0;        // of that, as a bound
    bool bTicksAreMonotonic = false;       // the board says so
    int32_t iTaiOffsetSeconds = 0;         // TAI - UTC by the kernel; 0: the kernel does not know it
    bool bIsSynchronised = false;          // the kernel's word about CLOCK_REALTIME
    double flEstimatedErrorSeconds = 0.0;  // the kernel's estimate for it
};

// A chip that is watched.
struct SChipFigures
{
    uint32_t uiChip = 0;     // as in SStreamKey
    uint32_t uiNumber = 0;   // of the board, as it counts them
    uint64_t uiInstants = 0; // that have been told of it; 0: it has not opened yet, or does not
    uint32_t uiTickFrequencyHz = 0;
    SClockFigures oClock;        // at its last instant
    uint32_t uiSharedClock = 0;  // number of the clock that other chips tick on too; 0: on one of its own
    int64_t iSharedOffsetNs = 0; // what that showed at tick 0
};

// Two streams of one direction and of different chips.
struct SChipPairFigures
{
    SStreamKey oFirst;
    SStreamKey oSecond;
    SPairFigures oPair;                // its indexes are those of the streams; its lines those of the first
    double flUncertaintySeconds = 0.0; // how far both clocks may be off, beside the offset's standard error
};

struct SWatchSnapshot
{
    uint64_t uiNumber = 0; // grows by one per snapshot, from 1
    uint32_t uiTickFrequencyHz = 0;
    SLockThreshold oThreshold;         // of the lock states
    uint64_t uiEventsDropped = 0;      // events that found no room because nobody took them
    SClockFigures oClock;              // of several chips the first one's
    std::vector<SChipFigures> aoChips; // in the order of their numbers
    // By StreamKey_GetSlot; of one chip: by EStreamDirection.
    std::vector<SDirectionFigures> aoDirections = std::vector<SDirectionFigures>(2);
    std::vector<SAcrossFigures> aoAcross;      // inputs with outputs, ordered by chip, input, then output
    std::vector<SAcrossGroup> aoAcrossGroups;  // ordered by chip and identity
    std::vector<SPathFigures> aoPaths;         // as they were told
    std::vector<SChipPairFigures> aoChipPairs; // of several chips: inputs with inputs, then outputs with outputs

    /* The clock of a chip, as in SStreamKey. */
    const SClockFigures& GetClock(uint32_t uiChip) const
    {
        const SChipFigures* poChip = FindChip(uiChip);
        return poChip != nullptr && poChip->uiInstants != 0 ? poChip->oClock : oClock;
    }
    /* Null when it is not told of. */
    const SChipFigures* FindChip(uint32_t uiChip) const
    {
        for (const SChipFigures& roChip : aoChips)
        {
            if (roChip.uiChip == uiChip)
            {
                return &roChip;
            }
        }
        return nullptr;
    }
};

#endif
