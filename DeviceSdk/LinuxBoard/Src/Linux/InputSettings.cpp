#include "InputSettings.h"

#include <cerrno>
#include <cstring>

#include "V4l2Node.h"

namespace
{

bool ReadRectangle(int iFd, uint32_t uiTarget, v4l2_rect& roRectangle)
{
    v4l2_selection oSelection{};
    oSelection.type = V4L2_BUF_TYPE_VIDEO_CAPTURE; // also for planes
    oSelection.target = uiTarget;
    const bool bRead = V4l2_Ioctl(iFd, VIDIOC_G_SELECTION, &oSelection) == 0;
    roRectangle = bRead ? oSelection.r : v4l2_rect{};
    return bRead;
}

int WriteRectangle(int iFd, uint32_t uiTarget, const v4l2_rect& roRectangle)
{
    v4l2_rect oNow{};
    if (ReadRectangle(iFd, uiTarget, oNow) && std::memcmp(&oNow, &roRectangle, sizeof(oNow)) == 0)
    {
        return 0;
    }
    v4l2_selection oSelection{};
    oSelection.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    oSelection.target = uiTarget;
    oSelection.r = roRectangle;
    return V4l2_Ioctl(iFd, VIDIOC_S_SELECTION, &oSelection);
}

int WriteTimings(int iFd, const SInputSettings& roSettings)
{
    v4l2_dv_timings oNow{};
    if (roSettings.bTimings == 0 || (V4l2_Ioctl(iFd, VIDIOC_G_DV_TIMINGS, &oNow) == 0 &&
                                     std::memcmp(&oNow.bt, &roSettings.oTimings.bt, sizeof(oNow.bt)) == 0))
    {
        return 0;
    }
    v4l2_dv_timings oTimings = roSettings.oTimings;
    return V4l2_Ioctl(iFd, VIDIOC_S_DV_TIMINGS, &oTimings);
}

int WriteFormat(int iFd, const v4l2_format& roFormat)
{
    v4l2_format oNow{};
    oNow.type = roFormat.type;
    if (V4l2_Ioctl(iFd, VIDIOC_G_FMT, &oNow) == 0 && InputSettings_IsSameFormat(oNow, roFormat))
    {
        return 0;
    }
    v4l2_format oFormat = roFormat;
    return V4l2_Ioctl(iFd, VIDIOC_S_FMT, &oFormat);
}

} // namespace

bool InputSettings_IsSameFormat(const v4l2_format& roOne, const v4l2_format& roOther)
{
    if (roOne.type != roOther.type)
    {
        return false;
    }
    if (roOne.type == V4L2_BUF_TYPE_VIDEO_CAPTURE)
    {
        return roOne.fmt.pix.width == roOther.fmt.pix.width && roOne.fmt.pix.height == roOther.fmt.pix.height &&
               roOne.fmt.pix.pixelformat == roOther.fmt.pix.pixelformat &&
               roOne.fmt.pix.field == roOther.fmt.pix.field &&
               roOne.fmt.pix.bytesperline == roOther.fmt.pix.bytesperline;
    }
    return roOne.fmt.pix_mp.width == roOther.fmt.pix_mp.width && roOne.fmt.pix_mp.height == roOther.fmt.pix_mp.height &&
           roOne.fmt.pix_mp.pixelformat == roOther.fmt.pix_mp.pixelformat &&
           roOne.fmt.pix_mp.field == roOther.fmt.pix_mp.field &&
           roOne.fmt.pix_mp.plane_fmt[0].bytesperline == roOther.fmt.pix_mp.plane_fmt[0].bytesperline;
}

int InputSettings_Read(int iFd, uint32_t uiBufferType, SInputSettings& roSettings)
{
    roSettings = {};
    roSettings.oFormat.type = uiBufferType;
    roSettings.oFrameTime.type = uiBufferType;
    const int iError = V4l2_Ioctl(iFd, VIDIOC_G_FMT, &roSettings.oFormat);
    if (iError != 0)
    {
        return iError;
    }
    roSettings.bTimings = V4l2_Ioctl(iFd, VIDIOC_G_DV_TIMINGS, &roSettings.oTimings) == 0 ? 1 : 0;
    roSettings.bCrop = ReadRectangle(iFd, V4L2_SEL_TGT_CROP, roSettings.oCrop) ? 1 : 0;
    roSettings.bCompose = ReadRectangle(iFd, V4L2_SEL_TGT_COMPOSE, roSettings.oCompose) ? 1 : 0;
    roSettings.bFrameTime = V4l2_Ioctl(iFd, VIDIOC_G_PARM, &roSettings.oFrameTime) == 0 &&
                                    (roSettings.oFrameTime.parm.capture.capability & V4L2_CAP_TIMEPERFRAME) != 0
                                ? 1
                                : 0;
    return 0;
}

int InputSettings_WriteFrameTime(int iFd, const SInputSettings& roSettings)
{
    v4l2_streamparm oNow{};
    oNow.type = roSettings.oFormat.type;
    const v4l2_fract& roTime = roSettings.oFrameTime.parm.capture.timeperframe;
    if (roSettings.bFrameTime == 0 ||
        (V4l2_Ioctl(iFd, VIDIOC_G_PARM, &oNow) == 0 && oNow.parm.capture.timeperframe.numerator == roTime.numerator &&
         oNow.parm.capture.timeperframe.denominator == roTime.denominator))
    {
        return 0;
    }
    v4l2_streamparm oParm = roSettings.oFrameTime;
    return V4l2_Ioctl(iFd, VIDIOC_S_PARM, &oParm);
}

int InputSettings_Write(int iFd, const SInputSettings& roSettings)
{
    int iError = WriteTimings(iFd, roSettings);
    // Format and rectangles bound each other, in ways that differ by driver: the second round reaches what the first
    // could not.
    for (int iRound = 0; iRound < 2 && iError == 0; iRound++)
    {
        iError = WriteFormat(iFd, roSettings.oFormat);
        if (iError == 0 && roSettings.bCrop != 0)
        {
            WriteRectangle(iFd, V4L2_SEL_TGT_CROP, roSettings.oCrop);
        }
        if (iError == 0 && roSettings.bCompose != 0)
        {
            WriteRectangle(iFd, V4L2_SEL_TGT_COMPOSE, roSettings.oCompose);
        }
    }
    // Last: a camera begins anew with its usual rate at every change of format.
    return iError != 0 ? iError : InputSettings_WriteFrameTime(iFd, roSettings);
}
