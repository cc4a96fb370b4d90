/*
 * Signal timings of the kernel in the record of the interface. Arithmetic only; entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_VIDEO_TIMINGS_H
#define LINUX_BOARD_VIDEO_TIMINGS_H

#include <cstdint>
#include <linux/videodev2.h>
#include <xf86drmMode.h>

#include "VtVideoTypes.h"

struct SSignal
{
    VtVideo_VidParam oVidParam{}; /* all 0 without a signal */
    uint64_t uiFieldPeriodNs = 0; /* 0 when unknown, or when the signal does not fix it */
};

/* From the timings of a digital input (linux/v4l2-dv-timings.h; porches of a field, lines of a frame). */
SSignal VideoTimings_FromDv(const v4l2_bt_timings& roTimings);

/*
 * From an analogue input, which knows no blanking: size of the frame and time of a frame (seconds). The pixel clock is
 * the one of the visible pixels, so that the rate computed from the record is the frame rate.
 */
SSignal VideoTimings_FromFrame(uint32_t uiWidth, uint32_t uiHeight, const v4l2_fract& roFrameTime, bool bInterlaced);

/*
 * From a camera: it has agreed on a frame time, but takes longer when the light asks for it. The vertical rate is the
 * one agreed on; the clocks, from which a nominal rate would be computed, are 0.
 */
SSignal VideoTimings_FromCamera(uint32_t uiWidth, uint32_t uiHeight, const v4l2_fract& roAgreed, bool bInterlaced);

/* The time of a frame (seconds) of a television standard (V4L2_STD_...); {0, 0} without one. */
v4l2_fract VideoTimings_FrameTimeOf(v4l2_std_id uiStandard);

/* From the mode of a display (lines and vertical positions of a frame, also when interlaced). */
SSignal VideoTimings_FromMode(const drmModeModeInfo& roMode);

#endif
