#include "RateComparison.h"

#include "NominalRate.h"

double RateComparison_GetHz(const VtVideo_VidParam& roTimings)
{
    return NominalRate_Choose(roTimings, 0.0).GetHz();
}

bool RateComparison_AreDifferent(const VtVideo_VidParam& roFirst, const VtVideo_VidParam& roSecond)
{
    const SNominalRate oFirst = NominalRate_Choose(roFirst, 0.0);
    const SNominalRate oSecond = NominalRate_Choose(roSecond, 0.0);
    // What the clock leaves open is decided by what is measured.
    return oFirst.IsKnown() && oSecond.IsKnown() && !NominalRate_IsAmbiguous(roFirst) &&
           !NominalRate_IsAmbiguous(roSecond) && !NominalRate_IsMultiple(oFirst, oSecond) &&
           !NominalRate_IsMultiple(oSecond, oFirst);
}
