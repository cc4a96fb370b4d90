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

bool IsActive(const std::vector<SSchedule>& raoWhen, uint64_t uiField)
{
    return std::ranges::any_of(raoWhen, [uiField](const SSchedule& roWhen) { return roWhen.IsActive(uiField); });
}

// What a field is shorter by at a rate iPpt parts in 10^12 faster: T p / (1 + p), with no product above 128 bits.
FixedTicks DriftTicks(FixedTicks iFieldTicks, int64_t iPpt)
{
    const FixedTicks iFaster = 1'000'000'000'000 + iPpt;
    return iFieldTicks / iFaster * iPpt + iFieldTicks % iFaster * iPpt / iFaster;
}

} // namespace

CStreamModel::CStreamModel(const SStream& roStream)
    : m_bEvents(!roStream.aoEvents.empty()), m_oStream(roStream), m_oFormat(MakeFormat({}, roStream.oTiming))
{
    m_iFieldTicks = m_oFormat.iFieldTicks;
    m_bInterlaced = roStream.oTiming.bInterlaced;
    m_uiWanderStart = Noise_Hash(roStream.uiWanderKey, 0);
    uint64_t uiSum = 0;
    for (const uint32_t uiBuffers : roStream.auiSetBufferPattern)
    {
        m_auiPatternSums.push_back(uiSum);
        uiSum += uiBuffers;
    }
    m_auiPatternSums.push_back(uiSum);
    m_uiPatternStep = roStream.auiSetBufferPattern.size() == 1 ? uiSum : 0;
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        AddEvent(roEvent);
    }
    EndFormatsWhereTheNextBegins();
}

CStreamModel::SFormat CStreamModel::MakeFormat(const SSchedule& roWhen, const SVideoTiming& roTiming) const
{
    SFormat oFormat{.oWhen = roWhen, .oTiming = roTiming, .oVidParam = VideoTiming_ToVidParam(roTiming)};
    oFormat.iFieldTicks = VideoTiming_GetFieldTicks(roTiming, m_oStream.uiTickFreqHz, m_oStream.iRatePpt);
    const double flTurns =
        FixedTicks_ToDouble(oFormat.iFieldTicks) / (m_oStream.flWanderPeriodS * m_oStream.uiTickFreqHz);
    oFormat.uiWanderIncrement = static_cast<uint64_t>((flTurns - std::floor(flTurns)) * 0x1p63) * 2;
    oFormat.oVidParam.bIsYuv = m_oStream.oColour.bIsYuv;
    oFormat.oVidParam.fColorSpace = m_oStream.oColour.fColorSpace;
    oFormat.oVidParam.fChromaSubSampling = m_oStream.oColour.fChromaSubSampling;
    oFormat.oVidParam.fColorDepth = m_oStream.oColour.fColorDepth;
    oFormat.oVidParam.fIs3GLevelB = m_oStream.oColour.fIs3GLevelB;
    return oFormat;
}

void CStreamModel::AddEvent(const SEvent& roEvent)
{
    switch (roEvent.eKind)
    {
    case EEventKind::SIGNAL_LOSS:
        m_aoLosses.push_back(roEvent.oWhen);
        break;
    case EEventKind::FORMAT_CHANGE:
        m_aoFormats.push_back(MakeFormat(roEvent.oWhen, roEvent.oTiming));
        break;
    case EEventKind::MISSED_FIELD:
        m_aoMissed.push_back(roEvent.oWhen);
        break;
    case EEventKind::DOUBLED_FIELD:
        m_aoDoubled.push_back(roEvent.oWhen);
        break;
    case EEventKind::COUNTER_JUMP:
        m_aoJumps.push_back(roEvent);
        break;
    case EEventKind::SKIPPED_BUFFERS:
        m_aoSkips.push_back(roEvent);
        break;
    case EEventKind::BUFFERS_RUN_OUT:
        m_aoRunOuts.push_back(roEvent.oWhen);
        break;
    case EEventKind::PHASE_STEP:
        m_aoSteps.push_back(roEvent);
        break;
    case EEventKind::LOCK_LOST:
        m_aoDrifts.push_back({roEvent.oWhen, -DriftTicks(m_iFieldTicks, roEvent.iDriftPpt)});
        break;
    case EEventKind::POWER_STATE:
        m_aoPowers.push_back(roEvent);
        break;
    case EEventKind::HANG:
        m_aoHangs.push_back(roEvent);
        break;
    case EEventKind::COUNT:
        break;
    }
}

// Leaves disjoint schedules, whose effects may simply be added up.
void CStreamModel::EndFormatsWhereTheNextBegins()
{
    std::ranges::sort(m_aoFormats, {}, [](const SFormat& roFormat) { return roFormat.oWhen.uiFirst; });
    for (size_t uiFormat = 1; uiFormat < m_aoFormats.size(); ++uiFormat)
    {
        SSchedule& roBefore = m_aoFormats[uiFormat - 1].oWhen;
        roBefore.uiLength = std::min(roBefore.uiLength, m_aoFormats[uiFormat].oWhen.uiFirst - roBefore.uiFirst);
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

EFieldFate CStreamModel::GetFate(uint64_t uiField) const
{
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
    SFieldStart oField{.uiField = uiField, .eFate = GetFate(uiField), .uiStamp = GetStamp(uiField)};
    oField.uiFieldCounter = m_oStream.uiFieldCounterStart + uiField * uiCounterUnits;
    if (m_oStream.eDirection == EDirection::OUTPUT)
    {
        oField.uiSetBufferCounter = GetSetBufferCount(uiField);
    }
    if (m_bEvents)
    {
        for (const SEvent& roJump : m_aoJumps)
        {
            oField.uiFieldCounter += roJump.oWhen.Occurrences(uiField) * static_cast<uint64_t>(roJump.iJump);
        }
    }
    if (m_bEvents || m_bInterlaced)
    {
        const SVideoTiming& roTiming = GetFormat(uiField).oTiming;
        oField.bIsTopField = roTiming.bInterlaced && (uiField % 2 == 0) != roTiming.bBottomFieldFirst;
    }
    return oField;
}

uint64_t CStreamModel::FindFirstAfter(uint64_t uiTicks, uint64_t uiFrom) const
{
    if (GetStamp(uiFrom) > uiTicks)
    {
        return uiFrom;
    }
    uint64_t uiStarted = uiFrom;
    uint64_t uiStep = 1;
    while (GetStamp(uiStarted + uiStep) <= uiTicks)
    {
        uiStarted += uiStep;
        uiStep *= 2;
    }
    uint64_t uiAfter = uiStarted + uiStep;
    while (uiAfter - uiStarted > 1)
    {
        const uint64_t uiMiddle = uiStarted + (uiAfter - uiStarted) / 2;
        (GetStamp(uiMiddle) <= uiTicks ? uiStarted : uiAfter) = uiMiddle;
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

VtVideo_VidParam CStreamModel::GetVidParam(uint64_t uiField) const
{
    return GetFate(uiField) == EFieldFate::LOST ? VtVideo_VidParam{} : GetFormat(uiField).oVidParam;
}

VtVideoOut_PowerState CStreamModel::GetPowerState(uint64_t uiField) const
{
    VtVideoOut_PowerState ePower = m_oStream.ePowerState;
    for (const SEvent& roPower : m_aoPowers)
    {
        ePower = roPower.oWhen.IsActive(uiField) ? roPower.ePower : ePower;
    }
    return ePower;
}

SCaptureState CStreamModel::GetCaptureState(uint64_t uiField) const
{
    SCaptureState oState{.uiTotal = m_oStream.uiBuffers};
    if (IsActive(m_aoRunOuts, uiField))
    {
        oState.uiLoan = oState.uiTotal; // the application gives none back
        return oState;
    }
    oState.uiReady = m_oStream.uiReady;
    oState.uiLoan = m_oStream.uiLoan;
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

uint64_t CStreamModel::GetSkipCount(uint64_t uiField) const
{
    uint64_t uiSkipped = m_oStream.uiSkipCountStart + CountActiveBefore(m_aoRunOuts, uiField + 1);
    for (const SEvent& roSkip : m_aoSkips)
    {
        uiSkipped += roSkip.oWhen.Occurrences(uiField) * roSkip.uiCount;
    }
    return uiSkipped;
}

uint64_t CStreamModel::GetFilledCount(uint64_t uiField) const
{
    return uiField + 1 - CountActiveBefore(m_aoRunOuts, uiField + 1);
}

// Buffers that the pattern sets in the first uiFields fields.
uint64_t CStreamModel::GetPatternSum(uint64_t uiFields) const
{
    if (m_uiPatternStep != 0)
    {
        return uiFields * m_uiPatternStep;
    }
    const size_t uiLength = m_auiPatternSums.size() - 1;
    return uiFields / uiLength * m_auiPatternSums.back() + m_auiPatternSums[uiFields % uiLength];
}

uint64_t CStreamModel::GetSetBufferCount(uint64_t uiField) const
{
    if (!m_bEvents)
    {
        return m_oStream.uiSetBufferStart + GetPatternSum(uiField + 1);
    }
    // While buffers run out the pattern stands still.
    const uint64_t uiFields = GetFilledCount(uiField);
    uint64_t uiCount = m_oStream.uiSetBufferStart + GetPatternSum(uiFields);
    for (const SEvent& roSkip : m_aoSkips)
    {
        uiCount += roSkip.oWhen.Occurrences(uiField) * roSkip.uiCount;
    }
    return uiCount;
}

void CStreamModel::GetBufferSize(uint64_t uiField, uint32_t& ruiWidth, uint32_t& ruiHeight) const
{
    const SVideoTiming& roTiming = GetFormat(uiField).oTiming;
    ruiWidth = m_oStream.uiWidth != 0 ? m_oStream.uiWidth : roTiming.uiHActive;
    ruiHeight = m_oStream.uiHeight != 0 ? m_oStream.uiHeight : roTiming.uiVActive;
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
