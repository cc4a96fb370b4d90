// See Board.h.
#include "Board.h"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "ScenarioSource.h"
#include "TextLine.h"

namespace
{

// Everything that lives as long as the library is loaded. Never destroyed: threads may still be inside at exit.
struct SRuntime
{
    std::mutex oMutex;
    std::shared_ptr<CBoard> poBoard; // guarded by oMutex
    bool bLoaded = false;            // guarded by oMutex; also when the scenario was refused
    CHandles oHandles;
    std::array<std::atomic<uint64_t>, uiOperations> auiCalls{};
};

SRuntime& GetRuntime()
{
    static SRuntime& roRuntime = *new SRuntime;
    return roRuntime;
}

// The truth file that a scenario asks for; false when it cannot be written.
bool OpenTruth(const SScenario& roScenario, std::unique_ptr<CTruthFile>& rpoTruth)
{
    if (roScenario.szTruthFile.empty())
    {
        return true;
    }
    rpoTruth = CTruthFile::Open(roScenario.szTruthFile, roScenario.bTruthDetail);
    if (rpoTruth == nullptr)
    {
        const SScenarioFault oFault{1, "cannot be written: " + std::generic_category().message(errno)};
        (void)std::fprintf(stderr, "%s\n", TextLine_OfFault(roScenario.szTruthFile, oFault).c_str());
    }
    return rpoTruth != nullptr;
}

void EndWaits(SHandle& roHandle)
{
    roHandle.oReader.oSleeper.Interrupt();
    if (roHandle.poStream != nullptr)
    {
        roHandle.poStream->Wake();
    }
}

} // namespace

CChip::CChip(const SChip& roChip, uint32_t uiIndex, const SScenario& roScenario, int64_t iStartNs, CTruthFile* pTruth,
             CFaults& roFaults)
    : m_oSpec(roChip),
      m_uiIndex(uiIndex),
      m_eTimeMode(roScenario.eTimeMode),
      m_roFaults(roFaults),
      m_oClock(iStartNs, roScenario.flScale * (1.0 + roChip.flClockPpm * 1e-6), roChip.uiTickFreqHz,
               roChip.uiTickStart),
      m_uiRemovalTicks(roChip.uiRemovalTicks.value_or(uiForEver))
{
    SStreamSetup oSetup{.oClock = m_oClock,
                        .eTimeMode = roScenario.eTimeMode,
                        .bHold = roScenario.bHold,
                        .uiChip = uiIndex,
                        .pFaults = roScenario.aoFaults.empty() ? nullptr : &roFaults,
                        .pTruth = pTruth,
                        .uiRemovalTicks = m_uiRemovalTicks};
    for (const SStream& roInput : roChip.aoInputs)
    {
        m_aoInputs.emplace_back(roInput, oSetup);
        ++oSetup.uiIndex;
    }
    oSetup.uiIndex = 0;
    for (const SStream& roOutput : roChip.aoOutputs)
    {
        m_aoOutputs.emplace_back(roOutput, oSetup);
        ++oSetup.uiIndex;
    }
}

void CChip::Remove()
{
    m_uiRemovalTicks.store(0, std::memory_order_release);
    for (const EDirection eDirection : {EDirection::INPUT, EDirection::OUTPUT})
    {
        for (CStream& roStream : GetStreams(eDirection))
        {
            roStream.Remove();
        }
    }
}

bool CChip::IsGone() const
{
    const uint64_t uiRemoval = m_uiRemovalTicks.load(std::memory_order_acquire);
    if (uiRemoval == uiForEver || uiRemoval <= m_oSpec.uiTickStart)
    {
        return uiRemoval != uiForEver;
    }
    if (m_eTimeMode == ETimeMode::REAL)
    {
        return m_oClock.ToTicks(MonotonicClock_GetNs()) >= uiRemoval;
    }
    const auto fnIsGone = [](const CStream& roStream) { return roStream.IsGone(); };
    return std::ranges::any_of(m_aoInputs, fnIsGone) || std::ranges::any_of(m_aoOutputs, fnIsGone);
}

CBoard::CBoard(const SScenario& roScenario, std::unique_ptr<CTruthFile> poTruth)
    : m_eTimeMode(roScenario.eTimeMode), m_poTruth(std::move(poTruth)), m_oFaults(roScenario.aoFaults)
{
    const int64_t iStartNs = MonotonicClock_GetNs();
    for (const SChip& roChip : roScenario.aoChips)
    {
        m_aoChips.emplace_back(roChip, static_cast<uint32_t>(m_aoChips.size()), roScenario, iStartNs, m_poTruth.get(),
                               m_oFaults);
    }
}

bool Board_Load()
{
    SRuntime& roRuntime = GetRuntime();
    const std::lock_guard oGuard(roRuntime.oMutex);
    if (std::exchange(roRuntime.bLoaded, true))
    {
        return false;
    }
    for (std::atomic<uint64_t>& ruiCalls : roRuntime.auiCalls)
    {
        ruiCalls.store(0, std::memory_order_relaxed);
    }
    SScenario oScenario;
    std::unique_ptr<CTruthFile> poTruth;
    std::string szIntro;
    if (ScenarioSource_Load(oScenario, szIntro) && OpenTruth(oScenario, poTruth))
    {
        if (!szIntro.empty())
        {
            (void)std::fprintf(stderr, "%s\n", szIntro.c_str());
        }
        roRuntime.poBoard = std::make_shared<CBoard>(oScenario, std::move(poTruth));
    }
    return true;
}

void Board_UnLoad()
{
    SRuntime& roRuntime = GetRuntime();
    std::shared_ptr<CBoard> poBoard;
    {
        const std::lock_guard oGuard(roRuntime.oMutex);
        poBoard.swap(roRuntime.poBoard);
        roRuntime.bLoaded = false;
    }
    roRuntime.oHandles.CloseAll(&EndWaits);
    if (poBoard == nullptr)
    {
        return;
    }
    for (CChip& roChip : poBoard->GetChips())
    {
        for (const EDirection eDirection : {EDirection::INPUT, EDirection::OUTPUT})
        {
            for (const CStream& roStream : roChip.GetStreams(eDirection))
            {
                for (size_t uiOperation = 0; uiOperation < uiOperations; ++uiOperation)
                {
                    roRuntime.auiCalls[uiOperation].fetch_add(roStream.GetCalls(uiOperation));
                }
            }
        }
    }
}

std::shared_ptr<CBoard> Board_Get()
{
    SRuntime& roRuntime = GetRuntime();
    const std::lock_guard oGuard(roRuntime.oMutex);
    return roRuntime.poBoard;
}

CHandles& Board_GetHandles()
{
    return GetRuntime().oHandles;
}

void* Board_Open(EHandleKind eKind, CChip& roChip, CStream* poStream, bool bWriter)
{
    auto poHandle = std::make_unique<SHandle>();
    poHandle->poChip = &roChip;
    poHandle->poStream = poStream;
    poHandle->bWriter = bWriter;
    poHandle->oReader.uiNext.store(poStream == nullptr ? 0 : poStream->GetOpeningField(), std::memory_order_relaxed);
    void* hHandle = GetRuntime().oHandles.Open(eKind, std::move(poHandle));
    if (hHandle != nullptr && poStream != nullptr)
    {
        poStream->GetOpenCount().fetch_add(1);
    }
    return hHandle;
}

bool Board_Close(const void* hStream, EHandleKind eKind)
{
    return GetRuntime().oHandles.Close(hStream, eKind,
                                       [](SHandle& roHandle)
                                       {
                                           roHandle.poStream->GetOpenCount().fetch_sub(1);
                                           roHandle.poStream->GetWriterCount().fetch_sub(roHandle.bWriter ? 1 : 0);
                                           EndWaits(roHandle);
                                       });
}

void Board_Interrupt(const CChip& roChip)
{
    GetRuntime().oHandles.ForEach(
        [&roChip](SHandle& roHandle)
        {
            if (roHandle.poChip == &roChip)
            {
                EndWaits(roHandle);
            }
        });
}

void Board_CountCall(EOperation eOperation)
{
    GetRuntime().auiCalls[static_cast<size_t>(eOperation)].fetch_add(1, std::memory_order_relaxed);
}

uint64_t Board_GetCalls(size_t uiOperation)
{
    uint64_t uiCalls = GetRuntime().auiCalls[uiOperation].load();
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    if (poBoard == nullptr)
    {
        return uiCalls;
    }
    for (CChip& roChip : poBoard->GetChips())
    {
        for (const EDirection eDirection : {EDirection::INPUT, EDirection::OUTPUT})
        {
            for (const CStream& roStream : roChip.GetStreams(eDirection))
            {
                uiCalls += roStream.GetCalls(uiOperation);
            }
        }
    }
    return uiCalls;
}

CDeviceCall::CDeviceCall(VtDevice_Handle hDev, EOperation eOperation, std::optional<uint32_t> uiStreamIndex)
    : m_poHandle(Board_GetHandles().Enter(hDev, EHandleKind::DEVICE))
{
    Board_CountCall(eOperation);
    if (m_poHandle == nullptr)
    {
        return;
    }
    CChip& roChip = GetChip();
    if (const auto eInjected = roChip.GetFaults().Count(eOperation, roChip.GetIndex(), uiStreamIndex))
    {
        m_bInjected = true;
        m_eStatus = *eInjected;
        return;
    }
    m_bRefused = roChip.IsGone();
    m_eStatus = m_bRefused ? VtStatus_FAIL : VtStatus_OK;
}

CStreamCall::CStreamCall(const void* hStream, EHandleKind eKind, EOperation eOperation)
    : m_poHandle(Board_GetHandles().Enter(hStream, eKind))
{
    if (m_poHandle == nullptr)
    {
        Board_CountCall(eOperation);
        return;
    }
    CStream& roStream = GetStream();
    roStream.CountCall(eOperation);
    if (const auto eInjected = roStream.CountFault(eOperation))
    {
        m_eStatus = *eInjected;
        return;
    }
    m_bRefused = roStream.IsGone();
    m_eStatus = m_bRefused ? VtStatus_FAIL : VtStatus_OK;
}

uint64_t CStreamCall::GetCurrentField() const
{
    const uint64_t uiNext = m_poHandle->oReader.uiNext.load(std::memory_order_relaxed);
    return GetStream().GetCurrentField(uiNext > 0 ? uiNext - 1 : 0);
}
