#include "StoreReader.h"

#include <algorithm>

#include "StoreRows.h"

namespace
{

bool IsGroupKind(EWatchEventKind eKind)
{
    return eKind == EWatchEventKind::GROUP_FORMED || eKind == EWatchEventKind::GROUP_CHANGED ||
           eKind == EWatchEventKind::GROUP_ENDED;
}

} // namespace

bool StoreReader_Fits(const SWatchEvent& roEvent, const SEventQuery& roQuery)
{
    const uint64_t uiStreams = roEvent.eDirection == EStreamDirection::INPUT ? roQuery.uiInputs : roQuery.uiOutputs;
    const uint64_t uiOwn =
        1ULL << (roEvent.uiIndex % 64) | (IsGroupKind(roEvent.eKind) ? static_cast<uint64_t>(roEvent.uiMembers) : 0);
    return roEvent.uiNumber > roQuery.uiAfterNumber && roEvent.iUtcNs >= roQuery.iFromUtcNs &&
           roEvent.iUtcNs < roQuery.iToUtcNs && (roQuery.uiKinds >> static_cast<unsigned>(roEvent.eKind) & 1) != 0 &&
           (uiStreams & uiOwn) != 0;
}

EStoreOpen CStoreReader::Open(const std::string& rszFile, std::string& rszFault)
{
    const std::lock_guard oGuard(m_oMutex);
    return StoreFile_OpenForReading(rszFile, m_poFile, rszFault);
}

void CStoreReader::FindEvents(const SEventQuery& roQuery, uint64_t uiBeforeNumber, std::vector<SWatchEvent>& raoEvents)
{
    const std::lock_guard oGuard(m_oMutex);
    const std::string szSql = std::string("SELECT ") + szEventColumns +
                              " FROM events WHERE number > ? AND number < ? AND utc_ns >= ? AND utc_ns < ?"
                              " AND (? >> kind) & 1 ORDER BY number DESC";
    CStoreStatement oStatement(m_poFile.get(), szSql.c_str());
    const auto uiBefore = std::min<uint64_t>(uiBeforeNumber, INT64_MAX);
    oStatement.Bind(roQuery.uiAfterNumber).Bind(uiBefore).Bind(roQuery.iFromUtcNs).Bind(roQuery.iToUtcNs);
    oStatement.Bind(roQuery.uiKinds);
    while (raoEvents.size() < roQuery.uiMost && oStatement.Next())
    {
        const SWatchEvent oEvent = StoreRows_ReadEvent(oStatement);
        if (StoreReader_Fits(oEvent, roQuery))
        {
            raoEvents.push_back(oEvent);
        }
    }
}

void CStoreReader::FindMinutes(const SHistoryQuery& roQuery, std::vector<SMinuteSummary>& raoMinutes)
{
    const std::lock_guard oGuard(m_oMutex);
    const std::string szWhere = " WHERE direction = ? AND stream = ? AND utc_ns >= ? AND utc_ns < ?";
    const std::string szSql = std::string("SELECT ") + szMinuteColumns + " FROM minutes" + szWhere +
                              " UNION ALL SELECT " + szMinuteColumns + " FROM running" + szWhere +
                              " ORDER BY utc_ns DESC LIMIT ?";
    CStoreStatement oStatement(m_poFile.get(), szSql.c_str());
    for (int iTable = 0; iTable < 2; ++iTable)
    {
        oStatement.Bind(static_cast<int64_t>(roQuery.eDirection)).Bind(roQuery.uiIndex);
        oStatement.Bind(roQuery.iFromUtcNs).Bind(roQuery.iToUtcNs);
    }
    oStatement.Bind(roQuery.uiMost);
    const auto iFirst = static_cast<std::ptrdiff_t>(raoMinutes.size());
    while (oStatement.Next())
    {
        raoMinutes.push_back(StoreRows_ReadMinute(oStatement));
    }
    std::reverse(raoMinutes.begin() + iFirst, raoMinutes.end());
}

int64_t CStoreReader::GetBegin()
{
    const std::lock_guard oGuard(m_oMutex);
    // A look per stream: the minutes are ordered by stream first.
    CStoreStatement oStatement(m_poFile.get(),
                               "SELECT min(begin) FROM (SELECT (SELECT min(utc_ns) FROM minutes m WHERE "
                               "m.direction = s.direction AND m.stream = s.stream) AS begin FROM streams s "
                               "UNION ALL SELECT min(utc_ns) FROM running)");
    return oStatement.Next() && !oStatement.IsNextNull() ? oStatement.GetInt() : INT64_MAX;
}

std::vector<SStoreRun> CStoreReader::FindRuns(int64_t iFromUtcNs, int64_t iToUtcNs)
{
    const std::lock_guard oGuard(m_oMutex);
    CStoreStatement oStatement(m_poFile.get(), "SELECT begin_ns, end_ns, is_closed, host, board FROM runs "
                                               "WHERE end_ns >= ? AND begin_ns < ? ORDER BY id");
    oStatement.Bind(iFromUtcNs).Bind(iToUtcNs);
    std::vector<SStoreRun> aoRuns;
    while (oStatement.Next())
    {
        SStoreRun& roRun = aoRuns.emplace_back();
        roRun.iBeginUtcNs = oStatement.GetInt();
        roRun.iEndUtcNs = oStatement.GetInt();
        roRun.eEnd = static_cast<ERunEnd>(std::clamp<int64_t>(oStatement.GetInt(), 0, 2));
        roRun.szHost = oStatement.GetText();
        roRun.szBoard = oStatement.GetText();
    }
    return aoRuns;
}

std::vector<SStoreStream> CStoreReader::FindStreams()
{
    const std::lock_guard oGuard(m_oMutex);
    CStoreStatement oStatement(m_poFile.get(), "SELECT direction, stream, name, standard, format FROM streams "
                                               "ORDER BY direction, stream");
    std::vector<SStoreStream> aoStreams;
    while (oStatement.Next())
    {
        SStoreStream& roStream = aoStreams.emplace_back();
        roStream.eDirection = oStatement.GetInt() == 0 ? EStreamDirection::INPUT : EStreamDirection::OUTPUT;
        roStream.uiIndex = oStatement.GetUint32();
        roStream.oTexts.szName = oStatement.GetText();
        roStream.oTexts.szStandard = oStatement.GetText();
        roStream.oTexts.szFormat = oStatement.GetText();
    }
    return aoStreams;
}
