#include "WatchJson.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include <nlohmann/json.hpp>

#include "EventJson.h"
#include "EventKinds.h"
#include "HealthJson.h"
#include "HealthTexts.h"
#include "StreamId.h"
#include "TimeUnits.h"
#include "WatchTexts.h"

namespace
{

// How long a drift takes to the next crossings; null where nothing drifts.
void AddTimes(CJson& roJson, const SEstimate& roToThreshold, const SEstimate& roToSlip)
{
    const auto Add = [&](const char* szName, const char* szErrorName, const SEstimate& roSeconds)
    {
        roJson[szName] = roSeconds.bIsValid ? CJson(roSeconds.flValue) : CJson();
        roJson[szErrorName] = roSeconds.bIsValid ? CJson(roSeconds.flStdErr) : CJson();
    };
    Add("seconds_to_threshold", "seconds_to_threshold_stderr", roToThreshold);
    Add("seconds_to_slip", "seconds_to_slip_stderr", roToSlip);
}

CJson FromCounters(const SStreamCounters& roCounters)
{
    return {{"fields", roCounters.uiFields},
            {"fields_observed", roCounters.uiFieldsObserved},
            {"fields_lost", roCounters.uiFieldsLost},
            {"fields_unobserved", roCounters.uiFieldsUnobserved},
            {"fields_repeated", roCounters.uiFieldsRepeated},
            {"counter_backward", roCounters.uiCounterBackward},
            {"counter_forward", roCounters.uiCounterForward},
            {"fields_early", roCounters.uiFieldsEarly},
            {"fields_late", roCounters.uiFieldsLate},
            {"phase_steps", roCounters.uiPhaseSteps},
            {"signal_losses", roCounters.uiSignalLosses},
            {"timing_changes", roCounters.uiTimingChanges},
            {"format_changes", roCounters.uiFormatChanges},
            {"state_changes", roCounters.uiStateChanges},
            {"buffers_skipped", roCounters.uiBuffersSkipped},
            {"buffers_set", roCounters.uiBuffersSet},
            {"buffers_repeated", roCounters.uiBuffersRepeated},
            {"buffers_overwritten", roCounters.uiBuffersOverwritten},
            {"wait_time_outs", roCounters.uiWaitTimeOuts},
            {"late_wakes", roCounters.uiLateWakes},
            {"signal_lost_seconds", roCounters.flSignalLostSeconds},
            {"running_seconds", roCounters.flRunningSeconds},
            {"watched_seconds", roCounters.flWatchedSeconds}};
}

CJson FromRates(const SStreamFigures& roStream)
{
    CJson oRates = CJson::array();
    for (size_t i = 0; i < auiRateWindowSeconds.size(); ++i)
    {
        const SEstimate& roHz = roStream.aoRateHz[i];
        const SEstimate& roPpm = roStream.aoRatePpm[i];
        oRates.push_back({{"window", WatchTexts_GetRateWindow(static_cast<ERateWindow>(i))},
                          {"hz", roHz.bIsValid ? CJson(roHz.flValue) : CJson()},
                          {"stderr_hz", roHz.bIsValid ? CJson(roHz.flStdErr) : CJson()},
                          {"ppm", roPpm.bIsValid ? CJson(roPpm.flValue) : CJson()},
                          {"stderr_ppm", roPpm.bIsValid ? CJson(roPpm.flStdErr) : CJson()}});
    }
    return oRates;
}

CJson FromTdev(const SStreamFigures& roStream)
{
    CJson oTdev = CJson::array();
    for (size_t i = 0; i < auiTdevSeconds.size(); ++i)
    {
        const SEstimate& roTdev = roStream.aoTdevSeconds[i];
        oTdev.push_back({{"tau_seconds", auiTdevSeconds[i]},
                         {"seconds", roTdev.bIsValid ? CJson(roTdev.flValue) : CJson()},
                         {"stderr_seconds", roTdev.bIsValid ? CJson(roTdev.flStdErr) : CJson()}});
    }
    return oTdev;
}

CJson FromNominal(const SStreamFigures& roStream)
{
    if (roStream.uiNominalNumerator == 0)
    {
        return {};
    }
    return {{"numerator", roStream.uiNominalNumerator},
            {"denominator", roStream.uiNominalDenominator},
            {"hz", roStream.flNominalRateHz}};
}

// An offset in seconds with its error, and in lines when their length is known.
CJson FromOffset(const SEstimate& roSeconds, double flLines, bool bHasLines)
{
    CJson oJson = WatchJson_FromEstimate(roSeconds, "seconds", "stderr");
    if (!oJson.is_null())
    {
        oJson["lines"] = bHasLines ? CJson(flLines) : CJson();
    }
    return oJson;
}

CJson FromTai(const SStreamFigures& roStream)
{
    CJson oJson = WatchJson_FromEstimate(roStream.oTaiPhaseSeconds, "seconds", "stderr");
    if (!oJson.is_null())
    {
        oJson["uncertainty"] = roStream.flTaiUncertaintySeconds;
    }
    return oJson;
}

const char* GetSetupState(const SStreamFigures& roStream)
{
    return roStream.oKey.eDirection == EStreamDirection::INPUT
               ? WatchTexts_GetCaptureState(roStream.oDescription.eCaptureState)
               : WatchTexts_GetPowerState(roStream.oDescription.ePowerState);
}

// Who the stream is and what it carries.
CJson FromIdentity(const SStreamFigures& roStream, const SStreamTexts& roTexts)
{
    return {{"id", StreamId_Print(roStream.oKey)},
            {"chip", roStream.uiChip},
            {"index", roStream.oKey.uiIndex},
            {"direction", StreamId_GetDirection(roStream.oKey.eDirection)},
            {"name", roTexts.szName},
            {"standard", roTexts.szStandard},
            {"format", roTexts.szFormat},
            {"setup", GetSetupState(roStream)},
            {"state", WatchTexts_GetState(roStream.eState)},
            {"since", WatchTexts_GetUtc(roStream.iStateSinceUtcNs)},
            {"nominal", FromNominal(roStream)},
            {"line_seconds", roStream.flLineSeconds > 0.0 ? CJson(roStream.flLineSeconds) : CJson()}};
}

CJson FromDirection(const SWatchPublication& roPublication, EStreamDirection eDirection)
{
    const auto MakeStream =
        [](const SStreamFigures& roStream, const SStreamTexts& roTexts, const SStreamHealth& roHealth)
    {
        CJson oJson = WatchJson_FromStream(roStream, roTexts);
        oJson["health"] = HealthJson_FromStream(roStream.oKey, roHealth);
        return oJson;
    };
    CJson oJson = {{"streams", WatchJson_ByStream(roPublication, eDirection, MakeStream)}};
    WatchJson_AddReference(oJson, eDirection, roPublication.oSnapshot);
    return oJson;
}

bool IsOf(const std::optional<SStreamKey>& roOnly, const SStreamKey& roFirst, const SStreamKey& roSecond)
{
    return !roOnly || *roOnly == roFirst || *roOnly == roSecond;
}

CJson FromPairsOf(const SWatchPublication& roPublication, EStreamDirection eDirection,
                  const std::optional<SStreamKey>& roOnly)
{
    CJson oPairs = CJson::array();
    WatchPublication_ForEachChip(roPublication.oSnapshot, eDirection,
                                 [&oPairs, &roOnly](const SStreamKey& roOf, const SDirectionFigures& roFigures)
                                 {
                                     for (const SPairFigures& roPair : roFigures.aoPairs)
                                     {
                                         const SStreamKey oFirst = StreamKey_GetNeighbour(roOf, roPair.uiFirst);
                                         const SStreamKey oSecond = StreamKey_GetNeighbour(roOf, roPair.uiSecond);
                                         if (IsOf(roOnly, oFirst, oSecond))
                                         {
                                             oPairs.push_back(WatchJson_FromPair(oFirst, oSecond, roPair));
                                         }
                                     }
                                 });
    return {{"pairs", std::move(oPairs)}, {"groups", EventJson_FromGroups(eDirection, roPublication.oSnapshot)}};
}

// So long after the instant of a stream's chip.
std::string GetUtcAhead(const SWatchSnapshot& roSnapshot, const SStreamKey& roKey, double flSeconds)
{
    constexpr double flFarthest = 3e9; // ninety years: the moment's number has room for them
    return WatchTexts_GetUtc(roSnapshot.GetClock(roKey.uiChip).iUtcNs +
                             static_cast<int64_t>(std::min(flSeconds, flFarthest) * flNsPerSecond));
}

CJson FromSlip(const SWatchSnapshot& roSnapshot, const SAcrossFigures& roPair)
{
    const SSlipFigures& roSlip = roPair.oSlip;
    if (!roSlip.oEverySeconds.bIsValid || !roSlip.oNextSeconds.bIsValid)
    {
        return {};
    }
    return {{"every_seconds", roSlip.oEverySeconds.flValue},
            {"every_stderr", roSlip.oEverySeconds.flStdErr},
            {"next_utc", GetUtcAhead(roSnapshot, roPair.oFirst, roSlip.oNextSeconds.flValue)},
            {"next_stderr_seconds", roSlip.oNextSeconds.flStdErr},
            {"count", roSlip.uiCount}};
}

CJson FromAcross(const SWatchSnapshot& roSnapshot, const std::optional<SStreamKey>& roOnly)
{
    CJson oPairs = CJson::array();
    for (const SAcrossFigures& roPair : roSnapshot.aoAcross)
    {
        if (!IsOf(roOnly, roPair.oFirst, roPair.oSecond))
        {
            continue;
        }
        oPairs.push_back(WatchJson_FromPair(roPair.oFirst, roPair.oSecond, roPair.oPair));
        oPairs.back()["slip"] = FromSlip(roSnapshot, roPair);
    }
    CJson oGroups = CJson::array();
    for (const SAcrossGroup& roGroup : roSnapshot.aoAcrossGroups)
    {
        CJson oMembers = StreamId_PrintMembers({EStreamDirection::INPUT, 0, roGroup.uiChip}, roGroup.auiMembers[0]);
        for (std::string& rszMember :
             StreamId_PrintMembers({EStreamDirection::OUTPUT, 0, roGroup.uiChip}, roGroup.auiMembers[1]))
        {
            oMembers.push_back(std::move(rszMember));
        }
        oGroups.push_back({{"group", roGroup.uiGroup},
                           {"members", std::move(oMembers)},
                           {"since", WatchTexts_GetUtc(roGroup.iSinceUtcNs)}});
    }
    return {{"pairs", std::move(oPairs)}, {"groups", std::move(oGroups)}};
}

// Beside what a pair has, how far both clocks may be off.
CJson FromChipPairs(const SWatchSnapshot& roSnapshot, const std::optional<SStreamKey>& roOnly)
{
    CJson oPairs = CJson::array();
    for (const SChipPairFigures& roPair : roSnapshot.aoChipPairs)
    {
        if (!IsOf(roOnly, roPair.oFirst, roPair.oSecond))
        {
            continue;
        }
        oPairs.push_back(WatchJson_FromPair(roPair.oFirst, roPair.oSecond, roPair.oPair));
        const bool bIsKnown = roPair.oPair.oOffsetSeconds.bIsValid;
        oPairs.back()["uncertainty_seconds"] = bIsKnown ? CJson(roPair.flUncertaintySeconds) : CJson();
    }
    return {{"pairs", std::move(oPairs)}};
}

CJson FromPath(const SWatchSnapshot& roSnapshot, const SPathFigures& roPath)
{
    CJson oDelay;
    if (roPath.bIsKnown)
    {
        oDelay = {{"least_seconds", roPath.flLeastSeconds},
                  {"mean_seconds", roPath.flMeanSeconds},
                  {"most_seconds", roPath.flMostSeconds},
                  {"stderr", roPath.flStdErrSeconds}};
    }
    CJson oNext;
    if (roPath.oNextStepSeconds.bIsValid)
    {
        oNext = {{"utc", GetUtcAhead(roSnapshot, roPath.oInput, roPath.oNextStepSeconds.flValue)},
                 {"stderr_seconds", roPath.oNextStepSeconds.flStdErr},
                 {"seconds", roPath.flStepSeconds}};
    }
    CJson oLast;
    if (roPath.iLastStepUtcNs != 0)
    {
        oLast = {{"utc", WatchTexts_GetUtc(roPath.iLastStepUtcNs)}, {"seconds", roPath.flLastStepSeconds}};
    }
    return {{"input", StreamId_Print(roPath.oInput)},
            {"output", StreamId_Print(roPath.oOutput)},
            {"lock", WatchTexts_GetLock(roPath.eLock)},
            {"delay", std::move(oDelay)},
            {"steps", roPath.uiSteps},
            {"last_step", std::move(oLast)},
            {"next_step", std::move(oNext)}};
}

CJson FromPaths(const SWatchSnapshot& roSnapshot, const std::optional<SStreamKey>& roOnly)
{
    CJson oPaths = CJson::array();
    for (const SPathFigures& roPath : roSnapshot.aoPaths)
    {
        if (IsOf(roOnly, roPath.oInput, roPath.oOutput))
        {
            oPaths.push_back(FromPath(roSnapshot, roPath));
        }
    }
    return oPaths;
}

CJson FromThreshold(const SWatchSnapshot& roSnapshot)
{
    const SLockThreshold& roThreshold = roSnapshot.oThreshold;
    const bool bIsInSeconds = roThreshold.flSeconds > 0.0;
    return {{"seconds", bIsInSeconds ? CJson(roThreshold.flSeconds) : CJson()},
            {"lines", bIsInSeconds ? CJson() : CJson(roThreshold.flLines)}};
}

// That of its worst stream.
SHealth GetChipHealth(const SWatchPublication& roPublication, uint32_t uiChip)
{
    SHealth oWorst;
    const size_t uiFirst = StreamKey_GetSlot({EStreamDirection::INPUT, 0, uiChip});
    const std::vector<std::vector<SStreamHealth>>& raaoHealth = roPublication.oJudgement.aoStreams;
    for (size_t uiSlot = uiFirst; uiSlot < std::min(uiFirst + 2, raaoHealth.size()); ++uiSlot)
    {
        for (const SStreamHealth& roHealth : raaoHealth[uiSlot])
        {
            oWorst = roHealth.oOverall.eStatus > oWorst.eStatus || oWorst.iSinceUtcNs == 0 ? roHealth.oOverall : oWorst;
        }
    }
    return oWorst;
}

std::string GetVersionText(uint64_t uiVersion)
{
    std::string szText;
    for (int iShift = 48; iShift >= 0; iShift -= 16)
    {
        szText += std::to_string(uiVersion >> iShift & 0xFFFFU);
        szText += iShift > 0 ? "." : "";
    }
    return szText;
}

} // namespace

CJson WatchJson_FromEstimate(const SEstimate& roEstimate, const char* szValueName, const char* szStdErrName)
{
    if (!roEstimate.bIsValid)
    {
        return {};
    }
    return {{szValueName, roEstimate.flValue}, {szStdErrName, roEstimate.flStdErr}};
}

CJson WatchJson_FromLastEvent(const SLastEvent& roEvent)
{
    if (roEvent.uiNumber == 0)
    {
        return {};
    }
    return {{"number", roEvent.uiNumber},
            {"kind", EventKind_Get(roEvent.eKind).szName},
            {"utc", WatchTexts_GetUtc(roEvent.iUtcNs)}};
}

CJson WatchJson_FromStream(const SStreamFigures& roStream, const SStreamTexts& roTexts)
{
    const double flLine = roStream.flPhaseLineSeconds;
    CJson oJson = FromIdentity(roStream, roTexts);
    oJson["counters"] = FromCounters(roStream.oCounters);
    oJson["rates"] = FromRates(roStream);
    oJson["period_seconds"] = roStream.flPeriodSeconds > 0.0 ? CJson(roStream.flPeriodSeconds) : CJson();
    oJson["jitter"] = {{"rms_seconds", roStream.flJitterRmsSeconds}, {"peak_seconds", roStream.flJitterPeakSeconds}};
    oJson["tdev"] = FromTdev(roStream);
    oJson["intervals"] = {{"bin_seconds", roStream.oIntervals.flBinSeconds}, {"counts", roStream.oIntervals.auiCounts}};
    oJson["phase"] =
        FromOffset(roStream.oPhaseSeconds, flLine > 0.0 ? roStream.oPhaseSeconds.flValue / flLine : 0.0, flLine > 0.0);
    oJson["drift"] = WatchJson_FromEstimate(roStream.oDriftRatio, "ratio", "stderr");
    oJson["lock"] = WatchTexts_GetLock(roStream.eLock);
    AddTimes(oJson, roStream.oSecondsToThreshold, roStream.oSecondsToSlip);
    oJson["tai"] = FromTai(roStream);
    HealthJson_AddTrackers(oJson, roStream);
    oJson["last_event"] = WatchJson_FromLastEvent(roStream.oLastEvent);
    return oJson;
}

CJson WatchJson_FromPair(const SStreamKey& roFirst, const SStreamKey& roSecond, const SPairFigures& roPair)
{
    CJson oJson = {{"first", StreamId_Print(roFirst)},
                   {"second", StreamId_Print(roSecond)},
                   {"offset", FromOffset(roPair.oOffsetSeconds, roPair.flOffsetLines, roPair.flLineSeconds > 0.0)},
                   {"drift", WatchJson_FromEstimate(roPair.oDriftRatio, "ratio", "stderr")},
                   {"lock", WatchTexts_GetLock(roPair.eLock)}};
    AddTimes(oJson, roPair.oSecondsToThreshold, roPair.oSecondsToSlip);
    return oJson;
}

CJson WatchJson_FromClock(const SClockFigures& roClock)
{
    return {{"tick_uncertainty_seconds", roClock.flTickUncertaintySeconds},
            {"ticks_are_monotonic", roClock.bTicksAreMonotonic},
            {"tai_offset_seconds", roClock.iTaiOffsetSeconds == 0 ? CJson() : CJson(roClock.iTaiOffsetSeconds)},
            {"synchronised", roClock.bIsSynchronised},
            {"estimated_error_seconds", roClock.flEstimatedErrorSeconds}};
}

CJson WatchJson_FromCosts(const SWatchCosts& roCosts)
{
    return {{"ring_overruns", roCosts.uiRingOverruns},
            {"store_write_failures", roCosts.uiStoreWriteFailures},
            {"store_rows_waiting", roCosts.uiStoreRowsWaiting},
            {"store_rows_dropped", roCosts.uiStoreRowsDropped},
            {"store_failing", roCosts.bStoreIsFailing},
            {"journal_write_failures", roCosts.uiJournalWriteFailures},
            {"journal_lines_dropped", roCosts.uiJournalLinesDropped},
            {"journal_failing", roCosts.bJournalIsFailing},
            {"recordings", roCosts.uiRecordings},
            {"recording_failures", roCosts.uiRecordingFailures},
            {"recording_failing", roCosts.bRecordingIsFailing},
            {"incident_failures", roCosts.uiIncidentFailures},
            {"memory_failures", roCosts.uiMemoryFailures},
            {"analysis_seconds", roCosts.flAnalysisSeconds},
            {"cpu_seconds", roCosts.flCpuSeconds},
            {"resident_bytes", roCosts.uiResidentBytes}};
}

CJson WatchJson_FromSnapshotMoment(const SWatchSnapshot& roSnapshot)
{
    return {{"number", roSnapshot.uiNumber},
            {"utc", WatchTexts_GetUtc(roSnapshot.oClock.iUtcNs)},
            {"tick", roSnapshot.oClock.uiTick},
            {"tick_frequency_hz", roSnapshot.uiTickFrequencyHz}};
}

void WatchJson_AddReference(CJson& roJson, EStreamDirection eDirection, const SWatchSnapshot& roSnapshot)
{
    CJson oReferences = CJson::array();
    WatchPublication_ForEachChip(roSnapshot, eDirection,
                                 [&oReferences](const SStreamKey& /*roOf*/, const SDirectionFigures& roFigures)
                                 {
                                     if (roFigures.bHasReference)
                                     {
                                         oReferences.push_back(StreamId_Print(roFigures.oReference));
                                     }
                                 });
    const bool bAreSeveral = roSnapshot.aoChips.size() > 1;
    roJson["reference"] = bAreSeveral || oReferences.empty() ? CJson() : oReferences[0];
    if (bAreSeveral)
    {
        roJson["references"] = std::move(oReferences);
    }
}

void WatchJson_AddChips(CJson& roJson, const SWatchPublication& roPublication)
{
    if (roPublication.oSnapshot.aoChips.size() < 2)
    {
        return;
    }
    CJson oChips = CJson::array();
    for (const SChipFigures& roChip : roPublication.oSnapshot.aoChips)
    {
        const SHealth oHealth = GetChipHealth(roPublication, roChip.uiChip);
        const bool bAnswers = roChip.uiInstants != 0;
        oChips.push_back({{"chip", roChip.uiNumber},
                          {"answers", bAnswers},
                          {"tick", bAnswers ? CJson(roChip.oClock.uiTick) : CJson()},
                          {"tick_frequency_hz", bAnswers ? CJson(roChip.uiTickFrequencyHz) : CJson()},
                          {"clock", bAnswers ? WatchJson_FromClock(roChip.oClock) : CJson()},
                          {"health",
                           {{"overall", HealthTexts_GetStatus(oHealth.eStatus)},
                            {"since", WatchTexts_GetUtc(oHealth.iSinceUtcNs)}}}});
    }
    roJson["chips"] = std::move(oChips);
}

CJson WatchJson_ByStream(
    const SWatchPublication& roPublication, EStreamDirection eDirection,
    const std::function<CJson(const SStreamFigures&, const SStreamTexts&, const SStreamHealth&)>& fnMake)
{
    CJson oStreams = CJson::array();
    WatchPublication_ForEachChip(roPublication.oSnapshot, eDirection,
                                 [&](const SStreamKey& /*roOf*/, const SDirectionFigures& roFigures)
                                 {
                                     for (const SStreamFigures& roStream : roFigures.aoStreams)
                                     {
                                         oStreams.push_back(
                                             fnMake(roStream, WatchPublication_GetTexts(roPublication, roStream.oKey),
                                                    WatchPublication_GetHealth(roPublication, roStream.oKey)));
                                     }
                                 });
    return oStreams;
}

CJson WatchJson_ByDirection(const std::function<CJson(EStreamDirection)>& fnMake)
{
    CJson oJson;
    for (const EStreamDirection eDirection : aeDirections)
    {
        oJson[StreamId_GetDirection(eDirection)] = fnMake(eDirection);
    }
    return oJson;
}

CJson WatchJson_FromStreams(const SWatchPublication& roPublication)
{
    CJson oJson = {{"snapshot", WatchJson_FromSnapshotMoment(roPublication.oSnapshot)},
                   {"host", roPublication.szHost},
                   {"board",
                    {{"library", roPublication.szBoard},
                     {"version", GetVersionText(roPublication.uiBoardVersion)},
                     {"simulated", roPublication.bIsSimulated}}},
                   {"started", WatchTexts_GetUtc(roPublication.iStartUtcNs)},
                   {"clock", WatchJson_FromClock(roPublication.oSnapshot.oClock)},
                   {"threshold", FromThreshold(roPublication.oSnapshot)},
                   {"health", HealthJson_FromWhole(roPublication.oJudgement)},
                   {"costs", WatchJson_FromCosts(roPublication.oCosts)},
                   {"directions", WatchJson_ByDirection([&roPublication](EStreamDirection eDirection)
                                                        { return FromDirection(roPublication, eDirection); })}};
    WatchJson_AddChips(oJson, roPublication);
    return oJson;
}

CJson WatchJson_FromPairs(const SWatchPublication& roPublication, const std::optional<SStreamKey>& roOnly)
{
    CJson oJson = {{"snapshot", WatchJson_FromSnapshotMoment(roPublication.oSnapshot)},
                   {"threshold", FromThreshold(roPublication.oSnapshot)},
                   {"directions", WatchJson_ByDirection([&](EStreamDirection eDirection)
                                                        { return FromPairsOf(roPublication, eDirection, roOnly); })},
                   {"across", FromAcross(roPublication.oSnapshot, roOnly)},
                   {"paths", FromPaths(roPublication.oSnapshot, roOnly)}};
    if (roPublication.oSnapshot.aoChips.size() > 1)
    {
        oJson["chips"] = FromChipPairs(roPublication.oSnapshot, roOnly);
    }
    return oJson;
}

double WatchJson_Round(double flValue, int iDigits)
{
    char szValue[40];
    const auto oWritten =
        std::to_chars(std::begin(szValue), std::end(szValue), flValue, std::chars_format::scientific, iDigits - 1);
    double flRounded = flValue;
    std::from_chars(std::begin(szValue), oWritten.ptr, flRounded);
    return flRounded;
}

std::string WatchJson_Print(const CJson& roJson)
{
    return roJson.dump(-1, ' ', false, CJson::error_handler_t::replace);
}
