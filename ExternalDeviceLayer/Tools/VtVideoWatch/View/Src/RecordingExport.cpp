#include "RecordingExport.h"

#include "TimeUnits.h"

uint64_t RecordingExport_GetMonotonicNs(uint64_t uiTick, const SRecordedClock& roClock, uint32_t uiTickFrequencyHz)
{
    // Whole seconds apart: the product of a long recording would leave 64 bits.
    const auto iTicks = static_cast<int64_t>(uiTick - roClock.uiTick);
    const int64_t iSeconds = iTicks / uiTickFrequencyHz;
    const int64_t iRest = iTicks % uiTickFrequencyHz;
    return roClock.uiMonotonicNs + static_cast<uint64_t>(iSeconds * iNsPerSecond) +
           static_cast<uint64_t>(iRest * iNsPerSecond / uiTickFrequencyHz);
}
