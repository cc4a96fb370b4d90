/*
 * From a scenario text to a scenario that can run. Whatever is wrong in the text refuses it whole: nothing is guessed.
 * Pure functions of the text; reads no file and prints nothing.
 */
#ifndef SIMULATED_BOARD_SCENARIO_READER_H
#define SIMULATED_BOARD_SCENARIO_READER_H

#include <string_view>

#include "Scenario.h"

/* False with roFault set when the text is refused. */
bool Scenario_Read(std::string_view szText, SScenario& roScenario, SScenarioFault& roFault);

#endif
