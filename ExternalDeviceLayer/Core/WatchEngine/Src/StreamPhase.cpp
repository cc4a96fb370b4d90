#include "StreamPhase.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr uint32_t uiFullBlocks = 8; // of ten

// Where the block's middle is, relative to a field: fields after it and ticks of phase after its phase.
struct SBlockPlace
{
    double flNumber;
    double flPhase;
};

SBlockPlace GetPlace(const SFitSums& roBlock, int64_t iNumber, int64_t iPhase)
{
    return {static_cast<double>(roBlock.iNumber - iNumber) + roBlock.oLine.flMeanX,
            static_cast<double>(roBlock.iPhase - iPhase) + roBlock.oLine.flMeanY};
}

// Rounding to whole ticks is no noise where the jitter is below a tick: the worst slope that it can feign, as three
// standard errors.
double GetRoundingSlopeErr(const SLine& roLine)
{
    return roLine.flNoise < 1.0 ? 0.5 / roLine.GetCount() : 0.0;
}

} // namespace

double StreamPhase_GetSlopeErr(const SLine& roLine, double flByBlocks)
{
    const double flByFields = std::sqrt(roLine.flVariance / roLine.oSums.flXX);
    return std::hypot(std::max(flByFields, flByBlocks), GetRoundingSlopeErr(roLine));
}

SRateFit StreamPhase_FitWindow(const CRateHistory& roHistory, EBlockLength eLength, const SWindowTimes& roTimes)
{
    SRateFit oFit;
    SFitSums oSums;
    uint32_t uiBlocks = 0;
    PhaseSeries& aoPoints = oFit.aoPoints;
    for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
    {
        const SFitSums* poBlock = roHistory.FindBlock(eLength, roTimes.aiBlock[uiBlock]);
        if (poBlock == nullptr || poBlock->IsEmpty())
        {
            continue;
        }
        oSums = FitSums_Combine(oSums, *poBlock);
        const SBlockPlace oPlace = GetPlace(*poBlock, oSums.iNumber, oSums.iPhase);
        aoPoints[uiBlock] = {oPlace.flNumber, oPlace.flPhase, poBlock->GetCount()};
        ++uiBlocks;
    }
    oFit.oLine = FitSums_GetLine(oSums);
    if (!oFit.oLine.bIsValid)
    {
        return oFit;
    }
    oFit.oBlocks = BlockFit_Get(aoPoints);
    oFit.flSlopeErr = StreamPhase_GetSlopeErr(oFit.oLine, oFit.oBlocks.flSlopeErr);
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
    // By the fields, which takes them for independent; what bends the line; and what neighbouring fields share.
    const double flAway = flNumber - roLine.oSums.flMeanX;
    const double flByFields = std::hypot(std::sqrt(roLine.flVariance / roLine.GetCount()), roFit.flSlopeErr * flAway);
    const double flBend =
        roFit.oBlocks.bIsValid ? BlockFit_GetBend(roFit.aoPoints, roFit.oBlocks, flNumber, roLine.flNoise) : 0.0;
    roPhase.flGridErr = std::sqrt(flByFields * flByFields + flBend + roLine.flWander + flRoundingVariance);
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
    roPhase.flWander = roTen.oLine.flWanderInSecond;
    const SNearestField oNearest = FindGrid(roPhase, roHistory, roInstant, roTen);
    const double flExcess = flGridPeriod - roPhase.flReferencePeriod;
    for (size_t uiLength = 0; uiLength < roPhase.aoSeries.size(); ++uiLength)
    {
        const double flDrift = (raoFits[uiLength].oLine.flSlope + flExcess) / roPhase.flPeriod; // ticks per tick
        const SWindowTimes& roTimes = roInstant.aoTimes[uiLength];
        for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
        {
            SLinePoint& roPoint = roPhase.aoSeries[uiLength][uiBlock];
            const SFitSums* poBlock =
                roHistory.FindBlock(static_cast<EBlockLength>(uiLength), roTimes.aiBlock[uiBlock]);
            roPoint = {};
            if (poBlock == nullptr || poBlock->IsEmpty() || !raoFits[uiLength].oLine.bIsValid)
            {
                continue;
            }
            const SBlockPlace oPlace = GetPlace(*poBlock, oNearest.iNumber, roTen.oLine.iPhase);
            const double flPhase = oPlace.flPhase - oNearest.flPhase;
            // The mean of a block's fields is not quite at its middle.
            const double flMean = roPhase.flGrid + oPlace.flNumber * flGridPeriod + flPhase; // after the instant
            const double flCentre = roTimes.aflCentre[uiBlock] * flTicksPerSecond;
            roPoint.flX = roTimes.aflCentre[uiBlock];
            roPoint.flY = oPlace.flNumber * flExcess + flPhase + flDrift * (flCentre - flMean);
            roPoint.flWeight = poBlock->GetCount() * roPhase.flPeriod / flTicksPerSecond;
        }
    }
}
