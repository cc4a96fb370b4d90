/*
 * The makers' guide's board, breaking one promise: the one that the environment variable VT_FAULT names. The list must
 * say so, and of the others nothing.
 */
#define VtBoard_GetTickReferenceFrequency RightFrequency
#define VtVideoIn_GetHandle RightGetHandle
#define VtVideoIn_WaitForFieldStart RightWait
#include "ExampleBoard.c"

#include <stdlib.h>
#undef VtBoard_GetTickReferenceFrequency
#undef VtVideoIn_GetHandle
#undef VtVideoIn_WaitForFieldStart

static uint64_t g_auiOffsets[HANDLES]; /* of the slots, ns */
static uint64_t g_auiBegin[INPUTS];    /* when each input was opened first */

static int Has(const char* szFault)
{
    const char* const szAsked = getenv("VT_FAULT");
    return szAsked != NULL && strcmp(szAsked, szFault) == 0;
}

static void Sleep(uint64_t uiForNs)
{
    const struct timespec oFor = {(time_t)(uiForNs / uiNs), (long)(uiForNs % uiNs)};
    (void)nanosleep(&oFor, NULL);
}

VtStatus VtBoard_GetTickReferenceFrequency(VtDevice_Handle hDev, uint32_t* puiFreqHz)
{
    return Has("coarse_ticks") ? Put(IsChip(hDev), puiFreqHz, 1000) : RightFrequency(hDev, puiFreqHz);
}

VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn)
{
    const VtStatus eStatus = RightGetHandle(hDev, uiIndex, eAccessMode, phVideoIn);
    if (eStatus == VtStatus_OK)
    {
        g_auiBegin[uiIndex] = g_auiBegin[uiIndex] == 0 ? Now() : g_auiBegin[uiIndex];
        g_auiOffsets[(struct SSlot*)(void*)*phVideoIn - g_aoSlots] = Has("counter_per_stream")   ? g_auiBegin[uiIndex]
                                                                     : Has("counter_per_handle") ? Now()
                                                                                                 : 0;
    }
    return eStatus;
}

/* A caller who comes late gets one field after the other. */
static VtStatus WaitInTurn(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiField, uint64_t* puiTicks,
                           VtBool* pbTop)
{
    struct SSlot* const po = Find(hVideoIn);
    if (po == NULL || puiField == NULL || puiTicks == NULL || pbTop == NULL || Newest(Now()) <= po->uiSeen)
    {
        return RightWait(hVideoIn, uiTimeOutMs, puiField, puiTicks, pbTop);
    }
    ++po->uiSeen;
    *puiField = po->uiSeen * 16;
    *puiTicks = Start(po->uiSeen);
    *pbTop = 0;
    return VtStatus_OK;
}

VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const VtStatus eStatus = (Has("oldest_field") ? WaitInTurn : RightWait)(hVideoIn, uiTimeOutMs, puiFieldCounter,
                                                                            puiTickRefCounter, pbIsTopField);
    if (eStatus == VtStatus_TIMEOUT && Has("late_time_outs"))
    {
        Sleep(uiNs);
    }
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    if (Has("late_waits"))
    {
        static _Thread_local unsigned uiDrawn;
        Sleep((uint64_t)((uiDrawn += 1999) % 5000) * 1000);
    }
    *puiTickRefCounter -= g_auiOffsets[(struct SSlot*)(void*)hVideoIn - g_aoSlots];
    *puiTickRefCounter = Has("stamp_at_wake_up") ? Now() : *puiTickRefCounter;
    *puiTickRefCounter /= Has("coarse_ticks") ? 1000000 : 1;
    *puiTickRefCounter -= Has("ticks_in_steps") ? *puiTickRefCounter % 50000 : 0;
    return VtStatus_OK;
}
