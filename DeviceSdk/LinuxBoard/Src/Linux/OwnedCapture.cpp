#include "OwnedCapture.h"

#include <array>
#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#include "GiveBack.h"
#include "InputSettings.h"
#include "MonotonicClock.h"

namespace
{

constexpr uint32_t uiBuffersWanted = 4;
constexpr uint32_t uiFormatsTried = 64;

size_t PageSize()
{
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

uint32_t ImageSize(const v4l2_format& roFormat)
{
    if (roFormat.type == V4L2_BUF_TYPE_VIDEO_CAPTURE)
    {
        return roFormat.fmt.pix.sizeimage;
    }
    uint32_t uiSize = 0;
    for (uint32_t uiPlane = 0; uiPlane < roFormat.fmt.pix_mp.num_planes && uiPlane < VIDEO_MAX_PLANES; uiPlane++)
    {
        uiSize += roFormat.fmt.pix_mp.plane_fmt[uiPlane].sizeimage;
    }
    return uiSize;
}

/* The least that the driver makes of one pixel of this layout; fields one by one where the signal has them. */
v4l2_format SmallestRequest(const v4l2_format& roBefore, uint32_t uiFourCc)
{
    v4l2_format oRequest{};
    oRequest.type = roBefore.type;
    if (roBefore.type == V4L2_BUF_TYPE_VIDEO_CAPTURE)
    {
        oRequest.fmt.pix.width = oRequest.fmt.pix.height = 1;
        oRequest.fmt.pix.pixelformat = uiFourCc;
        oRequest.fmt.pix.field = roBefore.fmt.pix.field == V4L2_FIELD_NONE ? V4L2_FIELD_NONE : V4L2_FIELD_ALTERNATE;
        return oRequest;
    }
    oRequest.fmt.pix_mp.width = oRequest.fmt.pix_mp.height = 1;
    oRequest.fmt.pix_mp.pixelformat = uiFourCc;
    oRequest.fmt.pix_mp.field =
        roBefore.fmt.pix_mp.field == V4L2_FIELD_NONE ? __u8{V4L2_FIELD_NONE} : __u8{V4L2_FIELD_ALTERNATE};
    return oRequest;
}

} // namespace

/* Notes what is there before it changes anything. */
int COwnedCapture::Prepare()
{
    int iError = InputSettings_Read(m_roNode.Fd(), m_roNode.BufferType(), m_oFound);
    v4l2_dv_timings oDetected{};
    const bool bOtherTimings = m_roNode.HasOtherTimings(oDetected);
    if (iError != 0 || !(bOtherTimings || m_bSmallest))
    {
        return iError;
    }
    m_bChanged = true;
    m_poNote = GiveBack_NoteInput(m_roNode.Path(), m_roNode.Fd(), m_oFound);
    if (bOtherTimings)
    {
        iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_S_DV_TIMINGS, &oDetected);
    }
    if (iError == 0 && m_bSmallest)
    {
        iError = SetSmallestFormat();
        // A camera begins anew with its usual rate.
        InputSettings_WriteFrameTime(m_roNode.Fd(), m_oFound);
    }
    v4l2_format oOurs{};
    oOurs.type = m_roNode.BufferType();
    if (m_poNote != nullptr && V4l2_Ioctl(m_roNode.Fd(), VIDIOC_G_FMT, &oOurs) == 0)
    {
        m_poNote->oOurs = oOurs;
    }
    return iError;
}

int COwnedCapture::SetSmallestFormat() const
{
    v4l2_format oBefore{};
    oBefore.type = m_roNode.BufferType();
    const int iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_G_FMT, &oBefore);
    if (iError != 0)
    {
        return iError;
    }
    v4l2_format oSmallest = oBefore;
    for (uint32_t uiIndex = 0; uiIndex < uiFormatsTried; uiIndex++)
    {
        v4l2_fmtdesc oDescription{};
        oDescription.index = uiIndex;
        oDescription.type = oBefore.type;
        if (V4l2_Ioctl(m_roNode.Fd(), VIDIOC_ENUM_FMT, &oDescription) != 0)
        {
            break;
        }
        v4l2_format oTried = SmallestRequest(oBefore, oDescription.pixelformat);
        if (V4l2_Ioctl(m_roNode.Fd(), VIDIOC_TRY_FMT, &oTried) == 0 && ImageSize(oTried) < ImageSize(oSmallest))
        {
            oSmallest = oTried;
        }
    }
    if (ImageSize(oSmallest) == ImageSize(oBefore))
    {
        return 0;
    }
    return V4l2_Ioctl(m_roNode.Fd(), VIDIOC_S_FMT, &oSmallest);
}

v4l2_buffer COwnedCapture::NewBuffer()
{
    v4l2_buffer oBuffer{};
    oBuffer.type = m_roNode.BufferType();
    oBuffer.memory = V4L2_MEMORY_MMAP;
    if (oBuffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE)
    {
        oBuffer.m.planes = m_aoPlanes.data();
        oBuffer.length = static_cast<uint32_t>(m_aoPlanes.size());
    }
    return oBuffer;
}

int COwnedCapture::RequestBuffers(uint32_t uiCount, uint32_t& ruiGiven) const
{
    v4l2_requestbuffers oRequest{};
    oRequest.count = uiCount;
    oRequest.type = m_roNode.BufferType();
    oRequest.memory = V4L2_MEMORY_MMAP;
    const int iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_REQBUFS, &oRequest);
    ruiGiven = iError == 0 ? oRequest.count : 0;
    return iError;
}

bool COwnedCapture::IsFree(const CV4l2Node& roNode)
{
    uint32_t uiGiven = 0;
    return COwnedCapture(roNode).RequestBuffers(0, uiGiven) == 0;
}

SBufferCensus COwnedCapture::TryBuffers(const CV4l2Node& roNode)
{
    COwnedCapture oCapture(roNode);
    uint32_t uiGiven = 0;
    oCapture.m_uiBuffers = oCapture.RequestBuffers(1, uiGiven) == 0 ? uiGiven : 0;
    return oCapture.m_uiBuffers != 0 ? roNode.CountBuffers() : SBufferCensus{};
}

int COwnedCapture::QueueAll()
{
    uint32_t uiGiven = 0;
    int iError = RequestBuffers(uiBuffersWanted, uiGiven);
    if (iError != 0)
    {
        return iError;
    }
    m_uiBuffers = uiGiven;
    MapBuffer();
    for (uint32_t uiIndex = 0; uiIndex < uiGiven && iError == 0; uiIndex++)
    {
        v4l2_buffer oBuffer = NewBuffer();
        oBuffer.index = uiIndex;
        iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_QBUF, &oBuffer);
    }
    return iError;
}

int COwnedCapture::Start()
{
    // Buffers of another program: hands off, even where the driver would let us.
    const SBufferCensus oCensus = m_roNode.CountBuffers();
    if (oCensus.uiTotal != 0 || (oCensus.bHidden && !IsFree(m_roNode)))
    {
        return -EBUSY;
    }
    GiveBack_Settle(m_roNode.Path());
    int iError = Prepare();
    if (iError == 0)
    {
        iError = QueueAll();
    }
    auto uiType = static_cast<int>(m_roNode.BufferType());
    if (iError == 0)
    {
        iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_STREAMON, &uiType);
    }
    m_bStreaming = iError == 0;
    if (iError != 0)
    {
        Stop();
    }
    return iError;
}

void COwnedCapture::Stop()
{
    auto uiType = static_cast<int>(m_roNode.BufferType());
    if (m_bStreaming)
    {
        V4l2_Ioctl(m_roNode.Fd(), VIDIOC_STREAMOFF, &uiType);
    }
    uint32_t uiGiven = 0;
    Unmap();
    if (m_uiBuffers != 0)
    {
        RequestBuffers(0, uiGiven);
    }
    const int iError = m_bChanged ? InputSettings_Write(m_roNode.Fd(), m_oFound) : 0;
    // A device that refuses for good now may be the same again later: its note stays, for whoever takes it up.
    if (iError != -ENODEV)
    {
        GiveBack_Drop(m_poNote);
    }
    m_poNote = nullptr;
    m_bStreaming = m_bBufferLost = m_bChanged = false;
    m_uiBuffers = 0;
}

void COwnedCapture::Unmap()
{
    if (m_pvMapped != nullptr)
    {
        munmap(std::exchange(m_pvMapped, nullptr), PageSize());
    }
}

/* Nobody looks into it, but other observers take a queue without a mapped buffer for one that is used by read(). */
void COwnedCapture::MapBuffer()
{
    v4l2_buffer oBuffer = NewBuffer();
    if (V4l2_Ioctl(m_roNode.Fd(), VIDIOC_QUERYBUF, &oBuffer) != 0)
    {
        return;
    }
    const bool bPlanes = oBuffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    const uint32_t uiOffset = bPlanes ? m_aoPlanes[0].m.mem_offset : oBuffer.m.offset;
    void* pvMapped = mmap(nullptr, PageSize(), PROT_READ, MAP_SHARED, m_roNode.Fd(), off_t{uiOffset});
    m_pvMapped = pvMapped == MAP_FAILED ? nullptr : pvMapped;
    // A child that had it too would hold the device for as long as it lives.
    if (m_pvMapped != nullptr)
    {
        madvise(m_pvMapped, PageSize(), MADV_DONTFORK);
    }
}

SBufferCensus COwnedCapture::Census() const
{
    SBufferCensus oCensus;
    oCensus.uiTotal = oCensus.uiQueued = m_uiBuffers;
    oCensus.bMapped = true;
    return oCensus;
}

EFetch COwnedCapture::Fetch(SCapturedFrame& roFrame)
{
    if (m_bBufferLost)
    {
        return EFetch::FAILED;
    }
    v4l2_buffer oBuffer = NewBuffer();
    const int iError = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_DQBUF, &oBuffer);
    if (iError == -EAGAIN)
    {
        return EFetch::NOTHING;
    }
    if (iError != 0)
    {
        return iError == -ENODEV ? EFetch::GONE : EFetch::FAILED;
    }
    const bool bMonotonic = (oBuffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    roFrame.uiSequence = oBuffer.sequence;
    // A stamp of another clock compares with nothing: the time of arrival does.
    roFrame.uiStampNs = bMonotonic ? static_cast<uint64_t>(oBuffer.timestamp.tv_sec) * uiNsPerSecond +
                                         static_cast<uint64_t>(oBuffer.timestamp.tv_usec) * 1000ULL
                                   : MonotonicClock_NowNs();
    roFrame.bError = (oBuffer.flags & V4L2_BUF_FLAG_ERROR) != 0;
    roFrame.eParity = oBuffer.field == V4L2_FIELD_TOP      ? EFieldParity::TOP
                      : oBuffer.field == V4L2_FIELD_BOTTOM ? EFieldParity::BOTTOM
                                                           : EFieldParity::NONE;
    // Without its buffers the queue would fall silent for good, and no call would say so.
    m_bBufferLost = V4l2_Ioctl(m_roNode.Fd(), VIDIOC_QBUF, &oBuffer) != 0;
    return EFetch::FRAME;
}
