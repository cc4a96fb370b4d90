/*
 * From a scenario text to a scenario that can run. Whatever is wrong in the text refuses it whole: nothing is guessed.
 * Pure functions of the text; reads no file and prints nothing.
 */
#ifndef SIMULATED_BOARD_SCENARIO_READER_H
#define SIMULATED_BOARD_SCENARIO_READER_H

#include <string_view>

#include "Scenario.h"
#include "ScenarioSection.h"

/* False with roFault set when the text is refused. */
bool Scenario_Read(std::string_view szText, SScenario& roScenario, SScenarioFault& roFault);

/* The name by which a scenario calls a kind of event. */
std::string_view EventKind_GetName(EEventKind eKind);
/* Whether it lasts for fields, instead of happening at one. */
bool EventKind_IsLasting(EEventKind eKind);

// ---- Pieces of the reader, one file each ----

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

// What a stream takes from the chip that it belongs to.
struct SChipContext
{
    uint64_t uiSeed = 0;
    uint32_t uiChip = 0;
    uint32_t uiTickFreqHz = 0;
    uint64_t uiTickStart = 0;
    std::vector<SLockGroup> aoLockGroups;
};

/* Rate and wander keys, which lock groups and streams have alike. */
void ScenarioClock_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, int64_t& riRatePpt, double& rflWanderTicks,
                        double& rflWanderPeriodS);
/* The keys "standard" or "timing". */
void ScenarioTiming_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, SScenarioFault& roFault,
                         SVideoTiming& roTiming);
/* A number of ticks from the key "<name>_ticks", "<name>_us" or "<name>_lines"; 0 when there is none of them. */
FixedTicks ScenarioTicks_Read(CScenarioSection& roSection, std::string_view szName, const SVideoTiming& roTiming,
                              uint32_t uiTickFreqHz);
void ScenarioStream_Read(const SScenarioNode& roTable, const SChipContext& roContext, EDirection eDirection,
                         uint32_t uiIndex, SChip& roChip, SScenarioFault& roFault);
void ScenarioConnector_Read(const SScenarioNode& roTable, SChip& roChip, SScenarioFault& roFault);
/* Appends the events of a stream whose other members are read, and those of its lock group (null: it has none). */
void ScenarioEvents_Read(CScenarioSection& roStreamSection, const SChipContext& roContext, const SLockGroup* poGroup,
                         SStream& roStream, SScenarioFault& roFault);
/* The keys that say how an application sets buffers; false when there is none of them. */
bool ScenarioFeed_Read(CScenarioSection& roSection, const SStream& roStream, SBufferFeed& roFeed);
/* The key "pixel_format". */
bool ScenarioPixelFormat_Read(CScenarioSection& roSection, VtPixelFormat& rePixelFormat);
/* What an event says of a stream from then on, key by key. */
void ScenarioChanges_Read(CScenarioSection& roSection, EDirection eDirection, std::vector<SMemberChange>& raoChanges);
void ScenarioFaultRule_Read(const SScenarioNode& roTable, SScenario& roScenario, SScenarioFault& roFault);

#endif
