/*
 * A chip whose streams come from a recording.
 */
#ifndef SIMULATED_BOARD_SCENARIO_REPLAY_H
#define SIMULATED_BOARD_SCENARIO_REPLAY_H

#include <functional>
#include <string>

#include "Replay.h"
#include "ScenarioContext.h"

// Reads a recording that a scenario names; false with rszWhy set when it cannot be played.
using ReplayReader = std::function<bool(const std::string& rszFile, SReplay& roReplay, std::string& rszWhy)>;

/*
 * Everything of a chip but its clock and removal.
 *   bKeepsTimeOuts  in  see CReplayTrack
 */
void ScenarioReplay_Read(CScenarioSection& roSection, const std::string& rszFile, const ReplayReader& rfnRead,
                         bool bKeepsTimeOuts, SChipContext& roContext, SChip& roChip, SScenarioFault& roFault);

#endif
