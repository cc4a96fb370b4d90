/*
 * Which streams this machine has, found once when the chip is opened: through sysfs and udev as far as they tell, by
 * opening a device only where they do not. Called on one thread.
 */
#ifndef LINUX_BOARD_DEVICE_LIST_H
#define LINUX_BOARD_DEVICE_LIST_H

#include <string>
#include <vector>

#include "BoardConfig.h"
#include "CardKeeper.h"
#include "VtBoard.h"

/* The interface promises no more streams than this in a direction. */
inline constexpr size_t uiMaxStreams = 32;

struct SOutputSource
{
    std::string szCardNode;  /* "/dev/dri/card0" */
    std::string szConnector; /* "HDMI-A-1" */
    std::string szName;      /* as the interface delivers it */
    VtBoard_ConnectorType eType = VtBoard_ConnectorType_UNKNOWN;
};

/* How an input is watched. */
struct SInputOptions
{
    bool bOwn = false;      /* stream it if nobody else does */
    bool bSmallest = false; /* and then in the smallest format, not the one that it has */
};

struct SInputSource
{
    std::string szNode;  /* "/dev/video0" */
    std::string szVideo; /* "video0" */
    std::string szName;  /* as the interface delivers it */
    SInputOptions oOptions;
    VtBoard_ConnectorType eType = VtBoard_ConnectorType_UNKNOWN;
};

struct SDeviceList
{
    std::vector<SOutputSource> aoOutputs;
    std::vector<SInputSource> aoInputs;
    std::vector<std::string> aszRefused;   /* "/dev/dri/card0: Permission denied" */
    std::vector<std::string> aszRemarks;   /* what did not fit into a name or into the list */
    std::vector<SConfigFault> aoUnmatched; /* rules that no device fits */
};

/* roDefaults: for inputs whose rule says nothing, or that have none. */
SDeviceList DeviceList_Scan(const SBoardConfig& roConfig, const SInputOptions& roDefaults, CCardKeeper& roKeeper);

#endif
