// How time goes on: stepped and granted time, late callers, the truth file.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "BoardTest.h"

namespace
{

class StreamTime : public CBoardTest
{
public:
    static constexpr const char* msc_szGranted = "[time]\nmode = 'granted'\nhold = true\n";

    static uint64_t GetPosition(VtSim_Stream oStream)
    {
        uint64_t uiPosition = 0;
        EXPECT_EQ(VtSim_GetPosition(oStream, &uiPosition), VtStatus_OK);
        return uiPosition;
    }
};

} // namespace

TEST_F(StreamTime, SteppedStreamsAreIndependentAndAgreeWithTheTruth)
{
    LoadPair("jitter_ticks = 20\nfield_counter_start = 1000", "ppm = 20\nset_buffer_pattern = [2, 0]");
    for (uint64_t uiField = 0; uiField < 200; ++uiField)
    {
        const SWaited oIn = Wait(m_hIn);
        const VtSim_Field oTruth = GetTruth(msc_oInput, uiField);
        EXPECT_EQ(oIn.uiTicks, oTruth.uiTickRefCounter);
        EXPECT_EQ(oIn.uiField, oTruth.uiFieldCounter);
        EXPECT_LE(oIn.uiTicks > oTruth.uiExactTicks ? oIn.uiTicks - oTruth.uiExactTicks
                                                    : oTruth.uiExactTicks - oIn.uiTicks,
                  81U); // four sigma
    }
    EXPECT_EQ(GetPosition(msc_oInput), 200U);
    EXPECT_EQ(GetPosition(msc_oOutput), 0U);
    EXPECT_EQ(Wait(m_hOut).uiSet, GetTruth(msc_oOutput, 0).uiSetBufferCounter);
    VtSim_Field oField{};
    EXPECT_EQ(VtSim_GetField(msc_oInput, uint64_t{1} << 40, &oField), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtSim_GetField({0, VtSim_Direction_INPUT, 1}, 0, &oField), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtSim_Grant(msc_oInput, 1), VtStatus_UNSUPPORTED);
    VtBoard_TickClockOut oClock{};
    EXPECT_EQ(VtBoard_CustomCall(m_hDev, VtBoard_CustomCallId_GET_TICK_CLOCK, nullptr, 0, &oClock, sizeof(oClock)),
              VtStatus_UNSUPPORTED);
}

TEST_F(StreamTime, ALateCallerGetsTheNewestFieldOnce)
{
    LoadPair("event = [{ kind = 'signal_loss', at_field = 20, for_fields = 5 },"
             "{ kind = 'missed_field', at_field = 40, for_fields = 2 }]");
    EXPECT_EQ(Wait(m_hIn).uiField, 0U);
    EXPECT_EQ(VtSim_StepOver(msc_oInput, 9), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 9);
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 10);
    EXPECT_EQ(VtSim_StepOver(msc_oInput, 10), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_CANCELED); // field 20
    EXPECT_EQ(VtSim_StepOver(msc_oInput, 21), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 39); // 40 and 41 are never reported
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 42);
    // Another handle begins here, and each sees what the other made happen.
    const VtVideoIn_Handle hOther = OpenIn();
    EXPECT_EQ(Wait(hOther).uiField, 16U * 43);
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 43);
    EXPECT_EQ(Wait(m_hIn).uiField, 16U * 44);
}

TEST_F(StreamTime, GrantsDriveARealThread)
{
    LoadPair("event = [{ kind = 'signal_loss', at_field = 5, for_fields = 2 }]", "", msc_szGranted);
    std::atomic<bool> bStop{false};
    std::vector<SWaited> aoWaited; // the thread's, read while it is known to wait
    EXPECT_EQ(VtSim_GrantTimeOuts(msc_oInput, 1) + VtSim_GrantTimeOuts(msc_oInput, 1), VtStatus_OK); // for later
    std::thread oThread(
        [&]
        {
            while (!bStop.load())
            {
                aoWaited.push_back(Wait(m_hIn, 1));
            }
        });
    EXPECT_EQ(VtSim_AwaitIdle(msc_oInput, msc_uiTestTimeOutMs), VtStatus_OK);
    EXPECT_EQ(aoWaited.size(), 2U); // holds far beyond its time-out, but for those that were granted
    aoWaited.clear();
    EXPECT_EQ(VtSim_Grant(msc_oInput, 4), VtStatus_OK);
    EXPECT_EQ(VtSim_AwaitIdle(msc_oInput, msc_uiTestTimeOutMs), VtStatus_OK);
    ASSERT_EQ(aoWaited.size(), 4U);
    EXPECT_EQ(aoWaited[3].uiField, 48U);
    EXPECT_EQ(VtSim_GrantTimeOuts(msc_oInput, 2), VtStatus_OK);
    EXPECT_EQ(VtSim_Grant(msc_oInput, 4), VtStatus_OK); // a field, two cancelled waits, a field
    EXPECT_EQ(VtSim_AwaitIdle(msc_oInput, msc_uiTestTimeOutMs), VtStatus_OK);
    ASSERT_EQ(aoWaited.size(), 10U);
    EXPECT_EQ(aoWaited[9].uiField, 16U * 7);
    const VtSim_WaitCounts oCounts = GetCounts(msc_oInput);
    EXPECT_EQ(oCounts.uiEntered, 13U);
    EXPECT_EQ(oCounts.uiOk, 6U);
    EXPECT_EQ(oCounts.uiCanceled, 2U);
    EXPECT_EQ(oCounts.uiTimedOut, 4U);
    bStop.store(true);
    EXPECT_EQ(VtSim_GrantTimeOuts(msc_oInput, 1), VtStatus_OK);
    oThread.join();
    EXPECT_EQ(VtSim_AwaitIdle(msc_oInput, 0), VtStatus_TIMEOUT);
    EXPECT_EQ(VtSim_AwaitIdle({3, VtSim_Direction_INPUT, 0}, 0), VtStatus_INVALID_PARAM);
}

TEST_F(StreamTime, WithoutHoldAWaitWithoutAGrantTimesOut)
{
    LoadPair("", "", "[time]\nmode = 'granted'\n");
    EXPECT_EQ(Wait(m_hIn, 1).eStatus, VtStatus_TIMEOUT);
    EXPECT_EQ(VtSim_GrantAll(1), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn, 1).eStatus, VtStatus_OK);
    EXPECT_EQ(GetPosition(msc_oOutput), 0U);
    EXPECT_EQ(Wait(m_hOut, 1).eStatus, VtStatus_OK);
    EXPECT_EQ(VtSim_AwaitEntered(msc_oOutput, 1, 0), VtStatus_OK);
    EXPECT_EQ(VtSim_AwaitEntered(msc_oOutput, 2, 0), VtStatus_TIMEOUT);
}

// Read while the board runs: nothing is left to be written at its end.
TEST_F(StreamTime, TruthInDetailTellsWhatQueriesSayAndWhereEventsEnd)
{
    const std::string szFile =
        (std::filesystem::temp_directory_path() / ("detail-" + std::to_string(getpid()) + ".csv")).string();
    LoadPair(
        "event = [{ kind = 'slow_consumer', at_field = 0, for_fields = 2 }, { kind = 'hang', ms = 1, at_field = 0 }]"
        "\nbuffers = 4\nloan = 2",
        "event = [{ kind = 'buffers_run_out', at_field = 1 }]",
        "[time]\nmode = 'stepped'\n[truth]\nfile = '" + szFile + "'\ndetail = true\n");
    EXPECT_EQ(WaitTimes(m_hIn, 3).eStatus, VtStatus_OK);
    EXPECT_EQ(WaitTimes(m_hOut, 3).eStatus, VtStatus_OK);
    std::ifstream oFile(szFile);
    std::string szText; // without what rows have in any case
    for (std::string szRow; std::getline(oFile, szRow); szText += '\n')
    {
        szText += szRow.substr(std::min(szRow.find("event"), szRow.find("delivered")));
    }
    EXPECT_EQ(szText, "event,top,set_buffer_counter,ready,loaned,skipped\n"
                      "delivered+slow_consumer+hang,0,,2,2,0\n"
                      "delivered,0,,2,2,1\n"
                      "delivered-slow_consumer,0,,1,2,1\n"
                      "delivered,0,1,,,\n"
                      "delivered+buffers_run_out,0,1,,,\n"
                      "delivered-buffers_run_out,0,2,,,\n");
    std::filesystem::remove(szFile);
}

TEST_F(StreamTime, TruthFileHasARowForEveryFieldAtOnceUntilTheDiskIsFull)
{
    const std::string szFile =
        (std::filesystem::temp_directory_path() / ("truth-" + std::to_string(getpid()) + ".csv")).string();
    LoadPair(
        "event = [{ kind = 'signal_loss', at_field = 2 , for_fields = 1 }, { kind = 'missed_field', at_field = 3 },"
        "{ kind = 'phase_step', at_field = 4, step_ticks = 1 }]",
        "", "[time]\nmode = 'stepped'\n[truth]\nfile = '" + szFile + "'\n");
    EXPECT_EQ(WaitTimes(m_hIn, 4).eStatus, VtStatus_OK);
    EXPECT_EQ(VtSim_StepOver(msc_oInput, 2), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK);
    EXPECT_EQ(Wait(OpenIn()).eStatus, VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK); // the same field, and its row has been written
    EXPECT_EQ(Wait(m_hOut).eStatus, VtStatus_OK);
    std::ifstream oFile(szFile);
    std::ostringstream oText;
    oText << oFile.rdbuf();
    EXPECT_EQ(oText.str(), "chip,direction,index,field,exact_ticks,stamp,field_counter,event\n"
                           "0,in,0,0,100000000.000000,100000000,0,delivered\n"
                           "0,in,0,1,101666666.666667,101666667,16,delivered\n"
                           "0,in,0,2,103333333.333333,103333333,32,lost+signal_loss\n"
                           "0,in,0,3,105000000.000000,105000000,48,missed+missed_field\n"
                           "0,in,0,4,106666667.666667,106666668,64,delivered+phase_step\n"
                           "0,in,0,5,108333334.333333,108333334,80,unseen\n"
                           "0,in,0,6,110000001.000000,110000001,96,delivered\n"
                           "0,in,0,7,111666667.666667,111666668,112,delivered\n"
                           "0,out,0,0,100000000.000000,100000000,0,delivered\n");
    EXPECT_EQ(VtSim_StepOver(msc_oInput, 5000), VtStatus_OK);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK);
    std::ifstream oLong(szFile);
    uint64_t uiRows = 0;
    std::string szLast;
    for (std::string szRow; std::getline(oLong, szRow); ++uiRows)
    {
        szLast = szRow;
    }
    EXPECT_GT(uiRows, 5000U);
    EXPECT_TRUE(szLast.starts_with("0,in,0," + std::to_string(uiRows - 3) + ","))
        << "beside two, and from 0: " << szLast;
    rlimit oUnlimited{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &oUnlimited), 0);
    const rlimit oFull{std::filesystem::file_size(szFile) + 10, oUnlimited.rlim_max};
    const auto pfnBefore = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &oFull), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(WaitTimes(m_hIn, 3).eStatus, VtStatus_OK);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &oUnlimited), 0);
    (void)std::signal(SIGXFSZ, pfnBefore);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), szFile + ":1: cannot be written any more: File too large\n");
    std::filesystem::remove(szFile);
}
