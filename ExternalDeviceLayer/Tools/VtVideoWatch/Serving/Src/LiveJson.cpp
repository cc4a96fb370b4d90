#include "LiveJson.h"

#include <nlohmann/json.hpp>

#include "EventJson.h"
#include "HealthJson.h"
#include "HealthTexts.h"
#include "StreamId.h"
#include "WatchTexts.h"

namespace
{

constexpr int iRateDigits = 12;
constexpr int iDigits = 7;
constexpr int iErrorDigits = 3;

SEstimate Round(const SEstimate& roEstimate, int iKept)
{
    return {WatchJson_Round(roEstimate.flValue, iKept), WatchJson_Round(roEstimate.flStdErr, iErrorDigits),
            roEstimate.bIsValid};
}

// The window that is steady and yet follows a change, as soon as it is full.
CJson FromBestRate(const SStreamFigures& roStream)
{
    for (const ERateWindow eWindow : {ERateWindow::SECONDS_10, ERateWindow::SECONDS_1})
    {
        const auto i = static_cast<size_t>(eWindow);
        if (roStream.aoRateHz[i].bIsValid)
        {
            CJson oJson = WatchJson_FromEstimate(Round(roStream.aoRateHz[i], iRateDigits), "hz", "stderr_hz");
            const SEstimate oPpm = Round(roStream.aoRatePpm[i], iDigits);
            oJson["ppm"] = oPpm.bIsValid ? CJson(oPpm.flValue) : CJson();
            oJson["stderr_ppm"] = oPpm.bIsValid ? CJson(oPpm.flStdErr) : CJson();
            return oJson;
        }
    }
    return {};
}

CJson FromPhase(const SStreamFigures& roStream)
{
    CJson oJson = WatchJson_FromEstimate(Round(roStream.oPhaseSeconds, iDigits), "seconds", "stderr");
    if (!oJson.is_null())
    {
        const double flLine = roStream.flPhaseLineSeconds;
        oJson["lines"] =
            flLine > 0.0 ? CJson(WatchJson_Round(roStream.oPhaseSeconds.flValue / flLine, iDigits)) : CJson();
    }
    return oJson;
}

CJson FromSecondsTo(const SEstimate& roSeconds)
{
    return roSeconds.bIsValid ? CJson(WatchJson_Round(roSeconds.flValue, iErrorDigits + 1)) : CJson();
}

CJson FromErrorOf(const SEstimate& roSeconds)
{
    return roSeconds.bIsValid ? CJson(WatchJson_Round(roSeconds.flStdErr, iErrorDigits)) : CJson();
}

// Of the last second: the buffers of an input.
CJson FromQueue(const SStreamFigures& roStream)
{
    const SQueueWindow& roWindow = roStream.oQueue.aoWindows[static_cast<size_t>(EQueueWindow::SECONDS_1)];
    if (!roWindow.bIsKnown)
    {
        return {};
    }
    const SQueueFigures& roQueue = roStream.oQueue;
    return {{"ready", WatchJson_Round(roWindow.oReady.flMean, iErrorDigits)},
            {"loaned", WatchJson_Round(roWindow.oLoaned.flMean, iErrorDigits)},
            {"internal", WatchJson_Round(roWindow.oInternal.flMean, iErrorDigits)},
            {"held_seconds",
             roQueue.bIsHeldKnown ? CJson(WatchJson_Round(roQueue.flHeldSeconds, iErrorDigits + 1)) : CJson()}};
}

// The verdict and what brought it about; all domains are in /api/v1/streams.
CJson FromHealth(const SStreamKey& roOf, const SStreamHealth& roHealth)
{
    const auto eWorst = HealthTexts_GetWorst(roHealth);
    const SHealth& roWorst = roHealth.aoDomains[static_cast<size_t>(eWorst)];
    return {{"overall", HealthTexts_GetStatus(roHealth.oOverall.eStatus)},
            {"domain", HealthTexts_GetDomain(eWorst)},
            {"since", WatchTexts_GetUtc(roHealth.oOverall.iSinceUtcNs)},
            {"reason", HealthTexts_GetReason(eWorst, roOf, roWorst.oReason)}};
}

CJson FromLiveStream(const SStreamFigures& roStream, const SStreamTexts& roTexts)
{
    return {{"id", StreamId_Print(roStream.oKey)},
            {"chip", roStream.uiChip},
            {"name", roTexts.szName},
            {"standard", roTexts.szStandard},
            {"state", WatchTexts_GetState(roStream.eState)},
            {"since", WatchTexts_GetUtc(roStream.iStateSinceUtcNs)},
            {"nominal_hz", roStream.uiNominalNumerator == 0 ? CJson() : CJson(roStream.flNominalRateHz)},
            {"rate", FromBestRate(roStream)},
            {"phase", FromPhase(roStream)},
            {"drift", WatchJson_FromEstimate(Round(roStream.oDriftRatio, iDigits), "ratio", "stderr")},
            {"lock", WatchTexts_GetLock(roStream.eLock)},
            {"seconds_to_threshold", FromSecondsTo(roStream.oSecondsToThreshold)},
            {"seconds_to_threshold_stderr", FromErrorOf(roStream.oSecondsToThreshold)},
            {"seconds_to_slip", FromSecondsTo(roStream.oSecondsToSlip)},
            {"seconds_to_slip_stderr", FromErrorOf(roStream.oSecondsToSlip)},
            {"fields_lost", roStream.oCounters.uiFieldsLost},
            {"fields_unobserved", roStream.oCounters.uiFieldsUnobserved},
            {"signal_losses", roStream.oCounters.uiSignalLosses},
            {"cadence",
             roStream.oFeed.oCadence.IsKnown() ? CJson(HealthTexts_GetCadence(roStream.oFeed.oCadence)) : CJson()},
            {"queue", FromQueue(roStream)},
            {"last_event", WatchJson_FromLastEvent(roStream.oLastEvent)}};
}

CJson FromDirection(const SWatchPublication& roPublication, EStreamDirection eDirection)
{
    const auto MakeStream =
        [](const SStreamFigures& roStream, const SStreamTexts& roTexts, const SStreamHealth& roHealth)
    {
        CJson oJson = FromLiveStream(roStream, roTexts);
        oJson["health"] = FromHealth(roStream.oKey, roHealth);
        return oJson;
    };
    CJson oJson = {{"groups", EventJson_FromGroups(eDirection, roPublication.oSnapshot)},
                   {"streams", WatchJson_ByStream(roPublication, eDirection, MakeStream)}};
    WatchJson_AddReference(oJson, eDirection, roPublication.oSnapshot);
    return oJson;
}

uint64_t CountLateWakes(const SWatchSnapshot& roSnapshot)
{
    uint64_t uiLateWakes = 0;
    WatchPublication_ForEachStream(roSnapshot, [&uiLateWakes](const SStreamFigures& roStream)
                                   { uiLateWakes += roStream.oCounters.uiLateWakes; });
    return uiLateWakes;
}

} // namespace

CJson LiveJson_FromPublication(const SWatchPublication& roPublication)
{
    const SWatchCosts& roCosts = roPublication.oCosts;
    CJson oJson = {{"snapshot", WatchJson_FromSnapshotMoment(roPublication.oSnapshot)},
                   {"host", roPublication.szHost},
                   {"simulated", roPublication.bIsSimulated},
                   {"health", HealthJson_FromWhole(roPublication.oJudgement)},
                   {"late_wakes", CountLateWakes(roPublication.oSnapshot)},
                   {"ring_overruns", roCosts.uiRingOverruns},
                   {"store_failing", roCosts.bStoreIsFailing},
                   {"journal_failing", roCosts.bJournalIsFailing},
                   {"directions", WatchJson_ByDirection([&roPublication](EStreamDirection eDirection)
                                                        { return FromDirection(roPublication, eDirection); })}};
    WatchJson_AddChips(oJson, roPublication);
    return oJson;
}
