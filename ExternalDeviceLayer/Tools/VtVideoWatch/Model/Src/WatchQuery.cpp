#include "WatchQuery.h"

#include "EventKinds.h"

bool WatchQuery_Fits(const SHistoryPoint& roPoint, const SHistoryQuery& roQuery)
{
    return roPoint.iUtcNs >= roQuery.iFromUtcNs && roPoint.iUtcNs < roQuery.iToUtcNs;
}

bool WatchQuery_Fits(const SWatchEvent& roEvent, const SEventQuery& roQuery)
{
    const SEventKind oKind = EventKind_Get(roEvent.eKind);
    const auto fnGetStreams = [&roQuery](const SStreamKey& roKey)
    { return roQuery.auiStreams[StreamKey_GetSlot(roKey) % uiMaxSlots]; };
    const auto fnAsksFor = [&fnGetStreams](const SStreamKey& roKey)
    { return (fnGetStreams(roKey) >> (roKey.uiIndex % uiMaxStreamsPerDirection) & 1U) != 0; };
    const uint32_t uiMembers = oKind.bIsOfGroup ? roEvent.uiMembers : 0;
    return roEvent.uiNumber > roQuery.uiAfterNumber && roEvent.uiNumber < roQuery.uiBeforeNumber &&
           roEvent.iUtcNs >= roQuery.iFromUtcNs && roEvent.iUtcNs < roQuery.iToUtcNs &&
           (roQuery.uiKinds >> static_cast<unsigned>(roEvent.eKind) & 1) != 0 &&
           (fnAsksFor(roEvent.oKey) || (fnGetStreams(roEvent.oKey) & uiMembers) != 0 ||
            (oKind.bIsOfPair && fnAsksFor(EventStream_Unpack(roEvent.uiBefore, roEvent.oKey.uiChip))));
}

bool WatchQuery_Fits(const SIncident& roIncident, const SIncidentQuery& roQuery)
{
    const bool bIsOpen = roIncident.iEndUtcNs == 0;
    return roIncident.iBeginUtcNs < roQuery.iToUtcNs && (bIsOpen || roIncident.iEndUtcNs >= roQuery.iFromUtcNs) &&
           (bIsOpen ? !roQuery.bOnlyEnded : !roQuery.bOnlyOpen);
}
