/*
 * From a scenario text to a scenario that can run. Whatever is wrong in the text refuses it whole: nothing is guessed.
 * Pure functions of the text and of the recordings that it names; prints nothing.
 */
#ifndef SIMULATED_BOARD_SCENARIO_READER_H
#define SIMULATED_BOARD_SCENARIO_READER_H

#include <string_view>

#include "Scenario.h"
#include "ScenarioReplay.h"

/*
 * False with roFault set when the text is refused.
 *   rfnRead  in  the one thing that is asked for besides the text; empty: no recordings are played
 */
bool Scenario_Read(std::string_view szText, SScenario& roScenario, SScenarioFault& roFault,
                   const ReplayReader& rfnRead = {});

#endif
