#include "TraceRecord.h"

#include <algorithm>
#include <cstring>
#include <linux/videodev2.h>

namespace
{

/* Fields are numbers in the machine's own order, and lie where they lie. */
bool Read(const STraceField& roField, std::span<const std::byte> aoRecord, uint64_t& ruiValue)
{
    ruiValue = 0;
    if (roField.uiSize == 0 || roField.uiSize > sizeof(ruiValue) || roField.uiOffset > aoRecord.size() ||
        roField.uiSize > aoRecord.size() - roField.uiOffset)
    {
        return false;
    }
    const std::byte* pFrom = aoRecord.data() + roField.uiOffset;
    switch (roField.uiSize)
    {
    case sizeof(uint16_t):
    {
        uint16_t uiValue = 0;
        std::memcpy(&uiValue, pFrom, sizeof(uiValue));
        ruiValue = uiValue;
        return true;
    }
    case sizeof(uint32_t):
    {
        uint32_t uiValue = 0;
        std::memcpy(&uiValue, pFrom, sizeof(uiValue));
        ruiValue = uiValue;
        return true;
    }
    case sizeof(uint64_t):
        std::memcpy(&ruiValue, pFrom, sizeof(ruiValue));
        return true;
    default:
        return false;
    }
}

EFieldParity ParityOf(uint64_t uiField)
{
    if (uiField == V4L2_FIELD_TOP)
    {
        return EFieldParity::TOP;
    }
    return uiField == V4L2_FIELD_BOTTOM ? EFieldParity::BOTTOM : EFieldParity::NONE;
}

} // namespace

bool TraceRecord_Read(const STraceLayout& roLayout, std::span<const std::byte> aoRecord, STracedBuffer& roBuffer)
{
    uint64_t uiEventId = 0;
    uint64_t uiMinor = 0;
    uint64_t uiType = 0;
    uint64_t uiFlags = 0;
    uint64_t uiField = 0;
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    if (!Read(roLayout.oEventId, aoRecord, uiEventId) || uiEventId != static_cast<uint64_t>(roLayout.iEventId) ||
        !Read(roLayout.oMinor, aoRecord, uiMinor) || !Read(roLayout.oType, aoRecord, uiType) ||
        !Read(roLayout.oFlags, aoRecord, uiFlags) || !Read(roLayout.oField, aoRecord, uiField) ||
        !Read(roLayout.oStamp, aoRecord, uiStampNs) || !Read(roLayout.oSequence, aoRecord, uiSequence))
    {
        return false;
    }
    roBuffer.uiMinor = static_cast<uint32_t>(uiMinor);
    roBuffer.bCapture = uiType == V4L2_BUF_TYPE_VIDEO_CAPTURE || uiType == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    roBuffer.bMonotonicStamp = (uiFlags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    roBuffer.oFrame = {static_cast<uint32_t>(uiSequence), uiStampNs, ParityOf(uiField),
                       (uiFlags & V4L2_BUF_FLAG_ERROR) != 0};
    return true;
}

uint32_t TraceRecord_BufferKb(uint32_t uiFramesPerSecond)
{
    constexpr uint32_t uiUsualRate = 60;
    constexpr uint32_t uiRecordBytes = 80; // 64 of the event and what the ring buffer puts before it
    constexpr uint32_t uiLeastKb = 8;      // the kernel makes no ring of less than two pages
    const uint32_t uiFrames = uiFramesPerSecond == 0 ? uiUsualRate : uiFramesPerSecond;
    return std::max(uiLeastKb, uiFrames * uiRecordBytes / 1024 + 1);
}
