/*
 * The board: chips with their streams, loaded from a scenario and unloaded as one; and what every SDK operation does
 * first: count the call, find the handle, see whether it fails on purpose or because the device is gone.
 *
 * Loading and unloading belong to one thread; everything else may be called by any number of threads at once. A board
 * is kept alive by Board_Get's result, and the objects behind a handle by being inside it.
 */
#ifndef SIMULATED_BOARD_BOARD_H
#define SIMULATED_BOARD_BOARD_H

#include <deque>
#include <memory>
#include <span>

#include "Faults.h"
#include "HandleTable.h"
#include "Stream.h"

class CBoard;

class CChip
{
public:
    CChip(const SChip& roChip, uint32_t uiIndex, const SScenario& roScenario, int64_t iStartNs, CTruthFile* pTruth,
          CFaults& roFaults);

    const SChip& GetSpec() const { return m_oSpec; }
    uint32_t GetIndex() const { return m_uiIndex; }
    std::deque<CStream>& GetStreams(EDirection eDirection)
    {
        return eDirection == EDirection::INPUT ? m_aoInputs : m_aoOutputs;
    }
    CFaults& GetFaults() { return m_roFaults; }
    bool IsGone() const;
    void Remove();
    /* The device's one handle; null until it is opened. */
    std::atomic<void*>& GetHandle() { return m_hDevice; }

private:
    const SChip m_oSpec;
    const uint32_t m_uiIndex;
    const ETimeMode m_eTimeMode;
    CFaults& m_roFaults;
    const CBoardClock m_oClock;
    std::atomic<uint64_t> m_uiRemovalTicks;
    std::atomic<void*> m_hDevice{nullptr};
    std::deque<CStream> m_aoInputs;
    std::deque<CStream> m_aoOutputs;
};

class CBoard
{
public:
    /* Null truth: no truth is written. */
    CBoard(const SScenario& roScenario, std::unique_ptr<CTruthFile> poTruth);

    std::deque<CChip>& GetChips() { return m_aoChips; }
    CFaults& GetFaults() { return m_oFaults; }
    ETimeMode GetTimeMode() const { return m_eTimeMode; }

private:
    const ETimeMode m_eTimeMode;
    std::unique_ptr<CTruthFile> m_poTruth; // above the chips, whose rows go into it
    CFaults m_oFaults;
    std::deque<CChip> m_aoChips;
};

/* Loads what the environment or VtSim_SetScenario says; false, and nothing done, when already loaded. */
bool Board_Load();
void Board_UnLoad();
/* The loaded board; null when there is none. */
std::shared_ptr<CBoard> Board_Get();

// What a handle stands for. On cache lines of its own, so that callers of different handles do not disturb each other.
struct alignas(64) SHandle
{
    CChip* poChip = nullptr;
    CStream* poStream = nullptr; // null for a device
    bool bWriter = false;
    SReader oReader;
};
using CHandles = CHandleTable<SHandle, 2048>;

CHandles& Board_GetHandles();
/* Null when every handle is taken. poStream null: a device. */
void* Board_Open(EHandleKind eKind, CChip& roChip, CStream* poStream, bool bWriter);
/* Ends the waits on a stream's handle; false when it is none, or somebody else just closed it. */
bool Board_Close(const void* hStream, EHandleKind eKind);
/* Ends the sleep of every wait on a chip. */
void Board_Interrupt(const CChip& roChip);

/* Calls of operations that reach no stream. */
void Board_CountCall(EOperation eOperation);
uint64_t Board_GetCalls(size_t uiOperation);

// One call of an operation on a device handle: open for as long as the object lives.
class CDeviceCall
{
public:
    CDeviceCall(VtDevice_Handle hDev, EOperation eOperation, std::optional<uint32_t> uiStreamIndex = std::nullopt);

    /* When true the operation returns GetStatus() and does nothing else. */
    bool IsRefused() const { return m_bRefused; }
    /* Refused on purpose, by the scenario. */
    bool IsInjected() const { return m_bInjected; }
    VtStatus GetStatus() const { return m_eStatus; }
    CChip& GetChip() const { return *m_poHandle->poChip; }

private:
    const CHandles::CEntry m_poHandle;
    bool m_bRefused = true;
    bool m_bInjected = false;
    VtStatus m_eStatus = VtStatus_INVALID_PARAM;
};

// The same on a stream handle.
class CStreamCall
{
public:
    CStreamCall(const void* hStream, EHandleKind eKind, EOperation eOperation);

    bool IsRefused() const { return m_bRefused; }
    VtStatus GetStatus() const { return m_eStatus; }
    CStream& GetStream() const { return *m_poHandle->poStream; }
    SReader& GetReader() const { return m_poHandle->oReader; }
    const CStreamModel& GetModel() const { return GetStream().GetModel(); }
    /* The field that a query speaks of. */
    uint64_t GetCurrentField() const;
    /* Whether the handle was found; a refused call of a found handle still ends it when it was to. */
    bool HasHandle() const { return m_poHandle != nullptr; }

private:
    const CHandles::CEntry m_poHandle;
    bool m_bRefused = true;
    VtStatus m_eStatus = VtStatus_INVALID_PARAM;
};

#endif
