#include "EventJournal.h"

#include <csignal>
#include <fstream>
#include <sys/resource.h>

#include <nlohmann/json.hpp>

#include "WatchSteps.h"

namespace
{

// The numbers of the events in a journal; every line must be one.
std::vector<uint64_t> ReadNumbers(const std::string& rszFile)
{
    std::ifstream oFile(rszFile);
    std::vector<uint64_t> auiNumbers;
    for (std::string szLine; std::getline(oFile, szLine) && !oFile.eof();)
    {
        const nlohmann::json oJson = nlohmann::json::parse(szLine, nullptr, false);
        auiNumbers.push_back(oJson.is_object() ? oJson["number"].get<uint64_t>() : 0);
    }
    return auiNumbers;
}

std::string PrintNumber(const SWatchEvent& roEvent)
{
    return "{\"number\": " + std::to_string(roEvent.uiNumber) + ", \"text\": \"" + std::string(200, 'x') + "\"}";
}

void PutNumber(CEventJournal& roJournal, uint64_t uiNumber)
{
    roJournal.Put(MakeSecond(1, uiNumber).aoEvents);
}

using Numbers = std::vector<uint64_t>;

} // namespace

TEST(Journal, FollowsItsNameThroughRotationAndRemoval)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "journal";
    const std::string szRotated = oFolder / "journal.1";
    CEventJournal oJournal(szFile, PrintNumber);
    ASSERT_EQ(oJournal.Open().GetText(), "");
    ASSERT_EQ(oJournal.Start().GetText(), "");
    PutNumber(oJournal, 1);
    ASSERT_TRUE(Await([&] { return ReadNumbers(szFile) == Numbers{1}; }));
    std::filesystem::rename(szFile, szRotated);
    oJournal.Reopen();
    ASSERT_TRUE(Await([&] { return std::filesystem::exists(szFile); })); // without waiting for an event
    PutNumber(oJournal, 2);
    ASSERT_TRUE(Await([&] { return ReadNumbers(szFile) == Numbers{2}; }));
    EXPECT_EQ(ReadNumbers(szRotated), Numbers{1});
    std::filesystem::remove(szFile);
    PutNumber(oJournal, 3);
    oJournal.Close();
    EXPECT_EQ(ReadNumbers(szFile), Numbers{3});
}

TEST(Journal, WritesWholeLinesOnceThereIsRoomAgain)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "journal";
    std::signal(SIGXFSZ, SIG_IGN);
    CEventJournal oJournal(szFile, PrintNumber);
    ASSERT_EQ(oJournal.Open().GetText(), "");
    ASSERT_EQ(oJournal.Start().GetText(), "");
    PutNumber(oJournal, 1);
    ASSERT_TRUE(Await([&] { return ReadNumbers(szFile) == Numbers{1}; }));
    rlimit oLimit = {};
    getrlimit(RLIMIT_FSIZE, &oLimit);
    const rlimit oFull = {std::filesystem::file_size(szFile) + 20, oLimit.rlim_max}; // in the middle of a line
    testing::internal::CaptureStderr();
    setrlimit(RLIMIT_FSIZE, &oFull);
    SWatchCosts oCosts;
    PutNumber(oJournal, 2);
    EXPECT_TRUE(Await(
        [&]
        {
            oJournal.AddCosts(oCosts);
            return oCosts.bJournalIsFailing;
        }));
    PutNumber(oJournal, 3);
    setrlimit(RLIMIT_FSIZE, &oLimit);
    oJournal.Close();
    EXPECT_EQ(ReadNumbers(szFile), (Numbers{1, 2, 3}));
    const std::string szSaid = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(szSaid, '\n'), 2) << szSaid;
}

TEST(Journal, CountsWhatItMustDrop)
{
    const CTestFolder oFolder;
    CEventJournal oJournal(oFolder / "journal", PrintNumber); // never started: nothing is taken away
    const std::vector<SWatchEvent> aoEvents(uiMostWaitingLines + 5, MakeSecond(1, 1).aoEvents[0]);
    oJournal.Put(aoEvents);
    SWatchCosts oCosts;
    oJournal.AddCosts(oCosts);
    EXPECT_EQ(oCosts.uiJournalLinesDropped, 5U);
}
