#include "BoardOperations.h"

#include <dlfcn.h>

#include "Veltrano.h"

namespace
{

// Where the loaded library has an operation.
template <auto pfnOperation> decltype(pfnOperation) g_pfnLoaded = nullptr;

template <auto pfnOperation> bool Bind(void* pvLibrary, const char* szName)
{
    g_pfnLoaded<pfnOperation> = reinterpret_cast<decltype(pfnOperation)>(dlsym(pvLibrary, szName));
    return g_pfnLoaded<pfnOperation> != nullptr;
}

struct SOperation
{
    const char* szName;
    bool (*pfnBind)(void* pvLibrary, const char* szName);
};

constexpr SOperation aoOperations[] = {
    {"Veltrano_LoadLite", Bind<Veltrano_LoadLite>},
    {"Veltrano_Version", Bind<Veltrano_Version>},
    {"Veltrano_GetDevice", Bind<Veltrano_GetDevice>},
    {"Veltrano_UnLoad", Bind<Veltrano_UnLoad>},
    {"VtDebug_WriteMsg", Bind<VtDebug_WriteMsg>},
    {"VtBoard_GetTickReferenceFrequency", Bind<VtBoard_GetTickReferenceFrequency>},
    {"VtBoard_GetConnectorCount", Bind<VtBoard_GetConnectorCount>},
    {"VtBoard_GetConnectorInfo", Bind<VtBoard_GetConnectorInfo>},
    {"VtBoard_CustomCall", Bind<VtBoard_CustomCall>},
    {"VtVideoIn_GetCount", Bind<VtVideoIn_GetCount>},
    {"VtVideoIn_GetHandle", Bind<VtVideoIn_GetHandle>},
    {"VtVideoIn_ReleaseHandle", Bind<VtVideoIn_ReleaseHandle>},
    {"VtVideoIn_GetDetectedVideoParameters", Bind<VtVideoIn_GetDetectedVideoParameters>},
    {"VtVideoIn_WaitForFieldStart", Bind<VtVideoIn_WaitForFieldStart>},
    {"VtVideoIn_GetCaptureState", Bind<VtVideoIn_GetCaptureState>},
    {"VtVideoIn_GetBufferAttributes", Bind<VtVideoIn_GetBufferAttributes>},
    {"VtVideoOut_GetCount", Bind<VtVideoOut_GetCount>},
    {"VtVideoOut_GetHandle", Bind<VtVideoOut_GetHandle>},
    {"VtVideoOut_ReleaseHandle", Bind<VtVideoOut_ReleaseHandle>},
    {"VtVideoOut_WaitForFieldStart", Bind<VtVideoOut_WaitForFieldStart>},
    {"VtVideoOut_GetVideoParameters", Bind<VtVideoOut_GetVideoParameters>},
    {"VtVideoOut_GetBufferAttributes", Bind<VtVideoOut_GetBufferAttributes>},
    {"VtVideoOut_GetPowerState", Bind<VtVideoOut_GetPowerState>},
    {"VtPixelFormat_GetName", Bind<VtPixelFormat_GetName>},
};

} // namespace

const char* BindBoardOperations(void* pvLibrary)
{
    for (const SOperation& roOperation : aoOperations)
    {
        if (!roOperation.pfnBind(pvLibrary, roOperation.szName))
        {
            return roOperation.szName;
        }
    }
    return nullptr;
}

void Veltrano_LoadLite()
{
    g_pfnLoaded<Veltrano_LoadLite>();
}

uint64_t Veltrano_Version()
{
    return g_pfnLoaded<Veltrano_Version>();
}

VtDevice_Handle Veltrano_GetDevice(uint32_t uiChipIndex)
{
    return g_pfnLoaded<Veltrano_GetDevice>(uiChipIndex);
}

void Veltrano_UnLoad()
{
    g_pfnLoaded<Veltrano_UnLoad>();
}

VtStatus VtDebug_WriteMsg(VtDevice_Handle hDev, const char* szMsg)
{
    return g_pfnLoaded<VtDebug_WriteMsg>(hDev, szMsg);
}

VtStatus VtBoard_GetTickReferenceFrequency(VtDevice_Handle hDev, uint32_t* puiFreqHz)
{
    return g_pfnLoaded<VtBoard_GetTickReferenceFrequency>(hDev, puiFreqHz);
}

VtStatus VtBoard_GetConnectorCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return g_pfnLoaded<VtBoard_GetConnectorCount>(hDev, puiCount);
}

VtStatus VtBoard_GetConnectorInfo(VtDevice_Handle hDev, uint32_t uiConnectorIndex,
                                  VtBoard_ConnectorInfo* poConnectorInfo)
{
    return g_pfnLoaded<VtBoard_GetConnectorInfo>(hDev, uiConnectorIndex, poConnectorInfo);
}

VtStatus VtBoard_CustomCall(VtDevice_Handle hDev, uint32_t uiCall, const void* pvIn, uint32_t uiInSize, void* pvOut,
                            uint32_t uiOutSize)
{
    return g_pfnLoaded<VtBoard_CustomCall>(hDev, uiCall, pvIn, uiInSize, pvOut, uiOutSize);
}

VtStatus VtVideoIn_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return g_pfnLoaded<VtVideoIn_GetCount>(hDev, puiCount);
}

VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn)
{
    return g_pfnLoaded<VtVideoIn_GetHandle>(hDev, uiIndex, eAccessMode, phVideoIn);
}

VtStatus VtVideoIn_ReleaseHandle(VtVideoIn_Handle hVideoIn)
{
    return g_pfnLoaded<VtVideoIn_ReleaseHandle>(hVideoIn);
}

VtStatus VtVideoIn_GetDetectedVideoParameters(VtVideoIn_Handle hVideoIn, VtVideo_VidParam* poVidParam)
{
    return g_pfnLoaded<VtVideoIn_GetDetectedVideoParameters>(hVideoIn, poVidParam);
}

VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    return g_pfnLoaded<VtVideoIn_WaitForFieldStart>(hVideoIn, uiTimeOutMs, puiFieldCounter, puiTickRefCounter,
                                                    pbIsTopField);
}

VtStatus VtVideoIn_GetCaptureState(VtVideoIn_Handle hVideoIn, VtVideoIn_State* peState, uint32_t* puiTotalBufferCount,
                                   uint32_t* puiReadyBufferCount, uint32_t* puiLoanBufferCount,
                                   uint32_t* puiInternalBufferCount)
{
    return g_pfnLoaded<VtVideoIn_GetCaptureState>(hVideoIn, peState, puiTotalBufferCount, puiReadyBufferCount,
                                                  puiLoanBufferCount, puiInternalBufferCount);
}

VtStatus VtVideoIn_GetBufferAttributes(VtVideoIn_Handle hVideoIn, uint32_t* puiWidth, uint32_t* puiHeight,
                                       VtPixelFormat* pePixelFormat, uint32_t* puiNbOfBuffer)
{
    return g_pfnLoaded<VtVideoIn_GetBufferAttributes>(hVideoIn, puiWidth, puiHeight, pePixelFormat, puiNbOfBuffer);
}

VtStatus VtVideoOut_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return g_pfnLoaded<VtVideoOut_GetCount>(hDev, puiCount);
}

VtStatus VtVideoOut_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                              VtVideoOut_Handle* phVideoOut)
{
    return g_pfnLoaded<VtVideoOut_GetHandle>(hDev, uiIndex, eAccessMode, phVideoOut);
}

VtStatus VtVideoOut_ReleaseHandle(VtVideoOut_Handle hVideoOut)
{
    return g_pfnLoaded<VtVideoOut_ReleaseHandle>(hVideoOut);
}

VtStatus VtVideoOut_WaitForFieldStart(VtVideoOut_Handle hVideoOut, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                      uint64_t* puiSetBufferCounter, uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    return g_pfnLoaded<VtVideoOut_WaitForFieldStart>(hVideoOut, uiTimeOutMs, puiFieldCounter, puiSetBufferCounter,
                                                     puiTickRefCounter, pbIsTopField);
}

VtStatus VtVideoOut_GetVideoParameters(VtVideoOut_Handle hVideoOut, VtVideo_VidParam* poVidParam)
{
    return g_pfnLoaded<VtVideoOut_GetVideoParameters>(hVideoOut, poVidParam);
}

VtStatus VtVideoOut_GetBufferAttributes(VtVideoOut_Handle hVideoOut, VtPixelFormat* pePixelFormat, uint32_t* puiWidth,
                                        uint32_t* puiHeight, uint64_t* puiLuid)
{
    return g_pfnLoaded<VtVideoOut_GetBufferAttributes>(hVideoOut, pePixelFormat, puiWidth, puiHeight, puiLuid);
}

VtStatus VtVideoOut_GetPowerState(VtVideoOut_Handle hVideoOut, VtVideoOut_PowerState* pePowerState)
{
    return g_pfnLoaded<VtVideoOut_GetPowerState>(hVideoOut, pePowerState);
}

VtStatus VtPixelFormat_GetName(VtPixelFormat ePixelFormat, char* szName)
{
    return g_pfnLoaded<VtPixelFormat_GetName>(ePixelFormat, szName);
}
