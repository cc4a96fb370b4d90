/*
 * The watch itself: one thread that takes what the streams' threads hand over, lets the engine of every chip analyse it
 * once a second, and hands on what that second came to. It makes no call to the board and no I/O but reading its own
 * costs, so that nothing delays it, least of all a chip that hangs.
 *
 * Seconds of several chips end at different moments: they are handed on together, each chip with its last one.
 */
#ifndef WATCH_RUN_H
#define WATCH_RUN_H

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "BoardSession.h"
#include "ChipPairs.h"
#include "CutDesk.h"
#include "Fault.h"
#include "HistoryMaker.h"
#include "WatchEngine.h"
#include "WatchJudge.h"
#include "WatchStep.h"

struct SWatchRunSetup
{
    SWatchSettings oSettings;             // the board's facts are filled in by the run
    std::vector<SStreamKey> aoReferences; // that phases are told against; a single one of a chip is for both directions
    std::vector<SStreamPath> aoPaths;
    SJudgeSettings oJudge;
    std::vector<SMinuteSummary> aoRunning; // minutes that an earlier run has left unfinished
    std::vector<SEarlierStream> aoEarlier; // what that run knew
    int64_t iStartUtcNs = 0;
    uint32_t uiRecorderSeconds = 0; // how far back every field of the one chip is remembered; 0: none is
    // Called by the run's thread when a chip is open, for its inputs and for its outputs (StreamKey_GetSlot). May be
    // empty.
    std::function<void(size_t uiSlot, uint32_t uiCount)> fnAddStreams;
    // Called by the run's thread for every second; must not block.
    std::function<void(const SWatchStep&)> fnTake;
    // Asked for what the takers cost and lose, before a second is handed on. May be empty.
    std::function<void(SWatchCosts&)> fnAddCosts;
};

// How late wake-ups are at least: over the last two stretches of a hundred.
class CLeastWake
{
public:
    void Take(uint64_t uiLateNs)
    {
        m_uiLeastNs = std::min(m_uiLeastNs, uiLateNs);
        if (++m_uiCount == 100)
        {
            m_uiBeforeNs = std::exchange(m_uiLeastNs, UINT64_MAX);
            m_uiCount = 0;
        }
    }
    /* 0: not known yet. */
    double GetSeconds() const
    {
        const uint64_t uiNs = std::min(m_uiLeastNs, m_uiBeforeNs);
        return uiNs == UINT64_MAX ? 0.0 : static_cast<double>(uiNs) * 1e-9;
    }

private:
    uint64_t m_uiLeastNs = UINT64_MAX;
    uint64_t m_uiBeforeNs = UINT64_MAX;
    uint32_t m_uiCount = 0;
};

class CWatchRun
{
public:
    /* roSession: open; outlives the run. */
    CWatchRun(const CBoardSession& roSession, SWatchRunSetup oSetup);
    ~CWatchRun() { Stop(); }
    CWatchRun(const CWatchRun&) = delete;
    CWatchRun& operator=(const CWatchRun&) = delete;

    CFault Start();
    /* Analyses a last time and tells that the streams are watched no longer. Takes about 50 ms. */
    void Stop();

    /*
     * A copy of what the recorder holds, as of some milliseconds ago.
     *   roSpan       in  what is wanted of it
     *   uiTimeOutMs  in  longest wait, milliseconds
     * Nothing without a recorder, after the time-out and when the run has ended. Any thread; blocks.
     */
    std::optional<CRecorderCut> AwaitCut(const SRecorderSpan& roSpan, uint32_t uiTimeOutMs)
    {
        return m_oCuts.Await(roSpan, uiTimeOutMs);
    }

    /* Seconds handed on so far: grows as long as the analysis makes progress. Any thread. */
    uint64_t GetProgress() const { return m_uiProgress.load(std::memory_order_relaxed); }

private:
    // A chip of the board.
    struct SChip
    {
        std::shared_ptr<CBoardChip> poBoard;
        std::unique_ptr<CWatchEngine> poEngine; // once it is open
        SWatchSnapshot oSnapshot;               // of its last second
        bool bIsFresh = false;                  // that has not been handed on
    };

    void Run();
    void OpenChips();
    void OpenChip(SChip& roChip);
    uint64_t GetDueNs() const;
    void TakeWake(uint64_t uiDueNs);
    void Drain();
    void DrainChip(SChip& roChip);
    void TakeField(SChip& roChip, const SStreamKey& roKey, const SFieldRecord& roRecord);
    void GiveCut();
    bool TryAnalyse(bool bIsLast);
    bool Analyse(bool bIsLast);
    bool AnalyseChip(SChip& roChip, bool bIsLast);
    void TakeEvents(SChip& roChip);
    void JoinChips(SWatchSnapshot& roSnapshot);
    void JoinAcross(SWatchSnapshot& roSnapshot, SChip& roChip);
    void HandOn(bool bIsLast);
    void TakeDescription(SChip& roChip, const SStreamKey& roKey, const SDescriptionRecord& roRecord);
    void TakeIncidents(std::span<const SWatchEvent> aoIncidents);
    void EndWatch(int64_t iUtcNs);
    void FillCosts(SWatchCosts& roCosts);

    SWatchRunSetup m_oSetup;
    std::vector<SChip> m_aoChips;
    CWatchJudge m_oJudge;
    CHistoryMaker m_oHistory;
    std::optional<CFieldRecorder> m_oRecorder;
    CCutDesk m_oCuts;
    SWatchPublication m_oTemplate;           // what stays the same from one moment to the next, texts included
    std::vector<SWatchEvent> m_aoEvents;     // that are not handed on yet
    std::vector<SWatchEvent> m_aoHappenings; // likewise, as CWatchEngine::GetHappenings has them
    WatchPublicationPtr m_poLast;
    CChipPairs m_oChipPairs;
    uint64_t m_uiSnapshots = 0;
    CLeastWake m_oLeastWake;
    double m_flAnalysisSeconds = 0.0;
    double m_flChipSeconds = 0.0; // that the chips' last analyses took
    std::thread m_oThread;
    std::atomic<bool> m_bStop{false};
    std::atomic<uint64_t> m_uiProgress{0};
};

#endif
