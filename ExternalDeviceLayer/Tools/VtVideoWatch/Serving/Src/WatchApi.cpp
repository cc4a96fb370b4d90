#include "WatchApi.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "ApiQuery.h"
#include "EventJson.h"
#include "EventKinds.h"
#include "FieldsJson.h"
#include "HealthJson.h"
#include "HistoryJson.h"
#include "StreamId.h"
#include "WatchJson.h"
#include "WatchTexts.h"

namespace
{

constexpr const char* szJson = "application/json";
constexpr uint64_t uiMostEvents = 1000;
constexpr uint64_t uiMostPoints = 60000;
constexpr size_t uiMostFields = 60000; // of a stream: more than five minutes
// The watch publishes once a second: what is older than this is no longer a picture of now.
constexpr double flMostAgeSeconds = 5.0;
constexpr uint32_t uiMostFileStreams = 4;
constexpr size_t uiFilePieceBytes = 1U << 18U;

SHttpAnswer AnswerTooEarly()
{
    return HttpAnswer_MakeError(503, "the first snapshot is not there yet");
}

SHttpAnswer AnswerNoRecordings()
{
    return HttpAnswer_MakeError(404, "recordings are not kept here (--recordings)");
}

double GetAgeSeconds(const SWatchPublication& roPublication)
{
    timespec oNow = {};
    clock_gettime(CLOCK_MONOTONIC, &oNow);
    const auto flNow = static_cast<double>(oNow.tv_sec) + static_cast<double>(oNow.tv_nsec) * 1e-9;
    return flNow - static_cast<double>(roPublication.oSnapshot.oClock.uiMonotonicNs) * 1e-9;
}

// Streams and kinds of an event query; each list that is not there means all.
void ReadEventFilter(CApiQuery& roQuery, SEventQuery& roEvents)
{
    if (roQuery.Has("stream"))
    {
        roEvents.auiStreams = {};
    }
    for (const std::string& rszId : roQuery.GetList("stream"))
    {
        const auto oStream = StreamId_Find(rszId);
        if (!oStream)
        {
            roQuery.SetProblem("parameter stream: give streams as in IN_00,OUT_03");
            return;
        }
        roEvents.auiStreams[StreamKey_GetSlot(*oStream)] |= 1U << oStream->uiIndex;
    }
    roEvents.uiKinds = roQuery.Has("kind") ? 0 : ~0ULL;
    for (const std::string& rszKind : roQuery.GetList("kind"))
    {
        const auto oKind = EventKind_Find(rszKind);
        if (!oKind)
        {
            roQuery.SetProblem("parameter kind: there are no events of the kind \"" + rszKind + "\"");
            return;
        }
        roEvents.uiKinds |= 1ULL << static_cast<unsigned>(*oKind);
    }
}

void ReadOpen(CApiQuery& roQuery, SIncidentQuery& roIncidents)
{
    using Words = std::vector<std::string>;
    const Words aszOpen = roQuery.GetList("open");
    roIncidents.bOnlyOpen = aszOpen == Words{"true"} || aszOpen == Words{"1"};
    roIncidents.bOnlyEnded = aszOpen == Words{"false"} || aszOpen == Words{"0"};
    if (roQuery.Has("open") && !roIncidents.bOnlyOpen && !roIncidents.bOnlyEnded)
    {
        roQuery.SetProblem("parameter open: give true or false");
    }
}

template <typename TQuery> void CheckRange(CApiQuery& roQuery, const TQuery& roRange)
{
    if (roRange.iFromUtcNs >= roRange.iToUtcNs)
    {
        roQuery.SetProblem("parameter from: must lie before to");
    }
}

SHistoryQuery ReadHistoryQuery(CApiQuery& roQuery, int64_t iNowUtcNs)
{
    SHistoryQuery oHistory;
    oHistory.oKey = roQuery.GetStream("stream");
    oHistory.uiSeconds = static_cast<uint32_t>(roQuery.GetNumber("step", 1, 1, 60));
    if (oHistory.uiSeconds != 1 && oHistory.uiSeconds != 60)
    {
        roQuery.SetProblem("parameter step: give 1 or 60 seconds");
    }
    const int64_t iUsualNs = (oHistory.uiSeconds == 1 ? 600 : 86400) * iNsPerSecond;
    oHistory.iToUtcNs = roQuery.GetUtc("to", iNowUtcNs + iNsPerSecond);
    oHistory.iFromUtcNs = roQuery.GetUtc("from", std::max<int64_t>(0, oHistory.iToUtcNs - iUsualNs));
    oHistory.uiMost = static_cast<uint32_t>(roQuery.GetNumber("limit", 1000, 1, uiMostPoints));
    CheckRange(roQuery, oHistory);
    return oHistory;
}

// What is asked for with one more than wanted; the surplus says that there is more.
template <typename TRecord> bool CutSurplus(std::vector<TRecord>& raoRecords, size_t uiMost, bool bNewestFirst)
{
    if (raoRecords.size() <= uiMost)
    {
        return false;
    }
    const auto iSurplus = static_cast<std::ptrdiff_t>(raoRecords.size() - uiMost);
    raoRecords.erase(bNewestFirst ? raoRecords.end() - iSurplus : raoRecords.begin(),
                     bNewestFirst ? raoRecords.end() : raoRecords.begin() + iSurplus);
    return true;
}

// The newest of a list.
template <typename TRecord>
SHttpAnswer AnswerList(const char* szName, std::vector<TRecord> aoRecords, size_t uiMost,
                       CJson (*pfnMake)(const TRecord& roRecord))
{
    const bool bIsTruncated = CutSurplus(aoRecords, uiMost, true);
    CJson oList = CJson::array();
    for (const TRecord& roRecord : aoRecords)
    {
        oList.push_back(pfnMake(roRecord));
    }
    const CJson oJson = {{szName, std::move(oList)}, {"truncated", bIsTruncated}};
    return HttpAnswer_Make(200, szJson, WatchJson_Print(oJson) + "\n");
}

// A file as an answer: a piece at a time. Few at once: each keeps its file open until it is taken.
class CFileStream : public IHttpStream
{
public:
    /* Null when there are too many already. */
    static std::shared_ptr<CFileStream> Enter(std::atomic<uint32_t>& ruiCount)
    {
        auto poStream = std::make_shared<CFileStream>(ruiCount);
        return poStream->m_bHasPlace ? poStream : nullptr;
    }
    explicit CFileStream(std::atomic<uint32_t>& ruiCount)
        : m_ruiCount(ruiCount), m_bHasPlace(ruiCount.fetch_add(1) < uiMostFileStreams)
    {
    }
    ~CFileStream() override
    {
        m_ruiCount.fetch_sub(1);
        if (m_iFile >= 0)
        {
            close(m_iFile);
        }
    }
    CFileStream(const CFileStream&) = delete;
    CFileStream& operator=(const CFileStream&) = delete;

    int& GetFile() { return m_iFile; }
    void SetWaker(std::function<void()> /*fnWake*/) override {}
    EHttpNext TakeNext(HttpPiece& rpoPiece) override
    {
        std::string szPiece(uiFilePieceBytes, '\0');
        const ssize_t iBytes = read(m_iFile, szPiece.data(), szPiece.size());
        if (iBytes <= 0)
        {
            return EHttpNext::END;
        }
        szPiece.resize(static_cast<size_t>(iBytes));
        rpoPiece = std::make_shared<const std::string>(std::move(szPiece));
        return EHttpNext::PIECE;
    }

private:
    std::atomic<uint32_t>& m_ruiCount;
    const bool m_bHasPlace;
    int m_iFile = -1;
};

CJson FromReach(int64_t iUtcNs)
{
    return iUtcNs == INT64_MAX ? CJson() : CJson(iUtcNs / iNsPerMillisecond);
}

} // namespace

SHttpAnswer CWatchApi::AnswerMade(const SHttpRequest& roRequest, SMade& roMade, MakeText oMake)
{
    const CApiQuery oQuery(roRequest.szQuery, {});
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    const auto poLatest = m_roReader.GetLatest();
    if (poLatest == nullptr)
    {
        return AnswerTooEarly();
    }
    const std::lock_guard oGuard(roMade.oMutex);
    if (roMade.poFrom != poLatest)
    {
        roMade.poText = std::make_shared<const std::string>((this->*oMake)(*poLatest));
        roMade.poFrom = poLatest;
    }
    SHttpAnswer oAnswer;
    oAnswer.poBody = roMade.poText;
    oAnswer.szBody = *oAnswer.poBody;
    return oAnswer;
}

std::string CWatchApi::MakeStreams(const SWatchPublication& roPublication)
{
    return WatchJson_Print(WatchJson_FromStreams(roPublication)) + "\n";
}

std::string CWatchApi::MakePairs(const SWatchPublication& roPublication)
{
    return WatchJson_Print(WatchJson_FromPairs(roPublication)) + "\n";
}

SHttpAnswer CWatchApi::AnswerStreams(const SHttpRequest& roRequest)
{
    return AnswerMade(roRequest, m_oStreams, &CWatchApi::MakeStreams);
}

SHttpAnswer CWatchApi::AnswerPairs(const SHttpRequest& roRequest)
{
    if (roRequest.szQuery.empty())
    {
        return AnswerMade(roRequest, m_oPairs, &CWatchApi::MakePairs);
    }
    constexpr std::array aszNames = {"stream"};
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    const SStreamKey oStream = oQuery.GetStream("stream");
    const auto poLatest = m_roReader.GetLatest();
    if (poLatest == nullptr || !oQuery.GetProblem().empty())
    {
        return poLatest == nullptr ? AnswerTooEarly() : HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    if (WatchPublication_Find(poLatest->oSnapshot, oStream) == nullptr)
    {
        return HttpAnswer_MakeError(404, "there is no stream " + StreamId_Print(oStream));
    }
    return HttpAnswer_Make(200, szJson, WatchJson_Print(WatchJson_FromPairs(*poLatest, oStream)) + "\n");
}

SHttpAnswer CWatchApi::AnswerHistory(const SHttpRequest& roRequest)
{
    constexpr std::array aszNames = {"stream", "from", "to", "step", "fields", "limit"};
    const auto poLatest = m_roReader.GetLatest();
    if (poLatest == nullptr)
    {
        return AnswerTooEarly();
    }
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    SHistoryQuery oHistory = ReadHistoryQuery(oQuery, poLatest->oSnapshot.oClock.iUtcNs);
    const std::vector<const SHistoryColumn*> apoColumns = HistoryJson_FindColumns(oQuery);
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    const std::string szId = StreamId_Print(oHistory.oKey);
    if (WatchPublication_Find(poLatest->oSnapshot, oHistory.oKey) == nullptr)
    {
        return HttpAnswer_MakeError(404, "there is no stream " + szId);
    }
    const uint32_t uiMost = oHistory.uiMost++;
    std::vector<SHistoryPoint> aoPoints = m_roReader.FindHistory(oHistory);
    const bool bIsTruncated = CutSurplus(aoPoints, uiMost, false);
    const SHistoryReach oReach = m_roReader.GetReach();
    CJson oJson = {{"stream", szId},
                   {"step", oHistory.uiSeconds},
                   {"from", oHistory.iFromUtcNs / iNsPerMillisecond},
                   {"to", oHistory.iToUtcNs / iNsPerMillisecond},
                   {"truncated", bIsTruncated},
                   {"reach",
                    {{"seconds_from", FromReach(oReach.iSecondsFromUtcNs)},
                     {"minutes_from", FromReach(oReach.iMinutesFromUtcNs)}}}};
    HistoryJson_AddColumns(oJson, aoPoints, apoColumns);
    return HttpAnswer_Make(200, szJson, WatchJson_Print(oJson) + "\n");
}

SHttpAnswer CWatchApi::AnswerEvents(const SHttpRequest& roRequest)
{
    constexpr std::array aszNames = {"from", "to", "stream", "kind", "after", "before", "limit"};
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    SEventQuery oEvents;
    oEvents.iFromUtcNs = oQuery.GetUtc("from", oEvents.iFromUtcNs);
    oEvents.iToUtcNs = oQuery.GetUtc("to", oEvents.iToUtcNs);
    oEvents.uiAfterNumber = oQuery.GetNumber("after", 0, 0, UINT64_MAX);
    oEvents.uiBeforeNumber = oQuery.GetNumber("before", UINT64_MAX, 0, UINT64_MAX);
    const uint64_t uiMost = oQuery.GetNumber("limit", 100, 1, uiMostEvents);
    ReadEventFilter(oQuery, oEvents);
    CheckRange(oQuery, oEvents);
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    oEvents.uiMost = static_cast<uint32_t>(uiMost + 1);
    return AnswerList("events", m_roReader.FindEvents(oEvents), uiMost, EventJson_FromEvent);
}

SHttpAnswer CWatchApi::AnswerIncidents(const SHttpRequest& roRequest)
{
    constexpr std::array aszNames = {"from", "to", "open", "limit"};
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    SIncidentQuery oIncidents;
    oIncidents.iFromUtcNs = oQuery.GetUtc("from", oIncidents.iFromUtcNs);
    oIncidents.iToUtcNs = oQuery.GetUtc("to", oIncidents.iToUtcNs);
    ReadOpen(oQuery, oIncidents);
    const uint64_t uiMost = oQuery.GetNumber("limit", 100, 1, uiMostEvents);
    CheckRange(oQuery, oIncidents);
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    oIncidents.uiMost = static_cast<uint32_t>(uiMost + 1);
    return AnswerList("incidents", m_roReader.FindIncidents(oIncidents), uiMost, HealthJson_FromIncident);
}

// A recording is sent from its file, so that it never stands in memory.
SHttpAnswer CWatchApi::AnswerRecording(const SHttpRequest& roRequest)
{
    constexpr std::array aszNames = {"seconds"};
    if (m_poSource == nullptr)
    {
        return AnswerNoRecordings();
    }
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    const uint64_t uiMost = m_poSource->GetMostSeconds();
    const auto uiSeconds =
        static_cast<uint32_t>(oQuery.GetNumber("seconds", std::min<uint64_t>(60, uiMost), 1, uiMost));
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    SHttpAnswer oAnswer;
    oAnswer.szType = "application/vnd.sqlite3";
    oAnswer.szFileName = "recording.vtrec";
    if (roRequest.bIsHead)
    {
        return oAnswer;
    }
    const std::shared_ptr<CFileStream> poStream = CFileStream::Enter(m_uiFileStreams);
    if (!poStream)
    {
        return HttpAnswer_MakeError(503, "too many ask at once");
    }
    if (const CFault oFault = m_poSource->MakeRecording(uiSeconds, poStream->GetFile()))
    {
        return HttpAnswer_MakeError(oFault.MayHeal() ? 503 : 500, oFault.GetText());
    }
    oAnswer.poStream = poStream;
    return oAnswer;
}

SHttpAnswer CWatchApi::AnswerRecordings(const SHttpRequest& roRequest)
{
    const CApiQuery oQuery(roRequest.szQuery, {});
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    CJson oList = CJson::array();
    const bool bAreKept = m_poSource != nullptr;
    for (const SKeptRecording& roRecording : bAreKept ? m_poSource->ListRecordings() : std::vector<SKeptRecording>())
    {
        oList.push_back({{"name", roRecording.szName}, {"bytes", roRecording.uiBytes}});
    }
    const CJson oJson = {{"are_kept", bAreKept}, {"recordings", std::move(oList)}};
    return HttpAnswer_Make(200, szJson, WatchJson_Print(oJson) + "\n");
}

SHttpAnswer CWatchApi::AnswerFields(const SHttpRequest& roRequest)
{
    constexpr std::array aszNames = {"stream", "recording", "seconds"};
    if (m_poSource == nullptr)
    {
        return AnswerNoRecordings();
    }
    CApiQuery oQuery(roRequest.szQuery, aszNames);
    const SStreamKey oStream = oQuery.GetStream("stream");
    const uint64_t uiMost = m_poSource->GetMostSeconds();
    const auto uiSeconds =
        static_cast<uint32_t>(oQuery.GetNumber("seconds", std::min<uint64_t>(20, uiMost), 1, uiMost));
    const std::vector<std::string> aszRecordings = oQuery.GetList("recording");
    if (!oQuery.GetProblem().empty())
    {
        return HttpAnswer_MakeError(400, oQuery.GetProblem());
    }
    SRecordedFields oFields;
    const std::string szRecording = aszRecordings.empty() ? std::string() : aszRecordings.front();
    if (const CFault oFault = m_poSource->ReadFields(szRecording, oStream, uiSeconds, uiMostFields, oFields))
    {
        return HttpAnswer_MakeError(oFault.MayHeal() ? 503 : 404, oFault.GetText());
    }
    return HttpAnswer_Make(200, szJson, WatchJson_Print(FieldsJson_FromFields(oStream, oFields)) + "\n");
}

SHttpAnswer CWatchApi::AnswerHealth(const SHttpRequest& /*roRequest*/)
{
    constexpr const char* szText = "text/plain; charset=utf-8";
    const auto poLatest = m_roReader.GetLatest();
    if (poLatest == nullptr)
    {
        return HttpAnswer_Make(503, szText, "the first snapshot is not there yet\n");
    }
    const double flAge = GetAgeSeconds(*poLatest);
    if (flAge > flMostAgeSeconds)
    {
        char szProblem[64];
        std::snprintf(szProblem, sizeof(szProblem), "no snapshot for %.0f s\n", flAge);
        return HttpAnswer_Make(503, szText, szProblem);
    }
    return HttpAnswer_Make(200, szText, "ok\n");
}
