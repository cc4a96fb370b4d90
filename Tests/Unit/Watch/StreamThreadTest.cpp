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
buffers = 9
ready = 2
loan = 3
field_counter_start = "0xFFFFFFFFFFFFFFE0"
[[chip.output]]
connector = "SDI B"
standard = "1080p60"
power_state = "BLANKED"
set_buffer_start = 70
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
        return *oSession.GetChips().front()->GetChannels()[static_cast<size_t>(eDirection)][0];
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

constexpr uint64_t uiRunDelayNs = 77; // whenever the kernel's account is read

} // namespace

extern "C" uint64_t __wrap__ZN9CRunDelay12ReadGrowthNsEv(void* pvRunDelay);
extern "C" uint64_t __wrap__ZN9CRunDelay12ReadGrowthNsEv(void* /*pvRunDelay*/)
{
    return uiRunDelayNs;
}

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
        EXPECT_TRUE(raoRecords[uiField].bHasBuffers && raoRecords[uiField].bHasSkippedBuffers);
        EXPECT_EQ(std::tuple(raoRecords[uiField].uiReadyBuffers, raoRecords[uiField].uiLoanedBuffers,
                             raoRecords[uiField].uiInternalBuffers, raoRecords[uiField].uiSkippedBuffers),
                  std::tuple(2, 3, 4, 5U));
        EXPECT_TRUE(uiField == 0 || raoRecords[uiField - 1].uiArrivalNs <= raoRecords[uiField].uiWaitBeginNs);
    }
    SDescriptionRecord oDescription = {};
    oBoard.Channel(EStreamDirection::INPUT)
        .oDescriptions.Drain([&](const SDescriptionRecord& roRecord) { oDescription = roRecord; });
    EXPECT_NE(std::string(oDescription.szName).find("SDI A"), std::string::npos);
    EXPECT_STREQ(oDescription.szFormat, "VtPixelFormat_YUV422_UYVY");
    EXPECT_EQ(oDescription.oDescription.uiSkippedBuffers, 5U);
    EXPECT_EQ(oDescription.oDescription.oTimings.uiHActive, 1920U);
    EXPECT_EQ(std::tuple(oDescription.oDescription.uiNbOfBuffer, oDescription.oDescription.uiReadyBufferCount,
                         oDescription.oDescription.uiLoanBufferCount, oDescription.oDescription.uiWidth,
                         oDescription.oDescription.uiHeight, oDescription.oDescription.eCaptureState),
              std::tuple(9U, 2U, 3U, 1920U, 1080U, VtVideoIn_State_STARTED));
    ASSERT_EQ(VtSim_Grant({0, VtSim_Direction_OUTPUT, 0}, 2), VtStatus_OK);
    std::vector<SFieldRecord> aoOutput;
    SStreamChannel& roOutput = oBoard.Channel(EStreamDirection::OUTPUT);
    ASSERT_TRUE(Await(
        [&] {
            return roOutput.oFields.Drain([&](const SFieldRecord& ro) { aoOutput.push_back(ro); }),
                   aoOutput.size() == 2;
        }));
    EXPECT_EQ(std::tuple(aoOutput[1].uiSetBufferCounter, aoOutput[1].uiFieldCounter, aoOutput[1].bHasBuffers),
              std::tuple(72U, 16U, false));
    roOutput.oDescriptions.Drain([&](const SDescriptionRecord& roRecord) { oDescription = roRecord; });
    EXPECT_EQ(std::tuple(oDescription.oDescription.ePowerState, oDescription.oDescription.uiWidth,
                         oDescription.oDescription.uiHeight),
              std::tuple(VtVideoOut_PowerState_BLANKED, 1920U, 1080U));
}

// For fields behind a gap, for those that came late, and once a second with the description: no other field pays.
TEST(StreamThread, ReadsTheKernelsAccountForWhatMayHaveToBeExplained)
{
    CWatchedBoard oBoard(
        "[time]\nmode = 'granted'\nhold = true\n[[chip]]\n[[chip.input]]\n"
        "timing = { h_active = 100, v_active = 100, pixel_clock_hz = 2_000 }\n"
        "event = [{ kind = 'missed_field', at_field = 4 }, { kind = 'counter_jump', at_field = 8, jump = 5 }]");
    ASSERT_EQ(VtSim_AwaitAllIdle(uiPatienceMs), VtStatus_OK);
    ASSERT_EQ(VtSim_Grant(oInput, 12), VtStatus_OK);
    ASSERT_TRUE(
        Await([&] { return std::ranges::count(oBoard.Records(), EWaitResult::FIELD, &SFieldRecord::eResult) >= 10; }));
    uint64_t uiDescribedNs = 0;
    SFieldRecord oLast = {};
    for (const SFieldRecord& ro : oBoard.Records())
    {
        const bool bDescribes = uiDescribedNs == 0 || ro.uiArrivalNs >= uiDescribedNs + 1'000'000'000;
        uiDescribedNs = bDescribes ? ro.uiArrivalNs : uiDescribedNs;
        const bool bIsGap = ro.uiFieldCounter - oLast.uiFieldCounter != 16;
        const bool bIsLate = ro.uiArrivalNs - oLast.uiArrivalNs > 5'000'500'000; // 5 s a field
        const bool bIsRead = bDescribes || (ro.eResult == EWaitResult::FIELD && (bIsGap || bIsLate));
        EXPECT_EQ(ro.uiRunDelayNs, bIsRead ? uiRunDelayNs : 0U) << ro.uiFieldCounter;
        oLast = ro.eResult == EWaitResult::FIELD ? ro : oLast;
    }
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
