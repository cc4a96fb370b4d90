/*
 * Signal timings of the kernel in the record of the interface. Arithmetic only; entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_VIDEO_TIMINGS_H
#define LINUX_BOARD_VIDEO_TIMINGS_H

#include "VtVideoTypes.h"

#include <cstdint>
#include <linux/videodev2.h>
#include <xf86drmMode.h>

namespace LinuxBoard
{

struct SSignal
{
    VtVideo_VidParam oVidParam{}; /* all 0 without a signal */
    uint64_t uiFieldPeriodNs = 0; /* 0 when unknown */
};

/* From the timings of a digital input (linux/v4l2-dv-timings.h; porches of a field, lines of a frame). */
SSignal VideoTimings_FromDv(const v4l2_bt_timings& roTimings);

/*
 * From a camera-like input, which knows no blanking: size of the frame and time of a frame (seconds). The pixel clock
 * is the one of the visible pixels, so that the rate computed from the record is the frame rate.
 */
SSignal VideoTimings_FromFrame(uint32_t uiWidth, uint32_t uiHeight, const v4l2_fract& roFrameTime, bool bInterlaced);

/* From the mode of a display (lines and vertical positions of a frame, also when interlaced). */
SSignal VideoTimings_FromMode(const drmModeModeInfo& roMode);

} // namespace LinuxBoard

#endif
