/*
 * What an event makes the board say of a stream from then on.
 */
#ifndef SIMULATED_BOARD_SCENARIO_CHANGES_H
#define SIMULATED_BOARD_SCENARIO_CHANGES_H

#include <vector>

#include "ScenarioSection.h"

/* Key by key. */
void ScenarioChanges_Read(CScenarioSection& roSection, EDirection eDirection, std::vector<SMemberChange>& raoChanges);

#endif
