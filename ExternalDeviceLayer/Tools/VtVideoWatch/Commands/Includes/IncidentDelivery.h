/*
 * Tells others of every incident's begin and end: the system's journal, and a program of the operator's. A thread of
 * its own does it, one at a time, so that nothing delays the watching. What the program could not be told is tried
 * again with growing pauses, and by the next run if this one ends first.
 */
#ifndef INCIDENT_DELIVERY_H
#define INCIDENT_DELIVERY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Fault.h"
#include "WatchEvent.h"
#include "WatchHealth.h"

// A begin or an end.
struct SIncidentNews
{
    uint64_t uiEvent = 0; // number of its event
    EWatchEventKind eKind = EWatchEventKind::INCIDENT_BEGAN;
    SIncident oIncident;
    bool bIsOld = false; // the system's journal has it
};

class CIncidentDelivery
{
public:
    // Runs the program. Tests put another one here.
    using RunProgram = std::function<CFault(const std::string& rszInput, const std::atomic<bool>& rbIsToEnd)>;
    using KeepDelivered = std::function<void(uint64_t uiEvent)>;

    /*
     *   fnRun   in  empty: there is no program
     *   fnKeep  in  told of the last event that was delivered; empty: nobody keeps it
     */
    CIncidentDelivery(RunProgram fnRun, KeepDelivered fnKeep) : m_fnRun(std::move(fnRun)), m_fnKeep(std::move(fnKeep))
    {
    }
    ~CIncidentDelivery() { Close(); }
    CIncidentDelivery(const CIncidentDelivery&) = delete;
    CIncidentDelivery& operator=(const CIncidentDelivery&) = delete;

    CFault Start();
    /* Thread-safe, does not block. */
    void Put(const SIncidentNews& roNews);
    /* A program that runs is left to itself, and what waits to the next run. */
    void Close();

    /* Times that the program failed. Thread-safe. */
    uint64_t GetFailures();

private:
    void Run();
    std::deque<SIncidentNews>::iterator FindNews();
    void TellJournals(std::unique_lock<std::mutex>& roLock);
    void DeliverFirst(std::unique_lock<std::mutex>& roLock);
    bool Deliver(const SIncidentNews& roNews);
    void Say(const CFault& roFault);

    const RunProgram m_fnRun;
    const KeepDelivered m_fnKeep;
    std::atomic<bool> m_bIsToEnd{false};
    std::mutex m_oMutex; // guards the rest
    std::condition_variable m_oMore;
    std::deque<SIncidentNews> m_aoWaiting;
    bool m_bIsFailing = false;
    uint64_t m_uiFailures = 0;
    uint64_t m_uiPauseMs = 0;
    std::chrono::steady_clock::time_point m_oNextTry;
    std::thread m_oThread;
};

/* What a program is given: the incident, with "event" and "event_number". */
std::string IncidentDelivery_Print(const SIncidentNews& roNews);

#endif
