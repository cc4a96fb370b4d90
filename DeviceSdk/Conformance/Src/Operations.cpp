#include "Operations.h"

#include <array>

#include "Sdk.h"

namespace
{

struct SOperation
{
    const char* szName;
    bool bThere;
};

} // namespace

std::string MissingOperations()
{
    const std::array aoOperations = {
        SOperation{"Veltrano_LoadLite", Veltrano_LoadLite != nullptr},
        SOperation{"Veltrano_Version", Veltrano_Version != nullptr},
        SOperation{"Veltrano_GetDevice", Veltrano_GetDevice != nullptr},
        SOperation{"Veltrano_UnLoad", Veltrano_UnLoad != nullptr},
        SOperation{"VtDebug_WriteMsg", VtDebug_WriteMsg != nullptr},
        SOperation{"VtBoard_GetTickReferenceFrequency", VtBoard_GetTickReferenceFrequency != nullptr},
        SOperation{"VtBoard_GetConnectorCount", VtBoard_GetConnectorCount != nullptr},
        SOperation{"VtBoard_GetConnectorInfo", VtBoard_GetConnectorInfo != nullptr},
        SOperation{"VtBoard_CustomCall", VtBoard_CustomCall != nullptr},
        SOperation{"VtPixelFormat_GetName", VtPixelFormat_GetName != nullptr},
        SOperation{"VtVideoIn_GetCount", VtVideoIn_GetCount != nullptr},
        SOperation{"VtVideoIn_GetHandle", VtVideoIn_GetHandle != nullptr},
        SOperation{"VtVideoIn_ReleaseHandle", VtVideoIn_ReleaseHandle != nullptr},
        SOperation{"VtVideoIn_GetDetectedVideoParameters", VtVideoIn_GetDetectedVideoParameters != nullptr},
        SOperation{"VtVideoIn_WaitForFieldStart", VtVideoIn_WaitForFieldStart != nullptr},
        SOperation{"VtVideoIn_GetCaptureState", VtVideoIn_GetCaptureState != nullptr},
        SOperation{"VtVideoIn_GetBufferAttributes", VtVideoIn_GetBufferAttributes != nullptr},
        SOperation{"VtVideoOut_GetCount", VtVideoOut_GetCount != nullptr},
        SOperation{"VtVideoOut_GetHandle", VtVideoOut_GetHandle != nullptr},
        SOperation{"VtVideoOut_ReleaseHandle", VtVideoOut_ReleaseHandle != nullptr},
        SOperation{"VtVideoOut_WaitForFieldStart", VtVideoOut_WaitForFieldStart != nullptr},
        SOperation{"VtVideoOut_GetVideoParameters", VtVideoOut_GetVideoParameters != nullptr},
        SOperation{"VtVideoOut_GetBufferAttributes", VtVideoOut_GetBufferAttributes != nullptr},
        SOperation{"VtVideoOut_GetPowerState", VtVideoOut_GetPowerState != nullptr},
    };
    std::string szMissing;
    for (const SOperation& ro : aoOperations)
    {
        szMissing += ro.bThere ? "" : std::string(szMissing.empty() ? "" : ", ") + ro.szName;
    }
    return szMissing;
}
