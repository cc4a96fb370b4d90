#include "GenLockProcess.h"

#include <algorithm>
#include <limits>

#include "KrvTools.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint32_t uiHzPerKHz = 1000;

// Appends one record per stream with its ring, as one consistent moment of all of them. The array grows before the
// mutex is taken, so that only copies happen under it. An array that cannot take that many stays as it was.
void TakeSnapshot(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData,
                  CFrameLockVideoArray& rdaoFrameLockVideoData)
{
    const int32_t iFirst = rdaoFrameLockVideoData.GetSize();
    rdaoFrameLockVideoData.SetSize(iFirst + static_cast<int32_t>(uiNbOfVideo), -1);
    if (rdaoFrameLockVideoData.GetSize() - iFirst != static_cast<int32_t>(uiNbOfVideo))
    {
        return;
    }
    SFrameLockVideoData* poVideo = rdaoFrameLockVideoData.GetData() + iFirst;
    OsMutexGuard oGuard(g_oMutex, OsServices_INFINITE);
    for (uint32_t uiVideo = 0; uiVideo < uiNbOfVideo; ++uiVideo, ++poVideo)
    {
        const SMonitorUserData& roData = paoVideoMonitorData[uiVideo];
        poVideo->uiTickFreqHz = roData.uiTickRefFreq;
        poVideo->uiLineFreqHz = roData.uiHRate_KHz * uiHzPerKHz;
        KrvTools_memcpy(poVideo->auiTimeStamp, roData.auiTickRefCounter, sizeof(poVideo->auiTimeStamp));
    }
}

// Puts the oldest sample first and finds out whether the stream has delivered anything newer than ruiLastTimeStamp.
void OrderSamples(SFrameLockVideoData& roVideo, uint64_t& ruiLastTimeStamp)
{
    uint32_t uiMinIndex = 0;
    uint64_t uiMinTimeStamp = std::numeric_limits<uint64_t>::max();
    roVideo.uiSampleCount = NB_OF_SAMPLES;
    for (uint32_t uiSample = 0; uiSample < NB_OF_SAMPLES; ++uiSample)
    {
        const uint64_t uiTimeStamp = roVideo.auiTimeStamp[uiSample];
        if (uiTimeStamp == 0)
        {
            roVideo.uiSampleCount = uiSample;
            break;
        }
        if (uiTimeStamp < uiMinTimeStamp)
        {
            uiMinTimeStamp = uiTimeStamp;
            uiMinIndex = uiSample;
        }
        if (uiTimeStamp > ruiLastTimeStamp)
        {
            roVideo.bActive = 1;
            ruiLastTimeStamp = uiTimeStamp;
        }
    }
    // All slots move, whatever the count: the empty tail of a ring that has not wrapped stays behind.
    std::rotate(roVideo.auiTimeStamp, roVideo.auiTimeStamp + uiMinIndex, roVideo.auiTimeStamp + NB_OF_SAMPLES);
}

// Index of the sample of roVideo that is nearest to uiTimeStamp, the earliest of equally near ones.
uint32_t FindNearestSample(const SFrameLockVideoData& roVideo, uint64_t uiTimeStamp)
{
    uint32_t uiNearest = 0;
    uint64_t uiSmallest = std::numeric_limits<uint64_t>::max();
    for (uint32_t uiSample = 0; uiSample < roVideo.uiSampleCount; ++uiSample)
    {
        const uint64_t uiOther = roVideo.auiTimeStamp[uiSample];
        const uint64_t uiDistance = uiTimeStamp > uiOther ? uiTimeStamp - uiOther : uiOther - uiTimeStamp;
        if (uiDistance < uiSmallest)
        {
            uiSmallest = uiDistance;
            uiNearest = uiSample;
        }
    }
    return uiNearest;
}

// Absolute value in 32-bit arithmetic: the smallest number stays as it is.
int32_t WrappingAbs(int32_t iValue)
{
    return iValue < 0 ? static_cast<int32_t>(0U - static_cast<uint32_t>(iValue)) : iValue;
}

// Lays the samples of two streams side by side, so that A's middle sample faces the nearest one of B, and compares
// them.
void MeasurePair(const SFrameLockVideoData& roVideoA, const SFrameLockVideoData& roVideoB, SFrameLockPairData& roPair)
{
    const uint32_t uiAnchorA = roVideoA.uiSampleCount / 2;
    const uint32_t uiAnchorB = FindNearestSample(roVideoB, roVideoA.auiTimeStamp[uiAnchorA]);
    const uint32_t uiOffsetA = uiAnchorA > uiAnchorB ? uiAnchorA - uiAnchorB : 0;
    const uint32_t uiOffsetB = uiAnchorB > uiAnchorA ? uiAnchorB - uiAnchorA : 0;
    const uint64_t* puiTimeStampA = roVideoA.auiTimeStamp + uiOffsetA;
    const uint64_t* puiTimeStampB = roVideoB.auiTimeStamp + uiOffsetB;
    roPair.uiSampleCount = std::min(roVideoA.uiSampleCount - uiOffsetA, roVideoB.uiSampleCount - uiOffsetB);

    int32_t iDeltaMin = std::numeric_limits<int32_t>::max();
    int32_t iDeltaMax = std::numeric_limits<int32_t>::min();
    for (uint32_t uiSample = 0; uiSample < roPair.uiSampleCount; ++uiSample)
    {
        // The low 32 bits of the difference, deliberately.
        const int32_t iDelta =
            static_cast<int32_t>(static_cast<uint32_t>(puiTimeStampA[uiSample] - puiTimeStampB[uiSample]));
        iDeltaMin = std::min(iDeltaMin, iDelta);
        iDeltaMax = std::max(iDeltaMax, iDelta);
    }
    roPair.iDeltaMin = iDeltaMin;
    roPair.iDeltaMax = iDeltaMax;
    roPair.uiDeltaAbs = static_cast<uint32_t>(std::max(WrappingAbs(iDeltaMax), WrappingAbs(iDeltaMin)));
}

void MeasurePairs(const CFrameLockVideoArray& rdaoFrameLockVideoData, CFrameLockPairArray& rdaoFrameLockPairData)
{
    const uint32_t uiNbOfVideo = static_cast<uint32_t>(rdaoFrameLockVideoData.GetSize());
    const SFrameLockVideoData* paoVideo = rdaoFrameLockVideoData.GetData();
    // The step of growth: the first pair gets a block of its own, the second makes room for all that there can be.
    rdaoFrameLockPairData.SetSize(rdaoFrameLockPairData.GetSize(),
                                  static_cast<int32_t>(uiNbOfVideo * (uiNbOfVideo - 1) / 2));
    for (uint32_t uiA = 0; uiA + 1 < uiNbOfVideo; ++uiA)
    {
        for (uint32_t uiB = uiA + 1; uiB < uiNbOfVideo; ++uiB)
        {
            if (!paoVideo[uiA].bActive || !paoVideo[uiB].bActive)
            {
                continue;
            }
            SFrameLockPairData oPair = {};
            oPair.uiVideoIndexA = uiA;
            oPair.uiVideoIndexB = uiB;
            MeasurePair(paoVideo[uiA], paoVideo[uiB], oPair);
            rdaoFrameLockPairData.Add(oPair);
        }
    }
}

} // namespace

Bool32 ProcessGenLock(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData,
                      uint64_t* pauiVideoLastTimeStamp, CFrameLockVideoArray& rdaoFrameLockVideoData,
                      CFrameLockPairArray& rdaoFrameLockPairData)
{
    if (pauiVideoLastTimeStamp == nullptr || paoVideoMonitorData == nullptr || uiNbOfVideo == 0)
    {
        return 0;
    }
    TakeSnapshot(uiNbOfVideo, paoVideoMonitorData, rdaoFrameLockVideoData);
    if (rdaoFrameLockVideoData.GetSize() != static_cast<int32_t>(uiNbOfVideo))
    {
        return 0;
    }
    SFrameLockVideoData* paoVideo = rdaoFrameLockVideoData.GetData();
    for (uint32_t uiVideo = 0; uiVideo < uiNbOfVideo; ++uiVideo)
    {
        OrderSamples(paoVideo[uiVideo], pauiVideoLastTimeStamp[uiVideo]);
    }
    MeasurePairs(rdaoFrameLockVideoData, rdaoFrameLockPairData);
    return 1;
}

uint32_t Fact(uint32_t uiN)
{
    uint32_t uiProduct = 1;
    // From 34 on the wrapped product is 0 and stays so.
    for (uint32_t uiFactor = 2; uiFactor <= uiN && uiProduct != 0; ++uiFactor)
    {
        uiProduct *= uiFactor;
    }
    return uiProduct;
}

uint32_t NCR(uint32_t uiN, uint32_t uiR)
{
    if (uiN < uiR)
    {
        return 1;
    }
    const uint32_t uiDivisor = Fact(uiR) * Fact(uiN - uiR);
    return uiDivisor == 0 ? 1 : Fact(uiN) / uiDivisor;
}
