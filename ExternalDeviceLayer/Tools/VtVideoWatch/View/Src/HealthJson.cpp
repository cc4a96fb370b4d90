#include "HealthJson.h"

#include <nlohmann/json.hpp>

#include "HealthTexts.h"
#include "StreamId.h"
#include "WatchTexts.h"

namespace
{

CJson FromTransitions(const SHealth& roHealth)
{
    CJson oJson = CJson::object();
    for (uint32_t uiStatus = 0; uiStatus < uiNbOfHealthStatuses; ++uiStatus)
    {
        oJson[HealthTexts_GetStatus(static_cast<EHealthStatus>(uiStatus))] = roHealth.auiTransitions[uiStatus];
    }
    return oJson;
}

CJson FromLevel(const SQueueLevel& roLevel)
{
    return {{"mean", WatchJson_Round(roLevel.flMean, 4)}, {"least", roLevel.uiLeast}, {"most", roLevel.uiMost}};
}

CJson FromQueue(const SStreamFigures& roStream)
{
    CJson oWindows = CJson::array();
    for (size_t uiWindow = 0; uiWindow < auiQueueWindowSeconds.size(); ++uiWindow)
    {
        const SQueueWindow& roWindow = roStream.oQueue.aoWindows[uiWindow];
        oWindows.push_back({{"seconds", auiQueueWindowSeconds[uiWindow]},
                            {"ready", roWindow.bIsKnown ? FromLevel(roWindow.oReady) : CJson()},
                            {"loaned", roWindow.bIsKnown ? FromLevel(roWindow.oLoaned) : CJson()},
                            {"internal", roWindow.bIsKnown ? FromLevel(roWindow.oInternal) : CJson()}});
    }
    const SQueueFigures& roQueue = roStream.oQueue;
    const uint32_t uiTotal = roStream.oDescription.uiNbOfBuffer;
    return {{"total", uiTotal == 0 ? CJson() : CJson(uiTotal)},
            {"windows", std::move(oWindows)},
            {"held_seconds", roQueue.bIsHeldKnown ? CJson(WatchJson_Round(roQueue.flHeldSeconds, 6)) : CJson()},
            {"consumer_stalled_since",
             roQueue.bIsConsumerStalled ? CJson(WatchTexts_GetUtc(roQueue.iConsumerStalledSinceUtcNs)) : CJson()}};
}

CJson FromFeed(const SStreamFigures& roStream)
{
    const SFeedFigures& roFeed = roStream.oFeed;
    const bool bHasCadence = roFeed.oCadence.IsKnown();
    return {{"cadence", bHasCadence ? CJson(HealthTexts_GetCadence(roFeed.oCadence)) : CJson()},
            {"cadence_since", bHasCadence ? CJson(WatchTexts_GetUtc(roFeed.iCadenceSinceUtcNs)) : CJson()},
            {"fed", roFeed.bHasFed},
            {"stalled_since", roFeed.bIsStalled ? CJson(WatchTexts_GetUtc(roFeed.iStalledSinceUtcNs)) : CJson()},
            {"stalls", roStream.oCounters.uiFeedStalls},
            {"cadence_changes", roStream.oCounters.uiCadenceChanges},
            {"repeated_beyond_cadence", roStream.oCounters.uiRepeatedBeyond},
            {"estimated", roFeed.bIsEstimated}};
}

} // namespace

CJson HealthJson_FromPacing(const SPacingHistogram& roPacing)
{
    const SPacingFigures oFigures = Pacing_GetFigures(roPacing);
    // Only bins that hold something, by their number.
    CJson oBins = CJson::array();
    for (uint32_t uiBin = 0; uiBin < uiPacingBins; ++uiBin)
    {
        if (roPacing.auiCounts[uiBin] != 0)
        {
            oBins.push_back({uiBin, roPacing.auiCounts[uiBin]});
        }
    }
    const auto Get = [&](double flSeconds) { return oFigures.uiCount == 0 ? CJson() : CJson(flSeconds); };
    return {{"fields", oFigures.uiCount},
            {"p50_seconds", Get(oFigures.flP50)},
            {"p95_seconds", Get(oFigures.flP95)},
            {"p99_seconds", Get(oFigures.flP99)},
            {"p999_seconds", Get(oFigures.flP999)},
            {"worst_seconds", Get(roPacing.oWorst.flSeconds)},
            {"worst_utc", roPacing.oWorst.iUtcNs == 0 ? CJson() : CJson(WatchTexts_GetUtc(roPacing.oWorst.iUtcNs))},
            {"bins", std::move(oBins)}};
}

CJson HealthJson_FromStream(const SStreamKey& roOf, const SStreamHealth& roHealth)
{
    CJson oDomains = CJson::object();
    for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        const SHealth& roDomain = roHealth.aoDomains[uiDomain];
        const auto eDomain = static_cast<EHealthDomain>(uiDomain);
        oDomains[HealthTexts_GetDomain(eDomain)] = {{"status", HealthTexts_GetStatus(roDomain.eStatus)},
                                                    {"since", WatchTexts_GetUtc(roDomain.iSinceUtcNs)},
                                                    {"reason", HealthTexts_GetReason(eDomain, roOf, roDomain.oReason)},
                                                    {"transitions", FromTransitions(roDomain)}};
    }
    return {{"overall", HealthTexts_GetStatus(roHealth.oOverall.eStatus)},
            {"since", WatchTexts_GetUtc(roHealth.oOverall.iSinceUtcNs)},
            {"transitions", FromTransitions(roHealth.oOverall)},
            {"domains", std::move(oDomains)}};
}

CJson HealthJson_FromWhole(const SJudgement& roJudgement)
{
    return {{"overall", HealthTexts_GetStatus(roJudgement.oOverall.eStatus)},
            {"since", WatchTexts_GetUtc(roJudgement.oOverall.iSinceUtcNs)},
            {"incidents_open", roJudgement.uiIncidentsOpen},
            {"incidents", roJudgement.uiIncidents}};
}

CJson HealthJson_FromIncident(const SIncident& roIncident)
{
    CJson oStreams = CJson::array();
    for (size_t uiSlot = 0; uiSlot < roIncident.auiStreams.size(); ++uiSlot)
    {
        for (std::string& rszId : StreamId_PrintMembers(StreamKey_FromSlot(uiSlot, 0), roIncident.auiStreams[uiSlot]))
        {
            oStreams.push_back(std::move(rszId));
        }
    }
    return {{"number", roIncident.uiNumber},
            {"begin", WatchTexts_GetUtc(roIncident.iBeginUtcNs)},
            {"end", roIncident.iEndUtcNs == 0 ? CJson() : CJson(WatchTexts_GetUtc(roIncident.iEndUtcNs))},
            {"domain", HealthTexts_GetDomain(roIncident.eDomain)},
            {"status", HealthTexts_GetStatus(roIncident.eWorst)},
            {"streams", std::move(oStreams)},
            {"first_stream", StreamId_Print(roIncident.oFirstStream)},
            {"shared", HealthTexts_GetShare(roIncident.eShared)},
            {"cause", HealthTexts_GetIncidentCause(roIncident)},
            {"lost", roIncident.uiLost},
            {"first_event", roIncident.uiFirstEvent == 0 ? CJson() : CJson(roIncident.uiFirstEvent)}};
}

void HealthJson_AddTrackers(CJson& roJson, const SStreamFigures& roStream)
{
    CJson oCauses = CJson::object();
    for (uint32_t uiCause = 0; uiCause < uiNbOfUnobservedCauses; ++uiCause)
    {
        oCauses[HealthTexts_GetCause(static_cast<EUnobservedCause>(uiCause))] =
            roStream.oCounters.auiUnobservedCauses[uiCause];
    }
    const bool bIsInput = roStream.oKey.eDirection == EStreamDirection::INPUT;
    roJson["unobserved_causes"] = std::move(oCauses);
    roJson["queue"] = bIsInput ? FromQueue(roStream) : CJson();
    roJson["feed"] = bIsInput ? CJson() : FromFeed(roStream);
    roJson["field_order"] =
        roStream.oFieldOrder.bIsKnown
            ? CJson{{"swapped_since", roStream.oFieldOrder.bIsSwapped
                                          ? CJson(WatchTexts_GetUtc(roStream.oFieldOrder.iSwappedUtcNs))
                                          : CJson()},
                    {"swaps", roStream.oCounters.uiFieldOrderSwaps}}
            : CJson();
    roJson["pacing"] = HealthJson_FromPacing(roStream.oPacing);
}
