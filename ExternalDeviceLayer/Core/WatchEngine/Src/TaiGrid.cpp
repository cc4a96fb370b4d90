#include "TaiGrid.h"

#include <cmath>

#include "TimeUnits.h"

namespace
{

__extension__ using Int128 = __int128;

} // namespace

double TaiGrid_GetPhase(int64_t iTaiNs, double flRestNs, const SNominalRate& roRate)
{
    // A period is denominator / numerator seconds; counted in nanoseconds / numerator, everything is whole.
    const Int128 iPeriod = Int128{iNsPerSecond} * static_cast<Int128>(roRate.uiDenominator);
    Int128 iPhase = Int128{iTaiNs} * static_cast<Int128>(roRate.uiNumerator) % iPeriod;
    iPhase += iPhase < 0 ? iPeriod : 0;
    const double flScale = flSecondsPerNs / static_cast<double>(roRate.uiNumerator);
    const double flPeriod = static_cast<double>(iPeriod) * flScale;
    const double flPhase = static_cast<double>(iPhase) * flScale + flRestNs * flSecondsPerNs;
    return flPhase - flPeriod * std::round(flPhase / flPeriod);
}

bool TaiGrid_IsWholePerSecond(const SNominalRate& roRate)
{
    return roRate.uiNumerator % roRate.uiDenominator == 0;
}
