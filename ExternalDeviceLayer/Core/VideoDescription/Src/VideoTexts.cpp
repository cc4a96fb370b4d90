#include "VideoTexts.h"

#include <cstdio>
#include <span>

#include "BoardText.h"
#include "KrvTools.h"

namespace
{

template <typename EValue> struct SValueText
{
    EValue eValue;
    const char* szText;
};

// The doubled prefix of the lost connection, and the critical end of stream under the same text, are kept.
constexpr SValueText<VtStatus> aoStatusTexts[] = {
    {VtStatus_CRITICAL_END_OF_STREAM, "VtStatus_VtStatus_CONNECTION_LOST"},
    {VtStatus_STREAM_NOT_INITIALIZED, "VtStatus_STREAM_NOT_INITIALIZED"},
    {VtStatus_INCOMPLETE_COMMAND, "VtStatus_INCOMPLETE_COMMAND"},
    {VtStatus_REORDERED_SEQUENCE_PENDING, "VtStatus_REORDERED_SEQUENCE_PENDING"},
    {VtStatus_END_OF_STREAM, "VtStatus_END_OF_STREAM"},
    {VtStatus_INFO_NOT_AVAILABLE, "VtStatus_INFO_NOT_AVAILABLE"},
    {VtStatus_CONNECTION_LOST, "VtStatus_VtStatus_CONNECTION_LOST"},
    {VtStatus_COMMAND_PENDING, "VtStatus_COMMAND_PENDING"},
    {VtStatus_CANCELED, "VtStatus_CANCELED"},
    {VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL, "VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL"},
    {VtStatus_UNSUPPORTED, "VtStatus_UNSUPPORTED"},
    {VtStatus_ACCESS_DENIED, "VtStatus_ACCESS_DENIED"},
    {VtStatus_RESOURCES_BUSY, "VtStatus_RESOURCES_BUSY"},
    {VtStatus_OUT_OF_RESOURCES, "VtStatus_OUT_OF_RESOURCES"},
    {VtStatus_OUT_OF_MEMORY, "VtStatus_OUT_OF_MEMORY"},
    {VtStatus_NO_MORE_DATA, "VtStatus_NO_MORE_DATA"},
    {VtStatus_TIMEOUT, "VtStatus_TIMEOUT"},
    {VtStatus_INVALID_PARAM, "VtStatus_INVALID_PARAM"},
    {VtStatus_FAIL, "VtStatus_FAIL"},
    {VtStatus_OK, "VtStatus_OK"},
    {VtStatus_NOT_OPTIMAL, "VtStatus_NOT_OPTIMAL"},
    {VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE, "VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE"},
    {VtStatus_OK_MISSING_FIRST_SPS, "VtStatus_OK_MISSING_FIRST_SPS"},
    {VtStatus_OK_STREAM_NOT_LOWLATENCY, "VtStatus_OK_STREAM_NOT_LOWLATENCY"},
};

constexpr SValueText<VtVideoIn_State> aoVideoInStateTexts[] = {
    {VtVideoIn_State_INVALID, "VtVideoIn_State_INVALID"},
    {VtVideoIn_State_NOT_INITIALIZED, "VtVideoIn_State_NOT_INITIALIZED"},
    {VtVideoIn_State_STARTED, "VtVideoIn_State_STARTED"},
    {VtVideoIn_State_STOPPED, "VtVideoIn_State_STOPPED"},
    {VtVideoIn_State_FORCE32, "VtVideoIn_State_FORCE32"},
};

constexpr SValueText<VtVideoOut_PowerState> aoPowerStateTexts[] = {
    {VtVideoOut_PowerState_DISABLED, "PowerState_DISABLED"}, {VtVideoOut_PowerState_ON, "PowerState_ON"},
    {VtVideoOut_PowerState_BLANKED, "PowerState_BLANKED"},   {VtVideoOut_PowerState_STANDBY, "PowerState_STANDBY"},
    {VtVideoOut_PowerState_SUSPEND, "PowerState_SUSPEND"},   {VtVideoOut_PowerState_OFF, "PowerState_OFF"},
};

template <typename EValue>
const char* FindText(std::span<const SValueText<EValue>> aoTexts, EValue eValue, const char* szUnknown)
{
    for (const SValueText<EValue>& roText : aoTexts)
    {
        if (roText.eValue == eValue)
        {
            return roText.szText;
        }
    }
    return szUnknown;
}

} // namespace

void FormatVideoParam(const VtVideo_VidParam* poVideoParam, Bool32 bExtended, VTSTR256& szVideoParam)
{
    KrvTools_memset(szVideoParam, 0, sizeof(szVideoParam));
    if (poVideoParam == nullptr)
    {
        KrvTools_strcpy_s(szVideoParam, sizeof(szVideoParam), "Invalid timings");
        return;
    }
    if (poVideoParam->uiHActive == 0 || poVideoParam->uiVActive == 0)
    {
        KrvTools_strcpy_s(szVideoParam, sizeof(szVideoParam), "No timings detected");
        return;
    }
    VTSTR64 szBasic = {};
    std::snprintf(szBasic, sizeof(szBasic), "%4d x %4d%s @%3d Hz", LowInt(poVideoParam->uiHActive),
                  LowInt(poVideoParam->uiVActive), poVideoParam->bInterlaced ? "i" : "p",
                  LowInt(poVideoParam->uiVRate_Hz));
    VTSTR64 szExtended = {};
    if (bExtended)
    {
        std::snprintf(szExtended, sizeof(szExtended), " %6d KHz, %3d, %3d, %3d, %3d, %3d, %3d (%s/%s)",
                      LowInt(poVideoParam->uiPixelClock_kHz), LowInt(poVideoParam->uiHFPorch),
                      LowInt(poVideoParam->uiHSync), LowInt(poVideoParam->uiHBPorch), LowInt(poVideoParam->uiVFPorch),
                      LowInt(poVideoParam->uiVSync), LowInt(poVideoParam->uiVBPorch),
                      poVideoParam->bHorizontalSyncPositive ? "+" : "-",
                      poVideoParam->bVerticalSyncPositive ? "+" : "-");
    }
    VTSTR64 szColour = {};
    std::snprintf(szColour, sizeof(szColour), " (%s)", poVideoParam->bIsYuv ? "YUV" : "RGB");
    std::snprintf(szVideoParam, sizeof(szVideoParam), "%s%s%s", szBasic, szExtended, szColour);
}

const char* VtStatusToString(VtStatus eStatus)
{
    return FindText<VtStatus>(aoStatusTexts, eStatus, "Unknown");
}

const char* VtVideoInStateToString(VtVideoIn_State eState)
{
    return FindText<VtVideoIn_State>(aoVideoInStateTexts, eState, "Unknown VtVideoIn_State");
}

const char* PowerStateToString(VtVideoOut_PowerState eStatus)
{
    return FindText<VtVideoOut_PowerState>(aoPowerStateTexts, eStatus, "Unknown");
}

void GetPixelFormatString(VtPixelFormat ePixelFormat, VTSTR64& szPixelFormat)
{
    // The interface promises 64 characters; a board that writes more must not reach what stands behind them.
    VTSTR256 szName = {};
    KrvTools_strcpy_s(szName, sizeof(szName), szPixelFormat);
    static_cast<void>(VtPixelFormat_GetName(ePixelFormat, szName));
    CopyBoardText(szName, szPixelFormat);
}
