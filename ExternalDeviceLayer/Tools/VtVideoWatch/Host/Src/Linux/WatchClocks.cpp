#include "WatchClocks.h"

#include <sys/timex.h>

namespace
{

constexpr int iMostReadings = 5;
constexpr uint64_t uiGoodEnoughNs = 1000;

// CLOCK_REALTIME between two readings of CLOCK_MONOTONIC; the closest of a few, for the thread may lose its processor
// in the middle of one.
void ReadBothClocks(SClockReading& roReading)
{
    uint64_t uiBestNs = UINT64_MAX;
    for (int iReading = 0; iReading < iMostReadings && uiBestNs > uiGoodEnoughNs; ++iReading)
    {
        const uint64_t uiBeforeNs = ReadMonotonicNs();
        const int64_t iUtcNs = ReadClockNs(CLOCK_REALTIME);
        const uint64_t uiApartNs = ReadMonotonicNs() - uiBeforeNs;
        if (uiApartNs < uiBestNs)
        {
            uiBestNs = uiApartNs;
            roReading.uiMonotonicNs = uiBeforeNs + uiApartNs / 2;
            roReading.iUtcNs = iUtcNs;
        }
    }
    roReading.flReadingErrorSeconds = static_cast<double>(uiBestNs) * 0.5e-9;
}

} // namespace

SClockReading ReadClocks()
{
    SClockReading oReading = {};
    timex oTimex = {};
    const int iState = clock_adjtime(CLOCK_REALTIME, &oTimex);
    if (iState >= 0)
    {
        oReading.iTaiOffsetSeconds = oTimex.tai;
        oReading.bIsSynchronised = iState != TIME_ERROR && (oTimex.status & STA_UNSYNC) == 0;
        oReading.flEstimatedErrorSeconds = static_cast<double>(oTimex.esterror) * 1e-6;
    }
    ReadBothClocks(oReading);
    return oReading;
}
