#include "EventQueue.h"

#include <algorithm>
#include <cmath>

#include "TimeUnits.h"

namespace
{

constexpr uint64_t uiQuietNs = 10 * iNsPerSecond;
constexpr uint64_t uiFirstPauseNs = iNsPerMinute;
constexpr uint64_t uiLongestPauseNs = iNsPerHour;
constexpr uint32_t uiSinglyAtOnce = 10;
constexpr size_t uiMostPending = 4096;
constexpr size_t uiMostReady = 16384;
constexpr auto uiKinds = static_cast<size_t>(EWatchEventKind::COUNT);

// Kinds that fields and buffers cause, as often as there are such.
bool IsByField(EWatchEventKind eKind)
{
    switch (eKind)
    {
    case EWatchEventKind::FIELDS_LOST:
    case EWatchEventKind::FIELDS_UNOBSERVED:
    case EWatchEventKind::COUNTER_REPEATED:
    case EWatchEventKind::FIELD_EARLY:
    case EWatchEventKind::FIELD_LATE:
    case EWatchEventKind::BUFFERS_SKIPPED:
    case EWatchEventKind::BUFFERS_REPEATED:
    case EWatchEventKind::BUFFERS_OVERWRITTEN:
        return true;
    default:
        return false;
    }
}

// Groups are few and each of them matters.
bool IsOfGroup(EWatchEventKind eKind)
{
    return eKind == EWatchEventKind::GROUP_FORMED || eKind == EWatchEventKind::GROUP_CHANGED ||
           eKind == EWatchEventKind::GROUP_ENDED;
}

void Fold(SWatchEvent& roInto, const SWatchEvent& roEvent)
{
    roInto.uiCount += roEvent.uiCount;
    roInto.uiAfter = roEvent.uiAfter;
    roInto.flAfter = roEvent.flAfter;
    if (roEvent.eKind == EWatchEventKind::SIGNAL_BACK)
    {
        roInto.flSeconds += roEvent.flSeconds;
    }
    else if (std::abs(roEvent.flSeconds) > std::abs(roInto.flSeconds))
    {
        roInto.flSeconds = roEvent.flSeconds;
    }
}

} // namespace

CEventQueue::CEventQueue(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
    : m_uiNbOfInputs(uiNbOfInputs),
      m_aoEpisodes(size_t{uiNbOfInputs + uiNbOfOutputs} * uiKinds),
      m_aoLast(uiNbOfInputs + uiNbOfOutputs),
      m_puiLastEvent(roSettings.puiLastEvent ? roSettings.puiLastEvent
                                             : std::make_shared<uint64_t>(roSettings.uiEventsBefore))
{
    m_aoPending.reserve(uiMostPending);
    m_aoReady.reserve(uiMostReady);
    m_aoHappened.reserve(uiMostPending);
    m_aoHappenings.reserve(uiMostPending);
}

size_t CEventQueue::GetStream(const SStreamKey& roKey) const
{
    return roKey.eDirection == EStreamDirection::INPUT ? roKey.uiIndex : m_uiNbOfInputs + roKey.uiIndex;
}

CEventQueue::SEpisode& CEventQueue::GetEpisode(const SWatchEvent& roEvent)
{
    return m_aoEpisodes[GetStream(roEvent.oKey) * uiKinds + static_cast<size_t>(roEvent.eKind)];
}

void CEventQueue::Push(const SPending& roPending)
{
    if (m_aoPending.size() < uiMostPending)
    {
        m_aoPending.push_back(roPending);
    }
    else
    {
        ++m_uiDropped;
    }
}

void CEventQueue::Add(const SWatchEvent& roEvent, uint64_t uiMonotonicNs)
{
    SPending oPending{roEvent, uiMonotonicNs};
    oPending.oEvent.uiCount = std::max<uint64_t>(1, roEvent.uiCount);
    if (IsOfGroup(roEvent.eKind))
    {
        Push(oPending);
        return;
    }
    AddHappening(oPending);
    SEpisode& roEpisode = GetEpisode(roEvent);
    ++roEpisode.uiHappened;
    if (!IsByField(roEvent.eKind) && roEpisode.uiEmitted < uiSinglyAtOnce)
    {
        ++roEpisode.uiEmitted;
        Push(oPending);
    }
    else if (roEpisode.bHolds)
    {
        Fold(roEpisode.oFolded.oEvent, oPending.oEvent);
    }
    else
    {
        roEpisode.oFolded = oPending;
        roEpisode.bHolds = true;
    }
}

// An episode goes on while something happens, and ends when it has been quiet.
void CEventQueue::Advance(SEpisode& roEpisode, uint64_t uiNowNs)
{
    if (roEpisode.uiHappened > 0)
    {
        roEpisode.uiLastNs = uiNowNs;
        roEpisode.uiHappened = 0;
    }
    else if (uiNowNs - roEpisode.uiLastNs >= uiQuietNs)
    {
        roEpisode.uiEmitted = 0;
        roEpisode.uiPauseNs = 0;
    }
}

void CEventQueue::AddHappening(const SPending& roPending)
{
    SEpisode& roEpisode = GetEpisode(roPending.oEvent);
    if (IsByField(roPending.oEvent.eKind) && roEpisode.uiHappening != 0)
    {
        SWatchEvent& roInto = m_aoHappened[roEpisode.uiHappening - 1].oEvent;
        roInto.uiCount += roPending.oEvent.uiCount;
        // How long a queue took to fill belongs to the first skip, like the moment.
        roInto.flSeconds += roInto.eKind == EWatchEventKind::BUFFERS_SKIPPED ? 0.0 : roPending.oEvent.flSeconds;
    }
    else if (m_aoHappened.size() < uiMostPending)
    {
        m_aoHappened.push_back(roPending);
        roEpisode.uiHappening = m_aoHappened.size();
    }
}

void CEventQueue::MakeHappenings(const SClockReading& roClock, const CTickClock& roTicks)
{
    m_aoHappenings.clear();
    for (SPending& roPending : m_aoHappened)
    {
        SetMoment(roPending, roClock, roTicks);
        GetEpisode(roPending.oEvent).uiHappening = 0;
        m_aoHappenings.push_back(roPending.oEvent);
    }
    m_aoHappened.clear();
}

// Whether what an episode holds comes out now.
bool CEventQueue::IsDue(const SEpisode& roEpisode, uint64_t uiNowNs) const
{
    return roEpisode.bHolds &&
           (m_bEndAll || roEpisode.uiEmitted == 0 || uiNowNs - roEpisode.uiEmittedNs >= roEpisode.uiPauseNs);
}

void CEventQueue::ReleaseFolded(uint64_t uiNowNs)
{
    for (SEpisode& roEpisode : m_aoEpisodes)
    {
        Advance(roEpisode, uiNowNs);
        if (!IsDue(roEpisode, uiNowNs))
        {
            continue;
        }
        Push(roEpisode.oFolded);
        roEpisode.bHolds = false;
        ++roEpisode.uiEmitted;
        roEpisode.uiEmittedNs = uiNowNs;
        roEpisode.uiPauseNs = std::clamp(2 * roEpisode.uiPauseNs, uiFirstPauseNs, uiLongestPauseNs);
    }
}

void CEventQueue::SetMoment(SPending& roPending, const SClockReading& roClock, const CTickClock& roTicks) const
{
    SWatchEvent& roEvent = roPending.oEvent;
    const bool bByTick = roEvent.uiTick != 0 && roTicks.IsKnown();
    const uint64_t uiMomentNs = bByTick ? roTicks.ToMonotonicNs(roEvent.uiTick) : roPending.uiMonotonicNs;
    roEvent.iUtcNs = roClock.GetUtcNs(uiMomentNs);
    if (roEvent.uiTick == 0 && roTicks.IsKnown())
    {
        roEvent.uiTick = roTicks.ToTick(uiMomentNs);
    }
}

void CEventQueue::SetMoments(const SClockReading& roClock, const CTickClock& roTicks)
{
    for (SPending& roPending : m_aoPending)
    {
        SetMoment(roPending, roClock, roTicks);
    }
}

void CEventQueue::ForgetTicks()
{
    for (SPending& roPending : m_aoPending)
    {
        roPending.oEvent.uiTick = 0;
    }
    for (SEpisode& roEpisode : m_aoEpisodes)
    {
        roEpisode.oFolded.oEvent.uiTick = 0;
    }
}

void CEventQueue::MakeReady()
{
    // Insertion keeps the order of equals and needs no memory; the events are nearly in order.
    for (auto itEvent = m_aoPending.begin(); itEvent != m_aoPending.end(); ++itEvent)
    {
        const auto itPlace = std::upper_bound(m_aoPending.begin(), itEvent, *itEvent,
                                              [](const SPending& roA, const SPending& roB)
                                              { return roA.oEvent.iUtcNs < roB.oEvent.iUtcNs; });
        std::rotate(itPlace, itEvent, itEvent + 1);
    }
    for (SPending& roPending : m_aoPending)
    {
        if (m_aoReady.size() == uiMostReady)
        {
            ++m_uiDropped;
            continue;
        }
        Number(roPending.oEvent);
        m_aoReady.push_back(roPending.oEvent);
    }
    m_aoPending.clear();
}

void CEventQueue::Number(SWatchEvent& roEvent)
{
    roEvent.uiNumber = ++*m_puiLastEvent;
    m_aoLast[GetStream(roEvent.oKey)] = {roEvent.uiNumber, roEvent.eKind, roEvent.iUtcNs};
}

void CEventQueue::Flush(const SClockReading& roClock, const CTickClock& roTicks)
{
    if (m_bTaken)
    {
        m_aoReady.clear();
        m_bTaken = false;
    }
    MakeHappenings(roClock, roTicks);
    ReleaseFolded(roClock.uiMonotonicNs);
    SetMoments(roClock, roTicks);
    MakeReady();
    m_bEndAll = false;
}

std::span<const SWatchEvent> CEventQueue::Take()
{
    if (m_bTaken)
    {
        m_aoReady.clear();
    }
    m_bTaken = true;
    return m_aoReady;
}
