// Who is told of incidents, and what the command line expects of streams.
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <span>
#include <sys/uio.h>
#include <vector>

#include "ChildProgram.h"
#include "Expectations.h"
#include "IncidentDelivery.h"
#include "SystemJournal.h"

namespace
{

std::mutex s_oJournalMutex;
std::vector<std::vector<std::string>> s_aoJournal; // entries, by their fields

} // namespace

// The library's, which would need a journal to send to.
extern "C" int sd_journal_sendv(const iovec* poFields, int iFields)
{
    const std::lock_guard oGuard(s_oJournalMutex);
    std::vector<std::string>& raszEntry = s_aoJournal.emplace_back();
    for (const iovec& roField : std::span(poFields, static_cast<size_t>(iFields)))
    {
        raszEntry.emplace_back(static_cast<const char*>(roField.iov_base), roField.iov_len);
    }
    return 0;
}

namespace
{

TEST(IncidentDelivery, TellsOneAfterTheOtherAndAgainWhatFailed)
{
    std::mutex oMutex;
    std::condition_variable oMore;
    std::vector<std::string> aszTold;
    std::vector<uint64_t> auiKept;
    CIncidentDelivery oDelivery(
        [&](const std::string& rszInput, const std::atomic<bool>&)
        {
            const std::lock_guard oGuard(oMutex);
            aszTold.push_back(rszInput);
            oMore.notify_all();
            return aszTold.size() != 1 ? CFault() : CFault("made up"); // the first one fails once
        },
        [&](uint64_t uiEvent)
        {
            const std::lock_guard oGuard(oMutex);
            auiKept.push_back(uiEvent);
            oMore.notify_all();
        });
    SIncident oIncident;
    oIncident.uiNumber = 7;
    oIncident.auiStreams = {5, 2};
    oIncident.eDomain = EHealthDomain::FEED;
    oIncident.eShared = EIncidentShare::BOARD;
    oIncident.oFirst.eReason = EHealthReason::CONSUMER_STALLED;
    oIncident.bIsTogether = true;
    oIncident.uiLost = 1;
    oDelivery.Put({11, EWatchEventKind::INCIDENT_BEGAN, oIncident, true}); // an earlier run has told the journal
    oDelivery.Put({12, EWatchEventKind::INCIDENT_ENDED, oIncident, false});
    s_aoJournal.clear();
    ASSERT_FALSE(oDelivery.Start());
    std::unique_lock oLock(oMutex);
    oMore.wait(oLock, [&] { return !aszTold.empty(); });
    {
        const std::lock_guard oGuard(s_oJournalMutex);
        const std::vector<std::string> aszFields = {
            "MESSAGE=incident 7 ended: feed of IN_00, 02, OUT_01: nobody takes the pictures; 3 streams of the board at "
            "once",
            "MESSAGE_ID=" + std::string(szIncidentEndedId),
            "PRIORITY=6",
            "VT_INCIDENT=7",
            "VT_DOMAIN=feed",
            "VT_REASON=nobody takes the pictures; 3 streams of the board at once",
            "VT_LOST=1",
            "VT_STREAM=IN_00",
            "VT_STREAM=IN_02",
            "VT_STREAM=OUT_01"};
        EXPECT_EQ(s_aoJournal, std::vector<std::vector<std::string>>{aszFields})
            << "and not held up by a program that fails";
    }
    oMore.wait(oLock, [&] { return auiKept.size() == 2; });
    EXPECT_EQ(auiKept, (std::vector<uint64_t>{11, 12}));
    ASSERT_EQ(aszTold.size(), 3U);
    EXPECT_EQ(aszTold[0], aszTold[1]);
    EXPECT_NE(aszTold[1].find(R"("event":"incident_began","event_number":11,"number":7)"), std::string::npos);
    EXPECT_NE(aszTold[2].find("incident_ended"), std::string::npos);
    oLock.unlock();
    EXPECT_EQ(oDelivery.GetFailures(), 1U);
}

TEST(ChildProgram, TellsSuccessFailureAndAbsence)
{
    const std::atomic<bool> bIsToEnd{false};
    EXPECT_EQ(ChildProgram_Run("cat", "", 10'000, bIsToEnd).GetText(), "");
    EXPECT_EQ(ChildProgram_Run("true", std::string(1 << 20, 'x'), 10'000, bIsToEnd).GetText(), "") << "reads nothing";
    EXPECT_EQ(ChildProgram_Run("false", "", 10'000, bIsToEnd).GetText(), "ended with 1");
    EXPECT_TRUE(ChildProgram_Run("/no/such/program", "", 10'000, bIsToEnd));
    const std::string szSlow = testing::TempDir() + "/slow";
    std::ofstream(szSlow) << "#!/bin/sh\nexec sleep 60\n";
    std::filesystem::permissions(szSlow, std::filesystem::perms::owner_all);
    EXPECT_EQ(ChildProgram_Run(szSlow, "", 0, bIsToEnd).GetText(), "took longer than 0 s");
}

TEST(Expectations, UnderstandStandards)
{
    struct SCase
    {
        const char* szText;
        uint64_t uiNumerator;
        uint64_t uiDenominator;
    };
    for (const SCase& roCase : {SCase{"1080p59.94", 60000, 1001},
                                {"1080i50", 50, 1},
                                {"1080i25", 50, 1},
                                {"1080i29.97", 60000, 1001},
                                {"2160p23.976", 24000, 1001},
                                {"720p60", 60, 1}})
    {
        const auto oStandard = Standard_Find(roCase.szText);
        ASSERT_TRUE(oStandard) << roCase.szText;
        EXPECT_EQ(oStandard->uiRateNumerator, roCase.uiNumerator) << roCase.szText;
        EXPECT_EQ(oStandard->uiRateDenominator, roCase.uiDenominator) << roCase.szText;
    }
    for (const char* szWrong : {"", "1080", "1080x50", "p50", "1080p", "1080p59.9", "1080p-1", "1080pnan"})
    {
        EXPECT_FALSE(Standard_Find(szWrong)) << szWrong;
    }
}

TEST(Expectations, ComeBackFromTheFileThatTheyWereSavedTo)
{
    SWatchPublication oPublication;
    SStreamFigures& roStream = oPublication.oSnapshot.aoDirections[1].aoStreams.emplace_back();
    roStream.oKey = {EStreamDirection::OUTPUT, 0};
    roStream.eState = EStreamState::RUNNING;
    roStream.uiNominalNumerator = 60000;
    roStream.uiNominalDenominator = 1001;
    roStream.oFeed.oCadence.uiNbOfRuns = 1;
    roStream.oDescription.oTimings.fColorSpace = 3;
    const std::string szFile = testing::TempDir() + "/expectations.json";
    ASSERT_EQ(Expectations_Save(szFile, oPublication).GetText(), "");
    SExpectOptions oOptions;
    oOptions.szFile = szFile;
    SJudgeSettings oSettings;
    ASSERT_EQ(Expectations_Read(oOptions, oSettings).GetText(), "");
    const SStreamExpectation& roTold = oSettings.aoStreams[1].at(0);
    EXPECT_TRUE(roTold.bRuns && roTold.bIsFed);
    EXPECT_EQ(roTold.uiRateNumerator, 60000U);
    ASSERT_EQ(roTold.aoMembers.size(), DescriptionMembers_Get().size());
    EXPECT_EQ(roTold.aoMembers[static_cast<size_t>(EDescriptionMember::COLOUR_SPACE)].uiValue, 3U);
    for (const char* szWrong : {"", "[]", R"({"streams": {"IN_99": {}}})", R"({"streams": {"IN_00": {"fed": 1}}})",
                                R"({"streams": {"IN_00": {"description": {"colour": 1}}}})",
                                R"({"streams": {"IN_00": {"locked": ["IN_00"]}}})",
                                R"({"streams": {"IN_00": {"rate": {"numerator": "x"}}}})"})
    {
        std::ofstream(szFile, std::ios::trunc) << szWrong;
        EXPECT_NE(Expectations_Read(oOptions, oSettings).GetText().find(szFile), std::string::npos) << szWrong;
    }
}

} // namespace
