/*
 * The SDK's operations by their names, for what counts them and what makes them fail.
 */
#ifndef SIMULATED_BOARD_OPERATIONS_H
#define SIMULATED_BOARD_OPERATIONS_H

#include <algorithm>

#include "VeltranoOperations.h"

// EOperation::COUNT for a name that is none.
constexpr EOperation Operation_Find(std::string_view szName)
{
    const auto itName = std::ranges::find(aszOperations, szName);
    return static_cast<EOperation>(itName - aszOperations.begin());
}

static_assert(Operation_Find("VtVideoOut_GetPowerState") == EOperation::VtVideoOut_GetPowerState);

#endif
