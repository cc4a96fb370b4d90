/*
 * Where board time meets the machine's: the monotonic clock as ticks of a chip's counter, and the one sleep of a wait.
 * Real and scaled time only; stepped time never comes here.
 */
#ifndef SIMULATED_BOARD_BOARD_CLOCK_H
#define SIMULATED_BOARD_BOARD_CLOCK_H

#include <atomic>
#include <cstdint>

/* Nanoseconds of the monotonic clock. */
int64_t MonotonicClock_GetNs();

// A chip's counter in real time. Immutable after construction.
class CBoardClock
{
public:
    /*
     * The counter stands at uiTickStart when the monotonic clock stands at iStartNs, and runs flScale times too fast.
     */
    CBoardClock(int64_t iStartNs, double flScale, uint32_t uiTickFreqHz, uint64_t uiTickStart)
        : m_iStartNs(iStartNs), m_flScale(flScale), m_uiTickFreqHz(uiTickFreqHz), m_uiTickStart(uiTickStart)
    {
    }

    uint64_t ToTicks(int64_t iNs) const;
    /* The first nanosecond at which the counter shows uiTicks. */
    int64_t ToNs(uint64_t uiTicks) const;
    /* Real nanoseconds of a time in board milliseconds. */
    int64_t ToRealNs(uint32_t uiBoardMs) const;

private:
    const int64_t m_iStartNs;
    const double m_flScale;
    const uint64_t m_uiTickFreqHz;
    const uint64_t m_uiTickStart;
};

// One caller's sleep, which others can end. Costs one system call a sleep and no lock.
class CSleeper
{
public:
    /* Until a moment of the monotonic clock. True when it was reached, false when Interrupt has been called. */
    bool SleepUntil(int64_t iDeadlineNs);
    /* Ends the sleep in progress and every later one. */
    void Interrupt();
    bool IsInterrupted() const { return m_uiInterrupted.load(std::memory_order_acquire) != 0; }
    /* For a new owner. */
    void Reset() { m_uiInterrupted.store(0, std::memory_order_relaxed); }

private:
    std::atomic<uint32_t> m_uiInterrupted{0};
};

#endif
