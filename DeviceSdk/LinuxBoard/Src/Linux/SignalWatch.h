/*
 * Looks at the signal of an input beside the wait for its fields: at once when the driver tells of a change, and from
 * time to time. Owned by one input handle; Start, Stop and Take belong to its thread. Times are nanoseconds of
 * CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_SIGNAL_WATCH_H
#define LINUX_BOARD_SIGNAL_WATCH_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "BesideThread.h"
#include "V4l2Node.h"

struct SSignalView
{
    EInputSignal eSignal = EInputSignal::PRESENT;
    SSignal oSignal;
    SInputFormat oFormat;
    bool bGapsInStamps = false; /* the sequence may count delivered buffers only */
    bool bOtherTimings = false; /* the input detects others than it is set to; only of one that we may set */
    uint64_t uiSinceNs = 0;     /* when the look began */
};

class CSignalWatch
{
public:
    /* Has looked once when it returns. */
    void Start(const CV4l2Node& roNode, bool bOwn);
    /* Waits for a request that is under way; lets the device go. */
    void Stop();

    /* What was seen since the last call; false when nothing was. */
    bool Take(SSignalView& roView);
    /* For who is told of a fault. */
    void LookSoon();

private:
    SBesidePause Work(uint64_t uiNowNs, short iEvents);
    void Look(uint64_t uiNowNs);
    uint64_t PauseNs(EInputSignal eSignal) const;

    CV4l2Node m_oNode; /* of the thread; shares what the handle has opened */
    bool m_bOwn = false;
    uint64_t m_uiNextLookNs = 0;
    std::atomic<bool> m_bAsked{false};
    std::atomic<uint32_t> m_uiViews{0}; /* looks that have been published */
    uint32_t m_uiTaken = 0;
    std::mutex m_oMutex; /* guards m_oView */
    SSignalView m_oView;
    CBesideThread m_oThread; /* last, so that it ends first */
};

#endif
