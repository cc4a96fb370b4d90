// Promises of the device: loading, connectors, custom calls, names and the debug channel.
#include "DeviceChecks.h"

#include <array>
#include <cstring>
#include <optional>

namespace
{

void OneHandle(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiChip)
{
    roFindings.Expect(Veltrano_GetDevice(uiChip) == hDev,
                      "Veltrano_GetDevice() gave another handle at its second call");
    roFindings.Expect(Veltrano_GetDevice(UINT32_MAX) == nullptr, "there is a chip of index 4294967295");
    roFindings.Expect(Veltrano_GetDevice(uiChip == 0 ? 1 : 0) != hDev, "another chip has the same handle");
    const uint64_t uiVersion = Veltrano_Version();
    roFindings.Expect(Veltrano_Version() == uiVersion, "Veltrano_Version() changes from call to call");
    Veltrano_UnLoad();
    uint32_t uiCount = 0;
    roFindings.Expect(Veltrano_GetDevice(uiChip) == nullptr, "there is a device after Veltrano_UnLoad()");
    roFindings.ExpectStatus(VtVideoIn_GetCount(hDev, &uiCount), VtStatus_INVALID_PARAM,
                            "VtVideoIn_GetCount() with a handle from before Veltrano_UnLoad()");
    Veltrano_LoadLite();
    roFindings.Expect(Veltrano_GetDevice(uiChip) != nullptr, "the device is gone after loading a second time");
}

void Frequency(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    uint32_t uiFreqHz = 0;
    uint32_t uiAgainHz = 0;
    roFindings.ExpectStatus(VtBoard_GetTickReferenceFrequency(hDev, &uiFreqHz), VtStatus_OK,
                            "VtBoard_GetTickReferenceFrequency()");
    roFindings.ExpectStatus(VtBoard_GetTickReferenceFrequency(hDev, &uiAgainHz), VtStatus_OK,
                            "VtBoard_GetTickReferenceFrequency(), called again,");
    roFindings.Expect(uiFreqHz > 0 && uiFreqHz == uiAgainHz, "the frequency was %u Hz, then %u Hz", uiFreqHz,
                      uiAgainHz);
    roFindings.Expect(uiFreqHz == 0 || uiFreqHz >= 1'000'000,
                      "the ticks are of %u Hz: a tick is the grain of every phase, and 1 MHz the least", uiFreqHz);
    roFindings.ExpectStatus(VtBoard_GetTickReferenceFrequency(hDev, nullptr), VtStatus_INVALID_PARAM,
                            "VtBoard_GetTickReferenceFrequency() without an output");
}

void Counts(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const auto Check = [&](VtStatus (*fnCount)(VtDevice_Handle, uint32_t*), const std::string& rszCall)
    {
        uint32_t uiCount = 0;
        roFindings.ExpectStatus(fnCount(hDev, &uiCount), VtStatus_OK, rszCall);
        roFindings.Expect(uiCount <= 32, "%s says %u, more than 32", rszCall.c_str(), uiCount);
        roFindings.ExpectStatus(fnCount(nullptr, &uiCount), VtStatus_INVALID_PARAM, rszCall + " of a null device");
        roFindings.ExpectStatus(fnCount(hDev, nullptr), VtStatus_INVALID_PARAM, rszCall + " without an output");
    };
    Check(VtVideoIn_GetCount, "VtVideoIn_GetCount()");
    Check(VtVideoOut_GetCount, "VtVideoOut_GetCount()");
}

void Connector(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiConnector)
{
    const std::string szCall = "VtBoard_GetConnectorInfo() of connector " + std::to_string(uiConnector);
    uint32_t uiInputs = 0;
    uint32_t uiOutputs = 0;
    roFindings.ExpectStatus(VtVideoIn_GetCount(hDev, &uiInputs), VtStatus_OK, "VtVideoIn_GetCount()");
    roFindings.ExpectStatus(VtVideoOut_GetCount(hDev, &uiOutputs), VtStatus_OK, "VtVideoOut_GetCount()");
    VtBoard_ConnectorInfo oInfo;
    std::memset(&oInfo, 0xEE, sizeof(oInfo));
    oInfo.uiSize = sizeof(oInfo) - 4;
    roFindings.ExpectStatus(VtBoard_GetConnectorInfo(hDev, uiConnector, &oInfo), VtStatus_INVALID_PARAM,
                            szCall + " with a wrong uiSize");
    roFindings.Expect(oInfo.uiFpgaPortIndex == 0xEEEEEEEEU, "%s with a wrong uiSize writes all the same",
                      szCall.c_str());
    oInfo.uiSize = sizeof(oInfo);
    if (!roFindings.ExpectStatus(VtBoard_GetConnectorInfo(hDev, uiConnector, &oInfo), VtStatus_OK, szCall))
    {
        return;
    }
    roFindings.Expect(oInfo.uiSize == sizeof(oInfo), "%s changes uiSize to %u", szCall.c_str(), oInfo.uiSize);
    roFindings.Expect(std::memchr(oInfo.szName, '\0', sizeof(oInfo.szName)) != nullptr,
                      "the name of connector %u is not terminated", uiConnector);
    roFindings.Expect(oInfo.bVideoInput == 0 || oInfo.uiVideoInIndex < uiInputs,
                      "connector %u belongs to input %u, and there are %u", uiConnector, oInfo.uiVideoInIndex,
                      uiInputs);
    roFindings.Expect(oInfo.bVideoOutput == 0 || oInfo.uiVideoOutIndex < uiOutputs,
                      "connector %u belongs to output %u, and there are %u", uiConnector, oInfo.uiVideoOutIndex,
                      uiOutputs);
}

void Connectors(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    uint32_t uiConnectors = 0;
    roFindings.ExpectStatus(VtBoard_GetConnectorCount(hDev, &uiConnectors), VtStatus_OK, "VtBoard_GetConnectorCount()");
    for (uint32_t uiConnector = 0; uiConnector < uiConnectors; ++uiConnector)
    {
        Connector(roFindings, hDev, uiConnector);
    }
    VtBoard_ConnectorInfo oInfo{};
    oInfo.uiSize = sizeof(oInfo);
    roFindings.ExpectStatus(VtBoard_GetConnectorInfo(hDev, uiConnectors, &oInfo), VtStatus_INVALID_PARAM,
                            "VtBoard_GetConnectorInfo() beyond the last connector");
    roFindings.ExpectStatus(VtBoard_GetConnectorInfo(nullptr, 0, &oInfo), VtStatus_INVALID_PARAM,
                            "VtBoard_GetConnectorInfo() of a null device");
    roFindings.ExpectStatus(VtBoard_GetConnectorInfo(hDev, 0, nullptr), VtStatus_INVALID_PARAM,
                            "VtBoard_GetConnectorInfo() without an output");
    roFindings.ExpectStatus(VtBoard_GetConnectorCount(hDev, nullptr), VtStatus_INVALID_PARAM,
                            "VtBoard_GetConnectorCount() without an output");
}

void SkipCount(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiInput)
{
    constexpr uint32_t uiSkip = VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT;
    const std::string szCall = "GET_CAPTURE_SKIP_BUFFER_COUNT of input " + std::to_string(uiInput);
    VtBoard_CaptureSkipBufferCountIn oIn{uiInput};
    VtBoard_CaptureSkipBufferCountOut oOut{};
    VtBoard_CaptureSkipBufferCountOut oLater{};
    const auto Call = [&](void* pvIn, uint32_t uiInSize, void* pvOut, uint32_t uiOutSize)
    { return VtBoard_CustomCall(hDev, uiSkip, pvIn, uiInSize, pvOut, uiOutSize); };
    roFindings.ExpectStatus(Call(&oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_OK, szCall);
    roFindings.ExpectStatus(Call(&oIn, sizeof(oIn), &oLater, sizeof(oLater)), VtStatus_OK, szCall + ", called again,");
    roFindings.Expect(oLater.uiSkipBuffCnt >= oOut.uiSkipBuffCnt, "the count of skipped buffers of input %u goes back",
                      uiInput);
    roFindings.ExpectStatus(Call(nullptr, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_INVALID_PARAM,
                            szCall + " without an input block");
    roFindings.ExpectStatus(Call(&oIn, sizeof(oIn), nullptr, sizeof(oOut)), VtStatus_INVALID_PARAM,
                            szCall + " without an output block");
    roFindings.ExpectStatus(Call(&oIn, 3, &oOut, sizeof(oOut)), VtStatus_INVALID_PARAM,
                            szCall + " with an input block of 3 bytes");
    roFindings.ExpectStatus(Call(&oIn, sizeof(oIn), &oOut, 8), VtStatus_INVALID_PARAM,
                            szCall + " with an output block of 8 bytes");
    roFindings.ExpectStatus(VtBoard_CustomCall(nullptr, uiSkip, &oIn, sizeof(oIn), &oOut, sizeof(oOut)),
                            VtStatus_INVALID_PARAM, szCall + " of a null device");
}

void CustomCalls(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    uint32_t uiInputs = 0;
    roFindings.ExpectStatus(VtVideoIn_GetCount(hDev, &uiInputs), VtStatus_OK, "VtVideoIn_GetCount()");
    for (uint32_t uiInput = 0; uiInput < uiInputs; ++uiInput)
    {
        SkipCount(roFindings, hDev, uiInput);
    }
    VtBoard_CaptureSkipBufferCountIn oIn{uiInputs};
    VtBoard_CaptureSkipBufferCountOut oOut{};
    roFindings.ExpectStatus(VtBoard_CustomCall(hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT, &oIn,
                                               sizeof(oIn), &oOut, sizeof(oOut)),
                            VtStatus_INVALID_PARAM, "GET_CAPTURE_SKIP_BUFFER_COUNT beyond the last input");
    roFindings.ExpectStatus(VtBoard_CustomCall(hDev, 0xFFFF, &oIn, sizeof(oIn), &oOut, sizeof(oOut)),
                            VtStatus_UNSUPPORTED, "VtBoard_CustomCall() of the unknown number 65535");
}

// A clock that a board may have: the same whenever it is asked for. Nothing when it has none, or does not tell.
template <typename TClock>
std::optional<TClock> AskClock(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiCall, const std::string& rszCall)
{
    TClock oFirst{};
    TClock oAgain{};
    const VtStatus eStatus = VtBoard_CustomCall(hDev, uiCall, nullptr, 0, &oFirst, sizeof(oFirst));
    if (eStatus == VtStatus_UNSUPPORTED)
    {
        return std::nullopt;
    }
    roFindings.ExpectStatus(eStatus, VtStatus_OK, rszCall);
    roFindings.ExpectStatus(VtBoard_CustomCall(hDev, uiCall, nullptr, 0, &oAgain, sizeof(oAgain)), VtStatus_OK,
                            rszCall + ", called again,");
    roFindings.Expect(std::memcmp(&oFirst, &oAgain, sizeof(oFirst)) == 0,
                      "%s answers another clock or offset at its second call", rszCall.c_str());
    roFindings.ExpectStatus(VtBoard_CustomCall(hDev, uiCall, nullptr, 0, nullptr, sizeof(oFirst)),
                            VtStatus_INVALID_PARAM, rszCall + " without an output block");
    return oFirst;
}

// A board whose ticks follow no clock of the machine does not know the call.
void TickClock(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const auto oClock =
        AskClock<VtBoard_TickClockOut>(roFindings, hDev, VtBoard_CustomCallId_GET_TICK_CLOCK, "GET_TICK_CLOCK");
    roFindings.Expect(!oClock || oClock->uiClockId == VtBoard_ClockId_MONOTONIC,
                      "GET_TICK_CLOCK names the clock %u, which is none", oClock ? oClock->uiClockId : 0);
}

// The other chips are asked too, for a clock is shared with one of them.
void SharedClock(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiChip)
{
    constexpr uint32_t uiSharedClock = VtBoard_CustomCallId_GET_SHARED_CLOCK;
    const auto oClock = AskClock<VtBoard_SharedClockOut>(roFindings, hDev, uiSharedClock, "GET_SHARED_CLOCK");
    if (!oClock)
    {
        return;
    }
    roFindings.Expect(oClock->uiClockId != 0, "GET_SHARED_CLOCK names the clock 0, and they count from 1");
    VtBoard_SharedClockOut oOther{};
    bool bShared = false;
    for (uint32_t uiOther = 0; uiOther < 64; ++uiOther)
    {
        VtDevice_Handle hOther = uiOther == uiChip ? nullptr : Veltrano_GetDevice(uiOther);
        bShared =
            bShared || (hOther != nullptr &&
                        VtBoard_CustomCall(hOther, uiSharedClock, nullptr, 0, &oOther, sizeof(oOther)) == VtStatus_OK &&
                        oOther.uiClockId == oClock->uiClockId);
    }
    roFindings.Expect(bShared, "GET_SHARED_CLOCK names the clock %u, which no other chip has", oClock->uiClockId);
}

// A board whose counters of set buffers are exact need not know the call.
void SetBufferKind(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    constexpr uint32_t uiSetBufferKind = VtBoard_CustomCallId_GET_SET_BUFFER_KIND;
    VtBoard_SetBufferKindOut oOut{};
    const VtStatus eStatus = VtBoard_CustomCall(hDev, uiSetBufferKind, nullptr, 0, &oOut, sizeof(oOut));
    if (eStatus == VtStatus_UNSUPPORTED)
    {
        return;
    }
    roFindings.ExpectStatus(eStatus, VtStatus_OK, "GET_SET_BUFFER_KIND");
    roFindings.Expect(oOut.uiKind <= VtBoard_SetBufferKind_ESTIMATED,
                      "GET_SET_BUFFER_KIND names the kind %u, which is none", oOut.uiKind);
    roFindings.ExpectStatus(VtBoard_CustomCall(hDev, uiSetBufferKind, nullptr, 0, nullptr, sizeof(oOut)),
                            VtStatus_INVALID_PARAM, "GET_SET_BUFFER_KIND without an output block");
}

void PixelFormatNames(CFindings& roFindings, VtDevice_Handle, uint32_t)
{
    std::array<char, VtTextSize_PIXEL_FORMAT_NAME> szName{};
    const auto Check = [&](VtPixelFormat eFormat, const char* szExpected)
    {
        const std::string szCall = "VtPixelFormat_GetName() of " + std::to_string(eFormat);
        roFindings.ExpectStatus(VtPixelFormat_GetName(eFormat, szName.data()), VtStatus_OK, szCall);
        szName.back() = '\0';
        roFindings.Expect(std::strcmp(szName.data(), szExpected) == 0, "%s gives \"%s\", not \"%s\"", szCall.c_str(),
                          szName.data(), szExpected);
    };
    Check(VtPixelFormat_XRGB8888, "VtPixelFormat_XRGB8888");
    Check(VtPixelFormat_UNKOWN, "VtPixelFormat_UNKOWN");
    Check(static_cast<VtPixelFormat>(9999), "VtPixelFormat_UNKOWN");
    Check(VtPixelFormat_FORCE32, "VtPixelFormat_UNKOWN");
    Check(static_cast<VtPixelFormat>(0x80000001U), "VtPixelFormat_UNKOWN");
    roFindings.ExpectStatus(VtPixelFormat_GetName(VtPixelFormat_RGB565, nullptr), VtStatus_INVALID_PARAM,
                            "VtPixelFormat_GetName() without an output");
}

void DebugChannel(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const std::string szLong(size_t{3} * VtTextSize_DEBUG_MSG, 'x');
    roFindings.ExpectStatus(VtDebug_WriteMsg(hDev, "veltrano-conformance: data, never a format: %n%s"), VtStatus_OK,
                            "VtDebug_WriteMsg() of a text with percent signs");
    roFindings.ExpectStatus(VtDebug_WriteMsg(hDev, szLong.c_str()), VtStatus_OK,
                            "VtDebug_WriteMsg() of a text that is too long");
    roFindings.ExpectStatus(VtDebug_WriteMsg(hDev, nullptr), VtStatus_INVALID_PARAM, "VtDebug_WriteMsg() of no text");
    roFindings.ExpectStatus(VtDebug_WriteMsg(nullptr, "text"), VtStatus_INVALID_PARAM,
                            "VtDebug_WriteMsg() of a null device");
}

} // namespace

std::span<const SCheck> DeviceChecks()
{
    static constexpr std::array aoChecks = {
        SCheck{"a chip has one handle; it ends with unloading, and loading again brings the chip back", OneHandle},
        SCheck{"the frequency of the ticks is known, steady and at least 1 MHz", Frequency},
        SCheck{"inputs and outputs are counted, at most 32 of each", Counts},
        SCheck{"connectors have terminated names and belong to streams that there are", Connectors},
        SCheck{"custom calls check number, blocks and sizes; the count of skipped buffers never goes back",
               CustomCalls},
        SCheck{"the clock that the ticks follow is one that there is, and stays, or the call is unsupported",
               TickClock},
        SCheck{"a clock that the chip shares is one of another chip too, and stays, or the call is unsupported",
               SharedClock},
        SCheck{"set buffers are counted in a way that there is, or the call is unsupported", SetBufferKind},
        SCheck{"pixel formats have their names, unknown ones too", PixelFormatNames},
        SCheck{"the debug channel takes any text and never as a format", DebugChannel},
    };
    return aoChecks;
}
