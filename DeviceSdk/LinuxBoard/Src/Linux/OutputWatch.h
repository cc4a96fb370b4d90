/*
 * Looks at an output beside the wait for its fields: at the framebuffer when the estimate of set buffers says so, at
 * connector and power once a second. The kernel holds up who asks for these while a program changes the output. Owned
 * by one output handle; Start, Stop and FieldBegan belong to its thread. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_OUTPUT_WATCH_H
#define LINUX_BOARD_OUTPUT_WATCH_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "BesideThread.h"
#include "KmsCard.h"
#include "SetBufferEstimate.h"

struct SOutputView
{
    SCrtcView oCrtc;
    SFramebufferView oFramebuffer; /* all 0 when none is shown */
    VtVideoOut_PowerState ePower = VtVideoOut_PowerState_DISABLED;
};

class COutputWatch
{
public:
    explicit COutputWatch(const CKmsCard& roCard) : m_roCard(roCard) {}

    /* The card is open, and stays so until Stop. */
    void Start(uint32_t uiConnectorId);
    /* Waits for a request that is under way. */
    void Stop() { m_oThread.Stop(); }

    /* Asks all of it now, on the caller's thread; uiCrtcId is 0 when none feeds the connector. */
    SOutputView Ask(uint32_t uiCrtcId);

    void FieldBegan(uint32_t uiCrtcId, uint64_t uiStampNs);

    uint64_t SetBuffers() const { return m_uiSetBuffers.load(std::memory_order_relaxed); }
    /* Moves on when what is shown has another mode. */
    uint32_t Modes() const { return m_uiModes.load(std::memory_order_acquire); }
    SOutputView View();

private:
    SBesidePause Work(uint64_t uiNowNs);
    void LookAtBuffer(uint32_t uiCrtcId, uint64_t uiFieldNs);
    void LookAtRest();
    void ReadFramebuffer(SOutputView& roView) const;
    /* Answers the field period of what is shown, 0 when nothing is. */
    uint64_t Publish(const SOutputView& roView);

    const CKmsCard& m_roCard;
    uint32_t m_uiConnectorId = 0;
    std::atomic<uint32_t> m_uiCrtcId{0};
    std::atomic<uint64_t> m_uiFieldNs{0}; /* when the last field began */
    std::atomic<bool> m_bIdle{false};     /* the thread sleeps until there are fields again */
    std::atomic<uint64_t> m_uiSetBuffers{0};
    std::atomic<uint32_t> m_uiModes{0};
    CSetBufferEstimate m_oEstimate; /* of the thread */
    uint64_t m_uiNextLookNs = 0;
    uint64_t m_uiNextRestNs = 0;
    std::mutex m_oMutex; /* guards what follows */
    SOutputView m_oView;
    uint64_t m_uiFieldPeriodNs = 0;
    CBesideThread m_oThread; /* last, so that it ends first */
};

#endif
