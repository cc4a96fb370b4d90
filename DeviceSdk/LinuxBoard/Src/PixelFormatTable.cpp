#include "PixelFormatTable.h"

#include <algorithm>
#include <drm_fourcc.h>
#include <iterator>
#include <linux/videodev2.h>

#include "PixelFormatNames.h"

namespace
{

struct SPixelFormat
{
    VtPixelFormat eFormat;
    uint32_t uiV4l2;
    uint32_t uiDrm;
};

// The kernel's two sets of codes name RGB from opposite ends: V4L2 in the order of the bytes in memory, DRM in the
// order of the bits of a little-endian word.
constexpr SPixelFormat aoPixelFormats[] = {
    {VtPixelFormat_UNKOWN, 0, 0},
    {VtPixelFormat_YUV422_YUYV, V4L2_PIX_FMT_YUYV, DRM_FORMAT_YUYV},
    {VtPixelFormat_YUV422_UYVY, V4L2_PIX_FMT_UYVY, DRM_FORMAT_UYVY},
    {VtPixelFormat_YUV422_V210, v4l2_fourcc('v', '2', '1', '0'), 0},
    {VtPixelFormat_YUV420_NV12, V4L2_PIX_FMT_NV12, DRM_FORMAT_NV12},
    {VtPixelFormat_RGB888, V4L2_PIX_FMT_BGR24, DRM_FORMAT_RGB888},
    {VtPixelFormat_BGR888, V4L2_PIX_FMT_RGB24, DRM_FORMAT_BGR888},
    {VtPixelFormat_XRGB8888, V4L2_PIX_FMT_XBGR32, DRM_FORMAT_XRGB8888},
    {VtPixelFormat_ARGB8888, V4L2_PIX_FMT_ABGR32, DRM_FORMAT_ARGB8888},
    {VtPixelFormat_XBGR8888, V4L2_PIX_FMT_RGBX32, DRM_FORMAT_XBGR8888},
    {VtPixelFormat_RGB565, V4L2_PIX_FMT_RGB565, DRM_FORMAT_RGB565},
    {VtPixelFormat_XRGB2101010, 0, DRM_FORMAT_XRGB2101010},
    {VtPixelFormat_GREY8, V4L2_PIX_FMT_GREY, DRM_FORMAT_R8},
    {VtPixelFormat_MJPEG, V4L2_PIX_FMT_MJPEG, 0},
};
static_assert(std::size(aoPixelFormats) == VtPixelFormat_MJPEG + 1, "one row a format");

// The codes of RGB, of raw sensors (a filter of red, green and blue) and of what is derived from RGB. All others are
// luma with or without chroma, also inside a compressed stream.
constexpr uint32_t auiRgbCodes[] = {
    V4L2_PIX_FMT_RGB332, V4L2_PIX_FMT_RGB444, V4L2_PIX_FMT_ARGB444, V4L2_PIX_FMT_XRGB444, V4L2_PIX_FMT_RGBA444,
    V4L2_PIX_FMT_RGBX444, V4L2_PIX_FMT_ABGR444, V4L2_PIX_FMT_XBGR444, V4L2_PIX_FMT_BGRA444, V4L2_PIX_FMT_BGRX444,
    V4L2_PIX_FMT_RGB555, V4L2_PIX_FMT_ARGB555, V4L2_PIX_FMT_XRGB555, V4L2_PIX_FMT_RGBA555, V4L2_PIX_FMT_RGBX555,
    V4L2_PIX_FMT_ABGR555, V4L2_PIX_FMT_XBGR555, V4L2_PIX_FMT_BGRA555, V4L2_PIX_FMT_BGRX555, V4L2_PIX_FMT_RGB565,
    V4L2_PIX_FMT_RGB555X, V4L2_PIX_FMT_ARGB555X, V4L2_PIX_FMT_XRGB555X, V4L2_PIX_FMT_RGB565X, V4L2_PIX_FMT_BGR666,
    V4L2_PIX_FMT_BGR24, V4L2_PIX_FMT_RGB24, V4L2_PIX_FMT_BGR32, V4L2_PIX_FMT_ABGR32, V4L2_PIX_FMT_XBGR32,
    V4L2_PIX_FMT_BGRA32, V4L2_PIX_FMT_BGRX32, V4L2_PIX_FMT_RGB32, V4L2_PIX_FMT_RGBA32, V4L2_PIX_FMT_RGBX32,
    V4L2_PIX_FMT_ARGB32, V4L2_PIX_FMT_XRGB32, V4L2_PIX_FMT_PAL8, V4L2_PIX_FMT_HSV24, V4L2_PIX_FMT_HSV32,
    V4L2_PIX_FMT_SBGGR8, V4L2_PIX_FMT_SGBRG8, V4L2_PIX_FMT_SGRBG8, V4L2_PIX_FMT_SRGGB8, V4L2_PIX_FMT_SBGGR10,
    V4L2_PIX_FMT_SGBRG10, V4L2_PIX_FMT_SGRBG10, V4L2_PIX_FMT_SRGGB10, V4L2_PIX_FMT_SBGGR10P, V4L2_PIX_FMT_SGBRG10P,
    V4L2_PIX_FMT_SGRBG10P, V4L2_PIX_FMT_SRGGB10P, V4L2_PIX_FMT_SBGGR12, V4L2_PIX_FMT_SGBRG12, V4L2_PIX_FMT_SGRBG12,
    V4L2_PIX_FMT_SRGGB12, V4L2_PIX_FMT_SBGGR12P, V4L2_PIX_FMT_SGBRG12P, V4L2_PIX_FMT_SGRBG12P, V4L2_PIX_FMT_SRGGB12P,
    V4L2_PIX_FMT_SBGGR14, V4L2_PIX_FMT_SGBRG14, V4L2_PIX_FMT_SGRBG14, V4L2_PIX_FMT_SRGGB14, V4L2_PIX_FMT_SBGGR14P,
    V4L2_PIX_FMT_SGBRG14P, V4L2_PIX_FMT_SGRBG14P, V4L2_PIX_FMT_SRGGB14P, V4L2_PIX_FMT_SBGGR16, V4L2_PIX_FMT_SGBRG16,
    V4L2_PIX_FMT_SGRBG16, V4L2_PIX_FMT_SRGGB16, V4L2_PIX_FMT_SBGGR10ALAW8, V4L2_PIX_FMT_SGBRG10ALAW8,
    V4L2_PIX_FMT_SGRBG10ALAW8, V4L2_PIX_FMT_SRGGB10ALAW8, V4L2_PIX_FMT_SBGGR10DPCM8, V4L2_PIX_FMT_SGBRG10DPCM8,
    V4L2_PIX_FMT_SGRBG10DPCM8, V4L2_PIX_FMT_SRGGB10DPCM8, V4L2_PIX_FMT_HI240,
    // Younger than some kernels' headers: 12 and 16 bits a colour, 10 bits in words of 32.
    v4l2_fourcc('B', '3', '1', '2'), v4l2_fourcc('B', 'G', 'R', '6'), v4l2_fourcc('R', 'G', 'B', '6'),
    v4l2_fourcc('R', 'X', '3', '0'), v4l2_fourcc('R', 'A', '3', '0'), v4l2_fourcc('A', 'R', '3', '0')};

VtPixelFormat Find(uint32_t SPixelFormat::*puiCode, uint32_t uiFourCc)
{
    for (const SPixelFormat& roRow : aoPixelFormats)
    {
        if (uiFourCc != 0 && roRow.*puiCode == uiFourCc)
        {
            return roRow.eFormat;
        }
    }
    return VtPixelFormat_UNKOWN;
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

bool PixelFormat_IsYuv(uint32_t uiV4l2FourCc)
{
    constexpr uint32_t uiBigEndian = uint32_t{1} << 31; // a variant of the same layout
    const uint32_t uiCode = uiV4l2FourCc & ~uiBigEndian;
    return uiCode != 0 &&
           std::find_if(std::begin(auiRgbCodes), std::end(auiRgbCodes),
                        [uiCode](uint32_t uiRgb) { return (uiRgb & ~uiBigEndian) == uiCode; }) == std::end(auiRgbCodes);
}

const char* PixelFormat_Name(VtPixelFormat ePixelFormat)
{
    return PixelFormat_GetName(ePixelFormat).data(); // of literals, which are terminated
}
