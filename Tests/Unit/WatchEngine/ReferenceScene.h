// A seeded scene for the engine and the reference model: what the threads of a few streams would hand over while their
// signals lose, repeat, shift and miscount fields. No board and no engine stand behind it.
#ifndef REFERENCE_SCENE_H
#define REFERENCE_SCENE_H

#include <cstdint>
#include <vector>

#include "FieldRecord.h"
#include "WatchSettings.h"

struct SSceneStream
{
    SStreamDescription oDescription = {};
    double flNominalHz = 0.0;
    double flJitterSeconds = 0.0;
    std::vector<SFieldRecord> aoRecords;
};

struct SScene
{
    uint32_t uiSeconds = 0;
    SWatchSettings oSettings;
    std::vector<SSceneStream> aoInputs;
};

constexpr uint64_t gc_uiSceneBeginNs = 5'000'000'000'000;     // CLOCK_MONOTONIC
constexpr uint64_t gc_uiSceneBeginSeconds = 1'000;            // of the chip's clock
constexpr int64_t gc_iSceneUtcNs = 1'790'000'000'123'456'789; // CLOCK_REALTIME beyond CLOCK_MONOTONIC

SScene Scene_Make(uint64_t uiSeed);
uint64_t Scene_ToNs(const SScene& roScene, uint64_t uiTick);
uint64_t Scene_ToTick(const SScene& roScene, uint64_t uiNs);

#endif
