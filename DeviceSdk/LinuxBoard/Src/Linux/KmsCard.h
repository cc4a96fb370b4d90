/*
 * One open display card, for watching only: it is never left master, nothing is set, nothing is probed. Insulates the
 * rest from libdrm. Belongs to one thread at a time. Operations answer 0 or a negative errno.
 */
#ifndef LINUX_BOARD_KMS_CARD_H
#define LINUX_BOARD_KMS_CARD_H

#include <cstdint>
#include <string>
#include <xf86drmMode.h>

#include "FileDescriptor.h"
#include "VblankTracker.h"
#include "VtVideoOut.h"

struct SCrtcView
{
    bool bModeValid = false;
    drmModeModeInfo oMode{};
    uint32_t uiFramebufferId = 0;
};

struct SFramebufferView
{
    uint32_t uiWidth = 0;
    uint32_t uiHeight = 0;
    uint32_t uiFourCc = 0;
};

class CKmsCard
{
public:
    int Open(const std::string& szNode);
    void Close() { m_oFd.Close(); }
    bool IsOpen() const { return m_oFd.IsOpen(); }
    int Fd() const { return m_oFd.Get(); }

    /* The connector named as in sysfs without the card ("HDMI-A-1"); 0 when there is none. */
    uint32_t FindConnector(const std::string& szConnector) const;

    /* The CRTC that feeds the connector; 0 when none does. -ENODEV when the card is gone. */
    int ReadCrtcOf(uint32_t uiConnectorId, uint32_t& ruiCrtcId) const;

    /* The CRTC may stretch its fields, so that what it draws decides the rate. */
    bool IsRateVariable(uint32_t uiCrtcId) const;

    /* What the connector's power property says. */
    VtVideoOut_PowerState ReadPower(uint32_t uiConnectorId) const;

    int ReadCrtc(uint32_t uiCrtcId, SCrtcView& roView) const;
    bool ReadFramebuffer(uint32_t uiFramebufferId, SFramebufferView& roView) const;

    /* -EINVAL while the CRTC is off, -EOPNOTSUPP when the card has no vertical blank events. */
    int ReadSequence(uint32_t uiCrtcId, uint64_t& ruiSequence, uint64_t& ruiStampNs) const;
    int QueueSequence(uint32_t uiCrtcId, uint64_t uiSequence, uint64_t uiTag) const;

    /* Hands the events that have come to the tracker, without waiting. */
    void ReadEvents(CVblankTracker& roTracker) const;

private:
    CFileDescriptor m_oFd;
};

#endif
