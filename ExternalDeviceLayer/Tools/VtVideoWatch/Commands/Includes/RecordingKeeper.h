/*
 * Keeps a recording of every incident in a folder: from before its begin to after its end. A thread of its own writes
 * them, at a lower priority, out of copies of the recorder, so that nothing delays the watching; the oldest give way.
 * Makes recordings for others besides. Time is that of the seconds that are put.
 */
#ifndef RECORDING_KEEPER_H
#define RECORDING_KEEPER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Fault.h"
#include "FieldRecorder.h"
#include "RecordingMaker.h"
#include "RecordingSource.h"
#include "WatchStep.h"

// A recording goes on for so long behind the end of what it is about, and never for longer behind its begin.
constexpr uint32_t uiRecordedAfterSeconds = 10;
constexpr uint32_t uiMostRecordedSeconds = 300;
// The recorder reaches back farther than it is asked for: a copy takes its time.
constexpr uint32_t uiRecorderSlackSeconds = 5;

struct SRecordingKeeperSetup
{
    std::string szFolder;
    uint64_t uiKeepBytes = 0; // of all recordings of incidents
    uint32_t uiSeconds = 60;  // before the begin
    // Of the recorder; nothing when there is none to be had. Blocks.
    std::function<std::optional<CRecorderCut>(const SRecorderSpan& roSpan)> fnAwaitCut;
};

// The recording that is being made.
struct SRecordingCase
{
    CRecordingMaker oMaker;
    std::set<uint64_t> auiOpen; // incidents that have not ended
    uint64_t uiFromNs = 0;
    uint64_t uiBeginNs = 0;
    uint64_t uiQuietNs = 0; // when the last one ended
    uint64_t uiCutNs = 0;   // up to where the recorder has been copied
};

class CRecordingKeeper : public IRecordingSource
{
public:
    explicit CRecordingKeeper(SRecordingKeeperSetup oSetup) : m_oSetup(std::move(oSetup)) {}
    ~CRecordingKeeper() override { Close(); }
    CRecordingKeeper(const CRecordingKeeper&) = delete;
    CRecordingKeeper& operator=(const CRecordingKeeper&) = delete;

    /* Makes the folder if there is none, takes it for this watch alone, and clears what a killed one left. */
    CFault Open();
    CFault Start();

    /* Takes a second over. Thread-safe, does not block. */
    void Put(const SWatchStep& roStep);

    /* Has what is being written be ended now, while copies of the recorder can still be had. Does not block. */
    void BeginEnd();
    void Close();

    /* Adds what was written and lost. Thread-safe. */
    void AddCosts(SWatchCosts& roCosts);

    uint32_t GetMostSeconds() const override;
    CFault MakeRecording(uint32_t uiSeconds, int& riFile) override;
    std::vector<SKeptRecording> ListRecordings() override;
    CFault ReadFields(const std::string& rszRecording, const SStreamKey& roStream, uint32_t uiSeconds, size_t uiMost,
                      SRecordedFields& roFields) override;

private:
    // One second's share of what matters here.
    struct SEvents
    {
        uint64_t uiMomentNs = 0; // when it was handed over, CLOCK_MONOTONIC
        std::vector<SWatchEvent> aoEvents;
    };
    // That an incident began or ended.
    struct SNews
    {
        uint64_t uiMomentNs = 0;
        int64_t iUtcNs = 0;
        uint64_t uiIncident = 0;
        bool bBegan = false;
    };

    void Run();
    CFault Take(const SNews& roNews, const SWatchPublication& roLatest);
    CFault Begin(const SNews& roNews, const SWatchPublication& roLatest);
    CFault Advance(uint64_t uiNowNs, const SWatchPublication& roLatest, bool bIsToEnd);
    uint64_t GetSecondsBefore(const SWatchPublication& roLatest) const;
    bool HasRoom(const CRecordingMaker& roMaker) const;
    bool IsOver(uint64_t uiNowNs) const;
    CFault Cut(CRecordingMaker& roMaker, uint64_t uiFromNs, const SWatchPublication& roLatest);
    CFault Finish();
    WatchPublicationPtr GetLatest();
    void Prune(uint64_t uiOwnBytes) const;
    void Say(const CFault& roFault);
    std::vector<SWatchEvent> GetEvents(uint64_t uiFromNs);

    const SRecordingKeeperSetup m_oSetup;
    int m_iFolder = -1;
    std::optional<SRecordingCase> m_oCase; // the thread's
    std::mutex m_oRequest;                 // held by the one who is served
    std::atomic<bool> m_bIsToEnd{false};

    std::mutex m_oMutex; // guards the rest
    std::condition_variable m_oMore;
    WatchPublicationPtr m_poLatest;
    std::deque<SEvents> m_aoEvents; // of as long as a recording may reach back
    std::vector<SNews> m_aoNews;
    bool m_bHasMore = false;
    bool m_bIsFailing = false;
    uint64_t m_uiWritten = 0;
    uint64_t m_uiFailures = 0;
    std::thread m_oThread;
};

#endif
