/*
 * Entry of the interface: loading, the chip, the debug channel.
 */
#include "SdkExport.h"

#include <cstdio>
#include <syslog.h>

#include "Linux/Board.h"
#include "PixelFormatTable.h"

void Veltrano_LoadLite(void)
{
    CBoard::Get().Load();
}

uint64_t Veltrano_Version(void)
{
    constexpr uint64_t uiMajor = 1;
    constexpr uint64_t uiMinor = 0;
    return uiMajor << 48 | uiMinor << 32;
}

VtDevice_Handle Veltrano_GetDevice(uint32_t uiChipIndex)
{
    return uiChipIndex == 0 ? CBoard::Get().OpenChip() : nullptr;
}

void Veltrano_UnLoad(void)
{
    CBoard::Get().Unload();
}

VtStatus VtDebug_WriteMsg(VtDevice_Handle hDev, const char* szMsg)
{
    if (CBoard::Get().EnterChip(hDev) == nullptr || szMsg == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    // The system's log: standard error shares the terminal with the tool's screen.
    syslog(LOG_USER | LOG_DEBUG, "%.*s", VtTextSize_DEBUG_MSG - 1, szMsg);
    return VtStatus_OK;
}

VtStatus VtPixelFormat_GetName(VtPixelFormat ePixelFormat, char* szName)
{
    if (szName == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    std::snprintf(szName, VtTextSize_PIXEL_FORMAT_NAME, "%s", PixelFormat_Name(ePixelFormat));
    return VtStatus_OK;
}
