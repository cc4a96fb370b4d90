/*
 * What a stream takes from the chip that it belongs to, while a scenario is read.
 */
#ifndef SIMULATED_BOARD_SCENARIO_CONTEXT_H
#define SIMULATED_BOARD_SCENARIO_CONTEXT_H

#include <span>
#include <string>
#include <vector>

#include "ScenarioSection.h"

// A clock that several streams share.
struct SLockGroup
{
    std::string szName;
    int64_t iRatePpt = 0;
    double flWanderTicks = 0.0;
    double flWanderPeriodS = 60.0;
    uint64_t uiKey = 0;
    uint32_t uiLine = 0;
    std::span<const SScenarioNode> aoEvents; // that happen to all its streams
};

// Most events of a stream, and of a lock group.
inline constexpr size_t uiEventLimit = 64;

struct SChipContext
{
    uint64_t uiSeed = 0;
    uint32_t uiChip = 0;
    uint32_t uiTickFreqHz = 0;
    uint64_t uiTickStart = 0;
    std::vector<SLockGroup> aoLockGroups;
};

#endif
