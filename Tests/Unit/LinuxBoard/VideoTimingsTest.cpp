#include "VideoTimings.h"
#include "PixelFormatTable.h"

#include <gtest/gtest.h>
#include <linux/v4l2-dv-timings.h>

using namespace LinuxBoard;

TEST(VideoTimings, DigitalInput)
{
    const v4l2_dv_timings oInterlaced = V4L2_DV_BT_CEA_1920X1080I60;
    SSignal oSignal = VideoTimings_FromDv(oInterlaced.bt);
    EXPECT_EQ(oSignal.oVidParam.uiVActive, 1080U);
    EXPECT_EQ(oSignal.oVidParam.uiVRate_Hz, 60U);
    EXPECT_EQ(oSignal.oVidParam.uiHRate_kHz, 34U); // 33.75
    EXPECT_EQ(oSignal.oVidParam.uiPixelClock_kHz, 74250U);
    EXPECT_EQ(oSignal.oVidParam.bInterlaced, 1U);
    EXPECT_EQ(oSignal.oVidParam.bHorizontalSyncPositive, 1U);
    EXPECT_EQ(oSignal.uiFieldPeriodNs, 16666666U);
    // The lines of a field: the frame is both fields and the one line that neither holds.
    EXPECT_EQ(oSignal.oVidParam.uiVActive +
                  2 * (oSignal.oVidParam.uiVFPorch + oSignal.oVidParam.uiVSync + oSignal.oVidParam.uiVBPorch) + 1,
              1125U);
    v4l2_dv_timings oReduced = V4L2_DV_BT_CEA_1280X720P60;
    oReduced.bt.flags |= V4L2_DV_FL_REDUCED_FPS;
    oSignal = VideoTimings_FromDv(oReduced.bt);
    EXPECT_EQ(oSignal.uiFieldPeriodNs, 16683333U);
    EXPECT_EQ(oSignal.oVidParam.uiPixelClock_kHz, 74176U);
    EXPECT_EQ(oSignal.oVidParam.uiVRate_Hz, 60U);
    EXPECT_EQ(VideoTimings_FromDv({}).oVidParam.uiVRate_Hz, 0U);
}

TEST(VideoTimings, Camera)
{
    SSignal oSignal = VideoTimings_FromFrame(640, 480, {1001, 30000}, false);
    EXPECT_EQ(oSignal.oVidParam.uiVRate_Hz, 30U);
    EXPECT_EQ(oSignal.uiFieldPeriodNs, 33366667U);
    oSignal = VideoTimings_FromFrame(720, 576, {1, 25}, true);
    EXPECT_EQ(oSignal.oVidParam.uiVRate_Hz, 50U);
    EXPECT_EQ(oSignal.uiFieldPeriodNs, 20000000U);
    EXPECT_EQ(oSignal.oVidParam.uiPixelClock_kHz * 1000, 720U * 577 * 25 / 1000 * 1000);
    EXPECT_EQ(VideoTimings_FromFrame(640, 480, {0, 0}, false).uiFieldPeriodNs, 0U);
}

TEST(VideoTimings, DisplayMode)
{
    drmModeModeInfo oMode{};
    oMode.clock = 74250;
    oMode.hdisplay = 1920, oMode.hsync_start = 2008, oMode.hsync_end = 2052, oMode.htotal = 2200;
    oMode.vdisplay = 1080, oMode.vsync_start = 1084, oMode.vsync_end = 1094, oMode.vtotal = 1125;
    oMode.flags = DRM_MODE_FLAG_INTERLACE | DRM_MODE_FLAG_PVSYNC;
    SSignal oSignal = VideoTimings_FromMode(oMode);
    EXPECT_EQ(oSignal.oVidParam.uiVRate_Hz, 60U);
    EXPECT_EQ(oSignal.oVidParam.uiVFPorch, 2U);
    EXPECT_EQ(oSignal.oVidParam.uiVSync, 5U);
    EXPECT_EQ(oSignal.oVidParam.uiVBPorch, 15U);
    EXPECT_EQ(oSignal.oVidParam.bVerticalSyncPositive, 1U);
    EXPECT_EQ(oSignal.oVidParam.bHorizontalSyncPositive, 0U);
    EXPECT_EQ(oSignal.uiFieldPeriodNs, 16666666U);
    oMode.flags = DRM_MODE_FLAG_DBLSCAN;
    EXPECT_EQ(VideoTimings_FromMode(oMode).uiFieldPeriodNs, 66666666U);
    EXPECT_EQ(VideoTimings_FromMode({}).oVidParam.uiHActive, 0U);
}

TEST(PixelFormatTable, TheTwoKernelsNamesOfOneLayoutMeet)
{
    EXPECT_EQ(PixelFormat_FromV4l2(V4L2_PIX_FMT_XBGR32), PixelFormat_FromDrm(v4l2_fourcc('X', 'R', '2', '4')));
    EXPECT_EQ(PixelFormat_FromV4l2(V4L2_PIX_FMT_YUYV), VtPixelFormat_YUV422_YUYV);
    EXPECT_TRUE(PixelFormat_IsYuv(VtPixelFormat_MJPEG));
    EXPECT_EQ(PixelFormat_FromDrm(0), VtPixelFormat_UNKOWN);
    EXPECT_STREQ(PixelFormat_Name(VtPixelFormat_FORCE32), "VtPixelFormat_UNKOWN");
}
