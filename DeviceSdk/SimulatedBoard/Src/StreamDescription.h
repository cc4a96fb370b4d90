/*
 * What a board says of a stream besides its fields: the SDK's timings, the buffers' layout and size, the capture state.
 * Plain data.
 */
#ifndef SIMULATED_BOARD_STREAM_DESCRIPTION_H
#define SIMULATED_BOARD_STREAM_DESCRIPTION_H

#include <cstdint>

#include "VtVideoTypes.h"

struct SStreamDescription
{
    VtVideo_VidParam oVidParam{};
    VtPixelFormat ePixelFormat = VtPixelFormat_YUV422_UYVY;
    uint32_t uiWidth = 0; // of the buffers, pixels
    uint32_t uiHeight = 0;
    VtVideoIn_State eCaptureState = VtVideoIn_State_STARTED; // inputs
};

// A member that is said to be something else from some moment on.
struct SMemberChange
{
    void (*fnSet)(SStreamDescription& roDescription, uint32_t uiValue) = nullptr;
    uint32_t uiValue = 0;
};

#endif
