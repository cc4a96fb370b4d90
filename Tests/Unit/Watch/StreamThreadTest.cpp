// The streams' threads on the simulated board, in granted time.
#include <VtSimulatedBoard.h>

#include "BoardSession.h"
#include "WatchSteps.h"

namespace
{

constexpr VtSim_Stream oInput = {0, VtSim_Direction_INPUT, 0};
constexpr uint32_t uiPatienceMs = 30000;

constexpr char szGranted[] = R"(
[time]
mode = "granted"
hold = true
[[chip]]
[[chip.input]]
connector = "SDI A"
standard = "1080p60"
skip_count_start = 5
field_counter_start = "0xFFFFFFFFFFFFFFE0"
[[chip.output]]
connector = "SDI B"
standard = "1080p60"
)";

// A board that is watched from its begin to the end of a test.
class CWatchedBoard
{
public:
    explicit CWatchedBoard(const std::string& rszScenario)
    {
        EXPECT_EQ(VtSim_SetScenario(rszScenario.c_str(), nullptr, 0), VtStatus_OK);
        EXPECT_EQ(oSession.Open({}).GetText(), "");
        EXPECT_EQ(oSession.Start().GetText(), "");
    }
    ~CWatchedBoard()
    {
        // Threads that hold in a wait see the end once it returns.
        static_cast<void>(oSession.Stop(0));
        EXPECT_TRUE(Await(
            [this]
            {
                VtSim_GrantTimeOutsAll(1);
                return oSession.Stop(10);
            }));
    }

    SStreamChannel& Channel(EStreamDirection eDirection)
    {
        return *oSession.GetChannels()[static_cast<size_t>(eDirection)][0];
    }
    // What has arrived so far, added to what had.
    const std::vector<SFieldRecord>& Records(EStreamDirection eDirection = EStreamDirection::INPUT)
    {
        Channel(eDirection).oFields.Drain([this](const SFieldRecord& roRecord) { m_aoRecords.push_back(roRecord); });
        return m_aoRecords;
    }

    CBoardSession oSession;

private:
    std::vector<SFieldRecord> m_aoRecords;
};

} // namespace

TEST(StreamThread, HandsOverEveryFieldWithItsMoments)
{
    CWatchedBoard oBoard(szGranted);
    ASSERT_EQ(VtSim_AwaitAllIdle(uiPatienceMs), VtStatus_OK);
    ASSERT_EQ(VtSim_Grant(oInput, 5), VtStatus_OK);
    ASSERT_EQ(VtSim_AwaitIdle(oInput, uiPatienceMs), VtStatus_OK);
    ASSERT_TRUE(Await([&] { return oBoard.Records().size() == 5; }));
    const std::vector<SFieldRecord>& raoRecords = oBoard.Records();
    for (uint64_t uiField = 0; uiField < raoRecords.size(); ++uiField)
    {
        VtSim_Field oTruth = {};
        ASSERT_EQ(VtSim_GetField(oInput, uiField, &oTruth), VtStatus_OK);
        EXPECT_EQ(raoRecords[uiField].eResult, EWaitResult::FIELD);
        EXPECT_EQ(raoRecords[uiField].uiTick, oTruth.uiTickRefCounter);
        EXPECT_EQ(raoRecords[uiField].uiFieldCounter, oTruth.uiFieldCounter);
        EXPECT_LE(raoRecords[uiField].uiWaitBeginNs, raoRecords[uiField].uiArrivalNs);
        EXPECT_TRUE(uiField == 0 || raoRecords[uiField - 1].uiArrivalNs <= raoRecords[uiField].uiWaitBeginNs);
    }
    SDescriptionRecord oDescription = {};
    oBoard.Channel(EStreamDirection::INPUT)
        .oDescriptions.Drain([&](const SDescriptionRecord& roRecord) { oDescription = roRecord; });
    EXPECT_NE(std::string(oDescription.szName).find("SDI A"), std::string::npos);
    EXPECT_STREQ(oDescription.szFormat, "VtPixelFormat_YUV422_UYVY");
    EXPECT_EQ(oDescription.oDescription.uiSkippedBuffers, 5U);
    EXPECT_EQ(oDescription.oDescription.oTimings.uiHActive, 1920U);
}

TEST(StreamThread, SaysSoWhenTheDeviceIsGone)
{
    CWatchedBoard oBoard(szGranted);
    ASSERT_EQ(VtSim_AwaitAllIdle(uiPatienceMs), VtStatus_OK);
    ASSERT_EQ(VtSim_RemoveDevice(0), VtStatus_OK);
    ASSERT_TRUE(Await([&] { return !oBoard.Records().empty(); }));
    EXPECT_EQ(oBoard.Records().back().eResult, EWaitResult::GONE);
    EXPECT_TRUE(Await([&] { return VtSim_GetOpenHandleCount() == 0; }));
}

TEST(StreamThread, TriesAgainWhereAHandleIsRefused)
{
    CWatchedBoard oBoard(std::string(szGranted) +
                         "[[fault]]\noperation = \"VtVideoIn_GetHandle\"\nstatus = \"VtStatus_RESOURCES_BUSY\"\n");
    ASSERT_TRUE(Await([&] { return !oBoard.Records().empty(); }));
    EXPECT_EQ(oBoard.Records()[0].eResult, EWaitResult::GONE);
    ASSERT_EQ(VtSim_Grant(oInput, 1), VtStatus_OK);
    ASSERT_TRUE(Await([&] { return oBoard.Records().back().eResult == EWaitResult::FIELD; }));
    EXPECT_EQ(oBoard.Records().size(), 2U); // one try per second, not a flood
}

TEST(StreamThread, TriesNoFasterWhereEveryWaitFailsAtOnce)
{
    CWatchedBoard oBoard(
        std::string(szGranted) +
        "[[fault]]\noperation = \"VtVideoIn_WaitForFieldStart\"\nstatus = \"VtStatus_FAIL\"\ntimes = 0\n");
    ASSERT_TRUE(Await([&] { return oBoard.Records().size() >= 3; }));
    const std::vector<SFieldRecord>& raoRecords = oBoard.Records();
    for (size_t uiRecord = 0; uiRecord < 3; ++uiRecord)
    {
        EXPECT_EQ(raoRecords[uiRecord].eResult, EWaitResult::GONE);
    }
    EXPECT_GE(raoRecords[2].uiArrivalNs - raoRecords[0].uiArrivalNs, 1'900'000'000U);
}

TEST(BoardSession, RefusesWhatCannotBeWatched)
{
    const std::pair<const char*, const char*> aoCases[] = {
        {"[[fault]]\noperation = \"Veltrano_GetDevice\"\nstatus = \"VtStatus_FAIL\"\n", "has no chip 0"},
        {"[[fault]]\noperation = \"VtBoard_GetTickReferenceFrequency\"\nstatus = \"VtStatus_FAIL\"\n", "frequency"},
        {"[[fault]]\noperation = \"VtVideoOut_GetCount\"\nstatus = \"VtStatus_FAIL\"\n", "count its outputs"},
    };
    for (const auto& [szFaulty, szSays] : aoCases)
    {
        ASSERT_EQ(VtSim_SetScenario((std::string(szGranted) + szFaulty).c_str(), nullptr, 0), VtStatus_OK);
        CBoardSession oSession;
        const std::string szFault = oSession.Open({}).GetText();
        EXPECT_NE(szFault.find(szSays), std::string::npos) << szFaulty << szFault;
        EXPECT_TRUE(oSession.Stop(0));
    }
}
