#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <random>
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

class Store : public testing::Test
{
protected:
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
};

// A run from its begin on.
struct SRun
{
    explicit SRun(const std::string& rszFile, int64_t iSecond = 0, uint32_t uiKeepDays = 35)
        : oWriter(rszFile, uiKeepDays)
    {
        EXPECT_EQ(oWriter.Open(iStepsBeginUtcNs + iSecond * iNsPerSecond, oRemains).GetText(), "");
        EXPECT_EQ(oWriter.Start().GetText(), "");
    }
    CStoreWriter oWriter;
    SStoreRemains oRemains;
};

} // namespace

// What was seen in the store before the kill is in it afterwards, and all of a second or nothing.
TEST_F(Store, IsWholeAfterAHundredKills)
{
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

TEST_F(Store, WaitsForRoomOnAFullDiskAndSaysSoOnce)
{
    SRun oRun(szFile);
    oRun.oWriter.Put(MakeSecond(1, 1).GetStep());
    ASSERT_TRUE(Await([&] { return ReadEvents(szFile).size() == 1; }));
    testing::internal::CaptureStderr();
    std::optional<CFullDisk> oFull(4096); // what is said has room
    uint64_t uiEvent = 1;
    const auto PutNext = [&]
    {
        SMadeUpSecond oSecond = MakeSecond(static_cast<int64_t>(uiEvent), uiEvent + 1);
        oSecond.poPublication->aaoTexts[0][0].szName = "renamed"; // is to be there with the rest
        oSecond.aoEvents.resize(1000, oSecond.aoEvents[0]);       // more than the file has room for
        for (SWatchEvent& roEvent : oSecond.aoEvents)
        {
            roEvent.uiNumber = ++uiEvent;
        }
        oRun.oWriter.Put(oSecond.GetStep());
    };
    std::optional<CFullDisk> oGrown;
    for (uint64_t uiFailures = 0; uiFailures < 3; ++uiFailures)
    {
        if (uiFailures == 1)
        {
            oGrown.emplace(std::filesystem::file_size(szFile)); // only the last step of the writing fails
        }
        PutNext();
        EXPECT_TRUE(Await([&] { return GetCosts(oRun.oWriter).uiStoreWriteFailures > uiFailures; }));
    }
    EXPECT_TRUE(GetCosts(oRun.oWriter).bStoreIsFailing);
    EXPECT_GE(GetCosts(oRun.oWriter).uiStoreRowsWaiting, 3U);
    oGrown.reset();
    oFull.reset();
    PutNext();
    EXPECT_TRUE(Await([&] { return !GetCosts(oRun.oWriter).bStoreIsFailing; }));
    const std::string szSaid = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(szSaid, '\n'), 2) << szSaid;
    EXPECT_EQ(GetCosts(oRun.oWriter).uiStoreRowsDropped, 0U);
    EXPECT_EQ(ReadEvents(szFile).size(), uiEvent);
    EXPECT_EQ(CStoreReader(szFile).FindStreams().at(0).oTexts.szName, "renamed");
}

// A store that somebody removes or empties comes into being again, with what is new.
TEST_F(Store, IsMadeAgainWhenItIsRemovedOrEmptied)
{
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
TEST_F(Store, GoesOnWithItsRunWhenTheFileComesBack)
{
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

TEST_F(Store, IsTidiedUpLaterWhenThatCannotBeDoneAtTheBegin)
{
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
TEST_F(Store, TakesUpOneOfAnOlderLayout)
{
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
TEST_F(Store, IsWrittenByOneWatchAtATimeAndKeepsItsLocksWhenASecondIsRefused)
{
    const SRun oFirst(szFile);
    StoreFilePtr poFile;
    ASSERT_EQ(StoreFile_OpenForWriting(szFile, poFile).GetText(), "");
    ASSERT_TRUE(StoreFile_Run(poFile.get(), "BEGIN IMMEDIATE"));
    SStoreRemains oRemains;
    const CFault oFault = CStoreWriter(szFile, 35).Open(iStepsBeginUtcNs, oRemains);
    EXPECT_NE(oFault.GetText().find("another watch"), std::string::npos) << oFault.GetText();
    EXPECT_FALSE(oFault.MayHeal());
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

// Once the clock has not been set for an hour, and a day at once: one wrong moment costs nothing.
TEST_F(Store, KeepsMinutesForAsLongAsIsAskedForByASteadyClock)
{
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

TEST_F(Store, RefusesWhatIsNoneOfItsOwn)
{
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
