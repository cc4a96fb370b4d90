/*
 * The board as a whole: the one chip, its streams, and the tables of open handles. Loading, opening the chip and
 * unloading belong to the main thread; everything else may be asked by any thread and takes no lock.
 */
#ifndef LINUX_BOARD_BOARD_H
#define LINUX_BOARD_BOARD_H

#include <array>

#include "DeviceList.h"
#include "HandleTable.h"
#include "InputStream.h"
#include "OutputStream.h"
#include "VtBoard.h"

class CChip
{
public:
    CChip(const SBoardConfig& roConfig, const SInputOptions& roDefaults)
        : m_oDevices(DeviceList_Scan(roConfig, roDefaults, m_oKeeper))
    {
    }

    const SDeviceList& Devices() const { return m_oDevices; }
    SInputCounters& Counters(uint32_t uiInput) { return m_aoCounters[uiInput]; }

    CCardKeeper& Keeper() { return m_oKeeper; }

private:
    CCardKeeper m_oKeeper;
    const SDeviceList m_oDevices;
    std::array<SInputCounters, uiMaxStreams> m_aoCounters;
};

class CBoard
{
public:
    /* The one board of the process. */
    static CBoard& Get();

    void Load() { m_bLoaded = true; }
    void Unload();

    /*
     * Null when nothing is there to be watched, or the configuration is wrong; then one line on standard error says
     * what was looked for, or what is wrong where.
     */
    VtDevice_Handle OpenChip();

    /* What a handle stands for, which lives as long as the entry; null when it is none. */
    auto EnterChip(VtDevice_Handle hDev) { return m_oChips.Enter(hDev, EHandleKind::DEVICE); }
    auto EnterInput(VtVideoIn_Handle hVideoIn) { return m_oInputs.Enter(hVideoIn, EHandleKind::INPUT); }
    auto EnterOutput(VtVideoOut_Handle hVideoOut) { return m_oOutputs.Enter(hVideoOut, EHandleKind::OUTPUT); }
    /* Null when all handles are taken; the stream is then freed. */
    VtVideoIn_Handle AddInput(std::unique_ptr<CInputStream> poStream)
    {
        return static_cast<VtVideoIn_Handle>(m_oInputs.Open(EHandleKind::INPUT, std::move(poStream)));
    }
    VtVideoOut_Handle AddOutput(std::unique_ptr<COutputStream> poStream)
    {
        return static_cast<VtVideoOut_Handle>(m_oOutputs.Open(EHandleKind::OUTPUT, std::move(poStream)));
    }
    bool CloseInput(VtVideoIn_Handle hVideoIn) { return m_oInputs.Close(hVideoIn, EHandleKind::INPUT); }
    bool CloseOutput(VtVideoOut_Handle hVideoOut) { return m_oOutputs.Close(hVideoOut, EHandleKind::OUTPUT); }

private:
    static constexpr size_t msc_uiHandles = 256; // of a kind

    CHandleTable<CChip, msc_uiHandles> m_oChips;
    CHandleTable<CInputStream, msc_uiHandles> m_oInputs;
    CHandleTable<COutputStream, msc_uiHandles> m_oOutputs;
    bool m_bLoaded = false;
    bool m_bScanned = false;
    VtDevice_Handle m_hChip = nullptr;
};

#endif
