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

    CHandleTable<VtDevice_Handle, CChip>& GetChips() { return m_oChips; }
    CHandleTable<VtVideoIn_Handle, CInputStream>& GetInputs() { return m_oInputs; }
    CHandleTable<VtVideoOut_Handle, COutputStream>& GetOutputs() { return m_oOutputs; }

private:
    CHandleTable<VtDevice_Handle, CChip> m_oChips;
    CHandleTable<VtVideoIn_Handle, CInputStream> m_oInputs;
    CHandleTable<VtVideoOut_Handle, COutputStream> m_oOutputs;
    bool m_bLoaded = false;
    bool m_bScanned = false;
    VtDevice_Handle m_hChip = nullptr;
};

#endif
