// The limits keep the stamps from ever going back: jitter of both neighbours, a step back and lock regained may each
// take a sixteenth of a field, and a doubled start stands a quarter behind the true one.
#include "ScenarioEvents.h"

#include <cmath>

#include "ScenarioChanges.h"
#include "ScenarioKeys.h"
#include "ScenarioNames.h"
#include "StreamModel.h"

namespace
{

constexpr double flSecondsLimit = 1e8;

enum class ELength : uint8_t
{
    POINT,    // happens at a field
    ONE,      // lasts, one field unless told
    FOR_EVER, // lasts, for ever unless told
};

enum class EOverlap : uint8_t
{
    FREE,
    DISJOINT,  // their effects are added up, so they must not meet
    SUCCESSIVE // each ends where the next begins
};

// Which streams have it.
enum class EOf : uint8_t
{
    BOTH,
    INPUTS,
    OUTPUTS
};

struct SEventKind
{
    EEventKind eKind;
    std::string_view szName;
    ELength eLength;
    EOverlap eOverlap;
    EOf eOf = EOf::BOTH;
};

constexpr std::array<SEventKind, static_cast<size_t>(EEventKind::COUNT)> aoKinds = {{
    {EEventKind::SIGNAL_LOSS, "signal_loss", ELength::FOR_EVER, EOverlap::FREE},
    {EEventKind::FORMAT_CHANGE, "format_change", ELength::FOR_EVER, EOverlap::SUCCESSIVE},
    {EEventKind::MISSED_FIELD, "missed_field", ELength::ONE, EOverlap::FREE},
    {EEventKind::DOUBLED_FIELD, "doubled_field", ELength::POINT, EOverlap::DISJOINT},
    {EEventKind::COUNTER_JUMP, "counter_jump", ELength::POINT, EOverlap::FREE},
    {EEventKind::SKIPPED_BUFFERS, "skipped_buffers", ELength::POINT, EOverlap::FREE},
    {EEventKind::BUFFERS_RUN_OUT, "buffers_run_out", ELength::ONE, EOverlap::DISJOINT},
    {EEventKind::PHASE_STEP, "phase_step", ELength::POINT, EOverlap::FREE},
    {EEventKind::LOCK_LOST, "lock_lost", ELength::FOR_EVER, EOverlap::DISJOINT},
    {EEventKind::POWER_STATE, "power_state", ELength::FOR_EVER, EOverlap::FREE, EOf::OUTPUTS},
    {EEventKind::HANG, "hang", ELength::POINT, EOverlap::FREE},
    {EEventKind::DESCRIPTION_CHANGE, "description_change", ELength::FOR_EVER, EOverlap::FREE},
    {EEventKind::FIELD_ORDER_SWAP, "field_order_swap", ELength::FOR_EVER, EOverlap::FREE},
    {EEventKind::CADENCE_CHANGE, "cadence_change", ELength::FOR_EVER, EOverlap::SUCCESSIVE, EOf::OUTPUTS},
    {EEventKind::SLOW_CONSUMER, "slow_consumer", ELength::FOR_EVER, EOverlap::DISJOINT, EOf::INPUTS},
}};

FixedTicks FieldTicks(const SStream& roStream)
{
    return VideoTiming_GetFieldTicks(roStream.oTiming, roStream.uiTickFreqHz, roStream.iRatePpt);
}

// Reads szFields or szSeconds, two keys for one figure; seconds become fields by the stream's first format.
//   iBefore  in  what is taken off a time before it is turned into fields
//   bUp      in  to the next field, instead of to the nearest
bool ReadFields(CScenarioSection& roSection, const std::string& szFields, const std::string& szSeconds, int64_t iMin,
                const SStream& roStream, FixedTicks iBefore, bool bUp, uint64_t& ruiFields)
{
    int64_t iFields = 0;
    const bool bFields =
        roSection.ReadInteger(szFields, iMin, static_cast<int64_t>(CStreamModel::msc_uiFieldLimit) - 1, iFields);
    double flSeconds = 0.0;
    const bool bSeconds = roSection.ReadFloat(szSeconds, 0.0, flSecondsLimit, flSeconds);
    if (bFields && bSeconds)
    {
        roSection.Refuse(szSeconds, "either " + szFields + " or " + szSeconds);
    }
    if (bSeconds)
    {
        const FixedTicks iField = FieldTicks(roStream);
        const FixedTicks iTicks = FixedTicks_FromDouble(flSeconds * roStream.uiTickFreqHz) - iBefore;
        const FixedTicks iRounded = (std::max<FixedTicks>(iTicks, 0) + (bUp ? iField - 1 : iField / 2)) / iField;
        iFields = bUp ? std::max(iMin, static_cast<int64_t>(iRounded)) : static_cast<int64_t>(iRounded);
        if (iFields < iMin)
        {
            roSection.Refuse(szSeconds,
                             "must last at least " + std::to_string(iMin) + (iMin == 1 ? " field" : " fields"));
            iFields = iMin;
        }
    }
    ruiFields = bFields || bSeconds ? static_cast<uint64_t>(iFields) : ruiFields;
    return bFields || bSeconds;
}

void ReadWhen(CScenarioSection& roSection, const SEventKind& roKind, const SChipContext& roContext,
              const SStream& roStream, SSchedule& roWhen)
{
    const FixedTicks iPhase = roStream.iOrigin - FixedTicks{static_cast<int64_t>(roContext.uiTickStart)} * iOneTick;
    const int64_t iFirst = roKind.eKind == EEventKind::DOUBLED_FIELD ? 1 : 0;
    const std::string szKind(roKind.szName);
    double flSeconds = 0.0;
    if (roStream.poReplay != nullptr && roSection.ReadFloat("at_s", 0.0, flSecondsLimit, flSeconds))
    {
        // Its fields are as far from each other as they were.
        const auto uiTicks = static_cast<uint64_t>(flSeconds * roStream.uiTickFreqHz);
        roWhen.uiFirst = roStream.poReplay->FindFirst(roContext.uiTickStart + uiTicks);
        roSection.Forbid("at_field", "either at_field or at_s");
    }
    else if (!ReadFields(roSection, "at_field", "at_s", iFirst, roStream, iPhase, true, roWhen.uiFirst))
    {
        roSection.Require(roSection.Has("at_s") ? "at_s" : "at_field");
    }
    const bool bPeriodic = ReadFields(roSection, "every_fields", "every_s", 2, roStream, 0, false, roWhen.uiPeriod);
    int64_t iTimes = 0;
    if (roSection.ReadInteger("times", 1, static_cast<int64_t>(CStreamModel::msc_uiFieldLimit), iTimes))
    {
        roWhen.uiTimes = static_cast<uint64_t>(iTimes);
        roSection.Require(roSection.Has("every_s") ? "every_s" : "every_fields");
    }
    roWhen.uiLength = roKind.eLength == ELength::FOR_EVER ? uiForEver : 1;
    if (roKind.eLength == ELength::POINT)
    {
        return;
    }
    const bool bLength = ReadFields(roSection, "for_fields", "for_s", 1, roStream, 0, false, roWhen.uiLength);
    if (bPeriodic && !bLength && roKind.eLength == ELength::FOR_EVER)
    {
        roSection.Refuse("kind", "a periodic " + szKind + " needs for_fields or for_s");
    }
    else if (bPeriodic && roWhen.uiLength >= roWhen.uiPeriod)
    {
        roSection.Refuse(roSection.Has("for_s") ? "for_s" : "for_fields", "must be shorter than the period");
    }
}

// How far the stream jumps back when lock is regained, or in a field while it is lost: the larger of the two.
double GetDriftBackTicks(const SStream& roStream, const SEvent& roEvent)
{
    const double flDrift = static_cast<double>(roEvent.iDriftPpt) * 1e-12;
    const double flFieldTicks = FixedTicks_ToDouble(FieldTicks(roStream)) * flDrift / (1.0 + flDrift);
    const bool bRegained = flDrift < 0.0 && roEvent.oWhen.uiLength != uiForEver;
    return bRegained ? -flFieldTicks * static_cast<double>(roEvent.oWhen.uiLength) : flFieldTicks;
}

void ReadDrift(CScenarioSection& roSection, const SStream& roStream, SEvent& roEvent)
{
    double flPpm = 0.0;
    roSection.Require("ppm");
    (void)roSection.ReadFloat("ppm", -50000.0, 50000.0, flPpm);
    roEvent.iDriftPpt = std::llround(flPpm * 1e6);
    if (GetDriftBackTicks(roStream, roEvent) > FixedTicks_ToDouble(FieldTicks(roStream)) / 16.0)
    {
        roSection.Refuse("ppm", "the stream would jump back by more than 1/16 field when lock is regained");
    }
}

void ReadCadence(CScenarioSection& roSection, const SStream& roStream, SEvent& roEvent)
{
    roEvent.oFeed.uiKey = ~roStream.uiKey - roEvent.oWhen.uiFirst;
    if (!ScenarioFeed_Read(roSection, roStream, roEvent.oFeed))
    {
        roSection.Require(roSection.Has("set_buffer_rate") ? "set_buffer_rate" : "set_buffer_pattern");
    }
    if (roEvent.oWhen.uiPeriod != 0)
    {
        roSection.Refuse("kind", "cannot be periodic");
    }
}

// What only this kind of event has.
void ReadDetails(CScenarioSection& roSection, const SStream& roStream, SEvent& roEvent, SScenarioFault& roFault)
{
    int64_t iCount = 1;
    double flTakes = 0.0;
    switch (roEvent.eKind)
    {
    case EEventKind::FORMAT_CHANGE:
        ScenarioTiming_Read(roSection, roStream.uiTickFreqHz, roFault, roEvent.oTiming);
        break;
    case EEventKind::COUNTER_JUMP:
        roSection.Require("jump");
        (void)roSection.ReadInteger("jump", INT64_MIN, INT64_MAX, roEvent.iJump);
        break;
    case EEventKind::SKIPPED_BUFFERS:
        (void)roSection.ReadInteger("count", 1, 1'000'000, iCount);
        roEvent.uiCount = static_cast<uint64_t>(iCount);
        break;
    case EEventKind::PHASE_STEP:
        roEvent.iStep = ScenarioTicks_Read(roSection, "step", roStream.oTiming, roStream.uiTickFreqHz);
        break;
    case EEventKind::LOCK_LOST:
        ReadDrift(roSection, roStream, roEvent);
        break;
    case EEventKind::POWER_STATE:
        roSection.Require("state");
        (void)roSection.ReadName<VtVideoOut_PowerState>("state", aoPowerStates, roEvent.ePower);
        break;
    case EEventKind::HANG:
        roSection.Require("ms");
        (void)roSection.Read("ms", 1U, 60000U, roEvent.uiHangMs);
        break;
    case EEventKind::DESCRIPTION_CHANGE:
        ScenarioChanges_Read(roSection, roStream.eDirection, roEvent.aoChanges);
        break;
    case EEventKind::CADENCE_CHANGE:
        ReadCadence(roSection, roStream, roEvent);
        break;
    case EEventKind::SLOW_CONSUMER:
        (void)roSection.ReadFloat("takes", 0.0, 0.999999, flTakes);
        roEvent.uiTakenPpm = static_cast<uint32_t>(std::llround(flTakes * 1e6));
        break;
    default:
        break;
    }
}

// What an application does to its buffers has been recorded; only that it gives none back can be put on top.
bool IsForReplays(EEventKind eKind, EDirection eDirection)
{
    return eKind != EEventKind::CADENCE_CHANGE && eKind != EEventKind::SLOW_CONSUMER &&
           (eKind != EEventKind::BUFFERS_RUN_OUT || eDirection == EDirection::INPUT);
}

void ReadEvent(const SScenarioNode& roTable, const SChipContext& roContext, SStream& roStream, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    std::string szKind;
    oSection.Require("kind");
    if (!oSection.ReadText("kind", 64, szKind))
    {
        oSection.Finish(true);
        return;
    }
    const auto itKind = std::ranges::find(aoKinds, szKind, &SEventKind::szName);
    if (itKind == aoKinds.end())
    {
        std::vector<std::string> aszKinds;
        std::ranges::transform(aoKinds, std::back_inserter(aszKinds),
                               [](const SEventKind& roKind) { return std::string(roKind.szName); });
        oSection.RefuseName("kind", szKind, aszKinds);
        return;
    }
    SEvent oEvent;
    oEvent.eKind = itKind->eKind;
    oEvent.uiLine = oSection.GetLine(oSection.FindFirst({"at_field", "at_s"}));
    oEvent.uiValueLine = oSection.GetLine(oSection.FindFirst({"ppm", "step_ticks", "step_us", "step_lines"}));
    if (itKind->eOf == (roStream.eDirection == EDirection::INPUT ? EOf::OUTPUTS : EOf::INPUTS))
    {
        oSection.Refuse("kind", itKind->eOf == EOf::OUTPUTS ? "goes with outputs alone" : "goes with inputs alone");
    }
    if (roStream.poReplay != nullptr && !IsForReplays(itKind->eKind, roStream.eDirection))
    {
        oSection.Refuse("kind", "cannot be put on top of a recording");
    }
    ReadWhen(oSection, *itKind, roContext, roStream, oEvent.oWhen);
    ReadDetails(oSection, roStream, oEvent, roFault);
    oSection.Finish();
    roStream.aoEvents.push_back(oEvent);
}

bool Meet(const SEvent& roFirst, const SEvent& roSecond, EOverlap eOverlap)
{
    const uint64_t uiGap = roSecond.oWhen.uiFirst - roFirst.oWhen.uiFirst;
    if (roFirst.oWhen.uiPeriod != 0 || roSecond.oWhen.uiPeriod != 0)
    {
        return true; // whether they ever meet is not worth the search
    }
    if (roFirst.eKind == EEventKind::DOUBLED_FIELD)
    {
        return uiGap < 2;
    }
    return eOverlap == EOverlap::SUCCESSIVE ? uiGap == 0 : uiGap < roFirst.oWhen.uiLength;
}

void CheckOverlaps(const SStream& roStream, const SEventKind& roKind, SScenarioFault& roFault)
{
    std::vector<SEvent> aoEvents;
    std::ranges::copy_if(roStream.aoEvents, std::back_inserter(aoEvents),
                         [&roKind](const SEvent& roEvent) { return roEvent.eKind == roKind.eKind; });
    std::ranges::stable_sort(aoEvents, {}, [](const SEvent& roEvent) { return roEvent.oWhen.uiFirst; });
    for (size_t uiEvent = 1; uiEvent < aoEvents.size(); ++uiEvent)
    {
        const SEvent& roFirst = aoEvents[uiEvent - 1];
        const SEvent& roSecond = aoEvents[uiEvent];
        if (Meet(roFirst, roSecond, roKind.eOverlap))
        {
            roFault.Set(std::max(roFirst.uiLine, roSecond.uiLine),
                        "meets the " + std::string(roKind.szName) + " of line " +
                            std::to_string(std::min(roFirst.uiLine, roSecond.uiLine)));
        }
    }
}

// Keeps every time that the model works out within its 63 bits of ticks.
void CheckReach(const SStream& roStream, FixedTicks iLongest, FixedTicks iShortest, SScenarioFault& roFault)
{
    double flForward = 0.0; // ticks per field
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        const double flFirst = static_cast<double>(roEvent.oWhen.uiFirst) * FixedTicks_ToDouble(iLongest);
        if (flFirst > 2.0 * flSecondsLimit * roStream.uiTickFreqHz)
        {
            roFault.Set(roEvent.uiLine, "begins later than in 2e8 seconds");
        }
        const bool bPeriodic = roEvent.oWhen.uiPeriod != 0;
        flForward += bPeriodic ? FixedTicks_ToDouble(roEvent.iStep) / static_cast<double>(roEvent.oWhen.uiPeriod) : 0.0;
        if (flForward > FixedTicks_ToDouble(iShortest))
        {
            roFault.Set(roEvent.uiValueLine, "periodic steps must not take longer than the fields between them");
        }
    }
}

const SEvent* FindEvent(const SStream& roStream, EEventKind eKind)
{
    const auto itEvent = std::ranges::find(roStream.aoEvents, eKind, &SEvent::eKind);
    return itEvent == roStream.aoEvents.end() ? nullptr : &*itEvent;
}

// Kinds whose effects on one stream cannot be told apart, and one that would have none.
void CheckKinds(const SStream& roStream, SScenarioFault& roFault)
{
    const SEvent* poDoubled = FindEvent(roStream, EEventKind::DOUBLED_FIELD);
    if (poDoubled != nullptr && FindEvent(roStream, EEventKind::FORMAT_CHANGE) != nullptr)
    {
        roFault.Set(poDoubled->uiLine, "a stream has either doubled_field or format_change events");
    }
    const SEvent* poSlow = FindEvent(roStream, EEventKind::SLOW_CONSUMER);
    if (poSlow != nullptr && FindEvent(roStream, EEventKind::BUFFERS_RUN_OUT) != nullptr)
    {
        roFault.Set(poSlow->uiLine, "a stream has either slow_consumer or buffers_run_out events");
    }
    const SEvent* poSwap = FindEvent(roStream, EEventKind::FIELD_ORDER_SWAP);
    const auto fnInterlaced = [](const SEvent& roEvent) { return roEvent.oTiming.bInterlaced; };
    if (poSwap != nullptr && !roStream.oTiming.bInterlaced && std::ranges::none_of(roStream.aoEvents, fnInterlaced))
    {
        roFault.Set(poSwap->uiLine, "the stream is never interlaced");
    }
}

void CheckTogether(CScenarioSection& roSection, const SStream& roStream, SScenarioFault& roFault)
{
    FixedTicks iBack = 0;
    FixedTicks iShortest = FieldTicks(roStream);
    FixedTicks iLongest = iShortest;
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        if (roEvent.eKind == EEventKind::FORMAT_CHANGE)
        {
            const FixedTicks iTicks =
                VideoTiming_GetFieldTicks(roEvent.oTiming, roStream.uiTickFreqHz, roStream.iRatePpt);
            iShortest = std::min(iShortest, iTicks);
            iLongest = std::max(iLongest, iTicks);
        }
    }
    CheckKinds(roStream, roFault);
    CheckReach(roStream, iLongest, iShortest, roFault);
    if (roStream.flJitterTicks * 128.0 > FixedTicks_ToDouble(iShortest))
    {
        roSection.Refuse("jitter_ticks", "is more than 1/128 of the shortest field");
    }
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        iBack += std::min<FixedTicks>(roEvent.iStep, 0);
        if (-iBack > iShortest / 16)
        {
            roFault.Set(roEvent.uiValueLine, "steps back must stay within 1/16 field together");
        }
        if (GetDriftBackTicks(roStream, roEvent) > FixedTicks_ToDouble(iShortest) / 16.0)
        {
            roFault.Set(roEvent.uiValueLine, "the stream would jump back by more than 1/16 of the shortest field");
        }
    }
}

// The operation whose calls fail, and the chip and stream that it must be called on.
void ReadOperation(CScenarioSection& roSection, SFaultRule& roRule)
{
    std::string szOperation;
    roSection.Require("operation");
    const bool bOperation = roSection.ReadText("operation", 64, szOperation);
    const EOperation eOperation = roRule.eOperation = Operation_Find(szOperation);
    if (bOperation && eOperation == EOperation::COUNT)
    {
        roSection.RefuseName("operation", szOperation, {aszOperations.begin(), aszOperations.end()});
    }
    if (eOperation == EOperation::Veltrano_LoadLite || eOperation == EOperation::Veltrano_UnLoad)
    {
        roSection.Refuse("operation", "returns nothing that could fail");
    }
    uint32_t uiFilter = 0;
    roRule.uiChip = roSection.Read("chip", 0U, UINT32_MAX, uiFilter) ? std::optional(uiFilter) : std::nullopt;
    if (roRule.uiChip &&
        (eOperation == EOperation::Veltrano_Version || eOperation == EOperation::VtPixelFormat_GetName))
    {
        roSection.Refuse("chip", "goes with operations on a chip alone");
    }
    const bool bOnStream =
        eOperation >= EOperation::VtVideoIn_GetHandle && eOperation != EOperation::VtVideoOut_GetCount;
    roRule.uiIndex = roSection.Read("index", 0U, UINT32_MAX, uiFilter) ? std::optional(uiFilter) : std::nullopt;
    if (roRule.uiIndex && !bOnStream)
    {
        roSection.Refuse("index", "goes with operations on one input or output alone");
    }
}

} // namespace

std::string_view EventKind_GetName(EEventKind eKind)
{
    return aoKinds[static_cast<size_t>(eKind)].szName;
}

bool EventKind_IsLasting(EEventKind eKind)
{
    return aoKinds[static_cast<size_t>(eKind)].eLength != ELength::POINT;
}

void ScenarioEvents_Read(CScenarioSection& roStreamSection, const SChipContext& roContext, const SLockGroup* poGroup,
                         SStream& roStream, SScenarioFault& roFault)
{
    const std::span<const SScenarioNode> aoEvents = roStreamSection.ReadTables("event", uiEventLimit);
    if (roFault.IsSet())
    {
        return; // they are measured by the stream, which has none of its own then
    }
    for (const auto aoTables : {aoEvents, poGroup == nullptr ? std::span<const SScenarioNode>{} : poGroup->aoEvents})
    {
        for (const SScenarioNode& roEvent : aoTables)
        {
            ReadEvent(roEvent, roContext, roStream, roFault);
        }
    }
    for (const SEventKind& roKind : aoKinds)
    {
        if (roKind.eOverlap != EOverlap::FREE)
        {
            CheckOverlaps(roStream, roKind, roFault);
        }
    }
    if (!roStream.aoEvents.empty())
    {
        CheckTogether(roStreamSection, roStream, roFault);
    }
}

void ScenarioFaultRule_Read(const SScenarioNode& roTable, SScenario& roScenario, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    SFaultRule oRule;
    ReadOperation(oSection, oRule);
    oSection.Require("status");
    (void)oSection.ReadName<VtStatus>("status", aoStatuses, oRule.eStatus);
    int64_t iFirstCall = 1;
    int64_t iTimes = 1;
    int64_t iPeriod = 0;
    (void)oSection.ReadInteger("call", 1, INT64_MAX, iFirstCall);
    (void)oSection.ReadInteger("times", 0, INT64_MAX, iTimes);
    (void)oSection.ReadInteger("every", 1, INT64_MAX, iPeriod);
    oRule.uiFirstCall = static_cast<uint64_t>(iFirstCall);
    oRule.uiTimes = iTimes == 0 ? uiForEver : static_cast<uint64_t>(iTimes);
    oRule.uiPeriod = static_cast<uint64_t>(iPeriod);
    oSection.Finish();
    roScenario.aoFaults.push_back(oRule);
}
