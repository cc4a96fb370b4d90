#include <gmock/gmock.h>

#include "ReportPrint.h"
#include "WatchSteps.h"

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
    EXPECT_THAT(ReportPrint_Table(oReport), HasSubstr("02:00:00    95.0000 %"));
}

TEST(Report, FindsTheWorstGapAndTheLocks)
{
    SReport oReport = MakeReport();
    const SWatchEvent aoEvents[] = {
        MakeEvent(EWatchEventKind::GROUP_FORMED, 10), MakeEvent(EWatchEventKind::FIELDS_LOST, 20, 93, 1.5),
        MakeEvent(EWatchEventKind::SIGNAL_LOST, 30),  MakeEvent(EWatchEventKind::SIGNAL_BACK, 31, 0, 1.25),
        MakeEvent(EWatchEventKind::GROUP_ENDED, 40),  MakeEvent(EWatchEventKind::GROUP_FORMED, 4000),
    };
    ReportData_AddEvents(oReport, aoEvents);
    EXPECT_DOUBLE_EQ(oReport.aoStreams[0].flWorstGapSeconds,
                     1.5); // by the longest of the runs that are folded into one event
    EXPECT_EQ(oReport.aoStreams[0].uiSignalLosses, 1U);
    ASSERT_EQ(oReport.aoHours.size(), 2U);
    EXPECT_EQ(oReport.aoHours[0].uiEvents, 5U);
    ASSERT_EQ(oReport.aoLocks.size(), 2U);
    EXPECT_EQ(oReport.aoLocks[0].iToUtcNs, iStepsBeginUtcNs + 40 * iNsPerSecond);
    EXPECT_TRUE(oReport.aoLocks[1].bIsOpen);
    EXPECT_EQ(oReport.aoLocks[1].iToUtcNs, oReport.aoRuns[0].iEndUtcNs); // nobody watched later
    EXPECT_THAT(ReportPrint_Table(oReport), HasSubstr("30.000 s  IN_00, IN_01"));
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
    EXPECT_FALSE(oReport.aoLocks[0].bIsOpen);
}

TEST(Report, QuotesNamesForSpreadsheets)
{
    EXPECT_THAT(ReportPrint_Csv(MakeReport()), HasSubstr("\r\nIN_00,\"Camera \"\"A\"\", left\",0.000,"));
}
