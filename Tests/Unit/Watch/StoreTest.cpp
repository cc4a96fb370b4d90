#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>

#include "StoreReader.h"
#include "StoreRecovery.h"
#include "StoreWriter.h"
#include "WatchSteps.h"

namespace
{

constexpr int64_t iMinute = 60;

std::vector<SWatchEvent> ReadEvents(const std::string& rszFile)
{
    CStoreReader oReader(rszFile);
    EXPECT_EQ(oReader.Open().GetText(), "");
    SEventQuery oQuery;
    oQuery.uiMost = UINT32_MAX;
    std::vector<SWatchEvent> aoEvents;
    oReader.FindEvents(oQuery, UINT64_MAX, aoEvents);
    std::ranges::reverse(aoEvents);
    return aoEvents;
}

std::vector<SMinuteSummary> ReadMinutes(const std::string& rszFile)
{
    CStoreReader oReader(rszFile);
    EXPECT_EQ(oReader.Open().GetText(), "");
    SHistoryQuery oQuery;
    oQuery.iToUtcNs = INT64_MAX;
    std::vector<SMinuteSummary> aoMinutes;
    oReader.FindMinutes(oQuery, aoMinutes);
    return aoMinutes;
}

std::vector<SStoreRun> FindRuns(const std::string& rszFile)
{
    return CStoreReader(rszFile).FindRuns(0, INT64_MAX);
}

std::string CheckIntegrity(const std::string& rszFile)
{
    StoreFilePtr poFile;
    EXPECT_EQ(StoreFile_OpenForReading(rszFile, poFile).GetText(), "");
    CStoreStatement oCheck(poFile.get(), "PRAGMA integrity_check");
    return oCheck.Next() ? oCheck.GetText() : "no answer";
}

// A run from its begin on.
struct SRun
{
    explicit SRun(const std::string& rszFile, int64_t iSecond = 0, uint32_t uiKeepDays = 35)
        : oWriter(rszFile, uiKeepDays)
    {
        EXPECT_EQ(oWriter.Open(iStepsBeginUtcNs + iSecond * iNsPerSecond, oRemains).GetText(), "");
        EXPECT_EQ(oWriter.Start().GetText(), "");
    }
    SWatchCosts GetCosts()
    {
        SWatchCosts oCosts;
        oWriter.AddCosts(oCosts);
        return oCosts;
    }
    CStoreWriter oWriter;
    SStoreRemains oRemains;
};

} // namespace

TEST(Store, KeepsEveryValueAndGoesOnWithNumbersAndMinutes)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    SMadeUpSecond oSecond = MakeSecond(5, 1);
    SMinuteSummary& roMinute = oSecond.aoMinutes.front();
    roMinute.oPoint.oPhaseSeconds = {-1e-6, 1e-9, true};
    roMinute.oPoint.flPhaseMinSeconds = -2e-6;
    roMinute.oPoint.eLock = ELockState::PASSING;
    roMinute.oPoint.uiRepeated = 7;
    roMinute.oPoint.uiCadence = Cadence_Pack({{3, 2}, 2});
    roMinute.oPoint.oLoaned = {2.5F, 1, 4};
    roMinute.uiQueuePoints = 5;
    roMinute.oPacing.auiCounts[3] = 1;
    roMinute.oPacing.auiCounts[uiPacingBins / 2] = 300'000;
    roMinute.oPacing.oWorst = {-0.03, iStepsBeginUtcNs};
    oSecond.aoEvents.front().flSeconds = 0.25;
    oSecond.aoMinutes.front().oPoint.eState = EStreamState::RUNNING;
    {
        SRun oRun(szFile);
        EXPECT_EQ(oRun.oRemains.uiLastEvent, 0U);
        oRun.oWriter.Put(oSecond.GetStep());
    }
    const std::vector<SWatchEvent> aoEvents = ReadEvents(szFile);
    ASSERT_EQ(aoEvents.size(), 1U);
    EXPECT_EQ(aoEvents[0].uiTick, UINT64_MAX - 1);
    EXPECT_EQ(aoEvents[0].flSeconds, 0.25);

    const SRun oNext(szFile, 30);
    EXPECT_EQ(oNext.oRemains.uiLastEvent, 1U);
    ASSERT_EQ(oNext.oRemains.aoEarlier.size(), 1U);
    EXPECT_EQ(oNext.oRemains.aoEarlier[0].oRun.eState, EEarlierState::RUNNING);
    EXPECT_EQ(oNext.oRemains.aoEarlier[0].oRun.iUtcNs, oSecond.poPublication->oSnapshot.oClock.iUtcNs);
    ASSERT_EQ(oNext.oRemains.aoRunning.size(), 1U);
    const SHistoryPoint& roPoint = oNext.oRemains.aoRunning[0].oPoint;
    EXPECT_EQ(oNext.oRemains.aoRunning[0].uiPoints, 5U);
    EXPECT_EQ(roPoint.oPhaseSeconds.flValue, -1e-6);
    EXPECT_TRUE(roPoint.oPhaseSeconds.bIsValid);
    EXPECT_FALSE(roPoint.oRateHz.bIsValid);
    EXPECT_EQ(roPoint.flPhaseMinSeconds, -2e-6);
    EXPECT_EQ(roPoint.eLock, ELockState::PASSING);
    EXPECT_EQ(roPoint.uiRepeated, 7U);
    EXPECT_EQ(Cadence_Unpack(roPoint.uiCadence), (SCadence{{3, 2}, 2}));
    EXPECT_EQ(roPoint.oLoaned.flMean, 2.5F);
    EXPECT_EQ(roPoint.oLoaned.uiMost, 4U);
    EXPECT_FALSE(roPoint.oReady.IsKnown() || roPoint.flHeldSeconds >= 0.0F);
    EXPECT_EQ(oNext.oRemains.aoRunning[0].uiQueuePoints, 5U);
    EXPECT_EQ(oNext.oRemains.aoRunning[0].oPacing.auiCounts, roMinute.oPacing.auiCounts);
    EXPECT_EQ(roPoint.oPacing.flWorst, -0.03F);
    EXPECT_EQ(oNext.oRemains.aoRunning[0].oPacing.oWorst.iUtcNs, iStepsBeginUtcNs);
}

// A run that was killed ends where it wrote last, and its unfinished minute is kept as it is.
TEST(Store, ShowsTheGapBehindARunThatWasKilled)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        SRun oRun(szFile);
        SMadeUpSecond oSecond = MakeSecond(7, 1);
        SIncident& roIncident = oSecond.poPublication->oJudgement.aoIncidents.emplace_back();
        roIncident.uiNumber = 4;
        roIncident.iBeginUtcNs = iStepsBeginUtcNs + 5 * iNsPerSecond;
        oRun.oWriter.Put(oSecond.GetStep());
        oRun.oWriter.KeepDelivered(1);
        static_cast<void>(Await([&] { return !ReadEvents(szFile).empty(); }));
        raise(SIGKILL);
    }
    waitpid(iChild, nullptr, 0);
    const SRun oNext(szFile, 10 * iMinute);
    EXPECT_EQ(oNext.oRemains.uiLastEvent, 3U);
    EXPECT_TRUE(oNext.oRemains.aoRunning.empty());
    const std::vector<SWatchEvent> aoEvents = ReadEvents(szFile);
    ASSERT_EQ(aoEvents.size(), 3U);
    EXPECT_EQ(aoEvents[1].eKind, EWatchEventKind::WATCH_ENDED);
    EXPECT_EQ(aoEvents[1].iUtcNs, iStepsBeginUtcNs + 7 * iNsPerSecond);
    EXPECT_EQ(aoEvents[2].eKind, EWatchEventKind::INCIDENT_ENDED) << "with the run, and that is told";
    EXPECT_EQ(aoEvents[2].iUtcNs, iStepsBeginUtcNs + 7 * iNsPerSecond);
    ASSERT_EQ(oNext.oRemains.aoEnded.size(), 1U);
    EXPECT_EQ(oNext.oRemains.aoEnded[0].second.uiNumber, 4U);
    EXPECT_EQ(oNext.oRemains.aoEnded[0].first.flSeconds, 2.0);
    ASSERT_EQ(ReadMinutes(szFile).size(), 1U);
    EXPECT_EQ(ReadMinutes(szFile)[0].oPoint.uiFields, 7U * 60);
    ASSERT_FALSE(FindRuns(szFile).empty());
    EXPECT_EQ(FindRuns(szFile)[0].eEnd, ERunEnd::BROKEN);
}

// What was seen in the store before the kill is in it afterwards, and all of a second or nothing.
TEST(Store, IsWholeAfterAHundredKills)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    std::mt19937 oRandom(5489);
    uint64_t uiExpected = 1;
    for (int iKill = 0; iKill < 100; ++iKill)
    {
        int aiPipe[2];
        ASSERT_EQ(pipe(aiPipe), 0);
        const pid_t iChild = fork();
        if (iChild == 0)
        {
            SRun oRun(szFile);
            CStoreReader oReader(szFile);
            static_cast<void>(oReader.Open());
            for (uint64_t uiEvent = oRun.oRemains.uiLastEvent + 1;; ++uiEvent)
            {
                oRun.oWriter.Put(MakeSecond(static_cast<int64_t>(uiEvent), uiEvent).GetStep());
                SEventQuery oQuery;
                oQuery.uiAfterNumber = uiEvent - 1;
                std::vector<SWatchEvent> aoEvents;
                static_cast<void>(Await(
                    [&]
                    {
                        oReader.FindEvents(oQuery, UINT64_MAX, aoEvents);
                        return !aoEvents.empty();
                    }));
                static_cast<void>(!write(aiPipe[1], &uiEvent, sizeof(uiEvent)));
            }
        }
        close(aiPipe[1]);
        uint64_t uiSeen = 0;
        static_cast<void>(!read(aiPipe[0], &uiSeen, sizeof(uiSeen))); // it is under way
        usleep(std::uniform_int_distribution<useconds_t>(0, 15000)(oRandom));
        kill(iChild, SIGKILL);
        waitpid(iChild, nullptr, 0);
        for (uint64_t uiMore = 0; read(aiPipe[0], &uiMore, sizeof(uiMore)) == sizeof(uiMore);)
        {
            uiSeen = uiMore;
        }
        close(aiPipe[0]);
        const std::vector<SWatchEvent> aoEvents = ReadEvents(szFile);
        ASSERT_GE(aoEvents.back().uiNumber, uiSeen) << "kill " << iKill;
        ASSERT_GE(aoEvents.back().uiNumber, uiExpected);
        ASSERT_EQ(aoEvents.back().uiNumber, aoEvents.size()) << "numbers have a gap, kill " << iKill;
        // The minute and the event of a second are written together.
        ASSERT_EQ(ReadMinutes(szFile).back().uiPoints, aoEvents.back().uiNumber);
        uiExpected = aoEvents.back().uiNumber;
    }
    EXPECT_EQ(CheckIntegrity(szFile), "ok");
}

TEST(Store, WaitsForRoomOnAFullDiskAndSaysSoOnce)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    std::signal(SIGXFSZ, SIG_IGN);
    SRun oRun(szFile);
    oRun.oWriter.Put(MakeSecond(1, 1).GetStep());
    ASSERT_TRUE(Await([&] { return ReadEvents(szFile).size() == 1; }));
    rlimit oLimit = {};
    getrlimit(RLIMIT_FSIZE, &oLimit);
    const rlimit oFull = {4096, oLimit.rlim_max}; // what is said has room
    testing::internal::CaptureStderr();
    setrlimit(RLIMIT_FSIZE, &oFull);
    uint64_t uiEvent = 1;
    for (uint64_t uiFailures = 0; uiFailures < 3; ++uiFailures)
    {
        ++uiEvent;
        oRun.oWriter.Put(MakeSecond(static_cast<int64_t>(uiEvent), uiEvent).GetStep());
        EXPECT_TRUE(Await([&] { return oRun.GetCosts().uiStoreWriteFailures > uiFailures; }));
    }
    EXPECT_TRUE(oRun.GetCosts().bStoreIsFailing);
    EXPECT_GE(oRun.GetCosts().uiStoreRowsWaiting, 3U);
    setrlimit(RLIMIT_FSIZE, &oLimit);
    ++uiEvent;
    oRun.oWriter.Put(MakeSecond(static_cast<int64_t>(uiEvent), uiEvent).GetStep());
    EXPECT_TRUE(Await([&] { return !oRun.GetCosts().bStoreIsFailing; }));
    const std::string szSaid = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(szSaid, '\n'), 2) << szSaid;
    EXPECT_EQ(oRun.GetCosts().uiStoreRowsDropped, 0U);
    EXPECT_EQ(ReadEvents(szFile).size(), uiEvent);
}

// A store that somebody removes or empties comes into being again, with what is new.
TEST(Store, IsMadeAgainWhenItIsRemovedOrEmptied)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    SRun oRun(szFile);
    oRun.oWriter.Put(MakeSecond(1, 1).GetStep());
    ASSERT_TRUE(Await([&] { return ReadEvents(szFile).size() == 1; }));
    std::filesystem::remove(szFile);
    oRun.oWriter.Put(MakeSecond(2, 2).GetStep());
    ASSERT_TRUE(Await([&] { return FindRuns(szFile).size() == 1; }));
    EXPECT_EQ(ReadEvents(szFile)[0].uiNumber, 2U);
    testing::internal::CaptureStderr();
    std::filesystem::resize_file(szFile, 0);
    oRun.oWriter.Put(MakeSecond(3, 3).GetStep());
    oRun.oWriter.Close();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("somebody has emptied it"));
    ASSERT_EQ(ReadEvents(szFile).size(), 1U);
    EXPECT_EQ(ReadEvents(szFile)[0].uiNumber, 3U);
    EXPECT_FALSE(std::filesystem::exists(szFile + "-journal"));
}

// Whoever moves the store away for a while finds one run in it, not a killed one and another.
TEST(Store, GoesOnWithItsRunWhenTheFileComesBack)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    const std::string szAway = oFolder / "away";
    SRun oRun(szFile);
    oRun.oWriter.Put(MakeSecond(1, 1).GetStep());
    ASSERT_TRUE(Await([&] { return ReadEvents(szFile).size() == 1; }));
    std::filesystem::rename(szFile, szAway);
    oRun.oWriter.Put(MakeSecond(2, 2).GetStep());
    ASSERT_TRUE(Await([&] { return FindRuns(szFile).size() == 1; })); // of another file, and all of it
    std::filesystem::rename(szAway, szFile);
    oRun.oWriter.Put(MakeSecond(3, 3).GetStep());
    oRun.oWriter.Close();
    const std::vector<SWatchEvent> aoEvents = ReadEvents(szFile);
    ASSERT_EQ(aoEvents.size(), 2U);
    EXPECT_EQ(aoEvents[1].uiNumber, 3U);
    EXPECT_EQ(aoEvents[1].eKind, EWatchEventKind::FIELDS_LOST);
    ASSERT_EQ(FindRuns(szFile).size(), 1U);
    EXPECT_EQ(FindRuns(szFile)[0].eEnd, ERunEnd::CLOSED);
}

TEST(Store, IsTidiedUpLaterWhenThatCannotBeDoneAtTheBegin)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    StoreFilePtr poOther;
    ASSERT_EQ(StoreFile_OpenForWriting(szFile, poOther).GetText(), "");
    ASSERT_TRUE(
        StoreFile_Run(poOther.get(), "INSERT INTO runs VALUES(1, 1, 2, 0, 'wall', '', 0, 1, 0);BEGIN IMMEDIATE"));
    CStoreWriter oWriter(szFile, 35);
    SStoreRemains oRemains;
    EXPECT_TRUE(oWriter.Open(iStepsBeginUtcNs, oRemains).MayHeal());
    ASSERT_TRUE(StoreFile_Run(poOther.get(), "ROLLBACK"));
    ASSERT_EQ(oWriter.Start().GetText(), "");
    oWriter.Put(MakeSecond(1, 1).GetStep());
    oWriter.Close();
    ASSERT_EQ(FindRuns(szFile).size(), 2U);
    EXPECT_EQ(FindRuns(szFile)[0].eEnd, ERunEnd::BROKEN);
    EXPECT_EQ(ReadEvents(szFile).back().uiNumber, 2U) << "behind the end of the stream of then";
}

// Stores of older layouts are read as they are, and written once they are like the others.
TEST(Store, TakesUpOneOfAnOlderLayout)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    {
        SRun oRun(szFile);
        oRun.oWriter.Put(MakeSecond(1, 1).GetStep());
    }
    StoreFilePtr poFile;
    ASSERT_EQ(StoreFile_OpenForWriting(szFile, poFile).GetText(), "");
    std::string szSql = "ALTER TABLE runs RENAME COLUMN ending TO is_closed;"
                        "DROP TABLE incidents;DROP TABLE delivered;PRAGMA user_version=1;";
    CStoreStatement oLater(poFile.get(), "SELECT name FROM pragma_table_info('minutes') WHERE cid > (SELECT cid FROM "
                                         "pragma_table_info('minutes') WHERE name = 'state')");
    while (oLater.Next())
    {
        const std::string szColumn = oLater.GetText();
        szSql += "ALTER TABLE minutes DROP COLUMN " + szColumn + ";ALTER TABLE running DROP COLUMN " + szColumn + ";";
    }
    ASSERT_TRUE(StoreFile_Run(poFile.get(), szSql.c_str())) << sqlite3_errmsg(poFile.get());
    poFile.reset();
    ASSERT_EQ(ReadMinutes(szFile).size(), 1U);
    EXPECT_EQ(ReadMinutes(szFile)[0].oPoint.uiFields, 60U);
    EXPECT_FALSE(ReadMinutes(szFile)[0].oPoint.oReady.IsKnown());
    ASSERT_EQ(FindRuns(szFile).size(), 1U);
    EXPECT_EQ(FindRuns(szFile)[0].eEnd, ERunEnd::CLOSED);
    EXPECT_EQ(FindRuns(szFile)[0].szHost, "wall");
    {
        SRun oRun(szFile, iMinute);
        oRun.oWriter.Put(MakeSecond(iMinute, 2).GetStep());
    }
    EXPECT_EQ(FindRuns(szFile).size(), 2U);
    EXPECT_EQ(ReadMinutes(szFile).size(), 2U);
    CStoreReader oReader(szFile);
    SEventQuery oQuery;
    oQuery.iFromUtcNs = 0; // found by moments
    oQuery.uiBeforeNumber = 2;
    std::vector<SWatchEvent> aoEvents;
    oReader.FindEvents(oQuery, UINT64_MAX, aoEvents);
    ASSERT_EQ(aoEvents.size(), 1U);
    EXPECT_EQ(aoEvents[0].uiNumber, 1U);
}

// A watch that finds the store taken must not undo the locks of whoever reads it in the same process.
TEST(Store, KeepsTheLocksOfItsReadersWhenItIsRefused)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    StoreFilePtr poFile;
    ASSERT_EQ(StoreFile_OpenForWriting(szFile, poFile).GetText(), "");
    CStoreLock oFirst;
    ASSERT_TRUE(oFirst.Take(szFile) && StoreFile_Run(poFile.get(), "BEGIN IMMEDIATE"));
    CStoreLock oSecond;
    EXPECT_FALSE(oSecond.Take(szFile));
    oSecond.Release();
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        struct flock oLock = {};
        oLock.l_type = F_WRLCK;
        const int iFile = open(szFile.c_str(), O_RDWR);
        _exit(fcntl(iFile, F_GETLK, &oLock) == 0 && oLock.l_type != F_UNLCK ? 0 : 1);
    }
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    EXPECT_EQ(iStatus, 0);
}

TEST(Store, IsWrittenByOneWatchAtATime)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    const SRun oFirst(szFile);
    CStoreWriter oSecond(szFile, 35);
    SStoreRemains oRemains;
    const CFault oFault = oSecond.Open(iStepsBeginUtcNs, oRemains);
    EXPECT_NE(oFault.GetText().find("another watch"), std::string::npos) << oFault.GetText();
    EXPECT_FALSE(oFault.MayHeal());
}

// Once the clock has not been set for an hour, and a day at once: one wrong moment costs nothing.
TEST(Store, KeepsMinutesForAsLongAsIsAskedForByASteadyClock)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    constexpr int64_t iHour = 60 * iMinute;
    constexpr int64_t iDay = 24 * iHour;
    SRun oRun(szFile, 0, 2);
    uint64_t uiEvent = 0;
    // What is stored begins at the moments of minutes; uiMonotonicNs goes on as the clock should.
    const auto fnPut = [&](int64_t iSecond, int64_t iClockIsAhead)
    {
        SMadeUpSecond oSecond = MakeSecond(iSecond, ++uiEvent);
        oSecond.poPublication->oSnapshot.oClock.iUtcNs += iClockIsAhead * iNsPerSecond;
        oSecond.aoMinutes.front().oPoint.iUtcNs = iStepsBeginUtcNs + iSecond * iNsPerSecond;
        oSecond.aoMinutes.front().bIsComplete = true;
        oRun.oWriter.Put(oSecond.GetStep());
        EXPECT_TRUE(Await([&] { return ReadEvents(szFile).size() == uiEvent; }));
        return ReadMinutes(szFile).size();
    };
    EXPECT_EQ(fnPut(1, 0), 1U);
    EXPECT_EQ(fnPut(iDay + iHour, 0), 2U);
    EXPECT_EQ(fnPut(iDay + 3 * iHour, 40 * iDay), 3U);
    EXPECT_EQ(fnPut(iDay + 5 * iHour, 0), 4U);
    EXPECT_EQ(fnPut(10 * iDay, 0), 4U) << "a day from the oldest one on";
    EXPECT_EQ(fnPut(10 * iDay + iHour, 0), 2U);
}

TEST(Store, RefusesWhatIsNoneOfItsOwn)
{
    const CTestFolder oFolder;
    const std::string szNoDatabase = oFolder / "text";
    const std::string szForeign = oFolder / "foreign";
    const std::string szNewer = oFolder / "newer";
    std::ofstream(szNoDatabase) << std::string(5000, 'x');
    sqlite3* poForeign = nullptr;
    sqlite3_open(szForeign.c_str(), &poForeign);
    StoreFile_Run(poForeign, "CREATE TABLE accounts(id)");
    sqlite3_close(poForeign);
    {
        StoreFilePtr poNewer;
        EXPECT_FALSE(StoreFile_OpenForWriting(szNewer, poNewer));
        StoreFile_Run(poNewer.get(), "PRAGMA user_version=99");
    }
    for (const std::string& rszFile : {szNoDatabase, szForeign, szNewer, std::string("/nowhere/at/all")})
    {
        StoreFilePtr poFile;
        const CFault oFault = StoreFile_OpenForWriting(rszFile, poFile);
        EXPECT_NE(oFault.GetText().find(rszFile), std::string::npos) << oFault.GetText();
        EXPECT_EQ(std::ranges::count(oFault.GetText(), '\n'), 0);
        EXPECT_FALSE(oFault.MayHeal());
    }
    EXPECT_EQ(std::filesystem::file_size(szNoDatabase), 5000U);
}
