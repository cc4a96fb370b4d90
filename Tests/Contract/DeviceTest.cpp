// The contract of loading, devices, connectors, custom calls, names and the debug channel.
#include "ContractTest.h"

#include <array>
#include <string>

namespace
{

class Device : public CContractTest
{
};

} // namespace

TEST_F(Device, IsOneHandleUntilUnloading)
{
    EXPECT_EQ(Veltrano_GetDevice(0), m_hDev);
    EXPECT_EQ(Veltrano_GetDevice(UINT32_MAX), nullptr);
    EXPECT_EQ(Veltrano_Version(), Veltrano_Version());
    Veltrano_UnLoad();
    uint32_t uiCount = 0;
    EXPECT_EQ(Veltrano_GetDevice(0), nullptr);
    EXPECT_EQ(VtVideoIn_GetCount(m_hDev, &uiCount), VtStatus_INVALID_PARAM);
    Veltrano_LoadLite();
    EXPECT_NE(Veltrano_GetDevice(0), nullptr);
}

TEST_F(Device, CountsAndFrequencyAreSteady)
{
    uint32_t uiFreqHz = 0;
    uint32_t uiAgain = 1;
    EXPECT_EQ(VtBoard_GetTickReferenceFrequency(m_hDev, &uiFreqHz), VtStatus_OK);
    EXPECT_EQ(VtBoard_GetTickReferenceFrequency(m_hDev, &uiAgain), VtStatus_OK);
    EXPECT_GT(uiFreqHz, 0U);
    EXPECT_EQ(uiFreqHz, uiAgain);
    for (const auto fnCount : {VtVideoIn_GetCount, VtVideoOut_GetCount})
    {
        uint32_t uiCount = 0;
        EXPECT_EQ(fnCount(m_hDev, &uiCount), VtStatus_OK);
        EXPECT_LE(uiCount, 32U);
        EXPECT_EQ(fnCount(nullptr, &uiCount), VtStatus_INVALID_PARAM);
        EXPECT_EQ(fnCount(m_hDev, nullptr), VtStatus_INVALID_PARAM);
    }
    EXPECT_EQ(VtBoard_GetTickReferenceFrequency(m_hDev, nullptr), VtStatus_INVALID_PARAM);
}

TEST_F(Device, ConnectorsAreNamedAndBounded)
{
    uint32_t uiConnectors = 0;
    uint32_t uiInputs = 0;
    uint32_t uiOutputs = 0;
    ASSERT_EQ(VtBoard_GetConnectorCount(m_hDev, &uiConnectors), VtStatus_OK);
    ASSERT_EQ(VtVideoIn_GetCount(m_hDev, &uiInputs), VtStatus_OK);
    ASSERT_EQ(VtVideoOut_GetCount(m_hDev, &uiOutputs), VtStatus_OK);
    for (uint32_t uiConnector = 0; uiConnector <= uiConnectors; ++uiConnector)
    {
        SCOPED_TRACE(uiConnector);
        VtBoard_ConnectorInfo oInfo;
        std::memset(&oInfo, 0xEE, sizeof(oInfo));
        oInfo.uiSize = sizeof(oInfo) - 4;
        EXPECT_EQ(VtBoard_GetConnectorInfo(m_hDev, uiConnector, &oInfo), VtStatus_INVALID_PARAM);
        EXPECT_EQ(oInfo.uiFpgaPortIndex, 0xEEEEEEEEU);
        oInfo.uiSize = sizeof(oInfo);
        if (uiConnector == uiConnectors)
        {
            EXPECT_EQ(VtBoard_GetConnectorInfo(m_hDev, uiConnector, &oInfo), VtStatus_INVALID_PARAM);
            break;
        }
        ASSERT_EQ(VtBoard_GetConnectorInfo(m_hDev, uiConnector, &oInfo), VtStatus_OK);
        EXPECT_EQ(oInfo.uiSize, sizeof(oInfo));
        EXPECT_NE(std::memchr(oInfo.szName, '\0', sizeof(oInfo.szName)), nullptr);
        EXPECT_TRUE(oInfo.bVideoInput == 0 || oInfo.uiVideoInIndex < uiInputs);
        EXPECT_TRUE(oInfo.bVideoOutput == 0 || oInfo.uiVideoOutIndex < uiOutputs);
    }
    VtBoard_ConnectorInfo oInfo{};
    oInfo.uiSize = sizeof(oInfo);
    EXPECT_EQ(VtBoard_GetConnectorInfo(nullptr, 0, &oInfo), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtBoard_GetConnectorInfo(m_hDev, 0, nullptr), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtBoard_GetConnectorCount(m_hDev, nullptr), VtStatus_INVALID_PARAM);
}

TEST_F(Device, CustomCallsCheckTheirBlocks)
{
    constexpr uint32_t uiSkip = VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT;
    uint32_t uiInputs = 0;
    ASSERT_EQ(VtVideoIn_GetCount(m_hDev, &uiInputs), VtStatus_OK);
    VtBoard_CaptureSkipBufferCountIn oIn{uiInputs};
    VtBoard_CaptureSkipBufferCountOut oOut{};
    EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtBoard_CustomCall(m_hDev, 0xFFFF, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_UNSUPPORTED);
    for (oIn.uiCaptureIndex = 0; oIn.uiCaptureIndex < uiInputs; ++oIn.uiCaptureIndex)
    {
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_OK);
        VtBoard_CaptureSkipBufferCountOut oLater{};
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, sizeof(oIn), &oLater, sizeof(oLater)), VtStatus_OK);
        EXPECT_GE(oLater.uiSkipBuffCnt, oOut.uiSkipBuffCnt);
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, nullptr, sizeof(oIn), &oOut, sizeof(oOut)),
                  VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, sizeof(oIn), nullptr, sizeof(oOut)), VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, 3, &oOut, sizeof(oOut)), VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, uiSkip, &oIn, sizeof(oIn), &oOut, 8), VtStatus_INVALID_PARAM);
        EXPECT_EQ(VtBoard_CustomCall(nullptr, uiSkip, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_INVALID_PARAM);
    }
}

TEST_F(Device, NamesPixelFormatsAndTakesDebugTexts)
{
    std::array<char, VtTextSize_PIXEL_FORMAT_NAME> szName{};
    EXPECT_EQ(VtPixelFormat_GetName(VtPixelFormat_XRGB8888, szName.data()), VtStatus_OK);
    EXPECT_STREQ(szName.data(), "VtPixelFormat_XRGB8888");
    for (const VtPixelFormat eUnknown : {VtPixelFormat_UNKOWN, static_cast<VtPixelFormat>(9999), VtPixelFormat_FORCE32,
                                         static_cast<VtPixelFormat>(0x80000001u)})
    {
        EXPECT_EQ(VtPixelFormat_GetName(eUnknown, szName.data()), VtStatus_OK);
        EXPECT_STREQ(szName.data(), "VtPixelFormat_UNKOWN");
    }
    EXPECT_EQ(VtPixelFormat_GetName(VtPixelFormat_RGB565, nullptr), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, "data, never a format: %n%s"), VtStatus_OK);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, std::string(3 * VtTextSize_DEBUG_MSG, 'x').c_str()), VtStatus_OK);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, nullptr), VtStatus_INVALID_PARAM);
    EXPECT_EQ(VtDebug_WriteMsg(nullptr, "text"), VtStatus_INVALID_PARAM);
}
