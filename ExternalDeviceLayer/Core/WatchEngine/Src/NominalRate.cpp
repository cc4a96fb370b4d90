#include "NominalRate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace
{

constexpr uint32_t uiHzPerKHz = 1000;
constexpr uint64_t uiMostTotal = 1U << 24U; // pixels and lines: no signal has more, and products stay in range
constexpr double flRatio1001 = 1000.0 / 1001.0;

// Rates that the told clock allows, lowest and highest, and the one that it says.
struct SAllowedRates
{
    SNominalRate oTold;
    double flLowestHz = 0.0;
    double flHighestHz = 0.0;
};

uint64_t GetHTotal(const VtVideo_VidParam& roTimings)
{
    return uint64_t{roTimings.uiHActive} + roTimings.uiHFPorch + roTimings.uiHSync + roTimings.uiHBPorch;
}

// Lines of a frame; the odd one of an interlaced frame is in no field's count.
uint64_t GetVTotal(const VtVideo_VidParam& roTimings)
{
    const uint64_t uiBlanking = uint64_t{roTimings.uiVFPorch} + roTimings.uiVSync + roTimings.uiVBPorch;
    return roTimings.bInterlaced != 0 ? roTimings.uiVActive + 2 * uiBlanking + 1 : roTimings.uiVActive + uiBlanking;
}

SNominalRate Reduce(uint64_t uiNumerator, uint64_t uiDenominator)
{
    const uint64_t uiCommon = std::gcd(uiNumerator, uiDenominator);
    return {uiNumerator / uiCommon, uiDenominator / uiCommon};
}

SAllowedRates GetAllowed(const VtVideo_VidParam& roTimings)
{
    if (roTimings.uiHActive == 0 || roTimings.uiVActive == 0 || GetHTotal(roTimings) > uiMostTotal ||
        GetVTotal(roTimings) > uiMostTotal)
    {
        return {};
    }
    const uint64_t uiPixels = GetHTotal(roTimings) * GetVTotal(roTimings);
    if (roTimings.uiPixelClock_kHz == 0)
    {
        const double flRate = roTimings.uiVRate_Hz;
        return {{roTimings.uiVRate_Hz, 1}, flRate - 0.5, flRate + 0.5};
    }
    const uint64_t uiFields = roTimings.bInterlaced != 0 ? 2 : 1;
    const double flPerKHz = static_cast<double>(uiHzPerKHz * uiFields) / static_cast<double>(uiPixels);
    const double flClock = roTimings.uiPixelClock_kHz;
    return {Reduce(uint64_t{roTimings.uiPixelClock_kHz} * uiHzPerKHz * uiFields, uiPixels), (flClock - 0.5) * flPerKHz,
            (flClock + 0.5) * flPerKHz};
}

// Rates of the two usual forms, those next to a given one; only what the clock allows.
struct SUsualRates
{
    std::array<SNominalRate, 2> aoRates;
    uint32_t uiCount = 0;
};

SUsualRates FindUsual(const SAllowedRates& roAllowed, double flNearHz)
{
    SUsualRates oUsual;
    const auto Add = [&](SNominalRate oRate)
    {
        // A board may cut the clock off instead of rounding it: an edge counts as inside.
        const double flSlack = 1e-9 * flNearHz;
        if (oRate.IsKnown() && oRate.GetHz() >= roAllowed.flLowestHz - flSlack &&
            oRate.GetHz() <= roAllowed.flHighestHz + flSlack)
        {
            oUsual.aoRates[oUsual.uiCount++] = oRate;
        }
    };
    Add(Reduce(static_cast<uint64_t>(std::llround(2.0 * flNearHz)), 2));
    Add(Reduce(static_cast<uint64_t>(std::llround(2.0 * flNearHz / flRatio1001)) * 1000, 2002));
    return oUsual;
}

} // namespace

SNominalRate NominalRate_Choose(const VtVideo_VidParam& roTimings, double flMeasuredHz)
{
    const SAllowedRates oAllowed = GetAllowed(roTimings);
    if (!oAllowed.oTold.IsKnown())
    {
        return {};
    }
    // A measured rate far outside is that of something else: a format that has just changed.
    const double flMargin = 1e-3 * oAllowed.flHighestHz;
    const bool bMeasured =
        flMeasuredHz > oAllowed.flLowestHz - flMargin && flMeasuredHz < oAllowed.flHighestHz + flMargin;
    const double flNearHz = bMeasured ? flMeasuredHz : oAllowed.oTold.GetHz();
    const SUsualRates oUsual = FindUsual(oAllowed, flNearHz);
    if (oUsual.uiCount == 0)
    {
        return oAllowed.oTold;
    }
    const auto Distance = [flNearHz](const SNominalRate& roRate) { return std::abs(roRate.GetHz() - flNearHz); };
    return *std::min_element(oUsual.aoRates.begin(), oUsual.aoRates.begin() + oUsual.uiCount,
                             [&](const SNominalRate& roA, const SNominalRate& roB)
                             { return Distance(roA) < Distance(roB); });
}

bool NominalRate_IsMultiple(const SNominalRate& roSlow, const SNominalRate& roFast)
{
    __extension__ using UInt128 = unsigned __int128;
    const UInt128 uiFast = UInt128{roFast.uiNumerator} * roSlow.uiDenominator;
    const UInt128 uiSlow = UInt128{roSlow.uiNumerator} * roFast.uiDenominator;
    return uiFast % uiSlow == 0;
}

bool NominalRate_IsAmbiguous(const VtVideo_VidParam& roTimings)
{
    const SAllowedRates oAllowed = GetAllowed(roTimings);
    // Rates of both forms are 1000 ppm apart, those of one form half a hertz.
    return oAllowed.oTold.IsKnown() &&
           oAllowed.flHighestHz - oAllowed.flLowestHz > std::min(9e-4 * oAllowed.flHighestHz, 0.45);
}

double NominalRate_GetLineSeconds(const VtVideo_VidParam& roTimings, const SNominalRate& roRate)
{
    const uint64_t uiLines = GetVTotal(roTimings);
    if (!roRate.IsKnown() || uiLines == 0)
    {
        return 0.0;
    }
    const double flFields = roTimings.bInterlaced != 0 ? 2.0 : 1.0;
    return flFields / (roRate.GetHz() * static_cast<double>(uiLines));
}
