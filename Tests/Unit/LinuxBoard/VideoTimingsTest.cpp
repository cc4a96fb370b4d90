#include <gtest/gtest.h>
#include <linux/v4l2-dv-timings.h>
#include <sstream>

#include "PixelFormatTable.h"
#include "VideoTimings.h"

namespace
{

std::string Text(const SSignal& roSignal)
{
    const VtVideo_VidParam& ro = roSignal.oVidParam;
    std::ostringstream oText;
    oText << ro.uiHActive << "x" << ro.uiVActive << (ro.bInterlaced ? "i" : "p") << ro.uiVRate_Hz << " "
          << ro.uiHRate_kHz << " " << ro.uiPixelClock_kHz << " kHz, " << ro.uiVFPorch << " " << ro.uiVSync << " "
          << ro.uiVBPorch << (ro.bHorizontalSyncPositive ? " +" : " -") << (ro.bVerticalSyncPositive ? "/+ " : "/- ")
          << roSignal.uiFieldPeriodNs << " ns";
    return oText.str();
}

} // namespace

TEST(VideoTimings, InputsAndCameras)
{
    const v4l2_dv_timings oInterlaced = V4L2_DV_BT_CEA_1920X1080I60;
    v4l2_dv_timings oReduced = V4L2_DV_BT_CEA_1280X720P60;
    oReduced.bt.flags |= V4L2_DV_FL_REDUCED_FPS;
    // 33.75 kHz; the lines of a field, of which the frame has two sets and the one line that neither holds.
    EXPECT_EQ(Text(VideoTimings_FromDv(oInterlaced.bt)), "1920x1080i60 34 74250 kHz, 2 5 15 +/+ 16666666 ns");
    EXPECT_EQ(Text(VideoTimings_FromDv(oReduced.bt)), "1280x720p60 45 74176 kHz, 5 5 20 +/+ 16683333 ns");
    EXPECT_EQ(Text(VideoTimings_FromDv({})), "0x0p0 0 0 kHz, 0 0 0 -/- 0 ns");
    EXPECT_EQ(Text(VideoTimings_FromFrame(640, 480, {1001, 30000}, false)),
              "640x480p30 14 9207 kHz, 0 0 0 -/- 33366667 ns");
    EXPECT_EQ(Text(VideoTimings_FromFrame(720, 576, {1, 25}, true)), "720x576i50 14 10386 kHz, 0 0 0 -/- 20000000 ns");
    EXPECT_EQ(VideoTimings_FromFrame(640, 480, {0, 0}, false).uiFieldPeriodNs, 0U);
    EXPECT_EQ(Text(VideoTimings_FromFrame(720, 480, VideoTimings_FrameTimeOf(V4L2_STD_NTSC_M), true)),
              "720x480i60 14 10379 kHz, 0 0 0 -/- 16683334 ns");
    EXPECT_EQ(Text(VideoTimings_FromCamera(640, 480, {1, 30}, false)), "640x480p30 0 0 kHz, 0 0 0 -/- 0 ns");
}

TEST(VideoTimings, DisplayModes)
{
    drmModeModeInfo oMode{};
    oMode.clock = 74250;
    oMode.hdisplay = 1920, oMode.hsync_start = 2008, oMode.hsync_end = 2052, oMode.htotal = 2200;
    oMode.vdisplay = 1080, oMode.vsync_start = 1084, oMode.vsync_end = 1094, oMode.vtotal = 1125;
    oMode.flags = DRM_MODE_FLAG_INTERLACE | DRM_MODE_FLAG_PVSYNC;
    EXPECT_EQ(Text(VideoTimings_FromMode(oMode)), "1920x1080i60 34 74250 kHz, 2 5 15 -/+ 16666666 ns");
    oMode.flags = DRM_MODE_FLAG_DBLSCAN;
    EXPECT_EQ(VideoTimings_FromMode(oMode).uiFieldPeriodNs, 66666666U);
    oMode.flags = 0;
    oMode.vscan = 3;
    EXPECT_EQ(VideoTimings_FromMode(oMode).uiFieldPeriodNs, 100000000U);
    EXPECT_EQ(VideoTimings_FromMode({}).oVidParam.uiHActive, 0U);
}

TEST(PixelFormatTable, TheTwoKernelsNamesOfOneLayoutMeet)
{
    EXPECT_EQ(PixelFormat_FromV4l2(V4L2_PIX_FMT_XBGR32), PixelFormat_FromDrm(v4l2_fourcc('X', 'R', '2', '4')));
    EXPECT_EQ(PixelFormat_FromV4l2(V4L2_PIX_FMT_YUYV), VtPixelFormat_YUV422_YUYV);
    for (const uint32_t uiYuv : {V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_YVU420, V4L2_PIX_FMT_NV21, V4L2_PIX_FMT_NV16,
                                 V4L2_PIX_FMT_YVYU, V4L2_PIX_FMT_YUV422P, V4L2_PIX_FMT_NV12M, V4L2_PIX_FMT_MJPEG})
    {
        EXPECT_TRUE(PixelFormat_IsYuv(uiYuv)) << uiYuv;
    }
    for (const uint32_t uiRgb : {V4L2_PIX_FMT_RGB24, V4L2_PIX_FMT_XBGR32, V4L2_PIX_FMT_SRGGB12, V4L2_PIX_FMT_RGB565X,
                                 V4L2_PIX_FMT_ARGB555X, 0U})
    {
        EXPECT_FALSE(PixelFormat_IsYuv(uiRgb)) << uiRgb;
    }
    EXPECT_EQ(PixelFormat_FromDrm(0), VtPixelFormat_UNKOWN);
    EXPECT_STREQ(PixelFormat_Name(VtPixelFormat_FORCE32), "VtPixelFormat_UNKOWN");
}
