#include "KmsCard.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <xf86drm.h>

namespace
{

template <typename TRecord, void (*pfnFree)(TRecord*)> struct SFreeWith
{
    void operator()(TRecord* poRecord) const { pfnFree(poRecord); }
};
template <typename TRecord, void (*pfnFree)(TRecord*)>
using CDrmPointer = std::unique_ptr<TRecord, SFreeWith<TRecord, pfnFree>>;

using CResources = CDrmPointer<drmModeRes, drmModeFreeResources>;
using CConnector = CDrmPointer<drmModeConnector, drmModeFreeConnector>;
using CEncoder = CDrmPointer<drmModeEncoder, drmModeFreeEncoder>;
using CCrtc = CDrmPointer<drmModeCrtc, drmModeFreeCrtc>;
using CFramebuffer = CDrmPointer<drmModeFB2, drmModeFreeFB2>;
using CProperties = CDrmPointer<drmModeObjectProperties, drmModeFreeObjectProperties>;
using CProperty = CDrmPointer<drmModePropertyRes, drmModeFreeProperty>;

// libdrm hands events to a plain function, whose only argument of ours is a number of 64 bits that we need otherwise.
thread_local CVblankTracker* g_poTracker = nullptr;

void OnSequence(int /*iFd*/, uint64_t uiSequence, uint64_t uiStampNs, uint64_t uiTag)
{
    g_poTracker->AcceptEvent(uiTag, uiSequence, uiStampNs);
}

} // namespace

int CKmsCard::Open(const std::string& szNode)
{
    m_oFd = CFileDescriptor(open(szNode.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!m_oFd.IsOpen())
    {
        return -errno;
    }
    // The kernel makes the first opener master without being asked, and then nobody else can set a mode.
    // Before Linux 5.8 only root could resign: rather no output than a card that nobody else can use.
    if (drmDropMaster(m_oFd.Get()) != 0 && drmIsMaster(m_oFd.Get()) != 0)
    {
        m_oFd.Close();
        return -EPERM;
    }
    return 0;
}

uint32_t CKmsCard::FindConnector(const std::string& szConnector) const
{
    const CResources poResources(drmModeGetResources(Fd()));
    for (int iIndex = 0; poResources != nullptr && iIndex < poResources->count_connectors; iIndex++)
    {
        // "Current": the other call makes the driver probe the cable, which can disturb the signal.
        const CConnector poConnector(drmModeGetConnectorCurrent(Fd(), poResources->connectors[iIndex]));
        if (poConnector == nullptr)
        {
            continue;
        }
        const char* szType = drmModeGetConnectorTypeName(poConnector->connector_type);
        if (szType != nullptr && szConnector == szType + ("-" + std::to_string(poConnector->connector_type_id)))
        {
            return poConnector->connector_id;
        }
    }
    return 0;
}

int CKmsCard::ReadCrtcOf(uint32_t uiConnectorId, uint32_t& ruiCrtcId) const
{
    ruiCrtcId = 0;
    errno = 0;
    const CConnector poConnector(drmModeGetConnectorCurrent(Fd(), uiConnectorId));
    if (poConnector == nullptr)
    {
        return errno == 0 ? -EIO : -errno;
    }
    if (poConnector->encoder_id == 0)
    {
        return 0;
    }
    const CEncoder poEncoder(drmModeGetEncoder(Fd(), poConnector->encoder_id));
    if (poEncoder != nullptr)
    {
        ruiCrtcId = poEncoder->crtc_id;
    }
    return 0;
}

bool CKmsCard::IsRateVariable(uint32_t uiCrtcId) const
{
    const CProperties poProperties(drmModeObjectGetProperties(Fd(), uiCrtcId, DRM_MODE_OBJECT_CRTC));
    for (uint32_t uiIndex = 0; poProperties != nullptr && uiIndex < poProperties->count_props; uiIndex++)
    {
        const CProperty poProperty(drmModeGetProperty(Fd(), poProperties->props[uiIndex]));
        if (poProperty == nullptr || std::strcmp(poProperty->name, "VRR_ENABLED") != 0)
        {
            continue;
        }
        return poProperties->prop_values[uiIndex] != 0;
    }
    return false;
}

VtVideoOut_PowerState CKmsCard::ReadPower(uint32_t uiConnectorId) const
{
    const CConnector poConnector(drmModeGetConnectorCurrent(Fd(), uiConnectorId));
    for (int iIndex = 0; poConnector != nullptr && iIndex < poConnector->count_props; iIndex++)
    {
        const CProperty poProperty(drmModeGetProperty(Fd(), poConnector->props[iIndex]));
        if (poProperty == nullptr || std::strcmp(poProperty->name, "DPMS") != 0)
        {
            continue;
        }
        switch (poConnector->prop_values[iIndex])
        {
        case DRM_MODE_DPMS_STANDBY:
            return VtVideoOut_PowerState_STANDBY;
        case DRM_MODE_DPMS_SUSPEND:
            return VtVideoOut_PowerState_SUSPEND;
        case DRM_MODE_DPMS_OFF:
            return VtVideoOut_PowerState_OFF;
        default:
            return VtVideoOut_PowerState_ON;
        }
    }
    return VtVideoOut_PowerState_ON;
}

int CKmsCard::ReadCrtc(uint32_t uiCrtcId, SCrtcView& roView) const
{
    roView = {};
    errno = 0;
    const CCrtc poCrtc(drmModeGetCrtc(Fd(), uiCrtcId));
    if (poCrtc == nullptr)
    {
        return errno == 0 ? -EIO : -errno;
    }
    roView = {poCrtc->mode_valid != 0, poCrtc->mode, poCrtc->buffer_id};
    return 0;
}

bool CKmsCard::ReadFramebuffer(uint32_t uiFramebufferId, SFramebufferView& roView) const
{
    const CFramebuffer poFramebuffer(drmModeGetFB2(Fd(), uiFramebufferId));
    if (poFramebuffer == nullptr)
    {
        return false;
    }
    roView = {poFramebuffer->width, poFramebuffer->height, poFramebuffer->pixel_format};
    // A privileged reader is given the buffer itself: give it back, each part once.
    for (size_t uiPlane = 0; uiPlane < std::size(poFramebuffer->handles); uiPlane++)
    {
        const uint32_t uiHandle = poFramebuffer->handles[uiPlane];
        bool bClosed = uiHandle == 0;
        for (size_t uiBefore = 0; uiBefore < uiPlane; uiBefore++)
        {
            bClosed = bClosed || poFramebuffer->handles[uiBefore] == uiHandle;
        }
        if (!bClosed)
        {
            drmCloseBufferHandle(Fd(), uiHandle);
        }
    }
    return true;
}

int CKmsCard::ReadSequence(uint32_t uiCrtcId, uint64_t& ruiSequence, uint64_t& ruiStampNs) const
{
    return drmCrtcGetSequence(Fd(), uiCrtcId, &ruiSequence, &ruiStampNs) == 0 ? 0 : -errno;
}

int CKmsCard::QueueSequence(uint32_t uiCrtcId, uint64_t uiSequence, uint64_t uiTag) const
{
    return drmCrtcQueueSequence(Fd(), uiCrtcId, 0, uiSequence, nullptr, uiTag) == 0 ? 0 : -errno;
}

void CKmsCard::ReadEvents(CVblankTracker& roTracker) const
{
    drmEventContext oContext{};
    oContext.version = 4;
    oContext.sequence_handler = OnSequence;
    g_poTracker = &roTracker;
    // One call takes more than the queue is deep, and does not wait: the descriptor is not a blocking one.
    drmHandleEvent(Fd(), &oContext);
    g_poTracker = nullptr;
}
