#include "PixelFormatTable.h"

#include <drm_fourcc.h>
#include <iterator>
#include <linux/videodev2.h>

namespace LinuxBoard
{

namespace
{

struct SPixelFormat
{
    const char* szName;
    VtPixelFormat eFormat;
    uint32_t uiV4l2;
    uint32_t uiDrm;
    bool bYuv;
};

// The kernel's two sets of codes name RGB from opposite ends: V4L2 in the order of the bytes in memory, DRM in the
// order of the bits of a little-endian word.
constexpr SPixelFormat aoPixelFormats[] = {
    {"VtPixelFormat_UNKOWN", VtPixelFormat_UNKOWN, 0, 0, false},
    {"VtPixelFormat_YUV422_YUYV", VtPixelFormat_YUV422_YUYV, V4L2_PIX_FMT_YUYV, DRM_FORMAT_YUYV, true},
    {"VtPixelFormat_YUV422_UYVY", VtPixelFormat_YUV422_UYVY, V4L2_PIX_FMT_UYVY, DRM_FORMAT_UYVY, true},
    {"VtPixelFormat_YUV422_V210", VtPixelFormat_YUV422_V210, v4l2_fourcc('v', '2', '1', '0'), 0, true},
    {"VtPixelFormat_YUV420_NV12", VtPixelFormat_YUV420_NV12, V4L2_PIX_FMT_NV12, DRM_FORMAT_NV12, true},
    {"VtPixelFormat_RGB888", VtPixelFormat_RGB888, V4L2_PIX_FMT_BGR24, DRM_FORMAT_RGB888, false},
    {"VtPixelFormat_BGR888", VtPixelFormat_BGR888, V4L2_PIX_FMT_RGB24, DRM_FORMAT_BGR888, false},
    {"VtPixelFormat_XRGB8888", VtPixelFormat_XRGB8888, V4L2_PIX_FMT_XBGR32, DRM_FORMAT_XRGB8888, false},
    {"VtPixelFormat_ARGB8888", VtPixelFormat_ARGB8888, V4L2_PIX_FMT_ABGR32, DRM_FORMAT_ARGB8888, false},
    {"VtPixelFormat_XBGR8888", VtPixelFormat_XBGR8888, V4L2_PIX_FMT_RGBX32, DRM_FORMAT_XBGR8888, false},
    {"VtPixelFormat_RGB565", VtPixelFormat_RGB565, V4L2_PIX_FMT_RGB565, DRM_FORMAT_RGB565, false},
    {"VtPixelFormat_XRGB2101010", VtPixelFormat_XRGB2101010, 0, DRM_FORMAT_XRGB2101010, false},
    {"VtPixelFormat_GREY8", VtPixelFormat_GREY8, V4L2_PIX_FMT_GREY, DRM_FORMAT_R8, true},
    {"VtPixelFormat_MJPEG", VtPixelFormat_MJPEG, V4L2_PIX_FMT_MJPEG, 0, true},
};
static_assert(std::size(aoPixelFormats) == VtPixelFormat_MJPEG + 1, "one row a format");

VtPixelFormat Find(uint32_t SPixelFormat::*puiCode, uint32_t uiFourCc)
{
    for (const SPixelFormat& roRow : aoPixelFormats)
        if (uiFourCc != 0 && roRow.*puiCode == uiFourCc)
            return roRow.eFormat;
    return VtPixelFormat_UNKOWN;
}

const SPixelFormat& Row(VtPixelFormat ePixelFormat)
{
    for (const SPixelFormat& roRow : aoPixelFormats)
        if (roRow.eFormat == ePixelFormat)
            return roRow;
    return aoPixelFormats[VtPixelFormat_UNKOWN];
}

} // namespace

VtPixelFormat PixelFormat_FromV4l2(uint32_t uiFourCc)
{
    return Find(&SPixelFormat::uiV4l2, uiFourCc);
}

VtPixelFormat PixelFormat_FromDrm(uint32_t uiFourCc)
{
    return Find(&SPixelFormat::uiDrm, uiFourCc);
}

bool PixelFormat_IsYuv(VtPixelFormat ePixelFormat)
{
    return Row(ePixelFormat).bYuv;
}

const char* PixelFormat_Name(VtPixelFormat ePixelFormat)
{
    return Row(ePixelFormat).szName;
}

} // namespace LinuxBoard
