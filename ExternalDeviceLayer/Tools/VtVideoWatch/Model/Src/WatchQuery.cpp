#include "WatchQuery.h"

#include "EventKinds.h"

bool WatchQuery_Fits(const SHistoryPoint& roPoint, const SHistoryQuery& roQuery)
{
    return roPoint.iUtcNs >= roQuery.iFromUtcNs && roPoint.iUtcNs < roQuery.iToUtcNs;
}

bool WatchQuery_Fits(const SWatchEvent& roEvent, const SEventQuery& roQuery)
{
    const SStreamKey& roKey = roEvent.oKey;
    const uint64_t uiStreams = roKey.eDirection == EStreamDirection::INPUT ? roQuery.uiInputs : roQuery.uiOutputs;
    const uint64_t uiMembers = EventKind_Get(roEvent.eKind).bIsOfGroup ? roEvent.uiMembers : 0;
    return roEvent.uiNumber > roQuery.uiAfterNumber && roEvent.uiNumber < roQuery.uiBeforeNumber &&
           roEvent.iUtcNs >= roQuery.iFromUtcNs && roEvent.iUtcNs < roQuery.iToUtcNs &&
           (roQuery.uiKinds >> static_cast<unsigned>(roEvent.eKind) & 1) != 0 &&
           (uiStreams & (uiMembers | 1ULL << (roKey.uiIndex % 64))) != 0;
}

bool WatchQuery_Fits(const SIncident& roIncident, const SIncidentQuery& roQuery)
{
    const bool bIsOpen = roIncident.iEndUtcNs == 0;
    return roIncident.iBeginUtcNs < roQuery.iToUtcNs && (bIsOpen || roIncident.iEndUtcNs >= roQuery.iFromUtcNs) &&
           (bIsOpen ? !roQuery.bOnlyEnded : !roQuery.bOnlyOpen);
}
