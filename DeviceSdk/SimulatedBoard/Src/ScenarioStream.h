/*
 * One input or output of a scenario.
 */
#ifndef SIMULATED_BOARD_SCENARIO_STREAM_H
#define SIMULATED_BOARD_SCENARIO_STREAM_H

#include "ScenarioContext.h"

/* Appends the stream, and its connector, to the chip. */
void ScenarioStream_Read(const SScenarioNode& roTable, const SChipContext& roContext, EDirection eDirection,
                         uint32_t uiIndex, SChip& roChip, SScenarioFault& roFault);

#endif
