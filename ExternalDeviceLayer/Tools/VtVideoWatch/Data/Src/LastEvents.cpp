#include "LastEvents.h"

void CLastEvents::LookUp(const SStreamFigures& roStream, SWatchEvent& roKept)
{
    const bool bIsInput = roStream.eDirection == EStreamDirection::INPUT;
    SEventQuery oQuery;
    oQuery.uiAfterNumber = roStream.uiLastEvent - 1;
    oQuery.uiInputs = bIsInput ? 1ULL << roStream.uiIndex : 0;
    oQuery.uiOutputs = bIsInput ? 0 : 1ULL << roStream.uiIndex;
    // One that is not kept any longer is not asked for again.
    roKept = {};
    roKept.eKind = EWatchEventKind::COUNT;
    for (const SWatchEvent& roEvent : WatchData_FindEvents(m_roData, oQuery))
    {
        if (roEvent.uiNumber == roStream.uiLastEvent)
        {
            roKept = roEvent;
        }
    }
    roKept.uiNumber = roStream.uiLastEvent;
}

const std::vector<SWatchEvent>& CLastEvents::Find(const SWatchPublication& roPublication)
{
    m_aoEvents.clear();
    for (const SDirectionFigures& roDirection : roPublication.oSnapshot.aoDirections)
    {
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            SWatchEvent& roKept = m_oByStream[{roStream.eDirection, roStream.uiIndex}];
            if (roKept.uiNumber != roStream.uiLastEvent)
            {
                LookUp(roStream, roKept);
            }
            if (roKept.uiNumber != 0 && roKept.eKind != EWatchEventKind::COUNT)
            {
                m_aoEvents.push_back(roKept);
            }
        }
    }
    return m_aoEvents;
}
