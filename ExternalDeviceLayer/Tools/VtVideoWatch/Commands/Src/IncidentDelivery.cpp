#include "IncidentDelivery.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include <nlohmann/json.hpp>

#include "EventKinds.h"
#include "HealthJson.h"
#include "HealthTexts.h"
#include "Memory.h"
#include "Notice.h"
#include "StreamId.h"
#include "SystemJournal.h"
#include "TextFormat.h"
#include "Threads.h"

namespace
{

constexpr size_t uiMostWaiting = 10000;
constexpr uint64_t uiFirstPauseMs = 1000;
constexpr uint64_t uiLongestPauseMs = 300'000;

void TellJournal(const SIncidentNews& roNews)
{
    const SIncident& roIncident = roNews.oIncident;
    const bool bBegan = roNews.eKind == EWatchEventKind::INCIDENT_BEGAN;
    const std::string szNumber = std::to_string(roIncident.uiNumber);
    std::vector<std::string> aszFields = {
        std::string("MESSAGE=incident ") + szNumber + (bBegan ? " began: " : " ended: ") +
            HealthTexts_GetIncidentTitle(roIncident),
        std::string("MESSAGE_ID=") + (bBegan ? szIncidentBeganId : szIncidentEndedId),
        std::string("PRIORITY=") + (bBegan ? "4" : "6"),
        "VT_INCIDENT=" + szNumber,
        "VT_DOMAIN=" + std::string(HealthTexts_GetDomain(roIncident.eDomain)),
        "VT_REASON=" + HealthTexts_GetIncidentCause(roIncident),
        "VT_LOST=" + std::to_string(roIncident.uiLost),
    };
    // A field may come several times: one per stream.
    for (size_t uiSlot = 0; uiSlot < roIncident.auiStreams.size(); ++uiSlot)
    {
        for (const std::string& rszId :
             StreamId_PrintMembers(StreamKey_FromSlot(uiSlot, 0), roIncident.auiStreams[uiSlot]))
        {
            aszFields.push_back("VT_STREAM=" + rszId);
        }
    }
    SystemJournal_Put(aszFields);
}

} // namespace

std::string IncidentDelivery_Print(const SIncidentNews& roNews)
{
    CJson oJson = {{"event", EventKind_Get(roNews.eKind).szName}, {"event_number", roNews.uiEvent}};
    oJson.update(HealthJson_FromIncident(roNews.oIncident));
    return WatchJson_Print(oJson) + "\n";
}

CFault CIncidentDelivery::Start()
{
    return Thread_Start(m_oThread, "incidents", [this] { Run(); });
}

void CIncidentDelivery::Put(const SIncidentNews& roNews)
{
    {
        const std::lock_guard oGuard(m_oMutex);
        if (m_aoWaiting.size() == uiMostWaiting)
        {
            return;
        }
        Memory_Do("an incident's delivery", [&] { m_aoWaiting.push_back(roNews); });
    }
    m_oMore.notify_one();
}

void CIncidentDelivery::Close()
{
    Thread_End(m_oThread, m_oMutex, m_oMore, [this] { m_bIsToEnd = true; });
}

uint64_t CIncidentDelivery::GetFailures()
{
    const std::lock_guard oGuard(m_oMutex);
    return m_uiFailures;
}

void CIncidentDelivery::Run()
{
    std::unique_lock oLock(m_oMutex);
    while (!m_bIsToEnd)
    {
        m_oMore.wait(oLock, [this] { return m_bIsToEnd || !m_aoWaiting.empty(); });
        TellJournals(oLock);
        const auto HasNews = [this] { return m_bIsToEnd || FindNews() != m_aoWaiting.end(); };
        if (!m_aoWaiting.empty() && !m_oMore.wait_until(oLock, m_oNextTry, HasNews))
        {
            DeliverFirst(oLock);
        }
    }
    TellJournals(oLock);
}

// Under the lock: what the system's journal was not told of yet.
std::deque<SIncidentNews>::iterator CIncidentDelivery::FindNews()
{
    return std::ranges::find(m_aoWaiting, false, &SIncidentNews::bIsOld);
}

// A program that fails holds up itself alone.
void CIncidentDelivery::TellJournals(std::unique_lock<std::mutex>& roLock)
{
    for (auto itNews = FindNews(); itNews != m_aoWaiting.end(); itNews = FindNews())
    {
        itNews->bIsOld = true;
        const SIncidentNews oNews = *itNews;
        roLock.unlock();
        Memory_Do("an incident's entry in the system's journal", [&] { TellJournal(oNews); });
        roLock.lock();
    }
}

void CIncidentDelivery::DeliverFirst(std::unique_lock<std::mutex>& roLock)
{
    const SIncidentNews oNews = m_aoWaiting.front();
    roLock.unlock();
    bool bIsDelivered = false;
    Memory_Do("an incident's delivery", [&] { bIsDelivered = Deliver(oNews); });
    roLock.lock();
    if (bIsDelivered)
    {
        m_aoWaiting.pop_front();
    }
    m_uiPauseMs = bIsDelivered ? 0 : std::clamp(2 * m_uiPauseMs, uiFirstPauseMs, uiLongestPauseMs);
    m_oNextTry = std::chrono::steady_clock::now() + std::chrono::milliseconds(m_uiPauseMs);
}

bool CIncidentDelivery::Deliver(const SIncidentNews& roNews)
{
    if (!m_fnRun)
    {
        return true;
    }
    const CFault oFault = m_fnRun(IncidentDelivery_Print(roNews), m_bIsToEnd);
    if (!m_bIsToEnd)
    {
        Say(oFault);
    }
    if (!oFault && m_fnKeep)
    {
        m_fnKeep(roNews.uiEvent);
    }
    return !oFault;
}

void CIncidentDelivery::Say(const CFault& roFault)
{
    const std::lock_guard oGuard(m_oMutex);
    const bool bFails = static_cast<bool>(roFault);
    m_uiFailures += bFails ? 1 : 0;
    if (bFails != m_bIsFailing)
    {
        m_bIsFailing = bFails;
        Notice_Say(bFails ? "the program for incidents failed (" + roFault.GetText() + "); it is tried again"
                          : "the program for incidents takes them again; it failed " +
                                TextFormat_Count(m_uiFailures, "time") + " so far");
    }
}
