#include "StreamCounts.h"

#include "VtVideoIn.h"
#include "VtVideoOut.h"

EStreamCount CountStreams(VtDevice_Handle hDev, Bool32 bIsVideoInput, uint32_t& ruiNbOfVideo)
{
    ruiNbOfVideo = 0;
    const VtStatus eStatus =
        bIsVideoInput ? VtVideoIn_GetCount(hDev, &ruiNbOfVideo) : VtVideoOut_GetCount(hDev, &ruiNbOfVideo);
    if (eStatus < 0)
    {
        ruiNbOfVideo = 0;
        return EStreamCount::FAILED;
    }
    return ruiNbOfVideo > uiMaxNbOfVideo ? EStreamCount::TOO_MANY : EStreamCount::COUNTED;
}
