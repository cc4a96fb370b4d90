#include "LockMetrics.h"

#include "WatchJson.h"
#include "WatchTexts.h"

namespace
{

using prometheus::MetricType;

void CollectReferences(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_reference",
                    "The stream that its direction's phases are told against; always 1.", MetricType::Gauge);
    for (const SDirectionFigures& roDirection : roSnapshot.aoDirections)
    {
        const SStreamKey& roKey = roDirection.oReference;
        const SStreamFigures* poStream = WatchPublication_Find(roSnapshot, roKey);
        // One of both directions is told once: with the inputs, which stand before the outputs.
        const SDirectionFigures& roInputs =
            roSnapshot.aoDirections[StreamKey_GetSlot({EStreamDirection::INPUT, 0, roKey.uiChip})];
        const bool bIsToldBefore = &roDirection != &roInputs && roInputs.bHasReference && roInputs.oReference == roKey;
        if (roDirection.bHasReference && poStream != nullptr && !bIsToldBefore)
        {
            oFamily.Add(MetricLabels_Get(*poStream), 1.0);
        }
    }
}

void CollectLockStates(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_lock_state",
                    "1 for the state of the lock against the direction's reference.", MetricType::Gauge);
    WatchPublication_ForEachStream(roSnapshot, [&](const SStreamFigures& roStream)
                                   { oFamily.AddStates(roStream, roStream.eLock, WatchTexts_GetLock, eDetail); });
}

uint32_t GetGroup(const SDirectionFigures& roDirection, uint32_t uiIndex)
{
    for (const SLockGroup& roGroup : roDirection.aoGroups)
    {
        if ((roGroup.uiMembers >> uiIndex & 1U) != 0)
        {
            return roGroup.uiGroup;
        }
    }
    return 0;
}

// The identity is the value, because as a label it would grow without bound.
void CollectGroups(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_lock_group", "Identity of the stream's lock group.", MetricType::Gauge);
    for (const SDirectionFigures& roDirection : roSnapshot.aoDirections)
    {
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            const double flGroup = GetGroup(roDirection, roStream.oKey.uiIndex);
            oFamily.AddKnown(MetricLabels_Get(roStream), MetricDetail_Tells(eDetail, ETold::MOVED, flGroup), flGroup);
        }
    }
}

// None without --path.
void CollectPaths(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    struct SBound
    {
        const char* szName;
        double SPathFigures::*pflSeconds;
    };
    static constexpr SBound aoBounds[] = {{"least", &SPathFigures::flLeastSeconds},
                                          {"mean", &SPathFigures::flMeanSeconds},
                                          {"most", &SPathFigures::flMostSeconds}};
    const auto fnGetLabels = [&roSnapshot](const SPathFigures& roPath)
    {
        const SChipFigures* poChip = roSnapshot.FindChip(roPath.oInput.uiChip);
        return CLabels{{"chip", std::to_string(poChip == nullptr ? 0 : poChip->uiNumber)},
                       {"input", std::to_string(roPath.oInput.uiIndex)},
                       {"output", std::to_string(roPath.oOutput.uiIndex)}};
    };
    CFamily oDelays(raoFamilies, "vt_video_path_delay_seconds",
                    "From a field's start at the input to the first field start of the output that can show it, "
                    "without the application's own time.",
                    MetricType::Gauge);
    for (const SPathFigures& roPath : roSnapshot.aoPaths)
    {
        for (const SBound& roBound : aoBounds)
        {
            CLabels oLabels = fnGetLabels(roPath);
            oLabels.push_back({"bound", roBound.szName});
            oDelays.AddKnown(std::move(oLabels), roPath.bIsKnown, WatchJson_Round(roPath.*roBound.pflSeconds, 7));
        }
    }
    CFamily oSteps(raoFamilies, "vt_video_path_steps_total", "Times that this delay stepped by a field.",
                   MetricType::Counter);
    for (const SPathFigures& roPath : roSnapshot.aoPaths)
    {
        oSteps.Add(fnGetLabels(roPath), static_cast<double>(roPath.uiSteps));
    }
}

} // namespace

void LockMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CollectReferences(roPublication.oSnapshot, raoFamilies);
    CollectLockStates(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectGroups(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectPaths(roPublication.oSnapshot, raoFamilies);
}
