#include "EventJournal.h"

#include <fstream>

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

// One that has its first event.
class Journal : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_oJournal.Open().GetText(), "");
        ASSERT_EQ(m_oJournal.Start().GetText(), "");
        PutNumber(m_oJournal, 1);
        ASSERT_TRUE(Await([&] { return ReadNumbers(m_szFile) == Numbers{1}; }));
    }
    const CTestFolder m_oFolder;
    const std::string m_szFile = m_oFolder / "journal";
    CEventJournal m_oJournal{m_szFile, PrintNumber};
};

} // namespace

TEST_F(Journal, FollowsItsNameThroughRotationAndRemoval)
{
    const std::string szRotated = m_oFolder / "journal.1";
    std::filesystem::rename(m_szFile, szRotated);
    m_oJournal.Reopen();
    ASSERT_TRUE(Await([&] { return std::filesystem::exists(m_szFile); })); // without waiting for an event
    PutNumber(m_oJournal, 2);
    ASSERT_TRUE(Await([&] { return ReadNumbers(m_szFile) == Numbers{2}; }));
    EXPECT_EQ(ReadNumbers(szRotated), Numbers{1});
    std::filesystem::remove(m_szFile);
    PutNumber(m_oJournal, 3);
    m_oJournal.Close();
    EXPECT_EQ(ReadNumbers(m_szFile), Numbers{3});
}

TEST_F(Journal, WritesWholeLinesOnceThereIsRoomAgain)
{
    testing::internal::CaptureStderr();
    std::optional<CFullDisk> oFull(std::filesystem::file_size(m_szFile) + 20); // in the middle of a line
    PutNumber(m_oJournal, 2);
    EXPECT_TRUE(Await([&] { return GetCosts(m_oJournal).bJournalIsFailing; }));
    m_oJournal.Put(std::vector(uiMostWaitingLines, MakeSecond(1, 33).aoEvents[0])); // one too many
    oFull.reset();
    m_oJournal.Close();
    Numbers auiExpected(uiMostWaitingLines + 1, 33);
    auiExpected[0] = 1;
    auiExpected[1] = 2; // the half-written one goes on
    EXPECT_EQ(ReadNumbers(m_szFile), auiExpected);
    const std::string szSaid = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(szSaid, '\n'), 2) << szSaid;
}

TEST(JournalThatIsFull, CountsWhatItMustDrop)
{
    const CTestFolder oFolder;
    CEventJournal oJournal(oFolder / "journal", PrintNumber); // never started: nothing is taken away
    const std::vector<SWatchEvent> aoEvents(uiMostWaitingLines + 5, MakeSecond(1, 1).aoEvents[0]);
    oJournal.Put(aoEvents);
    EXPECT_EQ(GetCosts(oJournal).uiJournalLinesDropped, 5U);
}
