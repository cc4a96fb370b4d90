#include "StoreReader.h"

#include <algorithm>

#include "StoreRows.h"

namespace
{

constexpr int64_t iIncidentsVersion = 3; // the first layout that had incidents

} // namespace

CFault CStoreReader::Open()
{
    const std::lock_guard oGuard(m_oMutex);
    return Reach();
}

// Under the lock.
CFault CStoreReader::Reach()
{
    return m_poFile != nullptr ? CFault() : StoreFile_OpenForReading(m_szFile, m_poFile);
}

// Under the lock. Without a file the statement gives no rows.
CStoreStatement CStoreReader::Ask(const std::string& rszSql)
{
    static_cast<void>(Reach());
    return {m_poFile.get(), rszSql.c_str()};
}

// Under the lock. A watch may bring the file to a newer layout at any time.
int64_t CStoreReader::GetVersion()
{
    CStoreStatement oVersion = Ask("PRAGMA user_version");
    return oVersion.Next() ? oVersion.GetInt() : iStoreVersion;
}

// Under the lock, behind the last row.
void CStoreReader::Note(const CStoreStatement& roStatement)
{
    if (roStatement.HasFailed() && !m_oFault)
    {
        m_oFault = StoreFile_GetFault(m_szFile, m_poFile.get());
    }
}

CFault CStoreReader::GetFault()
{
    const std::lock_guard oGuard(m_oMutex);
    return m_oFault;
}

void CStoreReader::FindEvents(const SEventQuery& roQuery, uint64_t uiBeforeNumber, std::vector<SWatchEvent>& raoEvents)
{
    const std::lock_guard oGuard(m_oMutex);
    // By moments where these are asked for, which the index has in order, and by numbers otherwise; a plus keeps the
    // other order from being taken.
    const bool bByMoment = roQuery.iFromUtcNs != INT64_MIN || roQuery.iToUtcNs != INT64_MAX;
    const std::string szNumber = bByMoment ? "+number" : "number";
    const std::string szSql = "SELECT " + StoreRows_GetNames<SWatchEvent>() + " FROM events WHERE " + szNumber +
                              " > ? AND " + szNumber + " < ? AND utc_ns >= ? AND utc_ns < ? AND (? >> kind) & 1 " +
                              (bByMoment ? "ORDER BY utc_ns DESC, number DESC" : "ORDER BY number DESC");
    CStoreStatement oStatement = Ask(szSql);
    const auto uiBefore = std::min<uint64_t>({uiBeforeNumber, roQuery.uiBeforeNumber, INT64_MAX});
    oStatement.Bind(roQuery.uiAfterNumber).Bind(uiBefore).Bind(roQuery.iFromUtcNs).Bind(roQuery.iToUtcNs);
    oStatement.Bind(roQuery.uiKinds);
    while (raoEvents.size() < roQuery.uiMost && oStatement.Next())
    {
        const SWatchEvent oEvent = StoreRows_Read<SWatchEvent>(oStatement);
        if (WatchQuery_Fits(oEvent, roQuery))
        {
            raoEvents.push_back(oEvent);
        }
    }
    Note(oStatement);
}

void CStoreReader::FindMinutes(const SHistoryQuery& roQuery, std::vector<SMinuteSummary>& raoMinutes)
{
    const std::lock_guard oGuard(m_oMutex);
    const std::string szWhere = " WHERE direction = ? AND stream = ? AND utc_ns >= ? AND utc_ns < ?";
    const std::string szSelect = "SELECT " + StoreRows_GetNames<SMinuteSummary>(GetVersion()) + " FROM ";
    const std::string szSql = szSelect + "minutes" + szWhere + " UNION ALL " + szSelect + "running" + szWhere +
                              " ORDER BY utc_ns DESC LIMIT ?";
    CStoreStatement oStatement = Ask(szSql);
    for (int iTable = 0; iTable < 2; ++iTable)
    {
        StoreRows_BindKey(oStatement, roQuery.oKey).Bind(roQuery.iFromUtcNs).Bind(roQuery.iToUtcNs);
    }
    oStatement.Bind(roQuery.uiMost);
    const auto iFirst = static_cast<std::ptrdiff_t>(raoMinutes.size());
    while (oStatement.Next())
    {
        raoMinutes.push_back(StoreRows_Read<SMinuteSummary>(oStatement));
    }
    Note(oStatement);
    std::reverse(raoMinutes.begin() + iFirst, raoMinutes.end());
}

void CStoreReader::FindIncidents(const SIncidentQuery& roQuery, uint64_t uiBeforeNumber,
                                 std::vector<SIncident>& raoIncidents)
{
    const std::lock_guard oGuard(m_oMutex);
    if (GetVersion() < iIncidentsVersion)
    {
        return;
    }
    CStoreStatement oStatement = Ask("SELECT " + StoreRows_GetNames<SIncident>(GetVersion()) +
                                     " FROM incidents WHERE number < ? AND begin_ns < ? ORDER BY number DESC");
    oStatement.Bind(std::min<uint64_t>(uiBeforeNumber, INT64_MAX)).Bind(roQuery.iToUtcNs);
    while (raoIncidents.size() < roQuery.uiMost && oStatement.Next())
    {
        const auto oIncident = StoreRows_Read<SIncident>(oStatement);
        if (WatchQuery_Fits(oIncident, roQuery))
        {
            raoIncidents.push_back(oIncident);
        }
    }
    Note(oStatement);
}

int64_t CStoreReader::GetBegin()
{
    const std::lock_guard oGuard(m_oMutex);
    // A look per stream: the minutes are ordered by stream first.
    CStoreStatement oStatement = Ask("SELECT min(begin) FROM (SELECT (SELECT min(utc_ns) FROM minutes m WHERE "
                                     "m.direction = s.direction AND m.stream = s.stream) AS begin FROM streams s "
                                     "UNION ALL SELECT min(utc_ns) FROM running)");
    const int64_t iBegin = oStatement.Next() && !oStatement.IsNextNull() ? oStatement.GetInt() : INT64_MAX;
    Note(oStatement);
    return iBegin;
}

std::vector<SStoreRun> CStoreReader::FindRuns(int64_t iFromUtcNs, int64_t iToUtcNs)
{
    const std::lock_guard oGuard(m_oMutex);
    // By places: older stores call the ending another name.
    CStoreStatement oStatement = Ask("SELECT * FROM runs WHERE end_ns >= ? AND begin_ns < ? ORDER BY id");
    oStatement.Bind(iFromUtcNs).Bind(iToUtcNs);
    std::vector<SStoreRun> aoRuns;
    while (oStatement.Next())
    {
        SStoreRun& roRun = aoRuns.emplace_back();
        static_cast<void>(oStatement.GetInt()); // its number
        roRun.iBeginUtcNs = oStatement.GetInt();
        roRun.iEndUtcNs = oStatement.GetInt();
        roRun.eEnd = static_cast<ERunEnd>(std::clamp<int64_t>(oStatement.GetInt(), 0, 2));
        roRun.szHost = oStatement.GetText();
        roRun.szBoard = oStatement.GetText();
    }
    Note(oStatement);
    return aoRuns;
}

std::vector<SStoreStream> CStoreReader::FindStreams()
{
    const std::lock_guard oGuard(m_oMutex);
    CStoreStatement oStatement = Ask("SELECT direction, stream, name, standard, format FROM streams "
                                     "ORDER BY direction, stream");
    std::vector<SStoreStream> aoStreams;
    while (oStatement.Next())
    {
        SStoreStream& roStream = aoStreams.emplace_back();
        roStream.oKey = StoreRows_ReadKey(oStatement);
        roStream.oTexts.szName = oStatement.GetText();
        roStream.oTexts.szStandard = oStatement.GetText();
        roStream.oTexts.szFormat = oStatement.GetText();
    }
    Note(oStatement);
    return aoStreams;
}
