/*
 * Writes the store: a thread of its own that commits once a second whatever the watch has handed over. While nothing
 * can be written, rows wait in bounded memory: events up to uiMostWaitingEvents, minutes up to uiMostWaitingMinutes;
 * beyond that the oldest are dropped and counted. Whoever hands over never waits for the disk.
 */
#ifndef STORE_WRITER_H
#define STORE_WRITER_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "StoreFile.h"
#include "StoreLock.h"
#include "StoreRecovery.h"
#include "WatchStep.h"

constexpr uint32_t uiMostWaitingEvents = 50000;
constexpr uint32_t uiMostWaitingMinutes = 10000;

class CStoreWriter
{
public:
    /*
     *   szFile      in  the store
     *   uiKeepDays  in  how long minutes are kept
     */
    CStoreWriter(std::string szFile, uint32_t uiKeepDays);
    ~CStoreWriter() { Close(); }
    CStoreWriter(const CStoreWriter&) = delete;
    CStoreWriter& operator=(const CStoreWriter&) = delete;

    /*
     * Opens the store, tidies up behind a run that was killed, and tells what there is to go on with. A fault that may
     * heal is no reason not to go on: opening is tried again until it can be.
     *   iNowUtcNs  in   the begin of this run
     *   roRemains  out  see there
     */
    CFault Open(int64_t iNowUtcNs, SStoreRemains& roRemains);

    /* Starts the thread. */
    CFault Start();

    /* Takes a second over. Thread-safe, does not block. */
    void Put(const SWatchStep& roStep);

    /* Keeps the number of the last event that somebody was told of. Thread-safe, does not block. */
    void KeepDelivered(uint64_t uiEvent);

    /* Writes what waits, as far as that can be done, and closes the store. */
    void Close();

    /* Adds what the store has lost and keeps waiting. Thread-safe. */
    void AddCosts(SWatchCosts& roCosts);

private:
    using MinuteKey = std::pair<int64_t, SStreamKey>;
    struct SWaiting
    {
        std::deque<SWatchEvent> aoEvents;
        std::map<MinuteKey, SMinuteSummary> aoMinutes;
        std::map<uint64_t, SIncident> aoIncidents; // by number
        uint64_t uiDelivered = 0;                  // 0: nothing new
        WatchPublicationPtr poLatest;
        bool bIsLast = false;

        // Neither needs memory.
        void Swap(SWaiting& roOther);
        void Clear();
    };

    void Run();
    void WriteOrKeep(SWaiting& roWaiting);
    CFault WriteAll(const SWaiting& roWaiting);
    void TakeOver(const SWatchStep& roStep);
    CFault OpenFile(int64_t iNowUtcNs, SStoreRemains& roRemains);
    void CloseFile();
    CFault Reach();
    bool Write(const SWaiting& roWaiting);
    bool WriteEvents(const SWaiting& roWaiting);
    bool WriteIncidents(const SWaiting& roWaiting);
    bool WriteMinutes(const SWaiting& roWaiting);
    bool WriteRun(const SWaiting& roWaiting, int64_t& riRun);
    bool WriteStreams(const SWatchPublication& roPublication);
    bool WriteStream(const SStreamKey& roKey, const SStreamTexts& roTexts);
    bool Prune(const SClockFigures& roClock);
    void TakeBack(SWaiting& roWaiting);
    void PutIncidents(const SWatchPublication& roPublication);
    void Bound();
    void Say(const CFault& roFault);

    const std::string m_szFile;
    const int64_t m_iKeepNs;

    // The writing thread's own, and the opening one's before it starts.
    CStoreLock m_oLock; // let go after the file
    StoreFilePtr m_poFile;
    int64_t m_iRun = 0; // row of this run; 0: not written yet
    int64_t m_iBeginUtcNs = 0;
    int64_t m_iClockOffsetNs = 0;   // of UTC to CLOCK_MONOTONIC, when they were compared last; 0: never
    uint64_t m_uiNextPruneNs = 0;   // CLOCK_MONOTONIC
    uint64_t m_uiIncidentShift = 0; // as the next, of incidents
    uint64_t m_uiShift = 0; // added to event numbers when the store was reached too late to be asked for its last one
    std::vector<std::vector<SStreamTexts>> m_aaoWrittenTexts; // by StreamKey_GetSlot
    WatchPublicationPtr m_poLatest;

    std::mutex m_oMutex; // guards the rest
    std::condition_variable m_oMore;
    SWaiting m_oWaiting;
    SWaiting m_oTaken; // the writing thread's own: what it has taken of that
    bool m_bHasMore = false;
    bool m_bIsFailing = false;
    std::set<uint64_t> m_oOpenIncidents; // that were handed over so
    uint64_t m_uiLastIncident = 0;       // that was handed over
    uint64_t m_uiFailures = 0;
    uint64_t m_uiDropped = 0;
    std::thread m_oThread;
};

#endif
