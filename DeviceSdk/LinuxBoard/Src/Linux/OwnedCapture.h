/*
 * Streaming an idle input ourselves, only when asked to: in the format that it has, or the smallest one, into buffers
 * that nobody looks into, and with everything given back at the end. Belongs to one thread at a time.
 */
#ifndef LINUX_BOARD_OWNED_CAPTURE_H
#define LINUX_BOARD_OWNED_CAPTURE_H

#include <array>
#include <linux/videodev2.h>

#include "FieldTracker.h"
#include "GiveBackNote.h"
#include "V4l2Node.h"

/* How DQBUF went. */
enum class EFetch
{
    FRAME,
    NOTHING,
    FAILED, /* the stream broke: it has to be started again */
    GONE
};

class COwnedCapture
{
public:
    explicit COwnedCapture(const CV4l2Node& roNode) : m_roNode(roNode) {}
    ~COwnedCapture() { Stop(); }
    COwnedCapture(const COwnedCapture&) = delete;
    COwnedCapture& operator=(const COwnedCapture&) = delete;

    /* Before Start: the least that the driver makes of a pixel, rather than the format and size as found. */
    void ChooseSmallest(bool bSmallest) { m_bSmallest = bSmallest; }

    /* 0; -EBUSY when another program has the input, which then stays untouched; another negative errno. */
    int Start();
    /* Gives the input back: buffers, and all settings as they were. */
    void Stop();
    bool IsRunning() const { return m_bStreaming; }
    SBufferCensus Census() const;

    EFetch Fetch(SCapturedFrame& roFrame);

    /*
     * Whether nobody has an input whose driver tells nothing of its buffers: it is asked for none, which it refuses
     * while another program has some. Nothing is sent to the device. Only for the mode own.
     */
    static bool IsFree(const CV4l2Node& roNode);
    /* Borrows a buffer of an idle input for a moment to see what its frames will be like; empty when it is not idle. */
    static SBufferCensus TryBuffers(const CV4l2Node& roNode);

private:
    int Prepare();
    int SetSmallestFormat() const;
    void MapBuffer();
    void Unmap();
    int RequestBuffers(uint32_t uiCount, uint32_t& ruiGiven) const;
    int QueueAll();
    v4l2_buffer NewBuffer();

    const CV4l2Node& m_roNode;
    bool m_bStreaming = false;
    uint32_t m_uiBuffers = 0;
    bool m_bBufferLost = false; /* one could not be queued again */
    bool m_bSmallest = false;
    bool m_bChanged = false;                               /* settings, noted in m_poNote */
    std::array<v4l2_plane, VIDEO_MAX_PLANES> m_aoPlanes{}; /* nobody looks into them, but the kernel writes them */
    SInputSettings m_oFound{};
    SGiveBackNote* m_poNote = nullptr; /* may be null when there is no room for it */
    void* m_pvMapped = nullptr;
};

#endif
