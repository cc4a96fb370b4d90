/*
 * The watch itself: one thread that takes what the streams' threads hand over, lets the engine analyse it once a
 * second, publishes the moment, and passes it on. It makes no call to the board and no I/O but reading its own costs,
 * so that nothing delays it.
 */
#ifndef WATCH_RUN_H
#define WATCH_RUN_H

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "BoardSession.h"
#include "MinuteSummary.h"
#include "WatchData.h"
#include "WatchEngine.h"

// What a second came to.
struct SWatchStep
{
    std::shared_ptr<const SWatchPublication> poPublication;
    std::span<const SWatchEvent> aoEvents;     // new ones, oldest first
    std::span<const SMinuteSummary> aoMinutes; // that have changed
};

struct SWatchRunSetup
{
    SWatchSettings oSettings;    // the board's facts are filled in by the run
    uint64_t uiEventsBefore = 0; // number of the last event of earlier runs
    int64_t iStartUtcNs = 0;
    // Called by the run's thread for every second; must not block. May be empty.
    std::function<void(const SWatchStep&)> fnTake;
    // Asked for what the takers cost and lose, before a moment is published. May be empty.
    std::function<void(SWatchCosts&)> fnAddCosts;
};

class CWatchRun
{
public:
    /*
     *   roSession  in  open; outlives the run
     *   roData     in  where moments are published; outlives the run
     */
    CWatchRun(const CBoardSession& roSession, SWatchData& roData, SWatchRunSetup oSetup);
    ~CWatchRun() { Stop(); }
    CWatchRun(const CWatchRun&) = delete;
    CWatchRun& operator=(const CWatchRun&) = delete;

    void Start();
    /* Analyses a last time and tells that the streams are watched no longer. Takes about 50 ms. */
    void Stop();

    /* Moments published so far: grows as long as the analysis makes progress. Any thread. */
    uint64_t GetProgress() const { return m_uiProgress.load(std::memory_order_relaxed); }

private:
    void Run();
    void TellStall(uint64_t uiDueNs);
    void Drain();
    void Analyse(bool bIsLast);
    void TakeDescription(EStreamDirection eDirection, uint32_t uiIndex, const SDescriptionRecord& roRecord);
    void AddEvents(std::span<const SWatchEvent> aoEvents);
    void EndWatch(const SClockReading& roClock);
    void FillCosts(SWatchCosts& roCosts);
    std::vector<SStreamTexts>& GetTexts(EStreamDirection eDirection);

    const CBoardSession& m_roSession;
    SWatchData& m_roData;
    SWatchRunSetup m_oSetup;
    WatchEnginePtr m_poEngine;
    SWatchPublication m_oTemplate; // what stays the same from one moment to the next, texts included
    std::vector<SWatchEvent> m_aoEvents;
    uint64_t m_uiLastEvent;
    double m_flAnalysisSeconds = 0.0;
    std::thread m_oThread;
    std::atomic<bool> m_bStop{false};
    std::atomic<uint64_t> m_uiProgress{0};
};

#endif
