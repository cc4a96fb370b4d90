/*
 * Compiled as C11, never run: each header first and again, and every operation with the arguments that C would give it.
 */
#include "VtTypes.h"

#include "VtVideoTypes.h"

#include "VtBoard.h"

#include "VtVideoIn.h"

#include "VtVideoOut.h"

#include "Veltrano.h"

VtStatus InterfaceIsC_CallAll(void);

VtStatus InterfaceIsC_CallAll(void)
{
    uint32_t aui[4] = {0};
    uint64_t au[3] = {0};
    VtBool bTop = 0;
    char szName[VtTextSize_PIXEL_FORMAT_NAME];
    VtVideo_VidParam oParam = {0};
    VtBoard_ConnectorInfo oInfo = {.uiSize = sizeof(VtBoard_ConnectorInfo)};
    VtBoard_CaptureSkipBufferCountIn oIn = {.uiCaptureIndex = 0};
    VtBoard_CaptureSkipBufferCountOut oOut = {0};
    VtVideoIn_Handle hIn = NULL;
    VtVideoOut_Handle hOut = NULL;
    VtVideoIn_State eState = VtVideoIn_State_INVALID;
    VtVideoOut_PowerState ePower = VtVideoOut_PowerState_OFF;
    VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
    VtDevice_Handle hDev = NULL;
    int iSum = 0;

    Veltrano_LoadLite();
    (void)Veltrano_Version();
    hDev = Veltrano_GetDevice(0);
    iSum += VtDebug_WriteMsg(hDev, "text");
    iSum += VtPixelFormat_GetName(eFormat, szName);
    iSum += VtBoard_GetTickReferenceFrequency(hDev, &aui[0]);
    iSum += VtBoard_GetConnectorCount(hDev, &aui[0]);
    iSum += VtBoard_GetConnectorInfo(hDev, 0, &oInfo);
    iSum += VtBoard_CustomCall(hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT, &oIn, sizeof(oIn), &oOut,
                               sizeof(oOut));
    iSum += VtVideoIn_GetCount(hDev, &aui[0]);
    iSum += VtVideoIn_GetHandle(hDev, 0, VtAccessMode_READONLY, &hIn);
    iSum += VtVideoIn_GetDetectedVideoParameters(hIn, &oParam);
    iSum += VtVideoIn_WaitForFieldStart(hIn, 50, &au[0], &au[1], &bTop);
    iSum += VtVideoIn_GetCaptureState(hIn, &eState, &aui[0], &aui[1], &aui[2], &aui[3]);
    iSum += VtVideoIn_GetBufferAttributes(hIn, &aui[0], &aui[1], &eFormat, &aui[2]);
    iSum += VtVideoIn_ReleaseHandle(hIn);
    iSum += VtVideoOut_GetCount(hDev, &aui[0]);
    iSum += VtVideoOut_GetHandle(hDev, 0, VtAccessMode_READONLY, &hOut);
    iSum += VtVideoOut_WaitForFieldStart(hOut, 50, &au[0], &au[1], &au[2], &bTop);
    iSum += VtVideoOut_GetVideoParameters(hOut, &oParam);
    iSum += VtVideoOut_GetBufferAttributes(hOut, &eFormat, &aui[0], &aui[1], &au[0]);
    iSum += VtVideoOut_GetPowerState(hOut, &ePower);
    iSum += VtVideoOut_ReleaseHandle(hOut);
    Veltrano_UnLoad();
    return iSum == 0 ? VtStatus_OK : VtStatus_FAIL;
}
