// See StreamModel.h.
//
// The start of field n is a sum of closed forms:
//     origin + n T                             the nominal grid
//   - T (doubled starts so far) [+ T / 4]      a doubled start takes a number of its own, a quarter behind the true one
//   + (T' - T) (fields so far in format ')     a field lasts as long as its format says
//   + steps so far, + drift since lock was lost
//   + wander                                   a sine over time, the same for all streams of a lock group
// and the stamp adds a Gaussian draw and rounds to whole ticks.
#include "StreamModel.h"

#include <algorithm>
#include <numbers>

#include "Noise.h"

namespace
{

constexpr uint32_t uiCounterUnits = 16; // per field

bool HasSignal(VtVideoOut_PowerState ePower)
{
    return ePower == VtVideoOut_PowerState_ON || ePower == VtVideoOut_PowerState_BLANKED;
}

uint64_t CountActiveBefore(const std::vector<SSchedule>& raoWhen, uint64_t uiField)
{
    uint64_t uiCount = 0;
    for (const SSchedule& roWhen : raoWhen)
    {
        uiCount += roWhen.ActiveBefore(uiField);
    }
    return uiCount;
}

bool IsActivePower(const std::vector<SEvent>& raoPowers, uint64_t uiField)
{
    return std::ranges::any_of(raoPowers, [uiField](const SEvent& ro) { return ro.oWhen.IsActive(uiField); });
}

bool IsActive(const std::vector<SSchedule>& raoWhen, uint64_t uiField)
{
    return std::ranges::any_of(raoWhen, [uiField](const SSchedule& roWhen) { return roWhen.IsActive(uiField); });
}

// Leaves disjoint schedules, whose effects may simply be added up.
template <typename T> void EndWhereTheNextBegins(std::vector<T>& raoSuccessive)
{
    std::ranges::sort(raoSuccessive, {}, [](const T& roOne) { return roOne.oWhen.uiFirst; });
    for (size_t uiNext = 1; uiNext < raoSuccessive.size(); ++uiNext)
    {
        SSchedule& roBefore = raoSuccessive[uiNext - 1].oWhen;
        roBefore.uiLength = std::min(roBefore.uiLength, raoSuccessive[uiNext].oWhen.uiFirst - roBefore.uiFirst);
    }
}

// What a field is shorter by at a rate iPpt parts in 10^12 faster: T p / (1 + p), with no product above 128 bits.
FixedTicks DriftTicks(FixedTicks iFieldTicks, int64_t iPpt)
{
    const FixedTicks iFaster = 1'000'000'000'000 + iPpt;
    return iFieldTicks / iFaster * iPpt + iFieldTicks % iFaster * iPpt / iFaster;
}

} // namespace

CStreamModel::CStreamModel(const SStream& roStream)
    : m_poReplay(roStream.poReplay.get()),
      m_bEvents(!roStream.aoEvents.empty()),
      m_oStream(roStream),
      m_oFormat(MakeFormat({}, roStream.oTiming)),
      m_oFeed(roStream.oFeed)
{
    m_iFieldTicks = m_oFormat.iFieldTicks;
    m_bInterlaced = roStream.oTiming.bInterlaced;
    m_uiWanderStart = Noise_Hash(roStream.uiWanderKey, 0);
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        AddEvent(roEvent);
    }
    EndWhereTheNextBegins(m_aoFormats);
    EndWhereTheNextBegins(m_aoCadences);
}

CStreamModel::SFormat CStreamModel::MakeFormat(const SSchedule& roWhen, const SVideoTiming& roTiming) const
{
    SFormat oFormat{.oWhen = roWhen, .oTiming = roTiming, .oVidParam = VideoTiming_ToVidParam(roTiming)};
    oFormat.iFieldTicks = VideoTiming_GetFieldTicks(roTiming, m_oStream.uiTickFreqHz, m_oStream.iRatePpt);
    const double flTurns =
        FixedTicks_ToDouble(oFormat.iFieldTicks) / (m_oStream.flWanderPeriodS * m_oStream.uiTickFreqHz);
    oFormat.uiWanderIncrement = static_cast<uint64_t>((flTurns - std::floor(flTurns)) * 0x1p63) * 2;
    const VtVideo_VidParam& roColour = m_oStream.oDescription.oVidParam;
    oFormat.oVidParam.bIsYuv = roColour.bIsYuv;
    oFormat.oVidParam.fColorSpace = roColour.fColorSpace;
    oFormat.oVidParam.fChromaSubSampling = roColour.fChromaSubSampling;
    oFormat.oVidParam.fColorDepth = roColour.fColorDepth;
    oFormat.oVidParam.fIs3GLevelB = roColour.fIs3GLevelB;
    return oFormat;
}

// Of some kinds only the moments count, of most the event as it is; a few are turned into what they come to.
void CStreamModel::AddEvent(const SEvent& roEvent)
{
    static constexpr std::array aoMoments = {std::pair{EEventKind::SIGNAL_LOSS, &CStreamModel::m_aoLosses},
                                             std::pair{EEventKind::MISSED_FIELD, &CStreamModel::m_aoMissed},
                                             std::pair{EEventKind::DOUBLED_FIELD, &CStreamModel::m_aoDoubled},
                                             std::pair{EEventKind::BUFFERS_RUN_OUT, &CStreamModel::m_aoRunOuts},
                                             std::pair{EEventKind::FIELD_ORDER_SWAP, &CStreamModel::m_aoSwaps}};
    static constexpr std::array aoEvents = {std::pair{EEventKind::COUNTER_JUMP, &CStreamModel::m_aoJumps},
                                            std::pair{EEventKind::SKIPPED_BUFFERS, &CStreamModel::m_aoSkips},
                                            std::pair{EEventKind::PHASE_STEP, &CStreamModel::m_aoSteps},
                                            std::pair{EEventKind::POWER_STATE, &CStreamModel::m_aoPowers},
                                            std::pair{EEventKind::HANG, &CStreamModel::m_aoHangs},
                                            std::pair{EEventKind::DESCRIPTION_CHANGE, &CStreamModel::m_aoDescriptions}};
    if (const auto itKind = std::ranges::find(aoMoments, roEvent.eKind, &decltype(aoMoments)::value_type::first);
        itKind != aoMoments.end())
    {
        (this->*itKind->second).push_back(roEvent.oWhen);
    }
    if (const auto itKind = std::ranges::find(aoEvents, roEvent.eKind, &decltype(aoEvents)::value_type::first);
        itKind != aoEvents.end())
    {
        (this->*itKind->second).push_back(roEvent);
    }
    switch (roEvent.eKind)
    {
    case EEventKind::FORMAT_CHANGE:
        m_aoFormats.push_back(MakeFormat(roEvent.oWhen, roEvent.oTiming));
        break;
    case EEventKind::LOCK_LOST:
        m_aoDrifts.push_back({roEvent.oWhen, -DriftTicks(m_iFieldTicks, roEvent.iDriftPpt)});
        break;
    case EEventKind::CADENCE_CHANGE:
        m_aoCadences.push_back({roEvent.oWhen, CBufferFeed(roEvent.oFeed)});
        break;
    case EEventKind::SLOW_CONSUMER:
        m_aoSlow.push_back({roEvent.oWhen, roEvent.uiTakenPpm});
        break;
    default:
        break;
    }
}

const CStreamModel::SFormat& CStreamModel::GetFormat(uint64_t uiField) const
{
    for (const SFormat& roFormat : m_aoFormats)
    {
        if (roFormat.oWhen.IsActive(uiField))
        {
            return roFormat;
        }
    }
    return m_oFormat;
}

FixedTicks CStreamModel::GetEventTicks(uint64_t uiField) const
{
    FixedTicks iTicks = 0;
    if (!m_bEvents)
    {
        return iTicks;
    }
    for (const SSchedule& roDoubled : m_aoDoubled)
    {
        iTicks -= m_iFieldTicks * static_cast<int64_t>(roDoubled.Occurrences(uiField));
        iTicks += roDoubled.IsActive(uiField) ? m_iFieldTicks / 4 : 0;
    }
    for (const SFormat& roFormat : m_aoFormats)
    {
        const auto iFields = static_cast<int64_t>(roFormat.oWhen.ActiveBefore(uiField));
        iTicks += (roFormat.iFieldTicks - m_iFieldTicks) * iFields;
    }
    for (const SEvent& roStep : m_aoSteps)
    {
        iTicks += roStep.iStep * static_cast<int64_t>(roStep.oWhen.Occurrences(uiField));
    }
    for (const SDrift& roDrift : m_aoDrifts)
    {
        if (roDrift.oWhen.IsActive(uiField))
        {
            iTicks += roDrift.iTicksAField * static_cast<int64_t>(roDrift.oWhen.Offset(uiField));
        }
    }
    return iTicks;
}

double CStreamModel::GetWander(uint64_t uiField) const
{
    if (m_oStream.flWanderTicks <= 0.0)
    {
        return 0.0;
    }
    // Time is what it follows: a field of another format takes another part of a turn, a doubled start none.
    uint64_t uiTurn = m_uiWanderStart + uiField * m_oFormat.uiWanderIncrement;
    for (const SFormat& roFormat : m_aoFormats)
    {
        uiTurn += roFormat.oWhen.ActiveBefore(uiField) * (roFormat.uiWanderIncrement - m_oFormat.uiWanderIncrement);
    }
    for (const SSchedule& roDoubled : m_aoDoubled)
    {
        uiTurn -= roDoubled.Occurrences(uiField) * m_oFormat.uiWanderIncrement;
    }
    return m_oStream.flWanderTicks * std::sin(static_cast<double>(uiTurn) * (0x1p-63 * std::numbers::pi));
}

FixedTicks CStreamModel::GetExactTicks(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        return FixedTicks{static_cast<int64_t>(m_poReplay->GetStamp(uiField))} * iOneTick + GetEventTicks(uiField);
    }
    return m_oStream.iOrigin + m_iFieldTicks * static_cast<int64_t>(uiField) + GetEventTicks(uiField) +
           FixedTicks_FromDouble(GetWander(uiField));
}

uint64_t CStreamModel::GetStamp(uint64_t uiField) const
{
    FixedTicks iTicks = GetExactTicks(uiField);
    if (m_oStream.flJitterTicks > 0.0)
    {
        iTicks += FixedTicks_FromDouble(m_oStream.flJitterTicks * Noise_Gaussian(m_oStream.uiKey, uiField));
    }
    return FixedTicks_Round(iTicks);
}

uint64_t CStreamModel::GetDue(uint64_t uiField) const
{
    if (m_poReplay == nullptr)
    {
        return GetStamp(uiField);
    }
    const FixedTicks iDue = FixedTicks{static_cast<int64_t>(m_poReplay->GetDue(uiField))} * iOneTick;
    return FixedTicks_Round(iDue + GetEventTicks(uiField));
}

// What is planted on top happens to fields alone: a wait that gave none gives none again.
EFieldFate CStreamModel::GetReplayedFate(uint64_t uiField) const
{
    switch (m_poReplay->GetWait(uiField).eResult)
    {
    case EReplayResult::TIMED_OUT:
        return EFieldFate::TIMED_OUT;
    case EReplayResult::CANCELED:
        return EFieldFate::LOST;
    case EReplayResult::FAILED:
        return EFieldFate::FAILED;
    case EReplayResult::FIELD:
        break;
    }
    const bool bPower = IsActivePower(m_aoPowers, uiField);
    if (IsActive(m_aoLosses, uiField) || (bPower && !HasSignal(GetPowerState(uiField))))
    {
        return EFieldFate::LOST;
    }
    return IsActive(m_aoMissed, uiField) ? EFieldFate::MISSED : EFieldFate::STARTED;
}

SFieldStart CStreamModel::GetReplayedField(uint64_t uiField) const
{
    const SReplayWait oWait = m_poReplay->GetWait(uiField);
    const auto iSwaps =
        std::ranges::count_if(m_aoSwaps, [uiField](const SSchedule& roSwap) { return roSwap.IsActive(uiField); });
    return {.uiField = uiField,
            .eFate = GetReplayedFate(uiField),
            .uiStamp = GetStamp(uiField),
            .uiDue = GetDue(uiField),
            .uiFieldCounter = oWait.uiFieldCounter + CountJumps(uiField),
            .uiSetBufferCounter = m_oStream.eDirection == EDirection::OUTPUT ? GetSetBufferCount(uiField) : 0,
            .bIsTopField = oWait.bIsTopField != (iSwaps % 2 != 0)};
}

EFieldFate CStreamModel::GetFate(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        return GetReplayedFate(uiField);
    }
    if (!m_bEvents)
    {
        const bool bLost = m_oStream.eDirection == EDirection::OUTPUT && !HasSignal(m_oStream.ePowerState);
        return bLost ? EFieldFate::LOST : EFieldFate::STARTED;
    }
    if (IsActive(m_aoLosses, uiField) ||
        (m_oStream.eDirection == EDirection::OUTPUT && !HasSignal(GetPowerState(uiField))))
    {
        return EFieldFate::LOST;
    }
    return IsActive(m_aoMissed, uiField) ? EFieldFate::MISSED : EFieldFate::STARTED;
}

SFieldStart CStreamModel::GetField(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        return GetReplayedField(uiField);
    }
    SFieldStart oField{.uiField = uiField, .eFate = GetFate(uiField), .uiStamp = GetStamp(uiField)};
    oField.uiDue = oField.uiStamp;
    oField.uiFieldCounter = m_oStream.uiFieldCounterStart + uiField * uiCounterUnits;
    if (m_oStream.eDirection == EDirection::OUTPUT)
    {
        oField.uiSetBufferCounter = GetSetBufferCount(uiField);
    }
    oField.uiFieldCounter += m_bEvents ? CountJumps(uiField) : 0;
    oField.bIsTopField = (m_bEvents || m_bInterlaced) && IsTopField(uiField);
    return oField;
}

uint64_t CStreamModel::CountJumps(uint64_t uiField) const
{
    uint64_t uiCount = 0;
    for (const SEvent& roJump : m_aoJumps)
    {
        uiCount += roJump.oWhen.Occurrences(uiField) * static_cast<uint64_t>(roJump.iJump);
    }
    return uiCount;
}

uint64_t CStreamModel::CountSkips(uint64_t uiField) const
{
    uint64_t uiCount = 0;
    for (const SEvent& roSkip : m_aoSkips)
    {
        uiCount += roSkip.oWhen.Occurrences(uiField) * roSkip.uiCount;
    }
    return uiCount;
}

bool CStreamModel::IsTopField(uint64_t uiField) const
{
    const SVideoTiming& roTiming = GetFormat(uiField).oTiming;
    const auto iSwaps =
        std::ranges::count_if(m_aoSwaps, [uiField](const SSchedule& roSwap) { return roSwap.IsActive(uiField); });
    const bool bFirstOfFrame = (uiField + static_cast<uint64_t>(iSwaps)) % 2 == 0;
    return roTiming.bInterlaced && bFirstOfFrame != roTiming.bBottomFieldFirst;
}

uint64_t CStreamModel::FindFirstAfter(uint64_t uiTicks, uint64_t uiFrom) const
{
    if (GetDue(uiFrom) > uiTicks)
    {
        return uiFrom;
    }
    uint64_t uiStarted = uiFrom;
    uint64_t uiStep = 1;
    while (GetDue(uiStarted + uiStep) <= uiTicks)
    {
        uiStarted += uiStep;
        uiStep *= 2;
    }
    uint64_t uiAfter = uiStarted + uiStep;
    while (uiAfter - uiStarted > 1)
    {
        const uint64_t uiMiddle = uiStarted + (uiAfter - uiStarted) / 2;
        (GetDue(uiMiddle) <= uiTicks ? uiStarted : uiAfter) = uiMiddle;
    }
    return uiAfter;
}

uint64_t CStreamModel::FindReported(uint64_t uiFrom, uint64_t uiEnd) const
{
    while (uiFrom < uiEnd && GetFate(uiFrom) == EFieldFate::MISSED)
    {
        ++uiFrom;
    }
    return uiFrom;
}

uint64_t CStreamModel::FindLastReported(uint64_t uiFrom, uint64_t uiEnd) const
{
    while (uiEnd > uiFrom && GetFate(uiEnd - 1) == EFieldFate::MISSED)
    {
        --uiEnd;
    }
    return uiEnd;
}

// As it was recorded, but for a format that is planted on top.
SStreamDescription CStreamModel::GetReplayedDescription(uint64_t uiField) const
{
    const SReplayDescription& roRecorded = m_poReplay->GetDescription(uiField);
    const SFormat& roFormat = GetFormat(uiField);
    return {.oVidParam = &roFormat == &m_oFormat ? roRecorded.oVidParam : roFormat.oVidParam,
            .ePixelFormat = roRecorded.ePixelFormat,
            .uiWidth = roRecorded.uiWidth,
            .uiHeight = roRecorded.uiHeight,
            .eCaptureState = static_cast<VtVideoIn_State>(roRecorded.uiCaptureState)};
}

SStreamDescription CStreamModel::GetDescription(uint64_t uiField) const
{
    const SFormat& roFormat = GetFormat(uiField);
    SStreamDescription oDescription = m_oStream.oDescription;
    oDescription.oVidParam = roFormat.oVidParam;
    oDescription.uiWidth = oDescription.uiWidth != 0 ? oDescription.uiWidth : roFormat.oTiming.uiHActive;
    oDescription.uiHeight = oDescription.uiHeight != 0 ? oDescription.uiHeight : roFormat.oTiming.uiVActive;
    oDescription = m_poReplay == nullptr ? oDescription : GetReplayedDescription(uiField);
    for (const SEvent& roEvent : m_aoDescriptions)
    {
        for (size_t uiChange = 0; roEvent.oWhen.IsActive(uiField) && uiChange < roEvent.aoChanges.size(); ++uiChange)
        {
            roEvent.aoChanges[uiChange].fnSet(oDescription, roEvent.aoChanges[uiChange].uiValue);
        }
    }
    if (GetFate(uiField) == EFieldFate::LOST)
    {
        oDescription.oVidParam = {};
    }
    return oDescription;
}

VtVideoOut_PowerState CStreamModel::GetPowerState(uint64_t uiField) const
{
    VtVideoOut_PowerState ePower =
        m_poReplay == nullptr ? m_oStream.ePowerState
                              : static_cast<VtVideoOut_PowerState>(m_poReplay->GetDescription(uiField).uiPowerState);
    for (const SEvent& roPower : m_aoPowers)
    {
        ePower = roPower.oWhen.IsActive(uiField) ? roPower.ePower : ePower;
    }
    return ePower;
}

SCaptureState CStreamModel::GetCaptureState(uint64_t uiField) const
{
    SCaptureState oState{.uiTotal = m_oStream.uiBuffers};
    if (m_poReplay != nullptr)
    {
        const SReplayWait oWait = m_poReplay->GetWait(uiField);
        oState.uiTotal = oWait.bHasBuffers ? uint32_t{oWait.uiReady} + oWait.uiLoaned + oWait.uiInternal : 0;
    }
    if (IsActive(m_aoRunOuts, uiField))
    {
        oState.uiLoan = oState.uiTotal; // the application gives none back
        return oState;
    }
    if (m_poReplay != nullptr)
    {
        const SReplayWait oWait = m_poReplay->GetWait(uiField);
        return {.uiTotal = oState.uiTotal,
                .uiReady = oWait.uiReady,
                .uiLoan = oWait.uiLoaned,
                .uiInternal = oWait.uiInternal};
    }
    oState.uiReady = m_oStream.uiReady;
    oState.uiLoan = m_oStream.uiLoan;
    for (const SSlowConsumer& roSlow : m_aoSlow)
    {
        if (roSlow.oWhen.IsActive(uiField))
        {
            oState.uiLoan += m_oStream.uiLoanSpread;
            oState.uiReady += roSlow.Waiting(roSlow.oWhen.Offset(uiField) + 1, GetRoom());
            oState.uiInternal = oState.uiTotal - oState.uiReady - oState.uiLoan;
            return oState;
        }
    }
    if (m_oStream.uiReadySpread > 0)
    {
        oState.uiReady += Noise_Uniform(~m_oStream.uiKey, 2 * uiField, m_oStream.uiReadySpread);
    }
    if (m_oStream.uiLoanSpread > 0)
    {
        oState.uiLoan += Noise_Uniform(~m_oStream.uiKey, 2 * uiField + 1, m_oStream.uiLoanSpread);
    }
    oState.uiInternal = oState.uiTotal - oState.uiReady - oState.uiLoan;
    return oState;
}

// Buffers that a slow application leaves to fields that wait for it.
uint32_t CStreamModel::GetRoom() const
{
    return m_oStream.uiBuffers - m_oStream.uiReady - m_oStream.uiLoan - m_oStream.uiLoanSpread;
}

uint32_t CStreamModel::GetNbOfBuffers(uint64_t uiField) const
{
    return m_poReplay == nullptr ? m_oStream.uiBuffers : m_poReplay->GetDescription(uiField).uiBuffers;
}

bool CStreamModel::HasSkipCount(uint64_t uiField) const
{
    return m_poReplay == nullptr || m_poReplay->GetWait(uiField).bHasSkipped;
}

uint64_t CStreamModel::GetSkipCount(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        return m_poReplay->GetWait(uiField).uiSkipped + CountActiveBefore(m_aoRunOuts, uiField + 1) +
               CountSkips(uiField);
    }
    return m_oStream.uiSkipCountStart + uiField + 1 - GetFilledCount(uiField) + CountSkips(uiField);
}

uint64_t CStreamModel::GetFilledCount(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        // No recording tells it: the fields that were not skipped.
        const SReplayWait oFirst = m_poReplay->GetWait(0);
        const SReplayWait oWait = m_poReplay->GetWait(uiField);
        return (oWait.uiFieldCounter - oFirst.uiFieldCounter) / uiCounterUnits + 1 -
               (oWait.uiSkipped - oFirst.uiSkipped);
    }
    uint64_t uiFilled = CountFilledBefore(uiField + 1);
    for (const SSlowConsumer& roSlow : m_aoSlow)
    {
        uiFilled -= roSlow.SkippedUpTo(uiField, GetRoom());
    }
    return uiFilled;
}

// Fields before uiField but those in which buffers had run out.
uint64_t CStreamModel::CountFilledBefore(uint64_t uiField) const
{
    return uiField - CountActiveBefore(m_aoRunOuts, uiField);
}

uint64_t CStreamModel::GetSetBufferCount(uint64_t uiField) const
{
    if (m_poReplay != nullptr)
    {
        return m_poReplay->GetWait(uiField).uiSetBufferCounter + CountSkips(uiField);
    }
    if (!m_bEvents)
    {
        return m_oStream.uiSetBufferStart + m_oFeed.CountIn(uiField + 1);
    }
    // While buffers run out a cadence stands still, and so does the stream's own during another.
    uint64_t uiFields = CountFilledBefore(uiField + 1);
    uint64_t uiCount = m_oStream.uiSetBufferStart;
    for (const SCadence& roCadence : m_aoCadences)
    {
        const uint64_t uiFirst = std::min(roCadence.oWhen.uiFirst, uiField + 1);
        const uint64_t uiEnd = uiFirst + roCadence.oWhen.ActiveBefore(uiField + 1);
        const uint64_t uiPlayed = CountFilledBefore(uiEnd) - CountFilledBefore(uiFirst);
        uiCount += roCadence.oFeed.CountIn(uiPlayed);
        uiFields -= uiPlayed;
    }
    return uiCount + m_oFeed.CountIn(uiFields) + CountSkips(uiField);
}

uint32_t CStreamModel::GetLateMs(uint64_t uiField) const
{
    return m_poReplay == nullptr ? 0 : m_poReplay->GetLateMs(uiField);
}

uint32_t CStreamModel::GetHangMs(uint64_t uiField) const
{
    uint32_t uiHangMs = 0;
    if (!m_bEvents)
    {
        return uiHangMs;
    }
    for (const SEvent& roHang : m_aoHangs)
    {
        uiHangMs += roHang.oWhen.IsActive(uiField) ? roHang.uiHangMs : 0;
    }
    return uiHangMs;
}
