#include "LockMetrics.h"

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
        if (roDirection.bHasReference && roDirection.uiReference < roDirection.aoStreams.size())
        {
            oFamily.Add(MetricLabels_Get(roDirection.aoStreams[roDirection.uiReference]), 1.0);
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

} // namespace

void LockMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CollectReferences(roPublication.oSnapshot, raoFamilies);
    CollectLockStates(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectGroups(roPublication.oSnapshot, eDetail, raoFamilies);
}
