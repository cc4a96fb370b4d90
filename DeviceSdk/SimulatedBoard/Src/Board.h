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
    /* The device's one handle; 0 until it is opened. */
    std::atomic<uint64_t>& GetHandle() { return m_uiHandle; }

private:
    const SChip m_oSpec;
    const uint32_t m_uiIndex;
    const ETimeMode m_eTimeMode;
    CFaults& m_roFaults;
    const CBoardClock m_oClock;
    std::atomic<uint64_t> m_uiRemovalTicks;
    std::atomic<uint64_t> m_uiHandle{0};
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
CHandleTable& Board_GetHandles();

/* Calls of operations that reach no stream. */
void Board_CountCall(EOperation eOperation);
uint64_t Board_GetCalls(size_t uiOperation);

// One call of an operation on a device handle: open for as long as the object lives.
class CDeviceCall
{
public:
    CDeviceCall(VtDevice_Handle hDev, EOperation eOperation, std::optional<uint32_t> uiStreamIndex = std::nullopt);
    ~CDeviceCall();
    CDeviceCall(const CDeviceCall&) = delete;
    CDeviceCall& operator=(const CDeviceCall&) = delete;

    /* When true the operation returns GetStatus() and does nothing else. */
    bool IsRefused() const { return m_bRefused; }
    /* Refused on purpose, by the scenario. */
    bool IsInjected() const { return m_bInjected; }
    VtStatus GetStatus() const { return m_eStatus; }
    CChip& GetChip() const { return *m_poSlot->poChip; }

private:
    SHandleSlot* m_poSlot;
    bool m_bRefused = true;
    bool m_bInjected = false;
    VtStatus m_eStatus = VtStatus_INVALID_PARAM;
};

// The same on a stream handle.
class CStreamCall
{
public:
    CStreamCall(const void* hStream, EHandleKind eKind, EOperation eOperation);
    ~CStreamCall();
    CStreamCall(const CStreamCall&) = delete;
    CStreamCall& operator=(const CStreamCall&) = delete;

    bool IsRefused() const { return m_bRefused; }
    VtStatus GetStatus() const { return m_eStatus; }
    CStream& GetStream() const { return *m_poSlot->poStream; }
    SHandleSlot& GetSlot() const { return *m_poSlot; }
    const CStreamModel& GetModel() const { return GetStream().GetModel(); }
    /* The field that a query speaks of. */
    uint64_t GetCurrentField() const;
    /* Whether the handle was found; a refused call of a found handle still ends it when it was to. */
    bool HasHandle() const { return m_poSlot != nullptr; }

private:
    SHandleSlot* m_poSlot;
    bool m_bRefused = true;
    VtStatus m_eStatus = VtStatus_INVALID_PARAM;
};

#endif
