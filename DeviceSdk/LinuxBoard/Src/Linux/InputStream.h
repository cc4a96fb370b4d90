/*
 * One open input handle: a capture node, where its frames come from (the kernel's trace, or our own queue), its signal
 * and the wait for its field starts. A device that is unplugged is gone until it is back under its path. Used by one
 * thread at a time; what may block is asked beside it. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_INPUT_STREAM_H
#define LINUX_BOARD_INPUT_STREAM_H

#include <atomic>
#include <poll.h>
#include <vector>

#include "DeviceList.h"
#include "FieldStart.h"
#include "FieldTracker.h"
#include "OwnedCapture.h"
#include "SignalWatch.h"
#include "TraceFeed.h"
#include "V4l2Node.h"
#include "VtVideoIn.h"

/* Counts of one input, written by the first of its open handles, read by any thread. */
struct SInputCounters
{
    std::atomic<const void*> pvWriter{nullptr};
    std::atomic<uint64_t> uiSkippedFields{0};
    std::atomic<uint64_t> uiBuffers{0};
};

class CInputStream
{
public:
    explicit CInputStream(SInputCounters& roCounters) : m_roCounters(roCounters), m_oOwned(m_oNode) {}
    ~CInputStream();
    CInputStream(const CInputStream&) = delete;
    CInputStream& operator=(const CInputStream&) = delete;

    /*
     * VtStatus_OK, also for a device that is away; VtStatus_ACCESS_DENIED; VtStatus_RESOURCES_BUSY; VtStatus_FAIL.
     */
    VtStatus Open(const SInputSource& roSource);

    VtStatus WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField);
    VtStatus ReadDetectedParameters(VtVideo_VidParam& roParam);
    VtStatus ReadCaptureState(VtVideoIn_State& reState, SBufferCensus& roCensus);
    VtStatus ReadBufferAttributes(SInputFormat& roFormat, uint32_t& ruiBuffers);

private:
    int OpenNode();
    void HeedSignal();
    void TakeSignal(const SSignalView& roView);
    void RestartOutdated(const SSignalView& roView);
    void LoseDevice();
    void LookForDevice(uint64_t uiNowNs);
    VtStatus WithoutSignal() const;
    void PauseWithoutSignal(uint64_t uiNowNs, uint64_t uiDeadlineNs);
    void ReadFrames(uint64_t uiNowNs);
    void FetchOwned(uint64_t uiNowNs, bool bOnlyOne);
    void ReadTrace(uint64_t uiNowNs, bool bOnlyOne);
    bool OpenTrace();
    void RestartOwned(uint64_t uiNowNs);
    void Accept(SCapturedFrame oFrame, uint64_t uiNowNs);
    void Sleep(uint64_t uiNowNs, uint64_t uiDeadlineNs);
    uint64_t NextMomentNs(uint64_t uiDeadlineNs) const;
    void PublishCounters() const;
    void CountBuffers(uint64_t uiNowNs);
    void SayOnce(bool& rbSaid, const char* szText) const;

    SInputCounters& m_roCounters;
    SInputSource m_oSource;
    CV4l2Node m_oNode;
    CTraceFeed m_oTrace;
    std::vector<pollfd> m_aoPolled; /* the node, then the pipes of the trace */
    COwnedCapture m_oOwned;
    CSignalWatch m_oSignalWatch;
    CFieldTracker m_oTracker;
    bool m_bOwn = false;        /* we stream this input, or will when it lets us */
    bool m_bWaited = false;     /* somebody has waited for a field */
    bool m_bHalfFrames = false; /* only one field of each frame is captured: its parity numbers nothing */
    bool m_bReadable = true;    /* frames may be there */
    bool m_bSaidReading = false;
    bool m_bSaidRefused = false;
    bool m_bSaidUnknown = false;
    EInputSignal m_eSignal = EInputSignal::PRESENT;
    SSignal m_oSignal;
    SBufferCensus m_oCensus;
    SInputFormat m_oFormat;
    uint64_t m_uiNextLookNs = 0;  /* when a device that is away is looked for */
    uint64_t m_uiAwayPauseNs = 0; /* how often */
    uint64_t m_uiStartedNs = 0;   /* when our own stream was last started */
    uint64_t m_uiNextStartNs = 0; /* when our own stream may be started again */
    uint64_t m_uiNextCountNs = 0; /* when the buffers are counted next */
    uint64_t m_uiOpenedNs = 0;
    uint64_t m_uiSleptFromNs = 0;   /* when the last sleep of this wait began, 0 before it */
    uint64_t m_uiLastArrivalNs = 0; /* when the last frame came in */
};

#endif
