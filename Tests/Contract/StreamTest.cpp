// The contract of video inputs and outputs. What both must do is written once, over two descriptions of the operations.
//
// Times are those of the board's stamps; of the machine's own clock nothing is asked but that a wait ends at all.
#include "ContractTest.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

struct SWaited
{
    VtStatus eStatus = VtStatus_FAIL;
    uint64_t uiField = 0;
    uint64_t uiSet = 0;
    uint64_t uiTicks = 0;
    VtBool bTop = 0;
};

struct SInputs
{
    using THandle = VtVideoIn_Handle;
    static constexpr auto fnCount = VtVideoIn_GetCount;
    static constexpr auto fnOpen = VtVideoIn_GetHandle;
    static constexpr auto fnRelease = VtVideoIn_ReleaseHandle;
    static constexpr auto fnParam = VtVideoIn_GetDetectedVideoParameters;
    static VtStatus Wait(THandle h, uint32_t uiTimeOutMs, SWaited& ro)
    {
        return VtVideoIn_WaitForFieldStart(h, uiTimeOutMs, &ro.uiField, &ro.uiTicks, &ro.bTop);
    }
    static std::vector<VtStatus> CallWithNulls(THandle h)
    {
        uint32_t ui = 0;
        uint64_t u = 0;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {VtVideoIn_WaitForFieldStart(h, 0, nullptr, &u, &ui),
                VtVideoIn_WaitForFieldStart(h, 0, &u, nullptr, &ui),
                VtVideoIn_WaitForFieldStart(h, 0, &u, &u, nullptr),
                VtVideoIn_GetDetectedVideoParameters(h, nullptr),
                VtVideoIn_GetCaptureState(h, nullptr, &ui, &ui, &ui, &ui),
                VtVideoIn_GetBufferAttributes(h, &ui, &ui, &eFormat, nullptr)};
    }
    static std::vector<VtStatus> CallAll(THandle h)
    {
        SWaited o;
        uint32_t ui = 0;
        VtVideo_VidParam oParam{};
        VtVideoIn_State eState = VtVideoIn_State_INVALID;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {Wait(h, 0, o), fnParam(h, &oParam), VtVideoIn_GetCaptureState(h, &eState, &ui, &ui, &ui, &ui),
                VtVideoIn_GetBufferAttributes(h, &ui, &ui, &eFormat, &ui), fnRelease(h)};
    }
};

struct SOutputs
{
    using THandle = VtVideoOut_Handle;
    static constexpr auto fnCount = VtVideoOut_GetCount;
    static constexpr auto fnOpen = VtVideoOut_GetHandle;
    static constexpr auto fnRelease = VtVideoOut_ReleaseHandle;
    static constexpr auto fnParam = VtVideoOut_GetVideoParameters;
    static VtStatus Wait(THandle h, uint32_t uiTimeOutMs, SWaited& ro)
    {
        return VtVideoOut_WaitForFieldStart(h, uiTimeOutMs, &ro.uiField, &ro.uiSet, &ro.uiTicks, &ro.bTop);
    }
    static std::vector<VtStatus> CallWithNulls(THandle h)
    {
        uint32_t ui = 0;
        uint64_t u = 0;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {VtVideoOut_WaitForFieldStart(h, 0, nullptr, &u, &u, &ui),
                VtVideoOut_WaitForFieldStart(h, 0, &u, nullptr, &u, &ui),
                VtVideoOut_WaitForFieldStart(h, 0, &u, &u, nullptr, &ui),
                VtVideoOut_GetVideoParameters(h, nullptr),
                VtVideoOut_GetBufferAttributes(h, &eFormat, &ui, &ui, nullptr),
                VtVideoOut_GetPowerState(h, nullptr)};
    }
    static std::vector<VtStatus> CallAll(THandle h)
    {
        SWaited o;
        uint32_t ui = 0;
        VtVideo_VidParam oParam{};
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_OFF;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {Wait(h, 0, o), fnParam(h, &oParam), VtVideoOut_GetBufferAttributes(h, &eFormat, &ui, &ui, &o.uiSet),
                VtVideoOut_GetPowerState(h, &ePower), fnRelease(h)};
    }
};

// Fields that one wait after the other delivered.
template <typename TStreams>
std::vector<SWaited> Watch(typename TStreams::THandle h, size_t uiFields, std::chrono::milliseconds oAtMost)
{
    std::vector<SWaited> aoFields;
    for (const auto oEnd = Clock::now() + oAtMost; aoFields.size() < uiFields && Clock::now() < oEnd;)
    {
        SWaited oWaited;
        oWaited.eStatus = TStreams::Wait(h, 50, oWaited);
        if (oWaited.eStatus == VtStatus_OK)
        {
            aoFields.push_back(oWaited);
            continue;
        }
        EXPECT_TRUE(oWaited.eStatus == VtStatus_TIMEOUT || oWaited.eStatus == VtStatus_CANCELED) << oWaited.eStatus;
        if (oWaited.eStatus == VtStatus_CANCELED)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // as a caller would: it may come back at once
        }
    }
    return aoFields;
}

void ExpectToAdvance(const std::vector<SWaited>& raoFields)
{
    for (size_t uiField = 1; uiField < raoFields.size(); ++uiField)
    {
        EXPECT_GT(raoFields[uiField].uiField, raoFields[uiField - 1].uiField);
        EXPECT_GE(raoFields[uiField].uiTicks, raoFields[uiField - 1].uiTicks);
        EXPECT_GE(raoFields[uiField].uiSet, raoFields[uiField - 1].uiSet);
        EXPECT_LE(raoFields[uiField].bTop, 1U);
    }
}

template <typename TStreams> class Streams : public CContractTest
{
public:
    using THandle = typename TStreams::THandle;

    // Opens every stream that may be watched; the test is skipped when there is none.
    void SetUp() override
    {
        CContractTest::SetUp();
        uint32_t uiCount = 0;
        if (m_hDev == nullptr || TStreams::fnCount(m_hDev, &uiCount) != VtStatus_OK)
        {
            return;
        }
        for (uint32_t uiIndex = 0; uiIndex < uiCount; ++uiIndex)
        {
            THandle h = nullptr;
            const VtStatus eStatus = TStreams::fnOpen(m_hDev, uiIndex, VtAccessMode_READONLY, &h);
            EXPECT_TRUE(eStatus == VtStatus_OK || eStatus == VtStatus_RESOURCES_BUSY ||
                        eStatus == VtStatus_ACCESS_DENIED);
            EXPECT_EQ(h != nullptr, eStatus == VtStatus_OK);
            if (h != nullptr)
            {
                m_ahStreams.push_back(h);
                m_auiIndices.push_back(uiIndex);
            }
        }
        if (m_ahStreams.empty())
        {
            GTEST_SKIP() << "this board has no such stream that may be watched";
        }
    }
    void TearDown() override
    {
        for (const THandle h : m_ahStreams)
        {
            EXPECT_EQ(TStreams::fnRelease(h), VtStatus_OK);
        }
        CContractTest::TearDown();
    }

    std::vector<THandle> m_ahStreams;
    std::vector<uint32_t> m_auiIndices;
};

using TBothDirections = testing::Types<SInputs, SOutputs>;
TYPED_TEST_SUITE(Streams, TBothDirections);

} // namespace

TYPED_TEST(Streams, BadHandlesAndNullOutputsAreRefused)
{
    using TBad = typename TypeParam::THandle;
    uint32_t uiCount = 0;
    ASSERT_EQ(TypeParam::fnCount(this->m_hDev, &uiCount), VtStatus_OK);
    TBad h = this->m_ahStreams[0];
    EXPECT_EQ(TypeParam::fnOpen(this->m_hDev, uiCount, VtAccessMode_READONLY, &h), VtStatus_INVALID_PARAM);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(TypeParam::fnOpen(this->m_hDev, 0, VtAccessMode_READONLY, nullptr), VtStatus_INVALID_PARAM);
    EXPECT_EQ(TypeParam::fnOpen(nullptr, 0, VtAccessMode_READONLY, &h), VtStatus_INVALID_PARAM);
    for (const VtStatus eStatus : TypeParam::CallWithNulls(this->m_ahStreams[0]))
    {
        EXPECT_EQ(eStatus, VtStatus_INVALID_PARAM);
    }
    ASSERT_EQ(TypeParam::fnOpen(this->m_hDev, this->m_auiIndices[0], VtAccessMode_READONLY, &h), VtStatus_OK);
    const TBad hReleased = h;
    EXPECT_EQ(TypeParam::fnRelease(h), VtStatus_OK);
    for (const TBad hBad : {hReleased, TBad{nullptr}})
    {
        for (const VtStatus eStatus : TypeParam::CallAll(hBad))
        {
            EXPECT_EQ(eStatus, VtStatus_INVALID_PARAM);
        }
    }
}

TYPED_TEST(Streams, CountersAndStampsAdvanceTogether)
{
    uint32_t uiFreqHz = 0;
    ASSERT_EQ(VtBoard_GetTickReferenceFrequency(this->m_hDev, &uiFreqHz), VtStatus_OK);
    for (const auto h : this->m_ahStreams)
    {
        VtVideo_VidParam oBefore{};
        VtVideo_VidParam oAfter{};
        EXPECT_EQ(TypeParam::fnParam(h, &oBefore), VtStatus_OK);
        const std::vector<SWaited> aoFields = Watch<TypeParam>(h, 25, std::chrono::milliseconds(1000));
        EXPECT_EQ(TypeParam::fnParam(h, &oAfter), VtStatus_OK);
        ExpectToAdvance(aoFields);
        if (aoFields.size() < 25 || std::memcmp(&oBefore, &oAfter, sizeof(oBefore)) != 0 || oBefore.uiVRate_Hz == 0)
        {
            continue; // no steady signal to measure
        }
        const double flFields = static_cast<double>(aoFields.back().uiField - aoFields.front().uiField) / 16.0;
        const double flSeconds = static_cast<double>(aoFields.back().uiTicks - aoFields.front().uiTicks) / uiFreqHz;
        EXPECT_NEAR(flFields / flSeconds / oBefore.uiVRate_Hz, 1.0, 0.1);
        EXPECT_TRUE(oBefore.bInterlaced != 0 ||
                    std::ranges::none_of(aoFields, [](const SWaited& ro) { return ro.bTop != 0; }));
    }
}

// A time-out is neither early (a millisecond is the grain of its unit) nor beyond what any machine takes.
TYPED_TEST(Streams, TimeOutsAreHonoured)
{
    for (const auto h : this->m_ahStreams)
    {
        for (const uint32_t uiTimeOutMs : {0U, 2U, 50U})
        {
            for (int iWait = 0; iWait < 5; ++iWait)
            {
                SWaited oWaited;
                const auto oStart = Clock::now();
                const VtStatus eStatus = TypeParam::Wait(h, uiTimeOutMs, oWaited);
                const auto iMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - oStart).count();
                EXPECT_LT(iMs, 2000);
                if (eStatus == VtStatus_TIMEOUT)
                {
                    EXPECT_GE(iMs + 1, uiTimeOutMs);
                    EXPECT_EQ(oWaited.uiField | oWaited.uiTicks, 0U); // outputs are left alone
                }
            }
        }
    }
}

// Who is cancelled finds no timings, unless the signal is back by then.
TYPED_TEST(Streams, CancelledWaitsMeanNoSignal)
{
    for (const auto h : this->m_ahStreams)
    {
        int iContradictions = 0;
        int iCancelled = 0;
        for (const auto oEnd = Clock::now() + std::chrono::milliseconds(600); Clock::now() < oEnd;)
        {
            SWaited oWaited;
            if (TypeParam::Wait(h, 50, oWaited) == VtStatus_CANCELED)
            {
                VtVideo_VidParam oParam{};
                ASSERT_EQ(TypeParam::fnParam(h, &oParam), VtStatus_OK);
                EXPECT_EQ(oWaited.uiTicks, 0U);
                ++iCancelled;
                iContradictions += oParam.uiHActive != 0 || oParam.uiVActive != 0 ? 1 : 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
        EXPECT_LE(iContradictions, (iCancelled + 9) / 10);
    }
}

TYPED_TEST(Streams, ThreadsWatchAllStreamsWhileHandlesComeAndGo)
{
    std::atomic<bool> bStop{false};
    std::vector<std::thread> aoThreads;
    for (const auto h : this->m_ahStreams)
    {
        aoThreads.emplace_back([h] { ExpectToAdvance(Watch<TypeParam>(h, 20, std::chrono::milliseconds(1000))); });
    }
    aoThreads.emplace_back(
        [this, &bStop]
        {
            while (!bStop.load())
            {
                typename TypeParam::THandle h = nullptr;
                if (TypeParam::fnOpen(this->m_hDev, this->m_auiIndices[0], VtAccessMode_READONLY, &h) == VtStatus_OK)
                {
                    ExpectToAdvance(Watch<TypeParam>(h, 2, std::chrono::milliseconds(50)));
                    EXPECT_EQ(TypeParam::fnRelease(h), VtStatus_OK);
                }
            }
        });
    for (size_t uiThread = 0; uiThread + 1 < aoThreads.size(); ++uiThread)
    {
        aoThreads[uiThread].join();
    }
    bStop.store(true);
    aoThreads.back().join();
}

using VideoIn = Streams<SInputs>;
using VideoOut = Streams<SOutputs>;

TEST_F(VideoIn, BuffersAddUp)
{
    for (const VtVideoIn_Handle h : m_ahStreams)
    {
        VtVideoIn_State eState = VtVideoIn_State_INVALID;
        std::array<uint32_t, 4> aui{};
        VtPixelFormat eFormat = VtPixelFormat_FORCE32;
        EXPECT_EQ(VtVideoIn_GetCaptureState(h, &eState, &aui[0], &aui[1], &aui[2], &aui[3]), VtStatus_OK);
        EXPECT_TRUE(eState <= VtVideoIn_State_STARTED || eState == VtVideoIn_State_STOPPED);
        EXPECT_LE(uint64_t{aui[1]} + aui[2] + aui[3], aui[0]);
        EXPECT_EQ(VtVideoIn_GetBufferAttributes(h, &aui[0], &aui[1], &eFormat, &aui[2]), VtStatus_OK);
        EXPECT_NE(eFormat, VtPixelFormat_FORCE32);
    }
}

TEST_F(VideoOut, PowerStateIsOneOfItsValues)
{
    for (const VtVideoOut_Handle h : m_ahStreams)
    {
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_FORCE32;
        EXPECT_EQ(VtVideoOut_GetPowerState(h, &ePower), VtStatus_OK);
        EXPECT_TRUE(ePower == 0 || ((ePower & (ePower - 1)) == 0 && ePower <= VtVideoOut_PowerState_OFF));
    }
}
