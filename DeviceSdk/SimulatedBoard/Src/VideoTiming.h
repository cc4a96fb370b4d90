/*
 * Timings of a video signal: the standards by name, and the arithmetic from timings to durations and to the SDK's
 * record. Pure functions and constant tables.
 */
#ifndef SIMULATED_BOARD_VIDEO_TIMING_H
#define SIMULATED_BOARD_VIDEO_TIMING_H

#include <cstdint>
#include <span>
#include <string_view>

#include "TickMath.h"
#include "VtVideoTypes.h"

// Pixels, lines and Hz. Vertical blanking of an interlaced signal is that of one field, the active lines are those of
// the frame.
struct SVideoTiming
{
    uint32_t uiHActive = 0;
    uint32_t uiHFPorch = 0;
    uint32_t uiHSync = 0;
    uint32_t uiHBPorch = 0;
    uint32_t uiVActive = 0;
    uint32_t uiVFPorch = 0;
    uint32_t uiVSync = 0;
    uint32_t uiVBPorch = 0;
    uint64_t uiPixelClockHz = 0;
    bool bClockBy1001 = false; // the true clock is uiPixelClockHz * 1000 / 1001
    bool bInterlaced = false;
    bool bBottomFieldFirst = false;
    bool bHSyncPositive = false;
    bool bVSyncPositive = false;
};

struct SVideoStandard
{
    std::string_view szName;
    SVideoTiming oTiming;
};

/* Every standard that a scenario may name. */
std::span<const SVideoStandard> VideoStandard_GetAll();

/* The timings of a standard; null when there is none of that name. */
const SVideoTiming* VideoStandard_Find(std::string_view szName);

constexpr uint64_t VideoTiming_GetHTotal(const SVideoTiming& roTiming)
{
    return uint64_t{roTiming.uiHActive} + roTiming.uiHFPorch + roTiming.uiHSync + roTiming.uiHBPorch;
}

// Lines of a frame; an interlaced one has the odd line that gives its fields their half line.
constexpr uint64_t VideoTiming_GetVTotal(const SVideoTiming& roTiming)
{
    const uint64_t uiBlanking = uint64_t{roTiming.uiVFPorch} + roTiming.uiVSync + roTiming.uiVBPorch;
    return roTiming.bInterlaced ? roTiming.uiVActive + 2 * uiBlanking + 1 : roTiming.uiVActive + uiBlanking;
}

/* Duration of a field (of a frame when progressive) at a clock that is iRatePpt parts in 10^12 fast. */
FixedTicks VideoTiming_GetFieldTicks(const SVideoTiming& roTiming, uint32_t uiTickFreqHz, int64_t iRatePpt);

/* Duration of a line. */
FixedTicks VideoTiming_GetLineTicks(const SVideoTiming& roTiming, uint32_t uiTickFreqHz);

/* The SDK's record of the timings; its rates are rounded to the nearest whole unit, halves downward. */
VtVideo_VidParam VideoTiming_ToVidParam(const SVideoTiming& roTiming);

#endif
