/*
 * A recording of the watch as plain rows, for boards that play it again and for those who judge it (docs/Recordings.md
 * says what the file looks like). SQLite is asked for when a recording is read, not before: who reads none needs none.
 */
#ifndef BOARD_COMMON_REPLAY_H
#define BOARD_COMMON_REPLAY_H

#include <cstdint>
#include <string>
#include <vector>

#include "VtVideoTypes.h"

// Waits of a recording at most: more than an hour of sixteen streams at 60 fields/s.
inline constexpr uint64_t uiMostReplayWaits = 4'000'000;

// How a wait ended; numbers of the recording.
enum class EReplayResult : uint8_t
{
    FIELD,
    TIMED_OUT,
    CANCELED,
    FAILED
};

// One wait. Those that gave no field have the counts of the field before; ticks only where they gave one.
struct SReplayWait
{
    uint64_t uiTick = 0;
    uint64_t uiFieldCounter = 0;
    uint64_t uiSetBufferCounter = 0;
    uint64_t uiSkipped = 0;
    // CLOCK_MONOTONIC of the recording machine.
    int64_t iWaitBeginNs = 0;
    int64_t iArrivalNs = 0;
    uint16_t uiReady = 0;
    uint16_t uiLoaned = 0;
    uint16_t uiInternal = 0;
    EReplayResult eResult = EReplayResult::FIELD;
    bool bIsTopField = false;
    bool bHasBuffers = false; // the three counts are known
    bool bHasSkipped = false;
};

// What the stream was from a moment on.
struct SReplayDescription
{
    int64_t iMomentNs = 0;
    VtVideo_VidParam oVidParam{};
    VtPixelFormat ePixelFormat = VtPixelFormat_UNKOWN;
    uint32_t uiWidth = 0;
    uint32_t uiHeight = 0;
    uint32_t uiBuffers = 0;
    uint32_t uiCaptureState = 0; // VtVideoIn_State
    uint32_t uiPowerState = 0;   // VtVideoOut_PowerState
};

struct SReplayStream
{
    bool bIsInput = true;
    uint32_t uiIndex = 0;
    std::string szName; // of its connector
    std::vector<SReplayWait> aoWaits;
    std::vector<SReplayDescription> aoDescriptions; // by moment
};

struct SReplay
{
    uint32_t uiTickFreqHz = 0;
    // One moment in both clocks.
    uint64_t uiClockTick = 0;
    int64_t iClockNs = 0;
    std::vector<SReplayStream> aoInputs; // by index, none left out
    std::vector<SReplayStream> aoOutputs;
};

/*
 * Reads a recording. Entered by any thread; blocks as the file does.
 *   rszFile   in
 *   roReplay  out
 *   rszWhy    out  why not, one line
 * False when it is none, or cannot be read.
 */
bool Replay_Read(const std::string& rszFile, SReplay& roReplay, std::string& rszWhy);

#endif
