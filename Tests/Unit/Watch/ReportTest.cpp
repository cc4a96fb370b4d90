#include <algorithm>
#include <sstream>

#include <gmock/gmock.h>

#include "ReportPrint.h"
#include "WatchSteps.h"
#include "WatchTexts.h"

using testing::HasSubstr;

namespace
{

SWatchEvent MakeEvent(EWatchEventKind eKind, int64_t iSecond, uint64_t uiCount = 0, double flSeconds = 0.0)
{
    SWatchEvent oEvent = {};
    oEvent.eKind = eKind;
    oEvent.iUtcNs = iStepsBeginUtcNs + iSecond * iNsPerSecond;
    oEvent.uiCount = uiCount;
    oEvent.flSeconds = flSeconds;
    oEvent.uiGroup = 1;
    oEvent.uiMembers = 0b11;
    return oEvent;
}

// An input at 60 Hz, watched by one run for three hours from the begin on.
SReport MakeReport()
{
    SReport oReport;
    oReport.iFromUtcNs = iStepsBeginUtcNs;
    oReport.iToUtcNs = iStepsBeginUtcNs + 4 * 60 * iNsPerMinute;
    oReport.aoRuns.push_back(
        {iStepsBeginUtcNs, iStepsBeginUtcNs + 3 * 60 * iNsPerMinute, ERunEnd::CLOSED, "wall", "/lib/libVeltrano.so"});
    SReportStream& roStream = oReport.aoStreams.emplace_back();
    roStream.oTexts.szName = "Camera \"A\", left";
    roStream.oRateHz = {60.0, 1e-6, true};
    return oReport;
}

} // namespace

TEST(Report, TellsRateAndDriftOfWhatWasWatched)
{
    std::vector<SMinuteSummary> aoMinutes;
    for (int64_t iMinute = 0; iMinute < 120; ++iMinute)
    {
        SMinuteSummary& roMinute = aoMinutes.emplace_back();
        roMinute.oPoint.iUtcNs = iStepsBeginUtcNs + iMinute * iNsPerMinute;
        roMinute.uiPoints = roMinute.uiRatePoints = 60;
        roMinute.flWatchedSeconds = 60.0;
        roMinute.oPoint.flRunningSeconds = iMinute < 12 ? 30.0 : 60.0;
        // A part in 1e8 per hour, and next to nothing beside it.
        const double flRate = 60.0 * (1.0 + 1e-8 * static_cast<double>(iMinute) / 60.0);
        roMinute.oPoint.oRateHz = {flRate + (iMinute % 2 == 0 ? 1e-12 : -1e-12), 1e-9, true};
    }
    aoMinutes[70].oPoint.uiLost = 4;
    SReport oReport = MakeReport();
    SReportStream& roStream = oReport.aoStreams[0];
    ReportData_AddMinutes(oReport, roStream, aoMinutes);
    EXPECT_DOUBLE_EQ(roStream.flWatchedSeconds, 7200.0);
    EXPECT_DOUBLE_EQ(roStream.flRunningSeconds, 7200.0 - 360.0);
    EXPECT_NEAR(roStream.oRateHz.flValue, 60.0 * (1.0 + 1e-8 * 59.5 / 60.0), 1e-12);
    EXPECT_NEAR(roStream.oDriftPerHour.flValue, 1e-8, 1e-13);
    // s / sqrt(Sxx) of 120 minutes that are 1e-12 Hz off the line.
    EXPECT_NEAR(roStream.oDriftPerHour.flStdErr, 2.66e-15, 0.05 * 2.66e-15);
    ASSERT_EQ(oReport.aoHours.size(), 1U);
    EXPECT_EQ(oReport.aoHours[0].uiFieldsLost, 4U);
    EXPECT_THAT(ReportPrint_Table(oReport), HasSubstr("   95.0000 %"));
}

TEST(Report, FindsTheWorstGapAndTheLocks)
{
    SReport oReport = MakeReport();
    const SWatchEvent aoEvents[] = {
        MakeEvent(EWatchEventKind::GROUP_FORMED, 10), MakeEvent(EWatchEventKind::FIELDS_LOST, 20, 93, 1.5),
        MakeEvent(EWatchEventKind::SIGNAL_LOST, 30),  MakeEvent(EWatchEventKind::SIGNAL_BACK, 31, 0, 1.25),
        MakeEvent(EWatchEventKind::GROUP_ENDED, 100), MakeEvent(EWatchEventKind::GROUP_FORMED, 4000),
    };
    ReportData_AddEvents(oReport, aoEvents);
    EXPECT_DOUBLE_EQ(oReport.aoStreams[0].flWorstGapSeconds,
                     1.5); // by the longest of the runs that are folded into one event
    EXPECT_EQ(oReport.aoStreams[0].uiSignalLosses, 1U);
    ASSERT_EQ(oReport.aoHours.size(), 2U);
    EXPECT_EQ(oReport.aoHours[0].uiEvents, 5U);
    ASSERT_EQ(oReport.aoLocks.size(), 2U);
    EXPECT_EQ(oReport.aoLocks[0].iToUtcNs, iStepsBeginUtcNs + 100 * iNsPerSecond);
    EXPECT_TRUE(oReport.aoLocks[1].bIsOpen);
    EXPECT_EQ(oReport.aoLocks[1].iToUtcNs, oReport.aoRuns[0].iEndUtcNs); // nobody watched later
    EXPECT_THAT(ReportPrint_Table(oReport), HasSubstr("2 IN_00, 01\n"));
}

// A signal that does not come back is away until the watch ends, and so does a lock.
TEST(Report, EndsWhatIsOpenWithTheWatch)
{
    SReport oReport = MakeReport();
    const SWatchEvent aoEvents[] = {MakeEvent(EWatchEventKind::GROUP_FORMED, 0),
                                    MakeEvent(EWatchEventKind::SIGNAL_LOST, 100),
                                    MakeEvent(EWatchEventKind::WATCH_ENDED, 300)};
    ReportData_AddEvents(oReport, aoEvents);
    EXPECT_DOUBLE_EQ(oReport.aoStreams[0].flWorstGapSeconds, 200.0);
    ASSERT_EQ(oReport.aoOutages.size(), 1U);
    EXPECT_EQ(oReport.aoOutages[0].iToUtcNs - oReport.aoOutages[0].iFromUtcNs, 200 * iNsPerSecond);
    EXPECT_FALSE(oReport.aoLocks[0].bIsOpen);
}

// 64 streams with their faults, their names cut at borders of signs, where they can still be told apart.
TEST(Report, FitsAMail)
{
    SReport oReport = MakeReport();
    oReport.aoStreams.clear();
    std::vector<SWatchEvent> aoEvents;
    for (uint32_t uiStream = 0; uiStream < 64; ++uiStream)
    {
        SReportStream& roStream = oReport.aoStreams.emplace_back();
        roStream.oKey = {aeDirections[uiStream / 32], uiStream % 32};
        roStream.oTexts.szName = "\u00c4usserst langer Name des Anschlusses Nummer " + std::to_string(uiStream);
        roStream.bHasPhase = true;
        roStream.flWorstPhaseSeconds = -0.016;
        roStream.oPacing.auiCounts[Pacing_GetBin(1e-6 * uiStream)] = 1000;
        roStream.oPacing.auiCounts[Pacing_GetBin(-1.5e-3)] = 1;
        roStream.oPacing.oWorst = {-1.5e-3, iStepsBeginUtcNs};
        SIncident& roIncident = oReport.aoIncidents.emplace_back();
        roIncident.iBeginUtcNs = iStepsBeginUtcNs + uiStream * iNsPerSecond;
        roIncident.iEndUtcNs = uiStream == 40 ? 0 : roIncident.iBeginUtcNs + iNsPerSecond;
        roIncident.eDomain = EHealthDomain::FEED;
        roIncident.oFirst.eReason = EHealthReason::FEED_STALLED;
        roIncident.auiStreams = {0x55555555U, 0};
        roIncident.uiLost = uiStream == 40 ? 1 : 0;
        for (int64_t iTime = 0; iTime < 5; ++iTime)
        {
            aoEvents.push_back(MakeEvent(EWatchEventKind::SIGNAL_LOST, 600 * iTime + uiStream));
            aoEvents.back().oKey = roStream.oKey;
            aoEvents.push_back(MakeEvent(EWatchEventKind::SIGNAL_BACK, 600 * iTime + uiStream + 3, 0, 3.0));
            aoEvents.back().oKey = roStream.oKey;
            aoEvents.push_back(MakeEvent(EWatchEventKind::GROUP_FORMED, 600 * iTime));
            aoEvents.back().uiMembers = 0x55555555U << (uiStream % 8);
        }
    }
    ReportData_AddEvents(oReport, aoEvents);
    EXPECT_EQ(oReport.aoOutages.size(), 5U * 64);
    const std::string szTable = ReportPrint_Table(oReport);
    EXPECT_LE(std::ranges::count(szTable, '\n'), 150);
    std::istringstream oLines(szTable);
    for (std::string szLine; std::getline(oLines, szLine);)
    {
        EXPECT_LE(std::ranges::count_if(szLine, [](char cByte) { return (cByte & 0xC0) != 0x80; }), 100) << szLine;
    }
    EXPECT_THAT(szTable, HasSubstr("IN_07   \u00c4usserst lan..ses Nummer 7 "));
    EXPECT_THAT(szTable, HasSubstr("     not over IN_00, .. 28, 30 feed: no new picture comes, 1 picture\n"))
        << "lasts longest";
    EXPECT_THAT(szTable, HasSubstr("   63.1 us   63.1 us   63.1 us   63.1 us    1.5 ms  " +
                                   WatchTexts_GetUtc(iStepsBeginUtcNs).substr(0, 10)));
}

TEST(Report, QuotesNamesForSpreadsheets)
{
    EXPECT_THAT(ReportPrint_Csv(MakeReport()), HasSubstr("\r\nIN_00,\"Camera \"\"A\"\", left\",0.000,"));
}
