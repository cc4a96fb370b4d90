/*
 * What the watch knows, for those who show it: the newest snapshot, the events, the history. The run writes it; any
 * number of threads read it. No reader ever delays the writer: it copies a pointer under a short lock.
 */
#ifndef WATCH_DATA_H
#define WATCH_DATA_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "WatchEvent.h"
#include "WatchSnapshot.h"

// Texts of a stream: printable UTF-8, whatever the board calls itself.
struct SStreamTexts
{
    std::string szId;       // "IN_00"
    std::string szName;     // connector's name
    std::string szStandard; // timings, "1920 x 1080p @ 60 Hz"
    std::string szFormat;   // pixel format's name
    std::string szCapture;  // capture state or power state
};

// What the program itself costs and loses.
struct SWatchCosts
{
    uint64_t uiRingOverruns = 0; // records that found no room
    uint64_t uiStoreWriteFailures = 0;
    uint64_t uiStoreRowsWaiting = 0;
    uint64_t uiStoreRowsDropped = 0;
    bool bStoreIsFailing = false;
    uint64_t uiJournalWriteFailures = 0;
    uint64_t uiJournalLinesDropped = 0;
    bool bJournalIsFailing = false;
    double flAnalysisSeconds = 0.0; // of the last pass
    double flCpuSeconds = 0.0;      // of the process so far
    uint64_t uiResidentBytes = 0;
};

// One consistent moment, never changed once it is published.
struct SWatchPublication
{
    SWatchSnapshot oSnapshot;
    std::vector<SStreamTexts> aoInputTexts; // by index
    std::vector<SStreamTexts> aoOutputTexts;
    SWatchCosts oCosts;
    std::string szHost;
    std::string szBoard; // path of the libVeltrano.so in use
    uint64_t uiBoardVersion = 0;
    bool bIsSimulated = false; // the board says of itself that it is simulated
    int64_t iStartUtcNs = 0;
};

// One point of a stream's history: a second, or a minute with its extremes.
struct SHistoryPoint
{
    int64_t iUtcNs = 0;     // begin
    uint32_t uiSeconds = 0; // 1 or 60
    uint32_t uiFields = 0;
    uint32_t uiObserved = 0;
    uint32_t uiLost = 0;
    uint32_t uiUnobserved = 0;
    uint32_t uiSkipped = 0;
    float flRunningSeconds = 0.0F;
    SEstimate oRateHz;
    SEstimate oPhaseSeconds; // against the reference; the mean of a minute
    double flPhaseMinSeconds = 0.0;
    double flPhaseMaxSeconds = 0.0;
    SEstimate oDriftRatio;
    double flJitterRmsSeconds = 0.0;
    ELockState eLock = ELockState::IDLE; // at its end
    EStreamState eState = EStreamState::IDLE;
};

struct SHistoryQuery
{
    EStreamDirection eDirection = EStreamDirection::INPUT;
    uint32_t uiIndex = 0;
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;   // exclusive
    uint32_t uiSeconds = 1; // 1 or 60
    uint32_t uiMost = 1000; // points at most; the newest ones
};

struct SEventQuery
{
    int64_t iFromUtcNs = INT64_MIN;
    int64_t iToUtcNs = INT64_MAX; // exclusive
    uint64_t uiAfterNumber = 0;   // only newer ones
    uint64_t uiKinds = ~0ULL;     // bit k: EWatchEventKind k
    uint64_t uiInputs = ~0ULL;    // bit i: input i
    uint64_t uiOutputs = ~0ULL;
    uint32_t uiMost = 1000; // the newest ones
};

struct SWatchData;

/* The newest publication; null before the first one. Thread-safe, does not block. */
std::shared_ptr<const SWatchPublication> WatchData_GetLatest(const SWatchData& roData);

/*
 * Waits for a publication newer than one that is known.
 *   uiKnownNumber  in  its snapshot's number, 0: any
 *   uiTimeOutMs    in  longest wait, milliseconds
 * The newest one, or null after the time-out and when the watch ends. Thread-safe, blocks.
 */
std::shared_ptr<const SWatchPublication> WatchData_AwaitNewer(SWatchData& roData, uint64_t uiKnownNumber,
                                                              uint32_t uiTimeOutMs);

/* Events, newest first. Thread-safe; reads the store when the memory does not reach back far enough. */
std::vector<SWatchEvent> WatchData_FindEvents(SWatchData& roData, const SEventQuery& roQuery);

/* Points of a stream's history, oldest first. Thread-safe; likewise. */
std::vector<SHistoryPoint> WatchData_FindHistory(SWatchData& roData, const SHistoryQuery& roQuery);

/* The moments that the history reaches back to, UTC nanoseconds: of seconds and of minutes. Thread-safe. */
struct SHistoryReach
{
    int64_t iSecondsFromUtcNs = 0;
    int64_t iMinutesFromUtcNs = 0;
};
SHistoryReach WatchData_GetReach(SWatchData& roData);

#endif
