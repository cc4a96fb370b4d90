// See ReplayTrack.h.
#include "ReplayTrack.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace
{

constexpr uint64_t uiCounterUnits = 16; // per field
constexpr uint64_t uiUsualRateHz = 60;  // where nothing tells

bool IsField(const SReplayWait& roWait)
{
    return roWait.eResult == EReplayResult::FIELD;
}

} // namespace

CReplayTrack::CReplayTrack(SReplayStream oStream, const SReplay& roReplay, bool bKeepsTimeOuts)
    : m_szName(std::move(oStream.szName)), m_aoWaits(std::move(oStream.aoWaits))
{
    if (!bKeepsTimeOuts)
    {
        std::erase_if(m_aoWaits, [](const SReplayWait& roWait) { return roWait.eResult == EReplayResult::TIMED_OUT; });
    }
    FindFieldTicks(roReplay.uiTickFreqHz);
    FindDue(roReplay);
    PlaceDescriptions(oStream.aoDescriptions);
}

void CReplayTrack::FindFieldTicks(uint32_t uiTickFreqHz)
{
    m_uiFieldTicks = std::max<uint64_t>(uiTickFreqHz / uiUsualRateHz, 1);
    const auto itFirst = std::ranges::find_if(m_aoWaits, IsField);
    const auto itLast = std::find_if(m_aoWaits.rbegin(), m_aoWaits.rend(), IsField);
    if (itFirst != m_aoWaits.end() && itLast->uiTick > itFirst->uiTick)
    {
        const uint64_t uiFields = (itLast->uiFieldCounter - itFirst->uiFieldCounter) / uiCounterUnits;
        const uint64_t uiTicks = itLast->uiTick - itFirst->uiTick;
        // A counter that jumps would make nonsense of it.
        const bool bIsSound = uiFields > 0 && uiTicks / uiFields >= 64 && uiTicks / uiFields <= 10ULL * uiTickFreqHz;
        m_uiFieldTicks = bIsSound ? (uiTicks + uiFields / 2) / uiFields : m_uiFieldTicks;
    }
}

// Arrivals become ticks by the moment that both clocks are known of.
void CReplayTrack::FindDue(const SReplay& roReplay)
{
    m_auiDue.reserve(m_aoWaits.size());
    const double flTicksPerNs = roReplay.uiTickFreqHz * 1e-9;
    uint64_t uiLast = 1;
    for (size_t uiWait = 0; uiWait < m_aoWaits.size(); ++uiWait)
    {
        const SReplayWait& roWait = m_aoWaits[uiWait];
        const double flSince = static_cast<double>(roWait.iArrivalNs - roReplay.iClockNs) * flTicksPerNs;
        const auto iSince = static_cast<int64_t>(std::llround(std::clamp(flSince, -0x1p61, 0x1p61)));
        const auto iArrival = std::max<int64_t>(static_cast<int64_t>(roReplay.uiClockTick) + iSince, 1);
        const auto uiArrival = static_cast<uint64_t>(iArrival);
        uiLast = std::max(uiLast, IsField(roWait) ? roWait.uiTick : std::min(uiArrival, uint64_t{1} << 61U));
        m_auiDue.push_back(uiLast);
        TakeLateness(uiWait, uiArrival, roReplay.uiTickFreqHz);
    }
}

// Where fields are missing behind a wait that returned more than a field late, its caller did not see them.
void CReplayTrack::TakeLateness(size_t uiWait, uint64_t uiArrival, uint32_t uiTickFreqHz)
{
    constexpr uint64_t uiMostLateSeconds = 60;
    const SReplayWait& roWait = m_aoWaits[uiWait];
    const bool bHasNext = uiWait + 1 < m_aoWaits.size() && IsField(roWait) && IsField(m_aoWaits[uiWait + 1]);
    if (bHasNext && m_aoWaits[uiWait + 1].uiFieldCounter - roWait.uiFieldCounter > uiCounterUnits &&
        uiArrival > roWait.uiTick + m_uiFieldTicks)
    {
        const uint64_t uiLateTicks = std::min(uiArrival - roWait.uiTick, uiMostLateSeconds * uiTickFreqHz);
        m_aoLate.emplace_back(uiWait, static_cast<uint32_t>(uiLateTicks * 1000 / uiTickFreqHz));
    }
}

// One that was read behind a wait tells what the stream has been since that wait returned.
void CReplayTrack::PlaceDescriptions(const std::vector<SReplayDescription>& raoDescriptions)
{
    size_t uiWait = 0;
    for (const SReplayDescription& roDescription : raoDescriptions)
    {
        while (uiWait + 1 < m_aoWaits.size() && m_aoWaits[uiWait + 1].iArrivalNs <= roDescription.iMomentNs)
        {
            ++uiWait;
        }
        m_aoDescribed.push_back({uiWait, roDescription});
    }
    if (m_aoDescribed.empty())
    {
        m_aoDescribed.emplace_back();
    }
}

// The seam is a gap like any other: the counters go on as if the fields in it had been there.
void CReplayTrack::SetLoop(uint64_t uiTicks)
{
    m_uiLoopTicks = uiTicks;
    const auto itFirst = std::ranges::find_if(m_aoWaits, IsField);
    if (itFirst == m_aoWaits.end())
    {
        return;
    }
    const SReplayWait& roLast = *std::find_if(m_aoWaits.rbegin(), m_aoWaits.rend(), IsField);
    const uint64_t uiPlayed = roLast.uiTick - std::min(roLast.uiTick, itFirst->uiTick);
    const uint64_t uiSeam = uiTicks - std::min(uiTicks, uiPlayed);
    const uint64_t uiSeamFields = std::max<uint64_t>((uiSeam + m_uiFieldTicks / 2) / m_uiFieldTicks, 1);
    const uint64_t uiCounted = roLast.uiFieldCounter - itFirst->uiFieldCounter;
    const uint64_t uiSet = roLast.uiSetBufferCounter - itFirst->uiSetBufferCounter;
    const uint64_t uiFields = std::max<uint64_t>(uiCounted / uiCounterUnits, 1);
    m_oGain.uiFieldCounter = uiCounted + uiSeamFields * uiCounterUnits;
    m_oGain.uiSetBufferCounter = uiSet + uiSet / uiFields * uiSeamFields;
    m_oGain.uiSkipped = roLast.uiSkipped - itFirst->uiSkipped;
}

const SReplayDescription* CReplayTrack::FindTimings() const
{
    const auto itDescribed = std::ranges::find_if(m_aoDescribed, [](const SDescribed& ro)
                                                  { return ro.oDescription.oVidParam.uiVActive > 0; });
    return itDescribed == m_aoDescribed.end() ? nullptr : &itDescribed->oDescription;
}

size_t CReplayTrack::GetRow(uint64_t uiWait) const
{
    return IsBehind(uiWait) ? m_aoWaits.size() - 1 : static_cast<size_t>(uiWait % m_aoWaits.size());
}

// How much later than the row of the recording.
uint64_t CReplayTrack::GetBehindTicks(uint64_t uiWait) const
{
    return IsBehind(uiWait) ? (uiWait - m_aoWaits.size() + 1) * m_uiFieldTicks : GetPass(uiWait) * m_uiLoopTicks;
}

uint64_t CReplayTrack::GetDue(uint64_t uiWait) const
{
    return m_auiDue[GetRow(uiWait)] + GetBehindTicks(uiWait);
}

uint64_t CReplayTrack::GetStamp(uint64_t uiWait) const
{
    const SReplayWait& roWait = m_aoWaits[GetRow(uiWait)];
    return IsField(roWait) && !IsBehind(uiWait) ? roWait.uiTick + GetBehindTicks(uiWait) : GetDue(uiWait);
}

SReplayWait CReplayTrack::GetWait(uint64_t uiWait) const
{
    SReplayWait oWait = m_aoWaits[GetRow(uiWait)];
    const uint64_t uiPass = GetPass(uiWait);
    oWait.uiTick = GetStamp(uiWait);
    oWait.uiFieldCounter += uiPass * m_oGain.uiFieldCounter;
    oWait.uiSetBufferCounter += uiPass * m_oGain.uiSetBufferCounter;
    oWait.uiSkipped += uiPass * m_oGain.uiSkipped;
    oWait.eResult = IsBehind(uiWait) ? EReplayResult::CANCELED : oWait.eResult;
    return oWait;
}

uint32_t CReplayTrack::GetLateMs(uint64_t uiWait) const
{
    const size_t uiRow = GetRow(uiWait);
    const auto itLate = std::ranges::lower_bound(m_aoLate, uiRow, {}, &std::pair<size_t, uint32_t>::first);
    return itLate != m_aoLate.end() && itLate->first == uiRow && !IsBehind(uiWait) ? itLate->second : 0;
}

const SReplayDescription& CReplayTrack::GetDescription(uint64_t uiWait) const
{
    const size_t uiRow = GetRow(uiWait);
    const auto itNext = std::ranges::upper_bound(m_aoDescribed, uiRow, {}, &SDescribed::uiFrom);
    return itNext == m_aoDescribed.begin() ? itNext->oDescription : std::prev(itNext)->oDescription;
}

uint64_t CReplayTrack::FindFirst(uint64_t uiTicks) const
{
    uint64_t uiEarly = 0; // one behind a wait that is too early
    uint64_t uiStep = 1;
    while (GetDue(uiEarly + uiStep) < uiTicks)
    {
        uiEarly += uiStep;
        uiStep *= 2;
    }
    uint64_t uiEnd = uiEarly + uiStep;
    while (uiEarly < uiEnd)
    {
        const uint64_t uiMiddle = uiEarly + (uiEnd - uiEarly) / 2;
        (GetDue(uiMiddle) < uiTicks ? uiEarly : uiEnd) = uiMiddle + (GetDue(uiMiddle) < uiTicks ? 1 : 0);
    }
    return uiEarly;
}
