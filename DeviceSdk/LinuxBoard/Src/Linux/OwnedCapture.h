/*
 * Streaming an idle input ourselves, only when asked to (VELTRANO_INPUT_MODE=own): the smallest format, buffers that
 * nobody looks into, and everything given back at the end. Belongs to one thread at a time.
 */
#ifndef LINUX_BOARD_OWNED_CAPTURE_H
#define LINUX_BOARD_OWNED_CAPTURE_H

#include "../FieldTracker.h"
#include "V4l2Node.h"

#include <array>
#include <linux/videodev2.h>

namespace LinuxBoard
{

/* How DQBUF went. */
enum class EFetch
{
    Frame,
    Nothing,
    Failed, /* the stream broke: it has to be started again */
    Gone
};

class COwnedCapture
{
public:
    explicit COwnedCapture(const CV4l2Node& roNode) : m_roNode(roNode) {}
    ~COwnedCapture() { Stop(); }
    COwnedCapture(const COwnedCapture&) = delete;
    COwnedCapture& operator=(const COwnedCapture&) = delete;

    /* 0; -EBUSY when another program has the input, which then stays untouched; another negative errno. */
    int Start();
    /* Gives the input back: buffers, format and timings as they were. */
    void Stop();
    /* The device went away, and everything with it. */
    void Forget();
    bool IsRunning() const { return m_bStreaming; }
    SBufferCensus Census() const;
    /* The input detects other timings than it streams: it has to be stopped and started. */
    bool IsOutdated() const;

    EFetch Fetch(SCapturedFrame& roFrame);

    /* Borrows a buffer of an idle input for a moment to see what its frames will be like; empty when it is not idle. */
    static SBufferCensus TryBuffers(const CV4l2Node& roNode);

private:
    bool HasOtherTimings(v4l2_dv_timings& roDetected, v4l2_dv_timings& roSet) const;
    int FollowTimings();
    int ChooseFormat();
    int RequestBuffers(uint32_t uiCount, uint32_t& ruiGiven) const;
    int QueueAll();
    v4l2_buffer NewBuffer();

    const CV4l2Node& m_roNode;
    bool m_bStreaming = false;
    uint32_t m_uiBuffers = 0;
    bool m_bBufferLost = false; /* one could not be queued again */
    bool m_bFormatChanged = false;
    bool m_bTimingsChanged = false;
    std::array<v4l2_plane, VIDEO_MAX_PLANES> m_aoPlanes{}; /* nobody looks into them, but the kernel writes them */
    v4l2_format m_oFormatBefore{};
    v4l2_dv_timings m_oTimingsBefore{};
};

} // namespace LinuxBoard

#endif
