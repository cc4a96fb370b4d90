#include "StoreRecovery.h"

#include <algorithm>

#include "StoreRows.h"

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
    const std::string szSql =
        std::string("INSERT INTO events(") + szEventColumns + ") VALUES " + StoreRows_GetPlaces(iEventColumns);
    CStoreStatement oInsert(poFile, szSql.c_str());
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
            StoreRows_Bind(oInsert, oEvent);
            if (!oInsert.Run())
            {
                return false;
            }
        }
    }
    return CStoreStatement(poFile, "UPDATE runs SET is_closed = 2 WHERE id = ?").Bind(roRun.iRun).Run();
}

bool EndKilledRuns(sqlite3* poFile)
{
    SOpenRun oRun;
    CStoreStatement oFind(poFile, "SELECT id, end_ns, inputs, outputs FROM runs WHERE is_closed = 0 ORDER BY id");
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

bool PutMinutesAway(sqlite3* poFile, int64_t iMinuteUtcNs)
{
    const std::string szMove = std::string("INSERT OR REPLACE INTO minutes(") + szMinuteColumns + ") SELECT " +
                               szMinuteColumns + " FROM running WHERE utc_ns <> ?";
    return CStoreStatement(poFile, szMove.c_str()).Bind(iMinuteUtcNs).Run() &&
           CStoreStatement(poFile, "DELETE FROM running WHERE utc_ns <> ?").Bind(iMinuteUtcNs).Run();
}

} // namespace

uint64_t StoreRecovery_GetLastEvent(sqlite3* poFile)
{
    CStoreStatement oStatement(poFile, "SELECT max(number) FROM events");
    return oStatement.Next() ? oStatement.GetUint() : 0;
}

bool StoreRecovery_Run(sqlite3* poFile, int64_t iNowUtcNs, SStoreRemains& roRemains)
{
    const bool bIsDone = StoreFile_Run(poFile, "BEGIN IMMEDIATE") && EndKilledRuns(poFile) &&
                         PutMinutesAway(poFile, HistoryPoint_GetMinute(iNowUtcNs)) && StoreFile_Run(poFile, "COMMIT");
    if (!bIsDone)
    {
        static_cast<void>(StoreFile_Run(poFile, "ROLLBACK"));
    }
    roRemains.uiLastEvent = StoreRecovery_GetLastEvent(poFile);
    CStoreStatement oRunning(poFile, (std::string("SELECT ") + szMinuteColumns + " FROM running").c_str());
    while (oRunning.Next())
    {
        roRemains.aoRunning.push_back(StoreRows_ReadMinute(oRunning));
    }
    return bIsDone;
}
