/*
 * The file that says which devices are watched, in which order, under which names and how (VELTRANO_LINUX_CONFIG): from
 * its text to rules, and from rules and devices to a choice. Text only; entered by one thread, keeps nothing.
 */
#ifndef LINUX_BOARD_BOARD_CONFIG_H
#define LINUX_BOARD_BOARD_CONFIG_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "TextFault.h"

/* What a device is known by. */
struct SDeviceFacts
{
    std::string szName;                   /* its own */
    std::vector<std::string> aszBusPaths; /* where it is plugged in, as the driver and as udev write it */
    std::string szDriver;
};

/* One table of the file. Patterns are those of the shell; an empty one fits everything. */
struct SDeviceRule
{
    uint32_t uiLine = 0;
    std::string szDevice;
    std::string szBus;
    std::string szDriver;
    std::string szName;            /* to be shown; empty for the device's own */
    std::optional<bool> bOwn;      /* inputs only; without a value as the environment says */
    std::optional<bool> bSmallest; /* inputs only, likewise */
};

struct SBoardConfig
{
    std::vector<SDeviceRule> aoInputs; /* none: all, as without a file */
    std::vector<SDeviceRule> aoOutputs;
};

using SConfigFault = STextFault;

/* False with roFault set when the text is no TOML, or says what no rule can. */
bool BoardConfig_Parse(std::string_view szText, SBoardConfig& roConfig, SConfigFault& roFault);

struct SDeviceChoice
{
    size_t uiDevice = 0;
    const SDeviceRule* poRule = nullptr; /* null without rules */
    std::string szName;                  /* to be shown */
};

/*
 * In the order of the rules, and under one rule in that of the devices. The first rule that fits a device takes it; a
 * name for several devices is followed by their number. Without rules all devices as they come.
 */
std::vector<SDeviceChoice> BoardConfig_Choose(std::span<const SDeviceRule> aoRules,
                                              std::span<const SDeviceFacts> aoDevices);

#endif
