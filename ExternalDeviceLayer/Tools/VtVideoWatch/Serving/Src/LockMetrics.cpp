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

void CollectLockStates(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_lock_state",
                    "1 for the state of the lock against the direction's reference, 0 for the others.",
                    MetricType::Gauge);
    WatchPublication_ForEachStream(roSnapshot,
                                   [&](const SStreamFigures& roStream)
                                   {
                                       for (size_t i = 0; i < static_cast<size_t>(ELockState::COUNT); ++i)
                                       {
                                           const auto eLock = static_cast<ELockState>(i);
                                           oFamily.Add(MetricLabels_Get(roStream, "state", WatchTexts_GetLock(eLock)),
                                                       roStream.eLock == eLock ? 1.0 : 0.0);
                                       }
                                   });
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
void CollectGroups(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_lock_group", "Identity of the stream's lock group; 0 without one.",
                    MetricType::Gauge);
    for (const SDirectionFigures& roDirection : roSnapshot.aoDirections)
    {
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            oFamily.Add(MetricLabels_Get(roStream), GetGroup(roDirection, roStream.oKey.uiIndex));
        }
    }
}

} // namespace

void LockMetrics_Collect(const SWatchPublication& roPublication, CFamilies& raoFamilies)
{
    CollectReferences(roPublication.oSnapshot, raoFamilies);
    CollectLockStates(roPublication.oSnapshot, raoFamilies);
    CollectGroups(roPublication.oSnapshot, raoFamilies);
}
