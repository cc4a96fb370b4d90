#include "VideoTimings.h"

#include <algorithm>

#include "BoardUnits.h"

namespace
{

/* Rates and the field period from pixels and lines of a whole frame and the pixel clock. */
void SetRates(SSignal& roSignal, uint64_t uiClockHz, uint64_t uiHTotal, uint64_t uiVTotal, uint32_t uiFieldsPerFrame)
{
    const uint64_t uiPixels = uiHTotal * uiVTotal;
    if (uiClockHz == 0 || uiPixels == 0)
    {
        return;
    }
    VtVideo_VidParam& roParam = roSignal.oVidParam;
    roParam.uiPixelClock_kHz = static_cast<uint32_t>((uiClockHz + 500) / 1000);
    roParam.uiHRate_kHz = static_cast<uint32_t>((uiClockHz + uiHTotal * 500) / (uiHTotal * 1000));
    roParam.uiVRate_Hz = static_cast<uint32_t>((uiClockHz * uiFieldsPerFrame + uiPixels / 2) / uiPixels);
    // In double precision: a frame of nanoseconds times pixels does not fit 64 bits at high resolutions.
    roSignal.uiFieldPeriodNs =
        static_cast<uint64_t>(static_cast<double>(uiPixels) * static_cast<double>(uiNsPerSecond) /
                              (static_cast<double>(uiClockHz) * uiFieldsPerFrame));
}

uint64_t ReducedClockHz(const v4l2_bt_timings& roTimings)
{
    return (roTimings.flags & V4L2_DV_FL_REDUCED_FPS) != 0 ? roTimings.pixelclock * 1000 / 1001 : roTimings.pixelclock;
}

} // namespace

SSignal VideoTimings_FromDv(const v4l2_bt_timings& roTimings)
{
    SSignal oSignal;
    if (roTimings.width == 0 || roTimings.height == 0)
    {
        return oSignal;
    }
    VtVideo_VidParam& roParam = oSignal.oVidParam;
    const bool bInterlaced = roTimings.interlaced != 0;
    roParam.uiHActive = roTimings.width;
    roParam.uiVActive = roTimings.height;
    roParam.uiHFPorch = roTimings.hfrontporch;
    roParam.uiHSync = roTimings.hsync;
    roParam.uiHBPorch = roTimings.hbackporch;
    roParam.uiVFPorch = roTimings.vfrontporch;
    roParam.uiVSync = roTimings.vsync;
    roParam.uiVBPorch = roTimings.vbackporch;
    roParam.bInterlaced = bInterlaced ? 1 : 0;
    roParam.bHorizontalSyncPositive = (roTimings.polarities & V4L2_DV_HSYNC_POS_POL) != 0 ? 1 : 0;
    roParam.bVerticalSyncPositive = (roTimings.polarities & V4L2_DV_VSYNC_POS_POL) != 0 ? 1 : 0;
    const uint64_t uiHTotal =
        uint64_t{roTimings.width} + roTimings.hfrontporch + roTimings.hsync + roTimings.hbackporch;
    uint64_t uiVTotal = uint64_t{roTimings.height} + roTimings.vfrontporch + roTimings.vsync + roTimings.vbackporch;
    if (bInterlaced)
    {
        uiVTotal += uint64_t{roTimings.il_vfrontporch} + roTimings.il_vsync + roTimings.il_vbackporch;
    }
    SetRates(oSignal, ReducedClockHz(roTimings), uiHTotal, uiVTotal, bInterlaced ? 2 : 1);
    return oSignal;
}

SSignal VideoTimings_FromFrame(uint32_t uiWidth, uint32_t uiHeight, const v4l2_fract& roFrameTime, bool bInterlaced)
{
    SSignal oSignal;
    if (uiWidth == 0 || uiHeight == 0)
    {
        return oSignal;
    }
    oSignal.oVidParam.uiHActive = uiWidth;
    oSignal.oVidParam.uiVActive = uiHeight;
    oSignal.oVidParam.bInterlaced = bInterlaced ? 1 : 0;
    // An interlaced frame has an odd number of lines: the tool's own sum adds the one that no field holds.
    const uint64_t uiLines = uint64_t{uiHeight} + (bInterlaced ? 1 : 0);
    if (roFrameTime.numerator != 0)
    {
        SetRates(oSignal, uiWidth * uiLines * roFrameTime.denominator / roFrameTime.numerator, uiWidth, uiLines,
                 bInterlaced ? 2 : 1);
    }
    return oSignal;
}

SSignal VideoTimings_FromCamera(uint32_t uiWidth, uint32_t uiHeight, const v4l2_fract& roAgreed, bool bInterlaced)
{
    SSignal oSignal = VideoTimings_FromFrame(uiWidth, uiHeight, roAgreed, bInterlaced);
    oSignal.oVidParam.uiPixelClock_kHz = 0;
    oSignal.oVidParam.uiHRate_kHz = 0;
    oSignal.uiFieldPeriodNs = 0;
    return oSignal;
}

v4l2_fract VideoTimings_FrameTimeOf(v4l2_std_id uiStandard)
{
    if ((uiStandard & V4L2_STD_525_60) != 0)
    {
        return {1001, 30000};
    }
    return (uiStandard & V4L2_STD_625_50) != 0 ? v4l2_fract{1, 25} : v4l2_fract{0, 0};
}

SSignal VideoTimings_FromMode(const drmModeModeInfo& roMode)
{
    SSignal oSignal;
    if (roMode.hdisplay == 0 || roMode.vdisplay == 0)
    {
        return oSignal;
    }
    VtVideo_VidParam& roParam = oSignal.oVidParam;
    const bool bInterlaced = (roMode.flags & DRM_MODE_FLAG_INTERLACE) != 0;
    const uint32_t uiFields = bInterlaced ? 2 : 1;
    roParam.uiHActive = roMode.hdisplay;
    roParam.uiVActive = roMode.vdisplay;
    roParam.uiHFPorch = static_cast<uint32_t>(std::max(0, roMode.hsync_start - roMode.hdisplay));
    roParam.uiHSync = static_cast<uint32_t>(std::max(0, roMode.hsync_end - roMode.hsync_start));
    roParam.uiHBPorch = static_cast<uint32_t>(std::max(0, roMode.htotal - roMode.hsync_end));
    roParam.uiVFPorch = static_cast<uint32_t>(std::max(0, roMode.vsync_start - roMode.vdisplay)) / uiFields;
    roParam.uiVSync = static_cast<uint32_t>(std::max(0, roMode.vsync_end - roMode.vsync_start)) / uiFields;
    roParam.uiVBPorch = static_cast<uint32_t>(std::max(0, roMode.vtotal - roMode.vsync_end)) / uiFields;
    roParam.bInterlaced = bInterlaced ? 1 : 0;
    roParam.bHorizontalSyncPositive = (roMode.flags & DRM_MODE_FLAG_PHSYNC) != 0 ? 1 : 0;
    roParam.bVerticalSyncPositive = (roMode.flags & DRM_MODE_FLAG_PVSYNC) != 0 ? 1 : 0;
    uint64_t uiLines = roMode.vtotal;
    if ((roMode.flags & DRM_MODE_FLAG_DBLSCAN) != 0)
    {
        uiLines *= 2;
    }
    if (roMode.vscan > 1)
    {
        uiLines *= roMode.vscan;
    }
    SetRates(oSignal, uint64_t{roMode.clock} * 1000, roMode.htotal, uiLines, uiFields);
    return oSignal;
}
