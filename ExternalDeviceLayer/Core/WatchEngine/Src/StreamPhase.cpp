// See StreamPhase.h.
#include "StreamPhase.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr uint32_t uiFullBlocks = 8; // of ten
constexpr double flRoundingVariance = 1.0 / 12.0;

// Where the block's middle is, relative to a field: fields after it and ticks of phase after its phase.
struct SBlockPlace
{
    double flNumber;
    double flPhase;
};

SBlockPlace GetPlace(const SFitSums& roBlock, int64_t iNumber, int64_t iPhase)
{
    return {static_cast<double>(roBlock.iNumber - iNumber) + roBlock.flMeanNumber,
            static_cast<double>(roBlock.iPhase - iPhase) + roBlock.flMeanPhase};
}

// Rounding to whole ticks is no noise where the jitter is below a tick: the worst slope that it can feign, as three
// standard errors.
double GetRoundingSlopeErr(const SLine& roLine)
{
    return roLine.flNoise < 1.0 ? 0.5 / roLine.flCount : 0.0;
}

} // namespace

SRateFit StreamPhase_FitWindow(const CRateHistory& roHistory, EBlockLength eLength, const SWindowTimes& roTimes)
{
    SRateFit oFit;
    SFitSums oSums;
    uint32_t uiBlocks = 0;
    std::array<SBlockPoint, uiBlocksPerWindow> aoPoints = {};
    for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
    {
        const SFitSums* poBlock = roHistory.FindBlock(eLength, roTimes.aiBlock[uiBlock]);
        if (poBlock == nullptr || poBlock->flCount == 0.0)
        {
            continue;
        }
        oSums = FitSums_Combine(oSums, *poBlock);
        const SBlockPlace oPlace = GetPlace(*poBlock, oSums.iNumber, oSums.iPhase);
        aoPoints[uiBlock] = {oPlace.flNumber, oPlace.flPhase, poBlock->flCount};
        ++uiBlocks;
    }
    oFit.oLine = FitSums_GetLine(oSums);
    if (!oFit.oLine.bIsValid)
    {
        return oFit;
    }
    const double flByFields = std::sqrt(oFit.oLine.flVariance / oFit.oLine.flNumberNumber);
    const SBlockFit oByBlocks = BlockFit_Get(aoPoints);
    oFit.flSlopeErr = std::hypot(std::max(flByFields, oByBlocks.bIsValid ? oByBlocks.flSlopeErr : 0.0),
                                 GetRoundingSlopeErr(oFit.oLine));
    oFit.bIsFull = uiBlocks >= uiFullBlocks;
    return oFit;
}

namespace
{

// The field start nearest to the instant, from the line through the last ten seconds.
struct SNearestField
{
    int64_t iNumber = 0;
    double flPhase = 0.0; // relative to the line's
};

SNearestField FindGrid(SStreamPhase& roPhase, const CRateHistory& roHistory, const SInstant& roInstant,
                       const SRateFit& roFit)
{
    const SLine& roLine = roFit.oLine;
    const uint64_t uiOrigin = roHistory.GetGridTick(roLine.iNumber) + static_cast<uint64_t>(roLine.iPhase);
    const double flSince =
        static_cast<double>(static_cast<int64_t>(roInstant.uiTick - uiOrigin)) - roLine.GetPhase(0.0);
    const double flNumber = std::round(flSince / roPhase.flPeriod);
    roPhase.flGrid = flNumber * roPhase.flPeriod - flSince;
    const double flAway = flNumber - roLine.flMeanNumber;
    // The blocks' own word on the slope counts here as well.
    roPhase.flGridErr = std::sqrt(roLine.flVariance / roLine.flCount +
                                  roFit.flSlopeErr * roFit.flSlopeErr * flAway * flAway + flRoundingVariance);
    return {roLine.iNumber + static_cast<int64_t>(flNumber), roLine.GetPhase(flNumber)};
}

} // namespace

void StreamPhase_Find(SStreamPhase& roPhase, const CRateHistory& roHistory, const SInstant& roInstant,
                      const std::array<SRateFit, 3>& raoFits, double flTicksPerSecond)
{
    const SRateFit& roTen = raoFits[0];
    // Without a field in the last second as well: the watcher may have been late, and slow streams have none.
    roPhase.bIsKnown = roTen.oLine.bIsValid;
    if (!roPhase.bIsKnown)
    {
        return;
    }
    const auto flGridPeriod = static_cast<double>(roHistory.GetPeriod());
    roPhase.flPeriod = flGridPeriod + roTen.oLine.flSlope;
    roPhase.flReferencePeriod = roPhase.oNominal.IsKnown() ? flTicksPerSecond / roPhase.oNominal.GetHz() : flGridPeriod;
    roPhase.flNoise = roTen.oLine.flNoise;
    const SNearestField oNearest = FindGrid(roPhase, roHistory, roInstant, roTen);
    const double flExcess = flGridPeriod - roPhase.flReferencePeriod;
    for (size_t uiLength = 0; uiLength < roPhase.aoSeries.size(); ++uiLength)
    {
        const double flDrift = (raoFits[uiLength].oLine.flSlope + flExcess) / roPhase.flPeriod; // ticks per tick
        const SWindowTimes& roTimes = roInstant.aoTimes[uiLength];
        for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
        {
            SBlockPoint& roPoint = roPhase.aoSeries[uiLength][uiBlock];
            const SFitSums* poBlock =
                roHistory.FindBlock(static_cast<EBlockLength>(uiLength), roTimes.aiBlock[uiBlock]);
            roPoint = {};
            if (poBlock == nullptr || poBlock->flCount == 0.0 || !raoFits[uiLength].oLine.bIsValid)
            {
                continue;
            }
            const SBlockPlace oPlace = GetPlace(*poBlock, oNearest.iNumber, roTen.oLine.iPhase);
            const double flPhase = oPlace.flPhase - oNearest.flPhase;
            // The mean of a block's fields is not quite at its middle.
            const double flMean = roPhase.flGrid + oPlace.flNumber * flGridPeriod + flPhase; // after the instant
            const double flCentre = roTimes.aflCentre[uiBlock] * flTicksPerSecond;
            roPoint.flTime = roTimes.aflCentre[uiBlock];
            roPoint.flValue = oPlace.flNumber * flExcess + flPhase + flDrift * (flCentre - flMean);
            roPoint.flWeight = poBlock->flCount * roPhase.flPeriod / flTicksPerSecond;
        }
    }
}
