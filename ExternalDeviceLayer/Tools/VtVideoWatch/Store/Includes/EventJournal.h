/*
 * The journal: every event as a line of JSON, for those who ship logs. A thread of its own writes, so that neither a
 * full disk nor a slow reader of standard output delays whoever hands over. While nothing can be written, up to
 * uiMostWaitingLines events wait; beyond that the oldest are dropped and counted.
 */
#ifndef EVENT_JOURNAL_H
#define EVENT_JOURNAL_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "Fault.h"
#include "WatchEvent.h"
#include "WatchPublication.h"

constexpr uint32_t uiMostWaitingLines = 10000;

class CEventJournal
{
public:
    using PrintEvent = std::function<std::string(const SWatchEvent& roEvent)>;

    /*
     *   szFile   in  a file that is appended to, or "-" for standard output
     *   fnPrint  in  an event's line, without its end; called by the writing thread
     */
    CEventJournal(std::string szFile, PrintEvent fnPrint) : m_szFile(std::move(szFile)), m_fnPrint(std::move(fnPrint))
    {
    }
    ~CEventJournal() { Close(); }
    CEventJournal(const CEventJournal&) = delete;
    CEventJournal& operator=(const CEventJournal&) = delete;

    /* Opens the file, so that a wrong path is told at once. */
    CFault Open();
    CFault Start();

    /* Takes events over. Thread-safe, does not block. */
    void Put(std::span<const SWatchEvent> aoEvents);

    /* Opens the file anew: a log rotation has moved it. Thread-safe, does not block. */
    void Reopen();

    /* Writes what waits, as far as that can be done at once, and closes. */
    void Close();

    /* Adds what the journal has lost. Thread-safe. */
    void AddCosts(SWatchCosts& roCosts);

private:
    void Run();
    CFault WriteWaiting();
    bool WriteLine(const std::string& rszLine);
    bool Reach();
    void CloseFile();
    void Say(const CFault& roFault);

    const std::string m_szFile;
    const PrintEvent m_fnPrint;
    int m_iFile = -1;         // the writing thread's, and the opening one's before it starts
    size_t m_uiLineBytes = 0; // of the first waiting line, that the file has already

    std::mutex m_oMutex; // guards the rest
    std::condition_variable m_oMore;
    std::deque<SWatchEvent> m_aoWaiting;
    bool m_bHasMore = false;
    bool m_bIsToReopen = false;
    bool m_bIsToEnd = false;
    bool m_bIsFailing = false;
    uint64_t m_uiFailures = 0;
    uint64_t m_uiDropped = 0;
    std::thread m_oThread;
};

#endif
