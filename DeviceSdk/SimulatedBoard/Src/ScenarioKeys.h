/*
 * Keys that several tables of a scenario have alike. As the readers of a section: true when they were there and right.
 */
#ifndef SIMULATED_BOARD_SCENARIO_KEYS_H
#define SIMULATED_BOARD_SCENARIO_KEYS_H

#include <string_view>

#include "ScenarioSection.h"

/* Rate and wander keys, which lock groups and streams have alike. */
void ScenarioClock_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, int64_t& riRatePpt, double& rflWanderTicks,
                        double& rflWanderPeriodS);
/* The keys "standard" or "timing". */
void ScenarioTiming_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, SScenarioFault& roFault,
                         SVideoTiming& roTiming);
/* A number of ticks from the key "<name>_ticks", "<name>_us" or "<name>_lines"; 0 when there is none of them. */
FixedTicks ScenarioTicks_Read(CScenarioSection& roSection, std::string_view szName, const SVideoTiming& roTiming,
                              uint32_t uiTickFreqHz);
/* The keys that say how an application sets buffers; false when there is none of them. */
bool ScenarioFeed_Read(CScenarioSection& roSection, const SStream& roStream, SBufferFeed& roFeed);
/* The key "pixel_format". */
bool ScenarioPixelFormat_Read(CScenarioSection& roSection, VtPixelFormat& rePixelFormat);

#endif
