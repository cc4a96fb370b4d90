/*
 * Where the scenario comes from: a test, the file that the environment names, or the built-in default. Thread-safe.
 */
#ifndef SIMULATED_BOARD_SCENARIO_SOURCE_H
#define SIMULATED_BOARD_SCENARIO_SOURCE_H

#include <optional>
#include <string>

#include "Scenario.h"
#include "ScenarioReader.h"

// The text of the built-in default, generated from Scenarios/Default.toml.
extern const char* const g_szDefaultScenario;

/* Overrides the environment from the next load on; nullopt ends that. */
void ScenarioSource_Override(std::optional<std::string> szText);

/*
 * Finds and reads the scenario. False when there is none, with "<file>:<line>: <fault>" on standard error.
 *   rszIntro  out  what to say once it runs; empty for a test's own scenario
 */
bool ScenarioSource_Load(SScenario& roScenario, std::string& rszIntro);

/* What reads the recordings that a scenario names, by its own file's name. */
ReplayReader ScenarioSource_GetReplayReader(const std::string& rszScenario);

inline constexpr const char* szOverrideName = "scenario text";

#endif
