/*
 * From the kernel's vertical blank events to field starts: drops what does not increase, keeps the newest, and knows
 * which sequences are still to be queued. No clock is read here; the owner is one output handle, used by one thread at
 * a time. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_VBLANK_TRACKER_H
#define LINUX_BOARD_VBLANK_TRACKER_H

#include <cstdint>
#include <utility>

#include "FieldStart.h"

class CVblankTracker
{
public:
    /* Sequences that stay queued ahead: a caller that comes this many fields late still finds its event. */
    static constexpr uint64_t msc_uiQueueDepth = 16;

    /*
     * The CRTC's numbering stands at uiSequence: at the start, and again when another CRTC, or the same one with its
     * count begun anew, takes over. Our own counter goes on from where it was. Its stamp may be stale, so no field
     * start comes of it.
     */
    void Start(uint64_t uiSequence);

    /* Takes an event or the answer of a later sequence query; false when it is old news and was dropped. */
    bool Accept(uint64_t uiSequence, uint64_t uiStampNs);

    /* Delivers the newest field start that was not delivered yet; false when there is none. */
    bool Take(SFieldStart& roField);

    bool IsStarted() const { return m_bStarted; }
    uint64_t LastSequence() const { return m_uiSequence; }
    uint64_t LastStampNs() const { return m_uiStampNs; } /* 0 before the first event */

    /* The next sequence to queue, 0 when enough are queued. */
    uint64_t NextToQueue() const;
    /* It was queued. Its event has to bring this tag back. */
    void Queued(uint64_t uiSequence);
    uint64_t TagOf(uint64_t uiSequence) const { return m_uiNumbering << msc_uiSequenceBits | uiSequence; }

    /*
     * An event has come. A change of mode lets it come before its time; then its sequence has to be asked for again.
     * One of an earlier numbering, of a CRTC that now feeds another output, is nothing to us.
     */
    void AcceptEvent(uint64_t uiTag, uint64_t uiSequence, uint64_t uiStampNs);

    /* Everything that was queued has come: the caller was away for longer than the queue reaches. */
    bool IsQueueSpent() const { return m_uiOutstanding == 0; }

    /* Once true after events have come before their time: the CRTC has been switched off or given another mode. */
    bool TakeFlushed() { return std::exchange(m_bFlushed, false); }

private:
    static constexpr uint32_t msc_uiSequenceBits = 48; /* of a tag; thousands of years of fields */

    bool m_bStarted = false;
    bool m_bUnseen = false;
    bool m_bFlushed = false;
    uint64_t m_uiNumbering = 0; /* counts the numberings that have been followed */
    uint64_t m_uiSequence = 0;
    uint64_t m_uiStampNs = 0;
    uint64_t m_uiOffset = 0; /* from the CRTC's numbering to ours, modulo 2^64 */
    uint64_t m_uiNextToQueue = 0;
    uint64_t m_uiOutstanding = 0;
};

#endif
