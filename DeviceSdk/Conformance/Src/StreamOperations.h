// Inputs and outputs as two descriptions of the same operations, so that what both must do is checked by one text.
#ifndef STREAM_OPERATIONS_H
#define STREAM_OPERATIONS_H

#include <string>
#include <utility>
#include <vector>

#include "Sdk.h"

// What a wait delivered. Ticks of the chip's counter; counters as the interface counts.
struct SWaited
{
    VtStatus eStatus = VtStatus_FAIL;
    uint64_t uiField = 0;
    uint64_t uiSet = 0;
    uint64_t uiTicks = 0;
    VtBool bTop = 0;
};

// A call as a maker would write it, and how it was answered.
using SAnswer = std::pair<const char*, VtStatus>;

struct SInputs
{
    using THandle = VtVideoIn_Handle;
    static constexpr const char* msc_szPrefix = "IN_";
    static constexpr const char* msc_szGetCount = "VtVideoIn_GetCount()";
    static constexpr const char* msc_szOpen = "VtVideoIn_GetHandle()";
    static constexpr const char* msc_szRelease = "VtVideoIn_ReleaseHandle()";
    static constexpr const char* msc_szParam = "VtVideoIn_GetDetectedVideoParameters()";
    static constexpr const char* msc_szWait = "VtVideoIn_WaitForFieldStart()";
    static VtStatus GetCount(VtDevice_Handle hDev, uint32_t& ruiCount) { return VtVideoIn_GetCount(hDev, &ruiCount); }
    static VtStatus Open(VtDevice_Handle hDev, uint32_t uiIndex, THandle* ph)
    {
        return VtVideoIn_GetHandle(hDev, uiIndex, VtAccessMode_READONLY, ph);
    }
    static VtStatus Release(THandle h) { return VtVideoIn_ReleaseHandle(h); }
    static VtStatus Param(THandle h, VtVideo_VidParam& ro) { return VtVideoIn_GetDetectedVideoParameters(h, &ro); }
    static VtStatus Wait(THandle h, uint32_t uiTimeOutMs, SWaited& ro)
    {
        return VtVideoIn_WaitForFieldStart(h, uiTimeOutMs, &ro.uiField, &ro.uiTicks, &ro.bTop);
    }
    static std::vector<SAnswer> CallWithNulls(THandle h)
    {
        uint32_t ui = 0;
        uint64_t u = 0;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {
            {"VtVideoIn_WaitForFieldStart() without a field counter",
             VtVideoIn_WaitForFieldStart(h, 0, nullptr, &u, &ui)},
            {"VtVideoIn_WaitForFieldStart() without a stamp", VtVideoIn_WaitForFieldStart(h, 0, &u, nullptr, &ui)},
            {"VtVideoIn_WaitForFieldStart() without a top-field flag",
             VtVideoIn_WaitForFieldStart(h, 0, &u, &u, nullptr)},
            {"VtVideoIn_GetDetectedVideoParameters() without an output",
             VtVideoIn_GetDetectedVideoParameters(h, nullptr)},
            {"VtVideoIn_GetCaptureState() without a state", VtVideoIn_GetCaptureState(h, nullptr, &ui, &ui, &ui, &ui)},
            {"VtVideoIn_GetBufferAttributes() without a number of buffers",
             VtVideoIn_GetBufferAttributes(h, &ui, &ui, &eFormat, nullptr)}};
    }
    static std::vector<SAnswer> CallAll(THandle h)
    {
        SWaited o;
        uint32_t ui = 0;
        VtVideo_VidParam oParam{};
        VtVideoIn_State eState = VtVideoIn_State_INVALID;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {{msc_szWait, Wait(h, 0, o)},
                {msc_szParam, Param(h, oParam)},
                {"VtVideoIn_GetCaptureState()", VtVideoIn_GetCaptureState(h, &eState, &ui, &ui, &ui, &ui)},
                {"VtVideoIn_GetBufferAttributes()", VtVideoIn_GetBufferAttributes(h, &ui, &ui, &eFormat, &ui)},
                {msc_szRelease, Release(h)}};
    }
};

struct SOutputs
{
    using THandle = VtVideoOut_Handle;
    static constexpr const char* msc_szPrefix = "OUT_";
    static constexpr const char* msc_szGetCount = "VtVideoOut_GetCount()";
    static constexpr const char* msc_szOpen = "VtVideoOut_GetHandle()";
    static constexpr const char* msc_szRelease = "VtVideoOut_ReleaseHandle()";
    static constexpr const char* msc_szParam = "VtVideoOut_GetVideoParameters()";
    static constexpr const char* msc_szWait = "VtVideoOut_WaitForFieldStart()";
    static VtStatus GetCount(VtDevice_Handle hDev, uint32_t& ruiCount) { return VtVideoOut_GetCount(hDev, &ruiCount); }
    static VtStatus Open(VtDevice_Handle hDev, uint32_t uiIndex, THandle* ph)
    {
        return VtVideoOut_GetHandle(hDev, uiIndex, VtAccessMode_READONLY, ph);
    }
    static VtStatus Release(THandle h) { return VtVideoOut_ReleaseHandle(h); }
    static VtStatus Param(THandle h, VtVideo_VidParam& ro) { return VtVideoOut_GetVideoParameters(h, &ro); }
    static VtStatus Wait(THandle h, uint32_t uiTimeOutMs, SWaited& ro)
    {
        return VtVideoOut_WaitForFieldStart(h, uiTimeOutMs, &ro.uiField, &ro.uiSet, &ro.uiTicks, &ro.bTop);
    }
    static std::vector<SAnswer> CallWithNulls(THandle h)
    {
        uint32_t ui = 0;
        uint64_t u = 0;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {{"VtVideoOut_WaitForFieldStart() without a field counter",
                 VtVideoOut_WaitForFieldStart(h, 0, nullptr, &u, &u, &ui)},
                {"VtVideoOut_WaitForFieldStart() without a set-buffer counter",
                 VtVideoOut_WaitForFieldStart(h, 0, &u, nullptr, &u, &ui)},
                {"VtVideoOut_WaitForFieldStart() without a stamp",
                 VtVideoOut_WaitForFieldStart(h, 0, &u, &u, nullptr, &ui)},
                {"VtVideoOut_GetVideoParameters() without an output", VtVideoOut_GetVideoParameters(h, nullptr)},
                {"VtVideoOut_GetBufferAttributes() without an identifier",
                 VtVideoOut_GetBufferAttributes(h, &eFormat, &ui, &ui, nullptr)},
                {"VtVideoOut_GetPowerState() without an output", VtVideoOut_GetPowerState(h, nullptr)}};
    }
    static std::vector<SAnswer> CallAll(THandle h)
    {
        SWaited o;
        uint32_t ui = 0;
        VtVideo_VidParam oParam{};
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_OFF;
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        return {{msc_szWait, Wait(h, 0, o)},
                {msc_szParam, Param(h, oParam)},
                {"VtVideoOut_GetBufferAttributes()", VtVideoOut_GetBufferAttributes(h, &eFormat, &ui, &ui, &o.uiSet)},
                {"VtVideoOut_GetPowerState()", VtVideoOut_GetPowerState(h, &ePower)},
                {msc_szRelease, Release(h)}};
    }
};

#endif
