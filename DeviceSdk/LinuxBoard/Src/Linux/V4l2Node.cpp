#include "V4l2Node.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "PixelFormatTable.h"

namespace
{

/* Drivers whose sequence goes on by one a delivered buffer, whatever was lost between. */
constexpr std::string_view aszCountBuffers[] = {"cobalt", "cx23885", "cx25821", "cx8800", "saa7134", "tw68", "tw686x"};

constexpr uint32_t uiLostStatus =
    V4L2_IN_ST_NO_POWER | V4L2_IN_ST_NO_SIGNAL | V4L2_IN_ST_NO_SYNC | V4L2_IN_ST_NO_H_LOCK;

/* Lines of the systems whose frame begins with the bottom field: 480 or 486 visible ones. */
bool IsBottomFirst(uint32_t uiLines)
{
    return uiLines >= 480 && uiLines <= 487;
}

bool IsInterlaced(v4l2_field eField)
{
    return eField != V4L2_FIELD_NONE && eField != V4L2_FIELD_ANY;
}

/* Buffers of one field each have half the lines of the frame. */
bool IsOneField(v4l2_field eField)
{
    return eField == V4L2_FIELD_ALTERNATE || eField == V4L2_FIELD_TOP || eField == V4L2_FIELD_BOTTOM;
}

template <size_t uiSize> std::string Text(const __u8 (&acText)[uiSize])
{
    const auto* szText = reinterpret_cast<const char*>(acText);
    return {szText, strnlen(szText, uiSize)};
}

bool IsSameTimings(const v4l2_bt_timings& roOne, const v4l2_bt_timings& roOther)
{
    const auto TotalOf = [](const v4l2_bt_timings& roTimings)
    {
        return std::array<uint64_t, 5>{roTimings.width, roTimings.height, roTimings.interlaced, roTimings.pixelclock,
                                       uint64_t{roTimings.hfrontporch} + roTimings.hsync + roTimings.hbackporch};
    };
    return TotalOf(roOne) == TotalOf(roOther);
}

} // namespace

int V4l2_Ioctl(int iFd, unsigned long uiRequest, void* pvArgument)
{
    int iResult = 0;
    do
    {
        iResult = ioctl(iFd, uiRequest, pvArgument);
    } while (iResult < 0 && errno == EINTR);
    return iResult < 0 ? -errno : 0;
}

int CV4l2Node::Open(const std::string& szNode, int iMode)
{
    *this = CV4l2Node();
    m_szPath = szNode;
    m_oFd = CFileDescriptor(open(szNode.c_str(), iMode | O_NONBLOCK | O_CLOEXEC));
    if (!m_oFd.IsOpen())
    {
        return -errno;
    }
    struct stat oStat = {};
    if (fstat(Fd(), &oStat) == 0)
    {
        m_uiMinor = minor(oStat.st_rdev);
    }
    ReadFacts();
    return 0;
}

void CV4l2Node::ReadFacts()
{
    v4l2_capability oCapability{};
    if (V4l2_Ioctl(Fd(), VIDIOC_QUERYCAP, &oCapability) != 0)
    {
        return;
    }
    m_szDriver = Text(oCapability.driver);
    m_szBusPath = Text(oCapability.bus_info);
    const uint32_t uiCaps =
        (oCapability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? oCapability.device_caps : oCapability.capabilities;
    if ((uiCaps & V4L2_CAP_STREAMING) == 0)
    {
        return;
    }
    if ((uiCaps & V4L2_CAP_VIDEO_CAPTURE) != 0)
    {
        m_uiBufferType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    }
    else if ((uiCaps & V4L2_CAP_VIDEO_CAPTURE_MPLANE) != 0)
    {
        m_uiBufferType = V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    }
    v4l2_input oInput{};
    if (ReadInput(oInput))
    {
        m_szInput = Text(oInput.name);
    }
}

/* Whoever uses the node may select another input at any time. */
bool CV4l2Node::ReadInput(v4l2_input& roInput)
{
    roInput = {};
    if (V4l2_Ioctl(Fd(), VIDIOC_G_INPUT, &roInput.index) != 0 || V4l2_Ioctl(Fd(), VIDIOC_ENUMINPUT, &roInput) != 0)
    {
        return false;
    }
    m_bDigital = (roInput.capabilities & V4L2_IN_CAP_DV_TIMINGS) != 0;
    m_bTelevision = (roInput.capabilities & V4L2_IN_CAP_STD) != 0;
    if (roInput.index != m_uiInput)
    {
        m_uiInput = roInput.index;
        m_bTellsChanges = Subscribe();
    }
    return true;
}

int CV4l2Node::ReadFormat(SInputFormat& roFormat) const
{
    v4l2_format oFormat{};
    oFormat.type = m_uiBufferType;
    const int iError = V4l2_Ioctl(Fd(), VIDIOC_G_FMT, &oFormat);
    if (iError != 0)
    {
        return iError;
    }
    // The two records begin alike, but only as far as the field.
    if (m_uiBufferType == V4L2_BUF_TYPE_VIDEO_CAPTURE)
    {
        roFormat = {oFormat.fmt.pix.width, oFormat.fmt.pix.height, oFormat.fmt.pix.pixelformat,
                    static_cast<v4l2_field>(oFormat.fmt.pix.field)};
    }
    else
    {
        roFormat = {oFormat.fmt.pix_mp.width, oFormat.fmt.pix_mp.height, oFormat.fmt.pix_mp.pixelformat,
                    static_cast<v4l2_field>(oFormat.fmt.pix_mp.field)};
    }
    return 0;
}

/* What the input detects; where it detects nothing by nature, what it is set to. */
int CV4l2Node::ReadDigitalTimings(v4l2_dv_timings& roTimings) const
{
    const int iError = V4l2_Ioctl(Fd(), VIDIOC_QUERY_DV_TIMINGS, &roTimings);
    switch (iError)
    {
    case -ENOTTY:
    case -ENODATA:
    case -EINVAL:
    case -EBUSY:
        return V4l2_Ioctl(Fd(), VIDIOC_G_DV_TIMINGS, &roTimings);
    default:
        return iError;
    }
}

void CV4l2Node::ReadFrameSignal(const SInputFormat& roFormat, SSignal& roSignal) const
{
    const uint32_t uiLines = roFormat.uiHeight * (IsOneField(roFormat.eField) ? 2 : 1);
    const bool bInterlaced = IsInterlaced(roFormat.eField);
    v4l2_std_id uiStandard = 0;
    if (m_bTelevision && V4l2_Ioctl(Fd(), VIDIOC_G_STD, &uiStandard) == 0)
    {
        roSignal = VideoTimings_FromFrame(roFormat.uiWidth, uiLines, VideoTimings_FrameTimeOf(uiStandard), bInterlaced);
        return;
    }
    v4l2_streamparm oParm{};
    oParm.type = m_uiBufferType;
    const bool bAgreed = V4l2_Ioctl(Fd(), VIDIOC_G_PARM, &oParm) == 0;
    roSignal = VideoTimings_FromCamera(roFormat.uiWidth, uiLines,
                                       bAgreed ? oParm.parm.capture.timeperframe : v4l2_fract{0, 0}, bInterlaced);
}

bool CV4l2Node::HasGapsInStamps() const
{
    return m_bDigital || (m_bTelevision && std::find(std::begin(aszCountBuffers), std::end(aszCountBuffers),
                                                     m_szDriver) != std::end(aszCountBuffers));
}

CV4l2Node CV4l2Node::Share() const
{
    CV4l2Node oOther;
    oOther.m_oFd = CFileDescriptor(fcntl(Fd(), F_DUPFD_CLOEXEC, 0));
    oOther.m_szPath = m_szPath;
    oOther.m_uiMinor = m_uiMinor;
    oOther.ReadFacts();
    return oOther;
}

bool CV4l2Node::RefreshInput()
{
    v4l2_input oInput{};
    return ReadInput(oInput);
}

bool CV4l2Node::HasOtherTimings(v4l2_dv_timings& roDetected) const
{
    v4l2_dv_timings oSet{};
    return m_bDigital && V4l2_Ioctl(Fd(), VIDIOC_QUERY_DV_TIMINGS, &roDetected) == 0 &&
           V4l2_Ioctl(Fd(), VIDIOC_G_DV_TIMINGS, &oSet) == 0 && !IsSameTimings(roDetected.bt, oSet.bt);
}

EInputSignal CV4l2Node::DetectSignal(SSignal& roSignal, SInputFormat& roFormat)
{
    roSignal = {};
    roFormat = {};
    v4l2_input oInput{};
    if (ReadFormat(roFormat) == -ENODEV)
    {
        return EInputSignal::GONE;
    }
    if (ReadInput(oInput) && (oInput.status & uiLostStatus) != 0)
    {
        return EInputSignal::LOST;
    }
    if (m_bDigital)
    {
        v4l2_dv_timings oTimings{};
        const int iError = ReadDigitalTimings(oTimings);
        if (iError != 0)
        {
            return iError == -ENODEV ? EInputSignal::GONE : EInputSignal::LOST;
        }
        roSignal = VideoTimings_FromDv(oTimings.bt);
    }
    else
    {
        ReadFrameSignal(roFormat, roSignal);
    }
    VtVideo_VidParam& roParam = roSignal.oVidParam;
    roParam.bIsYuv = PixelFormat_IsYuv(roFormat.uiFourCc) ? 1 : 0;
    roParam.bBottomFieldFirst = roParam.bInterlaced != 0 && IsBottomFirst(roParam.uiVActive) ? 1 : 0;
    return EInputSignal::PRESENT;
}

SBufferCensus CV4l2Node::CountBuffers() const
{
    SBufferCensus oCensus;
    for (uint32_t uiIndex = 0; uiIndex < VIDEO_MAX_FRAME; uiIndex++)
    {
        std::array<v4l2_plane, VIDEO_MAX_PLANES> aoPlanes{};
        v4l2_buffer oBuffer{};
        oBuffer.index = uiIndex;
        oBuffer.type = m_uiBufferType;
        if (m_uiBufferType == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE)
        {
            oBuffer.m.planes = aoPlanes.data();
            oBuffer.length = static_cast<uint32_t>(aoPlanes.size());
        }
        const int iError = V4l2_Ioctl(Fd(), VIDIOC_QUERYBUF, &oBuffer);
        oCensus.bHidden = oCensus.bHidden || iError == -EBUSY;
        if (iError != 0)
        {
            break;
        }
        if (uiIndex == 0)
        {
            oCensus.uiFlags = oBuffer.flags;
        }
        oCensus.uiTotal++;
        oCensus.bMapped =
            oCensus.bMapped || (oBuffer.flags & V4L2_BUF_FLAG_MAPPED) != 0 || oBuffer.memory != V4L2_MEMORY_MMAP;
        if ((oBuffer.flags & V4L2_BUF_FLAG_DONE) != 0)
        {
            oCensus.uiReady++;
        }
        else if ((oBuffer.flags & V4L2_BUF_FLAG_QUEUED) != 0)
        {
            oCensus.uiQueued++;
        }
        else
        {
            oCensus.uiLoaned++;
        }
    }
    return oCensus;
}

bool CV4l2Node::Subscribe() const
{
    v4l2_event_subscription oSubscription{};
    oSubscription.type = V4L2_EVENT_SOURCE_CHANGE;
    oSubscription.id = m_uiInput;
    return V4l2_Ioctl(Fd(), VIDIOC_SUBSCRIBE_EVENT, &oSubscription) == 0;
}

bool CV4l2Node::ReadEvents() const
{
    bool bChanged = false;
    v4l2_event oEvent{};
    while (V4l2_Ioctl(Fd(), VIDIOC_DQEVENT, &oEvent) == 0)
    {
        bChanged = bChanged || oEvent.type == V4L2_EVENT_SOURCE_CHANGE;
    }
    return bChanged;
}
