#include "WatchServer.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "EventKinds.h"
#include "HttpClient.h"
#include "LiveHub.h"
#include "MadeUpWatch.h"
#include "WatchJson.h"
#include "WatchTexts.h"

namespace
{

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class WatchServerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_poServer->Start({{"127.0.0.1:0"}}).GetText(), "");
        m_szAddress = m_poServer->GetAddresses().front();
    }

    void Publish(uint64_t uiNumber, uint32_t uiStreams = 4) { m_oData.Publish(MadeUpWatch_Make(uiNumber, uiStreams)); }

    std::string Get(const std::string& szPath) const { return HttpClient_Ask(m_szAddress, "GET " + szPath); }
    std::string Ask(const std::string& szRequestLine, const std::string& szHeaders) const
    {
        return HttpClient_Ask(m_szAddress, szRequestLine, "Host: localhost\r\n" + szHeaders);
    }

    CJson GetJson(const std::string& szPath) const
    {
        const std::string szAnswer = Get(szPath);
        return CJson::parse(szAnswer.substr(szAnswer.find("\r\n\r\n")), nullptr, false);
    }

    CMadeUpWatch m_oData;
    std::unique_ptr<CWatchServer> m_poServer = std::make_unique<CWatchServer>(m_oData);
    std::string m_szAddress;
};

TEST_F(WatchServerTest, BeforeTheFirstSnapshotItSaysSo)
{
    for (const char* szPath : {"/api/v1/streams", "/api/v1/pairs", "/api/v1/history?stream=IN_00", "/healthz"})
    {
        const std::string szAnswer = Get(szPath);
        EXPECT_THAT(szAnswer, StartsWith("HTTP/1.1 503 ")) << szPath;
        EXPECT_THAT(szAnswer, HasSubstr("the first snapshot is not there yet")) << szPath;
    }
    EXPECT_THAT(Get("/metrics"), HasSubstr("\nvt_video_live_listeners 0\n"));
}

TEST_F(WatchServerTest, OnlyGetAndHeadAreServed)
{
    Publish(1);
    for (const char* szMethod : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH"})
    {
        const std::string szAnswer = HttpClient_Ask(m_szAddress, std::string(szMethod) + " /healthz");
        EXPECT_THAT(szAnswer, StartsWith("HTTP/1.1 405 ")) << szMethod;
        EXPECT_THAT(szAnswer, HasSubstr("\r\nAllow: GET, HEAD\r\n")) << szMethod;
    }
    const std::string szGet = Get("/healthz");
    const std::string szHead = HttpClient_Ask(m_szAddress, "HEAD /healthz");
    EXPECT_THAT(szGet, StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(szHead, HasSubstr("\r\nContent-Length: 3\r\n"));
    EXPECT_EQ(szGet.size(), szHead.size() + 3);
    EXPECT_THAT(HttpClient_Ask(m_szAddress, "HEAD /api/v1/live"), HasSubstr("text/event-stream"));
}

TEST_F(WatchServerTest, ASilentWatchIsNotWell)
{
    SWatchPublication oPublication = MadeUpWatch_Make(1, 1);
    oPublication.oSnapshot.oClock.uiMonotonicNs -= 6'000'000'000U;
    m_oData.Publish(std::move(oPublication));
    EXPECT_THAT(Get("/healthz"), HasSubstr("no snapshot for 6 s\n"));
}

TEST_F(WatchServerTest, ANameFromElsewhereCannotPointHere)
{
    Publish(1);
    for (const char* szHost : {"evil.example", "evil.example:80", "127.0.0.1.evil.example", "localhost.evil"})
    {
        const std::string szHeaders = std::string("Host: ") + szHost + "\r\n";
        EXPECT_THAT(HttpClient_Ask(m_szAddress, "GET /healthz", szHeaders), StartsWith("HTTP/1.1 403 ")) << szHost;
    }
    for (const char* szHost : {"LOCALHOST", "localhost:1", "127.0.0.1:80", "127.9.9.9", "[::1]:80"})
    {
        const std::string szHeaders = std::string("Host: ") + szHost + "\r\n";
        EXPECT_THAT(HttpClient_Ask(m_szAddress, "GET /healthz", szHeaders), StartsWith("HTTP/1.1 200 ")) << szHost;
    }
}

TEST_F(WatchServerTest, AFaultyQueryIsAnsweredByOneLineThatNamesTheFault)
{
    Publish(1);
    const std::pair<const char*, const char*> aoFaults[] = {
        {"streams?x=1", "\\\"x\\\""},
        {"history", "parameter stream"},
        {"history?stream=IN_0", "parameter stream"},
        {"history?stream=IN_00&step=7", "parameter step: give 1 or 60"},
        {"history?stream=IN_00&limit=0", "parameter limit"},
        {"history?stream=IN_00&limit=99999999999999999999", "parameter limit"},
        {"history?stream=IN_00&fields=phase,color", "no field \\\"color\\\""},
        {"history?stream=IN_00&from=yesterday", "parameter from"},
        {"history?stream=IN_00&from=2000&to=1000", "before to"},
        {"history?stream=IN_00&stream=IN_01", "given twice"},
        {"history?stream=IN%5", "two hexadecimal digits"},
        {"events?kind=explosion", "\\\"explosion\\\""},
        {"events?stream=IN_00,OUT_99", "parameter stream"},
        {"events?stream=IN_00,", "parameter stream"},
        {"events?after=-1", "parameter after"},
        {"live?after=x", "parameter after"},
    };
    for (const auto& [szQuery, szFault] : aoFaults)
    {
        const std::string szAnswer = Get(std::string("/api/v1/") + szQuery);
        EXPECT_THAT(szAnswer, StartsWith("HTTP/1.1 400 ")) << szQuery;
        EXPECT_THAT(szAnswer, HasSubstr("\r\n\r\n{\"error\":\"")) << szQuery;
        EXPECT_THAT(szAnswer, HasSubstr(szFault)) << szQuery;
        EXPECT_EQ(std::count(szAnswer.begin(), szAnswer.end(), '{'), 1) << szQuery;
    }
    EXPECT_THAT(Get("/api/v1/history?stream=IN_04"), StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(Get("/api/v2/streams"), StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(Get("/../../etc/passwd"), Not(HasSubstr("root:")));
}

TEST_F(WatchServerTest, HistoryComesInColumnsWithItsUncertainties)
{
    const int64_t iNow = MadeUpWatch_GetUtcNs();
    for (const EStreamDirection eDirection : aeDirections)
    {
        m_oData.AddPoints({eDirection, 0}, iNow - 99 * iNsPerSecond, iNow + iNsPerSecond);
    }
    Publish(1);
    const CJson oPhase = GetJson("/api/v1/history?stream=OUT_00&fields=phase,rate&limit=10");
    EXPECT_EQ(oPhase["t"].size(), 10U);
    EXPECT_EQ(oPhase["t"].back(), iNow / 1'000'000) << "the newest ones";
    EXPECT_TRUE(oPhase["truncated"]);
    EXPECT_EQ(oPhase["phase_stderr"].size(), 10U);
    EXPECT_EQ(oPhase["rate"][0], 60.3333333333);
    EXPECT_FALSE(oPhase.contains("lock"));
    const size_t uiEven = iNow / 1'000'000'000 % 2 == 0 ? 9 : 8;
    EXPECT_EQ(oPhase["phase"][uiEven], 3.333333e-07);
    EXPECT_TRUE(oPhase["phase"][uiEven == 9 ? 8 : 9].is_null()) << "not valid is no number";

    const std::string szFrom = WatchTexts_GetUtc(iNow - 5'000'000'000);
    const CJson oAll = GetJson("/api/v1/history?stream=IN_00&from=" + szFrom + "&to=" + WatchTexts_GetUtc(iNow));
    EXPECT_EQ(oAll["t"].size(), 5U);
    EXPECT_FALSE(oAll["truncated"]);
    EXPECT_EQ(oAll["state"].size(), 5U);
}

TEST_F(WatchServerTest, EventsAreFoundByStreamKindAndNumber)
{
    m_oData.AddEvent(EWatchEventKind::SIGNAL_LOST, {EStreamDirection::INPUT, 1});
    m_oData.AddEvent(EWatchEventKind::SIGNAL_BACK, {EStreamDirection::INPUT, 1});
    m_oData.AddEvent(EWatchEventKind::SIGNAL_LOST, {EStreamDirection::OUTPUT, 1});
    m_oData.AddEvent(EWatchEventKind::GROUP_FORMED, {EStreamDirection::OUTPUT, 0}); // of 0 and 1
    Publish(1);
    const auto GetNumbers = [&](const std::string& szQuery)
    {
        std::vector<int> aiNumbers;
        const CJson oAnswer = GetJson("/api/v1/events" + szQuery);
        for (const CJson& roEvent : oAnswer["events"])
        {
            aiNumbers.push_back(roEvent["number"]);
        }
        return aiNumbers;
    };
    EXPECT_EQ(GetNumbers(""), (std::vector<int>{4, 3, 2, 1}));
    EXPECT_EQ(GetNumbers("?stream=OUT_01"), (std::vector<int>{4, 3}));
    EXPECT_EQ(GetNumbers("?stream=OUT_02"), (std::vector<int>{}));
    EXPECT_EQ(GetNumbers("?stream=IN_01"), (std::vector<int>{2, 1}));
    EXPECT_EQ(GetNumbers("?kind=signal_lost,signal_back&stream=OUT_01"), (std::vector<int>{3}));
    EXPECT_EQ(GetNumbers("?kind=signal%5Flost"), (std::vector<int>{3, 1}));
    EXPECT_EQ(GetNumbers("?after=2"), (std::vector<int>{4, 3}));
    EXPECT_EQ(GetNumbers("?stream="), (std::vector<int>{})) << "none is none";
    const CJson oCut = GetJson("/api/v1/events?limit=1");
    EXPECT_EQ(oCut["events"][0]["number"], 4);
    EXPECT_TRUE(oCut["truncated"]);
    const CJson oStreams = GetJson("/api/v1/streams");
    EXPECT_EQ(oStreams["directions"]["input"]["streams"][1]["last_event"]["kind"], "signal_back");
    EXPECT_TRUE(oStreams["directions"]["input"]["streams"][0]["last_event"].is_null());
}

TEST_F(WatchServerTest, AScrapeTellsOfOnePublication)
{
    Publish(5, 32);
    const std::string szScrape = Get("/metrics");
    EXPECT_THAT(szScrape, HasSubstr("\nvt_video_snapshots_total 5\n"));
    EXPECT_THAT(szScrape, HasSubstr("\nvt_video_fields_total{chip=\"0\",direction=\"output\",index=\"31\"} 1000031\n"));
    EXPECT_THAT(szScrape,
                HasSubstr("vt_video_stream_state{chip=\"0\",direction=\"input\",index=\"3\",state=\"lost\"} 1\n"));
    EXPECT_THAT(szScrape, HasSubstr("vt_video_lock_group{chip=\"0\",direction=\"input\",index=\"1\"} 7\n"));
    EXPECT_THAT(szScrape,
                HasSubstr("vt_video_phase_seconds{chip=\"0\",direction=\"input\",index=\"1\"} 3.333333e-06\n"));
    EXPECT_THAT(szScrape, Not(HasSubstr("vt_video_phase_seconds{chip=\"0\",direction=\"input\",index=\"3\"}")))
        << "not known";
    EXPECT_THAT(szScrape, Not(HasSubstr("Nan"))) << "not known is absent";
    EXPECT_THAT(szScrape, HasSubstr("connector=\"<img src=x onerror=alert(1)> \\\"\\\\\""));
    EXPECT_LT(szScrape.size(), 356U * 1024U);
    // A state set: every status of every domain, one of them 1; and every cause, also those that there were none of.
    const auto Count = [&](const std::string& rszLine)
    {
        const std::regex oLine("\n" + rszLine);
        return std::distance(std::sregex_iterator(szScrape.begin(), szScrape.end(), oLine), {});
    };
    const std::string szStream = "\\{chip=\"0\",direction=\"output\",index=\"2\",";
    EXPECT_EQ(Count("vt_video_health" + szStream + "domain=\"[a-z]+\",status=\"[a-z_]+\"\\} [01](?=\n)"), 24);
    EXPECT_EQ(Count("vt_video_health" + szStream + "domain=\"[a-z]+\",status=\"inactive\"\\} 1(?=\n)"), 6);
    EXPECT_EQ(Count("vt_video_fields_unobserved_cause_total" + szStream + "cause=\"[a-z_]+\"\\} 0(?=\n)"), 4);
}

// Of streams that everything has befallen, and that stand in a group and drift.
TEST_F(WatchServerTest, WhatAFleetIsToldHasABoundAndTheRestIsTheFixedNames)
{
    SWatchPublication oPublication = MadeUpWatch_Make(1, 2);
    for (uint32_t i = 0; i < 2; ++i)
    {
        SStreamFigures& roStream = oPublication.oSnapshot.aoDirections[i].aoStreams[1];
        static_assert(std::is_trivially_copyable_v<SStreamCounters>);
        std::memset(static_cast<void*>(&roStream.oCounters), 1, sizeof(roStream.oCounters));
        roStream.oQueue.aoWindows[0].bIsKnown = roStream.oQueue.bIsHeldKnown = roStream.bStampsAreForeign = true;
        SStreamHealth oHealth;
        oHealth.oOverall.auiTransitions.fill(7);
        std::ranges::for_each(oHealth.aoDomains, [](SHealth& roHealth) { roHealth.auiTransitions.fill(7); });
        oPublication.oJudgement.aoStreams[i].assign(2, oHealth);
    }
    m_oData.Publish(std::move(oPublication));
    const auto Count = [&](const std::string& rszQuery, const std::string& rszStart, const std::string& rszStream)
    {
        std::istringstream oText(Get("/metrics" + rszQuery));
        uint32_t uiLines = 0;
        for (std::string szLine; std::getline(oText, szLine);)
        {
            uiLines += szLine.starts_with(rszStart) && !szLine.starts_with("vt_video_pacing") &&
                               szLine.find(rszStream + ",index=\"1\"") != std::string::npos
                           ? 1U
                           : 0U;
        }
        return uiLines;
    };
    for (const char* szStream : {"direction=\"input\"", "direction=\"output\""})
    {
        EXPECT_LE(Count("?detail=fleet", "vt_video_", szStream), 40U) << szStream;
        EXPECT_EQ(Count("?detail=fleet", "vt_video_health{", szStream), 6U);
        EXPECT_EQ(Count("", "vt_video_health{", szStream), 24U);
        EXPECT_EQ(Count("", "vt_video_health_transitions_total{", szStream), 24U);
        EXPECT_EQ(Count("", "vt_video_fields_unobserved_cause_total{", szStream), 4U);
        EXPECT_EQ(Count("?detail=full", "vt_video_rate_hertz{", szStream), 4U);
        EXPECT_EQ(Count("?detail=full", "vt_video_stream_state{", szStream), 4U);
    }
    EXPECT_THAT(Get("/metrics?detail=most"), HasSubstr("parameter detail: give fleet, normal or full"));
}

TEST_F(WatchServerTest, TheLiveStreamLosesNoEventOverAReconnection)
{
    m_oData.AddEvent(EWatchEventKind::SIGNAL_LOST, {EStreamDirection::INPUT, 1});
    Publish(1);
    CHttpClient oFirst(m_szAddress);
    oFirst.Send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(oFirst.ReadUntil("event: snapshot\nid: 1\ndata: {"), Not(HasSubstr("event: events")));
    m_oData.AddEvent(EWatchEventKind::SIGNAL_BACK, {EStreamDirection::INPUT, 1});
    Publish(2);
    EXPECT_THAT(oFirst.ReadUntil("id: 2\ndata: {\"snapshot\""), HasSubstr("event: events\nid: 2\ndata: {"));

    CHttpClient oAgain(m_szAddress);
    oAgain.Send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 0\r\n\r\n");
    const std::string& rszMissed = oAgain.ReadUntil("event: snapshot");
    EXPECT_THAT(rszMissed, HasSubstr("\"number\":1"));
    EXPECT_THAT(rszMissed, HasSubstr("\"number\":2"));

    // A number of an earlier run, when there were more: what comes from now on counts.
    CHttpClient oOld(m_szAddress);
    oOld.Send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 900\r\n\r\n");
    oOld.ReadUntil("event: snapshot");
    m_oData.AddEvent(EWatchEventKind::SIGNAL_LOST, {EStreamDirection::INPUT, 2});
    Publish(3);
    EXPECT_THAT(oOld.ReadUntil("id: 3\ndata: {\"snapshot\""), HasSubstr("event: events\nid: 3\n"));
}

TEST_F(WatchServerTest, LiveListenersAreBoundedAndGivenBack)
{
    Publish(1);
    std::vector<std::unique_ptr<CHttpClient>> apoClients;
    for (uint32_t i = 0; i < uiMostListeners; ++i)
    {
        apoClients.push_back(std::make_unique<CHttpClient>(m_szAddress));
        apoClients.back()->Send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\n\r\n");
        apoClients.back()->ReadUntil("event: snapshot");
    }
    EXPECT_THAT(Get("/api/v1/live"), StartsWith("HTTP/1.1 503 "));
    EXPECT_THAT(Get("/healthz"), StartsWith("HTTP/1.1 200 ")) << "the others are served as before";
    apoClients.clear();
    bool bIsServed = false;
    for (uint64_t uiNumber = 2; uiNumber < 100 && !bIsServed; ++uiNumber)
    {
        Publish(uiNumber);
        bIsServed =
            HttpClient_Ask(m_szAddress, "GET /metrics").find("vt_video_live_listeners 0\n") != std::string::npos;
    }
    EXPECT_TRUE(bIsServed);
}

TEST_F(WatchServerTest, RudeClientsAreTurnedAway)
{
    Publish(1);
    EXPECT_THAT(HttpClient_Ask(m_szAddress, "GET /healthz", "X: " + std::string(9000, 'x') + "\r\n"),
                StartsWith("HTTP/1.1 4"));
    // What is no HTTP at all is answered, or hung up on, as the library's release has it.
    EXPECT_THAT(HttpClient_Ask(m_szAddress, std::string(300, '\xff')), AnyOf(IsEmpty(), StartsWith("HTTP/1.1 400 ")));
    const std::pair<const char*, const char*> aoLines[] = {
        {"GET * HTTP/1.1", "400 "},
        {"GET http://localhost:1/healthz HTTP/1.1", "200 "},
        {"GET http://evil.example/healthz HTTP/1.1", "403 "},
        {"GET /healthz HTTP/3.0", "505 HTTP Version Not Supported"},
        {"GET /%zz HTTP/1.1", "400 "},
        {"OPTIONS * HTTP/1.1", "405 "},
    };
    for (const auto& [szLine, szStatus] : aoLines)
    {
        CHttpClient oClient(m_szAddress);
        oClient.Send(std::string(szLine) + "\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        EXPECT_THAT(oClient.ReadAll(), StartsWith(std::string("HTTP/1.1 ") + szStatus)) << szLine;
    }
    EXPECT_THAT(HttpClient_Ask(m_szAddress, "GET /healthz", ""), StartsWith("HTTP/1.1 400 ")) << "without a host";
    EXPECT_THAT(Ask("GET /healthz", "Content-Length: 3\r\n"), StartsWith("HTTP/1.1 400 ")) << "with a body";
}

TEST_F(WatchServerTest, AKeptConnectionServesOneRequestAfterTheOther)
{
    Publish(1);
    CHttpClient oClient(m_szAddress);
    for (int i = 0; i < 3; ++i)
    {
        oClient.Send("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_TRUE(oClient.TakeUntil("\r\n\r\nok\n")) << i;
        oClient.Send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_TRUE(oClient.TakeUntil("\"truncated\":false}\n")) << i;
    }
}

TEST_F(WatchServerTest, TheEndDoesNotWaitForAnyClient)
{
    Publish(1, 32);
    std::vector<std::unique_ptr<CHttpClient>> apoClients;
    for (const char* szRequest : {"GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\n\r\n", "GET /metr", "",
                                  "GET /api/v1/pairs HTTP/1.1\r\nHost: localhost\r\n\r\n"})
    {
        apoClients.push_back(std::make_unique<CHttpClient>(m_szAddress));
        apoClients.back()->Send(szRequest);
    }
    apoClients.front()->ReadUntil("event: snapshot");
    const auto oBegin = std::chrono::steady_clock::now();
    m_poServer.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - oBegin, std::chrono::seconds(1));
    EXPECT_FALSE(CHttpClient(m_szAddress).IsConnected());
    EXPECT_EQ(CWatchServer(m_oData).Start({{m_szAddress}}).GetText(), "") << "the port is not free again";
}

TEST_F(WatchServerTest, WhatCannotBeListenedOnIsSaidInOneLine)
{
    const std::pair<std::string, const char*> aoFaults[] = {
        {m_szAddress, "Address already in use"}, {"127.0.0.1", "ADDRESS:PORT"},     {"127.0.0.1:", "ADDRESS:PORT"},
        {"127.0.0.1:65536", "ADDRESS:PORT"},     {"127.0.0.1:80x", "ADDRESS:PORT"}, {"nowhere:80", "ADDRESS:PORT"},
        {"192.0.2.1:0", "cannot listen on"},     {"[::1:0", "ADDRESS:PORT"},        {"unix:", "unix:PATH"},
        {"unix:/nowhere/http", "No such file"},
    };
    for (const auto& [szListen, szFault] : aoFaults)
    {
        const CFault oFault = CWatchServer(m_oData).Start({{szListen}});
        EXPECT_THAT(oFault.GetText(), HasSubstr(szFault)) << szListen;
        EXPECT_EQ(oFault.GetText().find('\n'), std::string::npos) << szListen;
    }
}

TEST_F(WatchServerTest, ThePageHasAWordForEveryKindOfEventAndForNoOther)
{
    const std::string szWords = Get("/words.js");
    const size_t uiBegin = szWords.find("const eventWords = {\n");
    std::istringstream oTable(szWords.substr(uiBegin, szWords.find("\n};", uiBegin) - uiBegin));
    std::vector<std::string> aszNames;
    std::string szLine;
    for (std::getline(oTable, szLine); std::getline(oTable, szLine);)
    {
        aszNames.push_back(szLine.substr(2, szLine.find(':') - 2));
    }
    std::vector<std::string> aszKinds;
    std::ranges::transform(aoEventKinds, std::back_inserter(aszKinds), &SEventKind::szName);
    EXPECT_THAT(aszNames, testing::UnorderedElementsAreArray(aszKinds));
}

TEST_F(WatchServerTest, ThePageComesWithItsFilesAndIsKept)
{
    const std::string szPage = Get("/");
    EXPECT_THAT(szPage, StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(szPage, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
    EXPECT_THAT(szPage, HasSubstr("Content-Security-Policy: default-src 'self';"));
    EXPECT_THAT(szPage, HasSubstr("<!doctype html>"));
    const size_t uiTag = szPage.find("ETag: ") + 6;
    const std::string szTag = szPage.substr(uiTag, szPage.find("\r\n", uiTag) - uiTag);
    for (const std::string& rszTags : {szTag, "\"x\", W/" + szTag, std::string("*")})
    {
        EXPECT_THAT(Ask("GET /", "If-None-Match: " + rszTags + "\r\n"), StartsWith("HTTP/1.1 304 ")) << rszTags;
    }
    EXPECT_THAT(Ask("GET /", "Accept-Encoding: gzip;q=0, *;q=0.0\r\n"), Not(HasSubstr("Content-Encoding")));
    const std::string szPacked = Ask("GET /dygraph.min.js", "Accept-Encoding: br, GZIP;q=0.1\r\n");
    EXPECT_THAT(szPacked, HasSubstr("\r\nContent-Encoding: gzip\r\n"));
    EXPECT_THAT(szPacked, HasSubstr("\r\n\r\n\x1f\x8b"));
}

} // namespace
