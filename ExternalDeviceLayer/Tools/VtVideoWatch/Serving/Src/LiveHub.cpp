#include "LiveHub.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <deque>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "ApiQuery.h"
#include "EventJson.h"
#include "HttpSockets.h"
#include "LiveJson.h"
#include "Memory.h"
#include "Threads.h"
#include "WatchJson.h"

namespace
{

// So long the hub may overlook its end.
constexpr uint32_t uiWaitMs = 200;
constexpr std::chrono::seconds oKeepAlive{5};
constexpr uint32_t uiMostEvents = 1000;

std::string PrintMessage(const char* szEvent, uint64_t uiId, const CJson& roJson)
{
    return std::string("event: ") + szEvent + "\nid: " + std::to_string(uiId) + "\ndata: " + WatchJson_Print(roJson) +
           "\n\n";
}

} // namespace

// One who listens: what he has had, and what is on its way to him.
class CLiveHub::CListener : public IHttpStream
{
public:
    CListener(CLiveHub& roHub, std::optional<uint64_t> oAfter) : m_roHub(roHub), m_oAfter(oAfter) {}
    ~CListener() override { m_roHub.Leave(*this); }
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;

    void SetWaker(std::function<void()> fnWake) override;
    EHttpNext TakeNext(HttpPiece& rpoPiece) override;

    // The hub's mutex is held.
    void Wake() const
    {
        if (m_fnWake)
        {
            m_fnWake();
        }
    }

private:
    void Take(const MessagePtr& rpoMessage);

    CLiveHub& m_roHub;
    std::function<void()> m_fnWake;
    std::optional<uint64_t> m_oAfter; // the newest event that he knows of
    std::deque<HttpPiece> m_apoPieces = {std::make_shared<const std::string>("retry: 2000\n\n")};
    uint64_t m_uiKnown = 0; // snapshot
    uint64_t m_uiBeats = 0;
};

void CLiveHub::CListener::SetWaker(std::function<void()> fnWake)
{
    const std::lock_guard oGuard(m_roHub.m_oMutex);
    m_fnWake = std::move(fnWake);
}

EHttpNext CLiveHub::CListener::TakeNext(HttpPiece& rpoPiece)
{
    MessagePtr poMessage;
    {
        const std::lock_guard oGuard(m_roHub.m_oMutex);
        if (m_roHub.m_bIsEnding)
        {
            return EHttpNext::END;
        }
        const bool bIsSilent = std::exchange(m_uiBeats, m_roHub.m_uiBeats) != m_roHub.m_uiBeats;
        if (m_roHub.m_poMessage != nullptr && m_roHub.m_poMessage->uiNumber != m_uiKnown)
        {
            poMessage = m_roHub.m_poMessage;
        }
        else if (bIsSilent && m_apoPieces.empty())
        {
            m_apoPieces.push_back(std::make_shared<const std::string>(": still here\n\n"));
        }
    }
    if (m_apoPieces.empty() && poMessage != nullptr)
    {
        Take(poMessage);
    }
    if (m_apoPieces.empty())
    {
        return EHttpNext::NOTHING_YET;
    }
    rpoPiece = std::move(m_apoPieces.front());
    m_apoPieces.pop_front();
    return EHttpNext::PIECE;
}

void CLiveHub::CListener::Take(const MessagePtr& rpoMessage)
{
    m_uiKnown = rpoMessage->uiNumber;
    // Numbers beyond the newest one are of a watch before this one, whose events began anew.
    const uint64_t uiAfter = std::min(m_oAfter.value_or(rpoMessage->uiEventsAfter), rpoMessage->uiNewestEvent);
    m_oAfter = rpoMessage->uiNewestEvent;
    if (uiAfter < rpoMessage->uiEventsAfter)
    {
        uint64_t uiNewest = 0;
        m_apoPieces.push_back(std::make_shared<const std::string>(m_roHub.PrintEvents(uiAfter, uiNewest)));
        m_oAfter = std::max(uiNewest, rpoMessage->uiNewestEvent);
    }
    else if (uiAfter < rpoMessage->uiNewestEvent)
    {
        m_apoPieces.emplace_back(rpoMessage, &rpoMessage->szEvents);
    }
    m_apoPieces.emplace_back(rpoMessage, &rpoMessage->szSnapshot);
    std::erase_if(m_apoPieces, [](const HttpPiece& rpoPiece) { return rpoPiece->empty(); });
}

CLiveHub::CLiveHub(IWatchReader& roReader) : m_roReader(roReader) {}

bool CLiveHub::Start()
{
    const CSignalsBlocked oBlocked;
    return Thread_Make(m_oThread, [this] { Run(); });
}

CLiveHub::~CLiveHub()
{
    End();
    if (m_oThread.joinable())
    {
        m_oThread.join();
    }
}

void CLiveHub::End()
{
    const std::lock_guard oGuard(m_oMutex);
    m_bIsEnding = true;
    m_oChanged.notify_all();
    WakeAll();
}

uint32_t CLiveHub::GetListeners() const
{
    const std::lock_guard oGuard(m_oMutex);
    return static_cast<uint32_t>(m_apoListeners.size());
}

void CLiveHub::WakeAll()
{
    for (const CListener* poListener : m_apoListeners)
    {
        poListener->Wake();
    }
}

void CLiveHub::Publish(MessagePtr poMessage)
{
    m_poMessage = std::move(poMessage);
    m_oLastSaid = std::chrono::steady_clock::now();
    WakeAll();
}

void CLiveHub::Run()
{
    HttpSockets_LowerThreadPriority();
    std::unique_lock oLock(m_oMutex);
    while (!m_bIsEnding)
    {
        if (m_apoListeners.empty())
        {
            m_poMessage = nullptr;
            m_oChanged.wait(oLock);
            m_oLastSaid = std::chrono::steady_clock::now();
            continue;
        }
        const uint64_t uiKnown = m_poMessage == nullptr ? 0 : m_poMessage->uiNumber;
        // Nobody has been told anything yet: the events up to here are for those who ask for them.
        const uint64_t uiEventsAfter = m_poMessage == nullptr ? UINT64_MAX : m_poMessage->uiNewestEvent;
        oLock.unlock();
        const auto oBegin = std::chrono::steady_clock::now();
        const auto poLatest = m_roReader.AwaitNewer(uiKnown, uiWaitMs);
        MessagePtr poMessage;
        Memory_Do("a live message",
                  [&] { poMessage = poLatest == nullptr ? nullptr : Make(*poLatest, uiEventsAfter); });
        oLock.lock();
        const auto oNow = std::chrono::steady_clock::now();
        if (poMessage != nullptr)
        {
            Publish(std::move(poMessage));
        }
        else if (oNow - oBegin < std::chrono::milliseconds(uiWaitMs / 2))
        {
            // The watch has ended, and its waits return at once.
            m_oChanged.wait_for(oLock, std::chrono::milliseconds(uiWaitMs));
        }
        if (oNow - m_oLastSaid > oKeepAlive)
        {
            ++m_uiBeats;
            m_oLastSaid = oNow;
            WakeAll();
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
        oEvents.push_back(EventJson_FromEvent(roEvent));
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

bool CLiveHub::Enter(CListener& roListener)
{
    const std::lock_guard oGuard(m_oMutex);
    if (m_bIsEnding || m_apoListeners.size() >= uiMostListeners)
    {
        return false;
    }
    m_apoListeners.insert(&roListener);
    m_oChanged.notify_all();
    return true;
}

void CLiveHub::Leave(CListener& roListener)
{
    const std::lock_guard oGuard(m_oMutex);
    m_apoListeners.erase(&roListener);
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
    SHttpAnswer oAnswer;
    oAnswer.szType = "text/event-stream";
    if (roRequest.bIsHead)
    {
        return oAnswer;
    }
    auto poListener = std::make_shared<CListener>(*this, oAfter);
    if (!Enter(*poListener))
    {
        return HttpAnswer_MakeError(503, "there are " + std::to_string(uiMostListeners) + " live listeners already");
    }
    oAnswer.poStream = std::move(poListener);
    return oAnswer;
}
