/*
 * From the frames that a capture queue delivers to field starts: one 64-bit field counter out of 32-bit sequences,
 * gaps counted from the sequence or, where a driver counts delivered buffers only, from the stamps. No clock is read
 * here; the owner is one input handle, used by one thread at a time. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_FIELD_TRACKER_H
#define LINUX_BOARD_FIELD_TRACKER_H

#include <cstdint>

#include "FieldStart.h"

enum class EFieldParity : uint8_t
{
    NONE, /* the buffer holds a whole frame */
    TOP,
    BOTTOM
};

/* One captured buffer, as the queue's owner or the kernel's trace reports it. */
struct SCapturedFrame
{
    uint32_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    EFieldParity eParity = EFieldParity::NONE;
    bool bError = false; /* the driver says that the picture is not whole */
};

struct SFieldTiming
{
    uint64_t uiFieldPeriodNs = 0; /* 0 unless the signal itself fixes it */
    bool bInterlaced = false;
    EFieldParity eFirstParity = EFieldParity::TOP; /* of a frame, as long as the sequence has not shown it */
    bool bGapsInStamps = false;                    /* the sequence may count delivered buffers only */
};

class CFieldTracker
{
public:
    static constexpr uint64_t msc_uiUnknown = UINT64_MAX;

    void SetSignal(const SFieldTiming& roTiming);

    /*
     * Takes a captured buffer that came at uiNowNs or before; false when its stamp does not increase and it was
     * dropped. One with an error counts as skipped, but its field has been.
     */
    bool Accept(SCapturedFrame oFrame, uint64_t uiNowNs);

    /*
     * This many captured buffers went by without being seen here, among the ones that are accepted next until AllSeen;
     * msc_uiUnknown when nobody knows how many. They are not skipped: only what the sequence lacks beyond them is.
     */
    void Unseen(uint64_t uiBuffers);
    void AllSeen();
    /* What went by unseen was so much, or so ill counted, that skipped fields may be among it. */
    bool IsLossUnknown() const { return m_bLossUnknown; }

    /*
     * Delivers the newest field start that was not delivered yet and has begun by uiNowNs; false when there is none.
     * A frame that holds both fields gives its second half a field time later, by reckoning.
     */
    bool Take(uint64_t uiNowNs, SFieldStart& roField);

    /* When a field start that is known already becomes due; 0 when none is. */
    uint64_t NextDueNs() const;

    /* Forgets what came before, as after a lost signal: the next frame begins anew. The counter goes on. */
    void Interrupt();

    uint64_t SkippedFields() const { return m_uiSkipped; } /* fields that went into no buffer */
    uint64_t Buffers() const { return m_uiBuffers; }       /* buffers taken */

private:
    uint64_t StartedNs(uint64_t uiStampNs, uint64_t uiNowNs);
    void CountError(const SCapturedFrame& roFrame, bool bPlaced);
    void CountSkipped(int64_t iFields);
    int64_t StepInFields(const SCapturedFrame& roFrame);
    int64_t StepOverUnseen(const SCapturedFrame& roFrame, int64_t iStep, int64_t iNormal);
    int64_t StepOfAlternating(const SCapturedFrame& roFrame, int64_t iSequences);
    int64_t LateGap(const SCapturedFrame& roFrame, int64_t iStep);
    int64_t FieldsBetween(uint64_t uiFromNs, uint64_t uiToNs) const;
    int64_t NormalStep(const SCapturedFrame& roFrame) const;
    bool IsSecond(EFieldParity eParity) const { return eParity != m_oTiming.eFirstParity; }

    SFieldTiming m_oTiming;
    bool m_bFirstParityKnown = false;

    bool m_bStarted = false;
    bool m_bRunning = false;      /* the frame before is of the same uninterrupted run */
    bool m_bSequenceGaps = false; /* the driver's sequence is known to show lost frames */
    SCapturedFrame m_oLast;       /* last frame accepted */
    uint64_t m_uiLastStampNs = 0; /* its stamp as the driver gave it */
    uint64_t m_uiAheadNs = 0;     /* how far the driver's stamps lie ahead of what can have been */
    uint64_t m_uiUnseen = 0;      /* buffers that went by unseen and were not met as a gap yet */
    bool m_bLossUnknown = false;
    int64_t m_iUnplaced = 0;     /* fields counted for errors without a stamp; the sequence will lack them too */
    int64_t m_iHeldGap = 0;      /* a gap the last stamp hints at, not yet believed */
    uint64_t m_uiHeldFromNs = 0; /* stamp before that gap */
    int64_t m_iHeldStep = 0;     /* what was counted across it */
    uint64_t m_uiFields = 0;     /* position of m_oLast in fields */
    uint64_t m_uiSkipped = 0;
    uint64_t m_uiBuffers = 0;

    bool m_bFirstUnseen = false;  /* the start of m_oLast was not delivered yet */
    bool m_bSecondUnseen = false; /* nor its second field */
    uint64_t m_uiDeliveredNs = 0; /* last stamp delivered */
};

#endif
