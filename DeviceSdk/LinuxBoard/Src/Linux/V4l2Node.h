/*
 * One open video capture node, for watching only: nothing here sets, claims or starts anything, so that whoever uses
 * the node never notices. Insulates the rest from the ioctls. Belongs to one thread at a time. Operations answer 0 or
 * a negative errno.
 */
#ifndef LINUX_BOARD_V4L2_NODE_H
#define LINUX_BOARD_V4L2_NODE_H

#include <cstdint>
#include <linux/videodev2.h>
#include <string>

#include "FieldTracker.h"
#include "FileDescriptor.h"
#include "VideoTimings.h"
#include "VtVideoIn.h"

/* ioctl without interruptions by signals; 0 or a negative errno. */
int V4l2_Ioctl(int iFd, unsigned long uiRequest, void* pvArgument);

struct SInputFormat
{
    uint32_t uiWidth = 0;
    uint32_t uiHeight = 0;
    uint32_t uiFourCc = 0;
    v4l2_field eField = V4L2_FIELD_NONE;
};

/* Where the buffers of the queue are, whoever owns it. */
struct SBufferCensus
{
    uint32_t uiTotal = 0;
    uint32_t uiReady = 0;  /* filled, not fetched yet */
    uint32_t uiLoaned = 0; /* in the owner's hands */
    uint32_t uiQueued = 0; /* in the driver's hands */
    uint32_t uiFlags = 0;  /* of the first buffer, V4L2_BUF_FLAG_... */
    bool bHidden = false;  /* another program has the queue, and the driver tells nobody else of it */
    bool bMapped = false;  /* somebody has mapped or imported a buffer, so that it fetches them one by one */

    /* Somebody streams and looks into no buffer: read() is used, which takes buffers without the calls of a queue. */
    bool IsReadByCalls() const { return uiQueued != 0 && !bMapped; }
};

enum class EInputSignal
{
    PRESENT,
    LOST,
    GONE /* the device itself went away */
};

class CV4l2Node
{
public:
    /* iMode: O_RDONLY to watch, O_RDWR to own. */
    int Open(const std::string& szNode, int iMode);
    int Fd() const { return m_oFd.Get(); }
    const std::string& Path() const { return m_szPath; }
    uint32_t Minor() const { return m_uiMinor; }

    void Close() { m_oFd.Close(); }
    bool IsOpen() const { return m_oFd.IsOpen(); }

    bool IsCapture() const { return m_uiBufferType != 0; } /* a video capture node whose queue can stream */
    bool IsDigital() const { return m_bDigital; }          /* its input has digital timings */
    /* The signal fixes the rate; a camera merely agrees on one. */
    bool IsRateFixed() const { return m_bDigital || m_bTelevision; }
    /* The sequence may count delivered buffers only, so that a gap shows in the stamps alone. */
    bool HasGapsInStamps() const;
    uint32_t BufferType() const { return m_uiBufferType; }
    const std::string& Driver() const { return m_szDriver; }
    const std::string& BusPath() const { return m_szBusPath; } /* "usb-0000:00:14.0-2" */
    const std::string& InputName() const { return m_szInput; } /* of the selected input, may be empty */

    int ReadFormat(SInputFormat& roFormat) const;

    /* Another of the same open node, for another thread; it stays open until both are closed. */
    CV4l2Node Share() const;

    /* roSignal: timings and field period, all 0 unless the signal is present. May take as long as the device does. */
    EInputSignal DetectSignal(SSignal& roSignal, SInputFormat& roFormat);
    /* A digital input streams what it is set to, which may not be what it detects. May take as long. */
    bool HasOtherTimings(v4l2_dv_timings& roDetected) const;
    /* Whoever uses the node may have selected another input. */
    bool RefreshInput();

    /* All 0 when there are no buffers, or hidden ones. */
    SBufferCensus CountBuffers() const;

    /* The driver tells of changes of the signal. */
    bool TellsChanges() const { return m_bTellsChanges; }
    /* Fetches what the driver told; true when a change of the signal was among it. */
    bool ReadEvents() const;

private:
    void ReadFacts();
    bool ReadInput(v4l2_input& roInput);
    bool Subscribe() const;
    void ReadFrameSignal(const SInputFormat& roFormat, SSignal& roSignal) const;
    int ReadDigitalTimings(v4l2_dv_timings& roTimings) const;

    CFileDescriptor m_oFd;
    uint32_t m_uiMinor = 0;
    uint32_t m_uiBufferType = 0;
    uint32_t m_uiInput = UINT32_MAX; /* none read yet */
    bool m_bTellsChanges = false;
    bool m_bDigital = false;
    bool m_bTelevision = false; /* its input has a television standard */
    std::string m_szPath;
    std::string m_szDriver;
    std::string m_szBusPath;
    std::string m_szInput;
};

#endif
