// The test's control of the board. See VtSimulatedBoard.h.
#include "VtSimulatedBoard.h"

#include <cstdio>

#include "Board.h"
#include "DebugChannel.h"
#include "ScenarioReader.h"
#include "ScenarioSource.h"
#include "TextLine.h"

namespace
{

// A stream of the loaded board, kept alive with it; null when there is none.
std::shared_ptr<CStream> FindStream(VtSim_Stream oStream)
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    if (poBoard == nullptr || oStream.uiChip >= poBoard->GetChips().size())
    {
        return nullptr;
    }
    const EDirection eDirection = oStream.eDirection == VtSim_Direction_OUTPUT ? EDirection::OUTPUT : EDirection::INPUT;
    std::deque<CStream>& roaoStreams = poBoard->GetChips()[oStream.uiChip].GetStreams(eDirection);
    return oStream.uiIndex >= roaoStreams.size() ? nullptr
                                                 : std::shared_ptr<CStream>(poBoard, &roaoStreams[oStream.uiIndex]);
}

bool IsGranted()
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    return poBoard != nullptr && poBoard->GetTimeMode() == ETimeMode::GRANTED;
}

int64_t GetDeadlineNs(uint32_t uiTimeOutMs)
{
    return MonotonicClock_GetNs() + int64_t{uiTimeOutMs} * 1'000'000;
}

// Does fnDo(stream) for every stream of a board in granted time.
template <typename TFunction> VtStatus ForEachGranted(TFunction fnDo)
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    if (poBoard == nullptr || poBoard->GetTimeMode() != ETimeMode::GRANTED)
    {
        return poBoard == nullptr ? VtStatus_INVALID_PARAM : VtStatus_UNSUPPORTED;
    }
    VtStatus eStatus = VtStatus_OK;
    for (CChip& roChip : poBoard->GetChips())
    {
        for (const EDirection eDirection : {EDirection::INPUT, EDirection::OUTPUT})
        {
            for (CStream& roStream : roChip.GetStreams(eDirection))
            {
                eStatus = fnDo(roStream) ? eStatus : VtStatus_TIMEOUT;
            }
        }
    }
    return eStatus;
}

VtStatus GrantTo(VtSim_Stream oStream, uint64_t uiFields, uint64_t uiTimeOuts)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || !IsGranted())
    {
        return poStream == nullptr ? VtStatus_INVALID_PARAM : VtStatus_UNSUPPORTED;
    }
    poStream->Grant(uiFields, uiTimeOuts);
    return VtStatus_OK;
}

} // namespace

VtStatus VtSim_SetScenario(const char* szText, char* szFault, uint32_t uiFaultSize)
{
    if (szText == nullptr)
    {
        ScenarioSource_Override(std::nullopt);
        return VtStatus_OK;
    }
    ScenarioSource_Override(szText);
    SScenario oScenario;
    SScenarioFault oFault;
    if (Scenario_Read(szText, oScenario, oFault, ScenarioSource_GetReplayReader(szOverrideName)))
    {
        return VtStatus_OK;
    }
    if (szFault != nullptr && uiFaultSize > 0)
    {
        const std::string szLine = TextLine_OfFault(szOverrideName, oFault);
        szFault[szLine.copy(szFault, uiFaultSize - 1)] = '\0';
    }
    return VtStatus_FAIL;
}

VtStatus VtSim_Grant(VtSim_Stream oStream, uint64_t uiFields)
{
    return GrantTo(oStream, uiFields, 0);
}

VtStatus VtSim_GrantAll(uint64_t uiFields)
{
    return ForEachGranted(
        [uiFields](CStream& roStream)
        {
            roStream.Grant(uiFields, 0);
            return true;
        });
}

VtStatus VtSim_GrantTimeOuts(VtSim_Stream oStream, uint64_t uiTimeOuts)
{
    return GrantTo(oStream, 0, uiTimeOuts);
}

VtStatus VtSim_GrantTimeOutsAll(uint64_t uiTimeOuts)
{
    return ForEachGranted(
        [uiTimeOuts](CStream& roStream)
        {
            roStream.Grant(0, roStream.GetOpenCount() > 0 ? uiTimeOuts : 0);
            return true;
        });
}

VtStatus VtSim_AwaitIdle(VtSim_Stream oStream, uint32_t uiTimeOutMs)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || !IsGranted())
    {
        return poStream == nullptr ? VtStatus_INVALID_PARAM : VtStatus_UNSUPPORTED;
    }
    return poStream->AwaitIdle(GetDeadlineNs(uiTimeOutMs)) ? VtStatus_OK : VtStatus_TIMEOUT;
}

VtStatus VtSim_AwaitAllIdle(uint32_t uiTimeOutMs)
{
    const int64_t iDeadlineNs = GetDeadlineNs(uiTimeOutMs);
    return ForEachGranted([iDeadlineNs](CStream& roStream)
                          { return roStream.GetOpenCount() == 0 || roStream.AwaitIdle(iDeadlineNs); });
}

VtStatus VtSim_AwaitEntered(VtSim_Stream oStream, uint64_t uiEntered, uint32_t uiTimeOutMs)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || !IsGranted())
    {
        return poStream == nullptr ? VtStatus_INVALID_PARAM : VtStatus_UNSUPPORTED;
    }
    return poStream->AwaitEntered(uiEntered, GetDeadlineNs(uiTimeOutMs)) ? VtStatus_OK : VtStatus_TIMEOUT;
}

VtStatus VtSim_StepOver(VtSim_Stream oStream, uint64_t uiFields)
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || uiFields >= CStreamModel::msc_uiFieldLimit)
    {
        return VtStatus_INVALID_PARAM;
    }
    if (poBoard->GetTimeMode() == ETimeMode::REAL)
    {
        return VtStatus_UNSUPPORTED;
    }
    poStream->StepOver(uiFields);
    return VtStatus_OK;
}

VtStatus VtSim_RemoveDevice(uint32_t uiChip)
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    if (poBoard == nullptr || uiChip >= poBoard->GetChips().size())
    {
        return VtStatus_INVALID_PARAM;
    }
    CChip& roChip = poBoard->GetChips()[uiChip];
    roChip.Remove();
    Board_Interrupt(roChip);
    return VtStatus_OK;
}

VtStatus VtSim_GetPosition(VtSim_Stream oStream, uint64_t* puiField)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || puiField == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    *puiField = poStream->GetOpeningField();
    return VtStatus_OK;
}

VtStatus VtSim_GetField(VtSim_Stream oStream, uint64_t uiField, VtSim_Field* poField)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || poField == nullptr || uiField >= CStreamModel::msc_uiFieldLimit)
    {
        return VtStatus_INVALID_PARAM;
    }
    const CStreamModel& roModel = poStream->GetModel();
    const SFieldStart oField = roModel.GetField(uiField);
    const FixedTicks iExact = roModel.GetExactTicks(uiField);
    const bool bInput = roModel.GetStream().eDirection == EDirection::INPUT;
    *poField = {.uiField = uiField,
                .uiExactTicks = static_cast<uint64_t>(iExact >> 64),
                .uiExactFraction = static_cast<uint64_t>(iExact),
                .uiTickRefCounter = oField.uiStamp,
                .uiFieldCounter = oField.uiFieldCounter,
                .uiSetBufferCounter = oField.uiSetBufferCounter,
                .uiSkipBufferCount = bInput ? roModel.GetSkipCount(uiField) : 0,
                .eFate = static_cast<VtSim_Fate>(oField.eFate),
                .bIsTopField = oField.bIsTopField ? 1U : 0U};
    return VtStatus_OK;
}

VtStatus VtSim_GetWaitCounts(VtSim_Stream oStream, VtSim_WaitCounts* poCounts)
{
    const std::shared_ptr<CStream> poStream = FindStream(oStream);
    if (poStream == nullptr || poCounts == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    const SWaitCounts oCounts = poStream->GetWaitCounts();
    *poCounts = {.uiEntered = oCounts.uiEntered,
                 .uiOk = oCounts.uiOk,
                 .uiCanceled = oCounts.uiCanceled,
                 .uiTimedOut = oCounts.uiTimedOut,
                 .uiOther = oCounts.uiOther};
    return VtStatus_OK;
}

uint64_t VtSim_GetCallCount(const char* szOperation)
{
    const EOperation eOperation = szOperation == nullptr ? EOperation::COUNT : Operation_Find(szOperation);
    return eOperation == EOperation::COUNT ? 0 : Board_GetCalls(static_cast<size_t>(eOperation));
}

uint32_t VtSim_GetDebugMsgCount(void)
{
    return DebugChannel_GetCount();
}

VtStatus VtSim_GetDebugMsg(uint32_t uiIndex, char* szMsg, uint32_t uiSize)
{
    const std::optional<std::string> szText = DebugChannel_Get(uiIndex);
    if (!szText || szMsg == nullptr || uiSize == 0)
    {
        return VtStatus_INVALID_PARAM;
    }
    szMsg[szText->copy(szMsg, uiSize - 1)] = '\0';
    return VtStatus_OK;
}

uint32_t VtSim_GetOpenHandleCount(void)
{
    uint32_t uiOpen = 0;
    Board_GetHandles().ForEach([&uiOpen](const SHandle& roHandle)
                               { uiOpen += roHandle.poStream != nullptr ? 1U : 0U; });
    return uiOpen;
}
