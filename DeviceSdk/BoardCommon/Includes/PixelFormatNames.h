/*
 * The names of pixel formats, which the SDK delivers and texts of users give (there without the common prefix).
 */
#ifndef BOARD_COMMON_PIXEL_FORMAT_NAMES_H
#define BOARD_COMMON_PIXEL_FORMAT_NAMES_H

#include <array>
#include <cstdint>
#include <string_view>

#include "VtVideoTypes.h"

inline constexpr std::string_view szPixelFormatPrefix = "VtPixelFormat_";

// In the order of the values, which start at 0 without gaps.
inline constexpr std::array<std::string_view, 14> aszPixelFormats = {
    "VtPixelFormat_UNKOWN",      "VtPixelFormat_YUV422_YUYV", "VtPixelFormat_YUV422_UYVY", "VtPixelFormat_YUV422_V210",
    "VtPixelFormat_YUV420_NV12", "VtPixelFormat_RGB888",      "VtPixelFormat_BGR888",      "VtPixelFormat_XRGB8888",
    "VtPixelFormat_ARGB8888",    "VtPixelFormat_XBGR8888",    "VtPixelFormat_RGB565",      "VtPixelFormat_XRGB2101010",
    "VtPixelFormat_GREY8",       "VtPixelFormat_MJPEG",
};

static_assert(aszPixelFormats[VtPixelFormat_MJPEG] == "VtPixelFormat_MJPEG");
static_assert(aszPixelFormats[VtPixelFormat_XRGB8888] == "VtPixelFormat_XRGB8888");

/* The name of any value; each ends with a NUL. Pure function. */
constexpr std::string_view PixelFormat_GetName(VtPixelFormat eFormat)
{
    const auto uiFormat = static_cast<uint32_t>(eFormat);
    return aszPixelFormats[uiFormat < aszPixelFormats.size() ? uiFormat : 0];
}

#endif
