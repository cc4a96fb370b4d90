#include "LiveHub.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>

#include <nlohmann/json.hpp>

#include "ApiQuery.h"
#include "HttpSockets.h"
#include "LiveJson.h"
#include "WatchJson.h"

namespace
{

// So long the hub may overlook its end, and a listener a silent watch.
constexpr uint32_t uiWaitMs = 200;
constexpr std::chrono::seconds oKeepAlive{5};
constexpr uint32_t uiMostEvents = 1000;

std::string PrintMessage(const char* szEvent, uint64_t uiId, const CJson& roJson)
{
    return std::string("event: ") + szEvent + "\nid: " + std::to_string(uiId) + "\ndata: " + WatchJson_Print(roJson) +
           "\n\n";
}

} // namespace

CLiveHub::CLiveHub(IWatchReader& roReader) : m_roReader(roReader)
{
    const CSignalsBlocked oBlocked;
    m_oThread = std::thread([this] { Run(); });
}

CLiveHub::~CLiveHub()
{
    End();
    m_oThread.join();
}

void CLiveHub::End()
{
    const std::lock_guard oGuard(m_oMutex);
    m_bIsEnding = true;
    m_oChanged.notify_all();
}

uint32_t CLiveHub::GetListeners() const
{
    const std::lock_guard oGuard(m_oMutex);
    return m_uiListeners;
}

void CLiveHub::Run()
{
    HttpSockets_LowerThreadPriority();
    std::unique_lock oLock(m_oMutex);
    while (!m_bIsEnding)
    {
        if (m_uiListeners == 0)
        {
            m_poMessage = nullptr;
            m_oChanged.wait(oLock);
            continue;
        }
        const uint64_t uiKnown = m_poMessage == nullptr ? 0 : m_poMessage->uiNumber;
        // Nobody has been told anything yet: the events up to here are for those who ask for them.
        const uint64_t uiEventsAfter = m_poMessage == nullptr ? UINT64_MAX : m_poMessage->uiNewestEvent;
        oLock.unlock();
        const auto oBegin = std::chrono::steady_clock::now();
        const auto poLatest = m_roReader.AwaitNewer(uiKnown, uiWaitMs);
        MessagePtr poMessage = poLatest == nullptr ? nullptr : Make(*poLatest, uiEventsAfter);
        oLock.lock();
        if (poMessage != nullptr)
        {
            m_poMessage = std::move(poMessage);
            m_oChanged.notify_all();
        }
        else if (std::chrono::steady_clock::now() - oBegin < std::chrono::milliseconds(uiWaitMs / 2))
        {
            // The watch has ended, and its waits return at once.
            m_oChanged.wait_for(oLock, std::chrono::milliseconds(uiWaitMs));
        }
    }
}

std::string CLiveHub::PrintEvents(uint64_t uiAfter, uint64_t& ruiNewest) const
{
    SEventQuery oQuery;
    oQuery.uiAfterNumber = uiAfter;
    oQuery.uiMost = uiMostEvents + 1;
    std::vector<SWatchEvent> aoEvents = m_roReader.FindEvents(oQuery);
    if (aoEvents.empty())
    {
        return {};
    }
    const bool bIsTruncated = aoEvents.size() > uiMostEvents;
    aoEvents.resize(std::min<size_t>(aoEvents.size(), uiMostEvents));
    ruiNewest = std::max(ruiNewest, aoEvents.front().uiNumber);
    CJson oEvents = CJson::array();
    for (const SWatchEvent& roEvent : aoEvents)
    {
        oEvents.push_back(WatchJson_FromEvent(roEvent));
    }
    return PrintMessage("events", aoEvents.front().uiNumber,
                        {{"events", std::move(oEvents)}, {"truncated", bIsTruncated}});
}

CLiveHub::MessagePtr CLiveHub::Make(const SWatchPublication& roPublication, uint64_t uiEventsAfter)
{
    auto poMessage = std::make_shared<SMessage>();
    poMessage->uiNumber = roPublication.oSnapshot.uiNumber;
    if (uiEventsAfter == UINT64_MAX)
    {
        SEventQuery oNewest;
        oNewest.uiMost = 1;
        const std::vector<SWatchEvent> aoNewest = m_roReader.FindEvents(oNewest);
        uiEventsAfter = aoNewest.empty() ? 0 : aoNewest.front().uiNumber;
    }
    poMessage->uiEventsAfter = uiEventsAfter;
    poMessage->uiNewestEvent = uiEventsAfter;
    poMessage->szEvents = PrintEvents(uiEventsAfter, poMessage->uiNewestEvent);
    poMessage->szSnapshot = PrintMessage("snapshot", poMessage->uiNewestEvent, LiveJson_FromPublication(roPublication));
    return poMessage;
}

CLiveHub::MessagePtr CLiveHub::AwaitNewer(uint64_t uiKnown)
{
    std::unique_lock oLock(m_oMutex);
    m_oChanged.wait_for(oLock, oKeepAlive,
                        [&] { return m_bIsEnding || (m_poMessage != nullptr && m_poMessage->uiNumber != uiKnown); });
    return m_poMessage != nullptr && m_poMessage->uiNumber != uiKnown ? m_poMessage : nullptr;
}

bool CLiveHub::Enter()
{
    const std::lock_guard oGuard(m_oMutex);
    if (m_bIsEnding || m_uiListeners == uiMostListeners)
    {
        return false;
    }
    ++m_uiListeners;
    m_oChanged.notify_all();
    return true;
}

void CLiveHub::Leave()
{
    const std::lock_guard oGuard(m_oMutex);
    --m_uiListeners;
}

void CLiveHub::Serve(const HttpWriter& roWriter, std::optional<uint64_t> oAfter)
{
    uint64_t uiKnown = 0;
    bool bIsThere = roWriter("retry: 2000\n\n");
    while (bIsThere)
    {
        const MessagePtr poMessage = AwaitNewer(uiKnown);
        if (poMessage == nullptr)
        {
            bIsThere = roWriter(": still here\n\n");
            const std::lock_guard oGuard(m_oMutex);
            bIsThere = bIsThere && !m_bIsEnding;
            continue;
        }
        uiKnown = poMessage->uiNumber;
        // Numbers beyond the newest one are of a watch before this one, whose events began anew.
        const uint64_t uiAfter = std::min(oAfter.value_or(poMessage->uiEventsAfter), poMessage->uiNewestEvent);
        std::string szOwn;
        if (uiAfter < poMessage->uiEventsAfter)
        {
            uint64_t uiNewest = 0;
            szOwn = PrintEvents(uiAfter, uiNewest);
            oAfter = std::max(uiNewest, poMessage->uiNewestEvent);
        }
        else
        {
            szOwn = uiAfter < poMessage->uiNewestEvent ? poMessage->szEvents : std::string();
            oAfter = poMessage->uiNewestEvent;
        }
        bIsThere = (szOwn.empty() || roWriter(szOwn)) && roWriter(poMessage->szSnapshot);
    }
}

SHttpAnswer CLiveHub::Answer(const SHttpRequest& roRequest)
{
    constexpr const char* aszNames[] = {"after"};
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    std::optional<uint64_t> oAfter;
    if (oQuery.Has("after"))
    {
        oAfter = oQuery.GetNumber("after", 0, 0, UINT64_MAX);
    }
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    // A browser repeats the address of the first time when it comes again: what it has seen since then counts.
    uint64_t uiLastId = 0;
    const std::string& rszId = roRequest.szLastEventId;
    if (std::from_chars(rszId.data(), rszId.data() + rszId.size(), uiLastId).ec == std::errc())
    {
        oAfter = uiLastId;
    }
    if (!roRequest.bIsHead && !Enter())
    {
        return HttpAnswer_MakeError(503, "there are " + std::to_string(uiMostListeners) + " live listeners already");
    }
    SHttpAnswer oAnswer;
    oAnswer.szType = "text/event-stream";
    const auto poLeave = roRequest.bIsHead ? nullptr : std::shared_ptr<CLiveHub>(this, [](CLiveHub* p) { p->Leave(); });
    oAnswer.oStream = [this, oAfter, poLeave](const HttpWriter& roWriter) { Serve(roWriter, oAfter); };
    return oAnswer;
}
