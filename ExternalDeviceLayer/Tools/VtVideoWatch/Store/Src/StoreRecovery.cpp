#include "StoreRecovery.h"

#include <algorithm>

#include "StoreRows.h"
#include "WatchJudge.h"

namespace
{

constexpr const char* szLastEvent = "SELECT max(number) FROM events";

bool ReadNumber(sqlite3* poFile, const char* szSql, uint64_t& ruiNumber)
{
    CStoreStatement oStatement(poFile, szSql);
    ruiNumber = oStatement.Next() ? oStatement.GetUint() : 0;
    return !oStatement.HasFailed();
}

// The run that was not closed, if the last one was not.
struct SOpenRun
{
    int64_t iRun = 0;
    int64_t iBeginUtcNs = 0;
    int64_t iEndUtcNs = 0;
    uint32_t auiStreams[2] = {}; // of its one chip
};

// Its streams. Those of several chips it has not counted: then they are those that it began to watch.
bool FindStreams(sqlite3* poFile, const SOpenRun& roRun, std::vector<SStreamKey>& raoStreams)
{
    for (const EStreamDirection eDirection : aeDirections)
    {
        for (uint32_t uiIndex = 0; uiIndex < roRun.auiStreams[static_cast<size_t>(eDirection)]; ++uiIndex)
        {
            raoStreams.push_back({eDirection, uiIndex});
        }
    }
    CStoreStatement oFind(poFile, "SELECT DISTINCT direction, stream FROM events WHERE kind = ? AND utc_ns >= ? "
                                  "AND stream >= ? ORDER BY stream, direction");
    oFind.Bind(static_cast<int64_t>(EWatchEventKind::WATCH_BEGAN)).Bind(roRun.iBeginUtcNs);
    oFind.Bind(uiMaxStreamsPerDirection);
    while (oFind.Next())
    {
        raoStreams.push_back(StoreRows_ReadKey(oFind));
    }
    return !oFind.HasFailed();
}

bool EndRun(sqlite3* poFile, const SOpenRun& roRun, std::vector<SWatchEvent>& raoUntold)
{
    uint64_t uiNumber = 0;
    std::vector<SStreamKey> aoStreams;
    if (!ReadNumber(poFile, szLastEvent, uiNumber) || !FindStreams(poFile, roRun, aoStreams))
    {
        return false;
    }
    CStoreStatement oInsert = StoreRows_Insert<SWatchEvent>(poFile, "events");
    for (const SStreamKey& roStream : aoStreams)
    {
        SWatchEvent oEvent = {};
        oEvent.uiNumber = ++uiNumber;
        oEvent.iUtcNs = roRun.iEndUtcNs;
        oEvent.eKind = EWatchEventKind::WATCH_ENDED;
        oEvent.oKey = roStream;
        if (!StoreRows_Bind(oInsert, oEvent).Run())
        {
            return false;
        }
        raoUntold.push_back(oEvent);
    }
    CStoreStatement oUpdate(poFile, "UPDATE runs SET ending = ? WHERE id = ?");
    return oUpdate.Bind(static_cast<int64_t>(ERunEnd::BROKEN)).Bind(roRun.iRun).Run();
}

bool EndKilledRuns(sqlite3* poFile, int64_t iOwnRun, std::vector<SWatchEvent>& raoUntold)
{
    std::vector<SOpenRun> aoRuns;
    CStoreStatement oFind(poFile, "SELECT id, begin_ns, end_ns, inputs, outputs FROM runs WHERE ending = ? AND id <> ? "
                                  "ORDER BY id");
    oFind.Bind(static_cast<int64_t>(ERunEnd::OPEN)).Bind(iOwnRun);
    while (oFind.Next())
    {
        SOpenRun& roRun = aoRuns.emplace_back();
        roRun.iRun = oFind.GetInt();
        roRun.iBeginUtcNs = oFind.GetInt();
        roRun.iEndUtcNs = oFind.GetInt();
        roRun.auiStreams[0] = std::min(oFind.GetUint32(), uiMaxStreamsPerDirection);
        roRun.auiStreams[1] = std::min(oFind.GetUint32(), uiMaxStreamsPerDirection);
    }
    return !oFind.HasFailed() &&
           std::ranges::all_of(aoRuns, [&](const SOpenRun& roRun) { return EndRun(poFile, roRun, raoUntold); });
}

// How each stream was when the last run ended: its last minute says so.
bool FindEarlier(sqlite3* poFile, std::vector<SEarlierStream>& raoEarlier)
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
        oStream.oKey = StoreRows_ReadKey(oFind);
        const bool bRan = oFind.GetInt() == static_cast<int64_t>(EStreamState::RUNNING);
        oStream.oRun = {bRan ? EEarlierState::RUNNING : EEarlierState::LOST, oFind.GetInt()};
        raoEarlier.push_back(oStream);
    }
    return !oFind.HasFailed();
}

bool FindOpen(sqlite3* poFile, std::vector<SIncident>& raoOpen)
{
    CStoreStatement oFind(poFile,
                          ("SELECT " + StoreRows_GetNames<SIncident>() + " FROM incidents WHERE end_ns = 0").c_str());
    while (oFind.Next())
    {
        raoOpen.push_back(StoreRows_Read<SIncident>(oFind));
    }
    return !oFind.HasFailed();
}

// Incidents of a killed run ended with its last second; those of a run that comes back to its file go on.
bool EndIncidents(sqlite3* poFile, SStoreRemains& roRemains)
{
    std::vector<SIncident> aoOpen;
    uint64_t uiNumber = 0;
    uint64_t uiEndUtcNs = 0;
    if (!ReadNumber(poFile, "SELECT max(end_ns) FROM runs", uiEndUtcNs) || !FindOpen(poFile, aoOpen) ||
        !ReadNumber(poFile, szLastEvent, uiNumber))
    {
        return false;
    }
    const auto iEndUtcNs = static_cast<int64_t>(uiEndUtcNs);
    CStoreStatement oEvent = StoreRows_Insert<SWatchEvent>(poFile, "events");
    CStoreStatement oIncident = StoreRows_Insert<SIncident>(poFile, "incidents");
    for (SIncident& roIncident : aoOpen)
    {
        roIncident.iEndUtcNs = std::max(roIncident.iBeginUtcNs, iEndUtcNs);
        SWatchEvent oEnded = WatchJudge_MakeEvent(roIncident, EWatchEventKind::INCIDENT_ENDED);
        oEnded.uiNumber = ++uiNumber;
        if (!StoreRows_Bind(oIncident, roIncident).Run() || !StoreRows_Bind(oEvent, oEnded).Run())
        {
            return false;
        }
        roRemains.aoUntold.push_back(oEnded);
        roRemains.aoEnded.emplace_back(oEnded, roIncident);
    }
    return true;
}

// What the program for incidents was not told: begins and ends behind the last one that it took.
bool ReadUndelivered(sqlite3* poFile, SStoreRemains& roRemains)
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
        if (oFind.HasFailed())
        {
            return false;
        }
    }
    return !oEvents.HasFailed();
}

bool ReadIncidents(sqlite3* poFile, SStoreRemains& roRemains)
{
    CStoreStatement oDelivered(poFile, "SELECT event FROM delivered");
    roRemains.bHasDelivered = oDelivered.Next();
    roRemains.uiLastDelivered = roRemains.bHasDelivered ? oDelivered.GetUint() : 0;
    return !oDelivered.HasFailed() &&
           ReadNumber(poFile, "SELECT max(number) FROM incidents", roRemains.uiLastIncident) &&
           (!roRemains.bHasDelivered || ReadUndelivered(poFile, roRemains));
}

bool ReadRunning(sqlite3* poFile, std::vector<SMinuteSummary>& raoRunning)
{
    CStoreStatement oRunning(poFile, ("SELECT " + StoreRows_GetNames<SMinuteSummary>() + " FROM running").c_str());
    while (oRunning.Next())
    {
        raoRunning.push_back(StoreRows_Read<SMinuteSummary>(oRunning));
    }
    return !oRunning.HasFailed();
}

bool PutMinutesAway(sqlite3* poFile, int64_t iMinuteUtcNs)
{
    const std::string szNames = StoreRows_GetNames<SMinuteSummary>();
    const std::string szMove =
        "INSERT OR REPLACE INTO minutes(" + szNames + ") SELECT " + szNames + " FROM running WHERE utc_ns <> ?";
    return CStoreStatement(poFile, szMove.c_str()).Bind(iMinuteUtcNs).Run() &&
           CStoreStatement(poFile, "DELETE FROM running WHERE utc_ns <> ?").Bind(iMinuteUtcNs).Run();
}

bool FindRun(sqlite3* poFile, int64_t iBeginUtcNs, int64_t& riRun)
{
    CStoreStatement oFind(poFile, "SELECT id FROM runs WHERE begin_ns = ? AND ending = ?");
    oFind.Bind(iBeginUtcNs).Bind(static_cast<int64_t>(ERunEnd::OPEN));
    riRun = oFind.Next() ? oFind.GetInt() : 0;
    return !oFind.HasFailed();
}

} // namespace

CFault StoreRecovery_Run(sqlite3* poFile, int64_t iBeginUtcNs, int64_t iNowUtcNs, SStoreRemains& roRemains)
{
    // Whatever is not known of what there is must not be written over.
    const bool bIsDone = FindEarlier(poFile, roRemains.aoEarlier) && FindRun(poFile, iBeginUtcNs, roRemains.iOwnRun) &&
                         StoreFile_Run(poFile, "BEGIN IMMEDIATE") &&
                         EndKilledRuns(poFile, roRemains.iOwnRun, roRemains.aoUntold) &&
                         (roRemains.iOwnRun != 0 || EndIncidents(poFile, roRemains)) &&
                         PutMinutesAway(poFile, HistoryPoint_GetMinute(iNowUtcNs)) &&
                         ReadNumber(poFile, szLastEvent, roRemains.uiLastEvent) && ReadIncidents(poFile, roRemains) &&
                         ReadRunning(poFile, roRemains.aoRunning) && StoreFile_Run(poFile, "COMMIT");
    if (bIsDone)
    {
        return {};
    }
    CFault oFault(sqlite3_errcode(poFile) == SQLITE_OK ? "could not be read" : sqlite3_errmsg(poFile), true);
    static_cast<void>(StoreFile_Run(poFile, "ROLLBACK"));
    roRemains.aoUntold.clear();
    roRemains.aoEnded.clear();
    return oFault;
}
