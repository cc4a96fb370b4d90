// Handles in every state of misuse. Threads that open, wait and release side by side are in the contract.
#include <thread>

#include "BoardTest.h"

namespace
{

class Handles : public CBoardTest
{
};

template <typename THandle> THandle Forge(uint64_t uiValue)
{
    return reinterpret_cast<THandle>(uiValue);
}

} // namespace

TEST_F(Handles, NullStaleAndForeignOnesAreRefused)
{
    LoadPair("connector = 'A'");
    const VtVideoIn_Handle hStale = OpenIn();
    EXPECT_EQ(VtVideoIn_ReleaseHandle(hStale), VtStatus_OK);
    const VtVideoIn_Handle hReused = OpenIn();
    EXPECT_NE(hStale, hReused);
    int iOther = 0;
    const auto uiIn = reinterpret_cast<uint64_t>(m_hIn);
    for (const VtVideoIn_Handle hBad :
         {VtVideoIn_Handle{nullptr}, hStale, Forge<VtVideoIn_Handle>(reinterpret_cast<uint64_t>(m_hOut)),
          Forge<VtVideoIn_Handle>(reinterpret_cast<uint64_t>(m_hDev)),
          Forge<VtVideoIn_Handle>(reinterpret_cast<uint64_t>(&iOther)), Forge<VtVideoIn_Handle>(uiIn + 4),
          Forge<VtVideoIn_Handle>(uiIn | 0x3FFC), Forge<VtVideoIn_Handle>(~uint64_t{0})})
    {
        SCOPED_TRACE(testing::Message() << hBad);
        EXPECT_EQ(Wait(hBad).eStatus, VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtVideoIn_ReleaseHandle(hBad), VtStatus_INVALID_PARAM);
    }
    EXPECT_EQ(Wait(Forge<VtVideoOut_Handle>(uiIn)).eStatus, VtStatus_INVALID_PARAM);
    EXPECT_EQ(Wait(hReused).eStatus, VtStatus_OK);
    Veltrano_UnLoad();
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, "x"), VtStatus_INVALID_PARAM);
    EXPECT_EQ(Veltrano_GetDevice(0), nullptr);
}

TEST_F(Handles, OneWriterBesideReadersAndAnEndToAll)
{
    LoadPair("");
    VtVideoIn_Handle hFirst = nullptr;
    VtVideoIn_Handle hSecond = m_hIn;
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READWRITE, &hFirst), VtStatus_OK);
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READWRITE, &hSecond), VtStatus_RESOURCES_BUSY);
    EXPECT_EQ(hSecond, nullptr);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(hFirst), VtStatus_OK);
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READWRITE, &hFirst), VtStatus_OK);
    VtStatus eStatus = VtStatus_OK;
    uint32_t uiOpen = VtSim_GetOpenHandleCount();
    for (; eStatus == VtStatus_OK && uiOpen < 100'000; ++uiOpen)
    {
        eStatus = VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READONLY, &hSecond);
    }
    EXPECT_EQ(eStatus, VtStatus_OUT_OF_RESOURCES);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(hFirst), VtStatus_OK);
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READONLY, &hSecond), VtStatus_OK);
    VtVideoOut_Handle hWriter = nullptr; // that finds no room leaves its place to the next
    EXPECT_EQ(VtVideoOut_GetHandle(m_hDev, 0, VtAccessMode_READWRITE, &hWriter), VtStatus_OUT_OF_RESOURCES);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(hSecond), VtStatus_OK);
    EXPECT_EQ(VtVideoOut_GetHandle(m_hDev, 0, VtAccessMode_READWRITE, &hWriter), VtStatus_OK);
}

// Not allowed to callers, yet it may not crash: the wait ends when its handle, or the whole board, goes.
TEST_F(Handles, ReleasingAndUnloadingEndWaitsInProgress)
{
    for (const char* szTime : {"[time]\nmode = 'granted'\nhold = true\n", ""})
    {
        for (const bool bUnload : {false, true})
        {
            LoadPair("phase_us = 1e9", "", szTime);
            VtStatus eStatus = VtStatus_OK;
            std::thread oThread([&] { eStatus = Wait(m_hIn, 600'000).eStatus; });
            while (GetCounts(msc_oInput).uiEntered == 0)
            {
                std::this_thread::yield();
            }
            bUnload ? Veltrano_UnLoad() : static_cast<void>(VtVideoIn_ReleaseHandle(m_hIn));
            oThread.join();
            EXPECT_EQ(eStatus, VtStatus_INVALID_PARAM);
            Veltrano_UnLoad();
        }
    }
}
