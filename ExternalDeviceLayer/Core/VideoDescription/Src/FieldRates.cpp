#include "FieldRates.h"

double ComputeNominalRate(const VtVideo_VidParam& roVidParam, uint32_t& ruiTotalScreenPixels)
{
    const uint32_t uiHTotal = roVidParam.uiHActive + roVidParam.uiHBPorch + roVidParam.uiHFPorch + roVidParam.uiHSync;
    const uint32_t uiVBlank = roVidParam.uiVFPorch + roVidParam.uiVBPorch + roVidParam.uiVSync;
    const uint32_t uiVTotal =
        roVidParam.bInterlaced ? roVidParam.uiVActive + 2 * uiVBlank + 1 : uiVBlank + roVidParam.uiVActive;
    ruiTotalScreenPixels = uiHTotal * uiVTotal;
    if (ruiTotalScreenPixels == 0)
    {
        return 0.0;
    }
    const float flPixelRate = 1000.0F * static_cast<float>(roVidParam.uiPixelClock_kHz);
    return static_cast<double>(flPixelRate / static_cast<float>(ruiTotalScreenPixels));
}
