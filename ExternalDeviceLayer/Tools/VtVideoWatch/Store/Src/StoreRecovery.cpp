#include "StoreRecovery.h"

#include <algorithm>

#include "StoreRows.h"
#include "WatchJudge.h"

namespace
{

// The run that was not closed, if the last one was not.
struct SOpenRun
{
    int64_t iRun = 0;
    int64_t iEndUtcNs = 0;
    uint32_t auiStreams[2] = {};
};

bool EndRun(sqlite3* poFile, const SOpenRun& roRun)
{
    CStoreStatement oInsert = StoreRows_Insert<SWatchEvent>(poFile, "events");
    uint64_t uiNumber = StoreRecovery_GetLastEvent(poFile);
    for (const EStreamDirection eDirection : aeDirections)
    {
        for (uint32_t uiIndex = 0; uiIndex < roRun.auiStreams[static_cast<size_t>(eDirection)]; ++uiIndex)
        {
            SWatchEvent oEvent = {};
            oEvent.uiNumber = ++uiNumber;
            oEvent.iUtcNs = roRun.iEndUtcNs;
            oEvent.eKind = EWatchEventKind::WATCH_ENDED;
            oEvent.oKey = {eDirection, uiIndex};
            if (!StoreRows_Bind(oInsert, oEvent).Run())
            {
                return false;
            }
        }
    }
    CStoreStatement oUpdate(poFile, "UPDATE runs SET ending = ? WHERE id = ?");
    return oUpdate.Bind(static_cast<int64_t>(ERunEnd::BROKEN)).Bind(roRun.iRun).Run();
}

bool EndKilledRuns(sqlite3* poFile, int64_t iOwnRun)
{
    SOpenRun oRun;
    CStoreStatement oFind(poFile, "SELECT id, end_ns, inputs, outputs FROM runs WHERE ending = ? AND id <> ? "
                                  "ORDER BY id");
    oFind.Bind(static_cast<int64_t>(ERunEnd::OPEN)).Bind(iOwnRun);
    while (oFind.Next())
    {
        oRun.iRun = oFind.GetInt();
        oRun.iEndUtcNs = oFind.GetInt();
        oRun.auiStreams[0] = std::min(oFind.GetUint32(), uiMaxStreamsPerDirection);
        oRun.auiStreams[1] = std::min(oFind.GetUint32(), uiMaxStreamsPerDirection);
        if (!EndRun(poFile, oRun))
        {
            return false;
        }
    }
    return true;
}

// How each stream was when the last run ended: its last minute says so.
void FindEarlier(sqlite3* poFile, std::vector<SEarlierStream>& raoEarlier)
{
    CStoreStatement oFind(
        poFile, "SELECT direction, stream, state, coalesce(CASE WHEN state = ?1 THEN NULL ELSE (SELECT utc_ns "
                "FROM events WHERE kind = ?2 AND direction = running.direction AND stream = running.stream "
                "ORDER BY number DESC LIMIT 1) END, (SELECT max(end_ns) FROM runs)) FROM running "
                "WHERE state IN (?1, ?3)");
    oFind.Bind(static_cast<int64_t>(EStreamState::RUNNING)).Bind(static_cast<int64_t>(EWatchEventKind::SIGNAL_LOST));
    oFind.Bind(static_cast<int64_t>(EStreamState::LOST));
    while (oFind.Next())
    {
        SEarlierStream oStream;
        oStream.oKey.eDirection = oFind.GetInt() == 0 ? EStreamDirection::INPUT : EStreamDirection::OUTPUT;
        oStream.oKey.uiIndex = oFind.GetUint32();
        const bool bRan = oFind.GetInt() == static_cast<int64_t>(EStreamState::RUNNING);
        oStream.oRun = {bRan ? EEarlierState::RUNNING : EEarlierState::LOST, oFind.GetInt()};
        raoEarlier.push_back(oStream);
    }
}

std::vector<SIncident> FindOpen(sqlite3* poFile)
{
    std::vector<SIncident> aoOpen;
    CStoreStatement oFind(poFile,
                          ("SELECT " + StoreRows_GetNames<SIncident>() + " FROM incidents WHERE end_ns = 0").c_str());
    while (oFind.Next())
    {
        aoOpen.push_back(StoreRows_Read<SIncident>(oFind));
    }
    return aoOpen;
}

// Incidents of a killed run ended with its last second; those of a run that comes back to its file go on.
bool EndIncidents(sqlite3* poFile, SStoreRemains& roRemains)
{
    CStoreStatement oEnd(poFile, "SELECT max(end_ns) FROM runs");
    const int64_t iEndUtcNs = oEnd.Next() ? oEnd.GetInt() : 0;
    uint64_t uiNumber = StoreRecovery_GetLastEvent(poFile);
    CStoreStatement oEvent = StoreRows_Insert<SWatchEvent>(poFile, "events");
    CStoreStatement oIncident = StoreRows_Insert<SIncident>(poFile, "incidents");
    for (SIncident& roIncident : FindOpen(poFile))
    {
        roIncident.iEndUtcNs = std::max(roIncident.iBeginUtcNs, iEndUtcNs);
        SWatchEvent oEnded = WatchJudge_MakeEvent(roIncident, EWatchEventKind::INCIDENT_ENDED);
        oEnded.uiNumber = ++uiNumber;
        if (!StoreRows_Bind(oIncident, roIncident).Run() || !StoreRows_Bind(oEvent, oEnded).Run())
        {
            return false;
        }
        roRemains.aoEnded.emplace_back(oEnded, roIncident);
    }
    return true;
}

// What the program for incidents was not told: begins and ends behind the last one that it took.
void ReadUndelivered(sqlite3* poFile, SStoreRemains& roRemains)
{
    CStoreStatement oEvents(poFile, ("SELECT " + StoreRows_GetNames<SWatchEvent>() +
                                     " FROM events WHERE number > ? AND kind IN (?, ?) ORDER BY number")
                                        .c_str());
    CStoreStatement oFind(poFile,
                          ("SELECT " + StoreRows_GetNames<SIncident>() + " FROM incidents WHERE number = ?").c_str());
    oEvents.Bind(roRemains.uiLastDelivered);
    oEvents.Bind(static_cast<int64_t>(EWatchEventKind::INCIDENT_BEGAN));
    oEvents.Bind(static_cast<int64_t>(EWatchEventKind::INCIDENT_ENDED));
    while (oEvents.Next())
    {
        const auto oEvent = StoreRows_Read<SWatchEvent>(oEvents);
        oFind.Bind(oEvent.uiGroup);
        if (oFind.Next())
        {
            roRemains.aoUndelivered.emplace_back(oEvent, StoreRows_Read<SIncident>(oFind));
            static_cast<void>(oFind.Next());
        }
    }
}

void ReadIncidents(sqlite3* poFile, SStoreRemains& roRemains)
{
    CStoreStatement oLast(poFile, "SELECT max(number) FROM incidents");
    roRemains.uiLastIncident = oLast.Next() ? oLast.GetUint() : 0;
    CStoreStatement oDelivered(poFile, "SELECT event FROM delivered");
    roRemains.bHasDelivered = oDelivered.Next();
    roRemains.uiLastDelivered = roRemains.bHasDelivered ? oDelivered.GetUint() : 0;
    if (roRemains.bHasDelivered)
    {
        ReadUndelivered(poFile, roRemains);
    }
}

bool PutMinutesAway(sqlite3* poFile, int64_t iMinuteUtcNs)
{
    const std::string szNames = StoreRows_GetNames<SMinuteSummary>();
    const std::string szMove =
        "INSERT OR REPLACE INTO minutes(" + szNames + ") SELECT " + szNames + " FROM running WHERE utc_ns <> ?";
    return CStoreStatement(poFile, szMove.c_str()).Bind(iMinuteUtcNs).Run() &&
           CStoreStatement(poFile, "DELETE FROM running WHERE utc_ns <> ?").Bind(iMinuteUtcNs).Run();
}

int64_t FindRun(sqlite3* poFile, int64_t iBeginUtcNs)
{
    CStoreStatement oFind(poFile, "SELECT id FROM runs WHERE begin_ns = ? AND ending = ?");
    oFind.Bind(iBeginUtcNs).Bind(static_cast<int64_t>(ERunEnd::OPEN));
    return oFind.Next() ? oFind.GetInt() : 0;
}

} // namespace

uint64_t StoreRecovery_GetLastEvent(sqlite3* poFile)
{
    CStoreStatement oStatement(poFile, "SELECT max(number) FROM events");
    return oStatement.Next() ? oStatement.GetUint() : 0;
}

bool StoreRecovery_Run(sqlite3* poFile, int64_t iBeginUtcNs, int64_t iNowUtcNs, SStoreRemains& roRemains)
{
    FindEarlier(poFile, roRemains.aoEarlier);
    roRemains.iOwnRun = FindRun(poFile, iBeginUtcNs);
    const bool bIsDone = StoreFile_Run(poFile, "BEGIN IMMEDIATE") && EndKilledRuns(poFile, roRemains.iOwnRun) &&
                         (roRemains.iOwnRun != 0 || EndIncidents(poFile, roRemains)) &&
                         PutMinutesAway(poFile, HistoryPoint_GetMinute(iNowUtcNs)) && StoreFile_Run(poFile, "COMMIT");
    if (!bIsDone)
    {
        static_cast<void>(StoreFile_Run(poFile, "ROLLBACK"));
        roRemains.aoEnded.clear();
    }
    roRemains.uiLastEvent = StoreRecovery_GetLastEvent(poFile);
    ReadIncidents(poFile, roRemains);
    CStoreStatement oRunning(poFile, ("SELECT " + StoreRows_GetNames<SMinuteSummary>() + " FROM running").c_str());
    while (oRunning.Next())
    {
        roRemains.aoRunning.push_back(StoreRows_Read<SMinuteSummary>(oRunning));
    }
    return bIsDone;
}
