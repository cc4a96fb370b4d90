// Handles in every state of misuse. Threads that open, wait and release side by side are in the contract.
#include <thread>

#include "BoardTest.h"

namespace
{

class Handles : public CBoardTest
{
};

} // namespace

// What is no handle at all is the table's matter, what is released that of the contract.
TEST_F(Handles, OfAnotherKindOrFromBeforeUnloadingAreRefused)
{
    LoadPair("connector = 'A'");
    for (void* hBad : {static_cast<void*>(m_hOut), static_cast<void*>(m_hDev)})
    {
        EXPECT_EQ(Wait(static_cast<VtVideoIn_Handle>(hBad)).eStatus, VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtVideoIn_ReleaseHandle(static_cast<VtVideoIn_Handle>(hBad)), VtStatus_INVALID_PARAM);
    }
    EXPECT_EQ(Wait(reinterpret_cast<VtVideoOut_Handle>(m_hIn)).eStatus, VtStatus_INVALID_PARAM);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK);
    Veltrano_UnLoad();
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, "x"), VtStatus_INVALID_PARAM);
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
