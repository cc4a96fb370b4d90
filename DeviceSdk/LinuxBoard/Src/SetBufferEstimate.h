/*
 * Counts the buffers that an application sets, out of looks at the framebuffer that is shown. One look a field sees one
 * buffer a field, if it lies well away from the moment at which the application sets it: that moment is learned by
 * looks at distances of a little more than half a field, and the look goes half a field away from it. Now and then one
 * look more, a quarter of a field from the usual one, tells whether it has moved. A picture that stands still is looked
 * at less often, for every look wakes a processor.
 *
 * An estimate: an application that draws into one framebuffer all the time shows no change, and of several buffers set
 * in one field one is seen. No clock is read here; one thread at a time. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_SET_BUFFER_ESTIMATE_H
#define LINUX_BOARD_SET_BUFFER_ESTIMATE_H

#include <cstdint>

class CSetBufferEstimate
{
public:
    /* The framebuffer that was shown at uiNowNs; 0 when none. */
    void Look(uint32_t uiFramebufferId, uint64_t uiNowNs);

    /* When to look next, given that a field began at uiFieldNs, before or after the last look. */
    uint64_t NextLookNs(uint64_t uiFieldNs, uint64_t uiPeriodNs);

    uint64_t Count() const { return m_uiCount; }

private:
    enum class EPlan : uint8_t
    {
        LEARN, /* where in a field the application sets its buffers */
        USUAL,
        GUARD_BEHIND, /* the look more, a quarter of a field behind the usual one */
        GUARD_BEFORE  /* a quarter before the next one */
    };

    bool IsChanged(uint32_t uiFramebufferId);
    void Learn(bool bChanged, uint64_t uiNowNs);
    void EndLearning();
    void BeginLearning();
    void PassGuard(bool bGood);
    void PlanNext(bool bChanged);
    double StepToUsual(double flPhase) const;

    uint32_t m_uiFramebufferId = 0;
    uint64_t m_uiCount = 0;
    uint32_t m_uiUnchanged = 0; /* looks since the last change */
    bool m_bStill = false;
    uint64_t m_uiLastNs = 0;  /* the last look */
    uint64_t m_uiFieldNs = 0; /* the grid of the last plan */
    uint64_t m_uiPeriodNs = 0;

    EPlan m_ePlan = EPlan::USUAL; /* what the next look is for */
    double m_flUsual = 0.6;       /* where in a field the usual look is */
    uint32_t m_uiLearned = 0;     /* looks of this learning */
    uint32_t m_uiMoments = 0;     /* changes that it has met */
    double m_flSumCos = 0.0;      /* of where they lie on the circle of a field */
    double m_flSumSin = 0.0;
    uint32_t m_uiGuardPause = 8; /* usual looks between two guards */
    uint32_t m_uiSinceGuard = 0;
    bool m_bGuardBefore = false; /* the next guard */
    bool m_bGuardDoubts = false; /* the guard before the next usual look has met no change */
};

#endif
