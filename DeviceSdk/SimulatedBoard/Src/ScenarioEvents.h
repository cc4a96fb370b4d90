/*
 * The events of a stream, and calls that fail on purpose.
 */
#ifndef SIMULATED_BOARD_SCENARIO_EVENTS_H
#define SIMULATED_BOARD_SCENARIO_EVENTS_H

#include <string_view>

#include "ScenarioContext.h"

/* The name by which a scenario calls a kind of event. */
std::string_view EventKind_GetName(EEventKind eKind);
/* Whether it lasts for fields, instead of happening at one. */
bool EventKind_IsLasting(EEventKind eKind);

/* Appends the events of a stream whose other members are read, and those of its lock group (null: it has none). */
void ScenarioEvents_Read(CScenarioSection& roStreamSection, const SChipContext& roContext, const SLockGroup* poGroup,
                         SStream& roStream, SScenarioFault& roFault);
void ScenarioFaultRule_Read(const SScenarioNode& roTable, SScenario& roScenario, SScenarioFault& roFault);

#endif
