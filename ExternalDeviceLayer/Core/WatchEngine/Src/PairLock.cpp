#include "PairLock.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double flSameRate = 50e-6;   // measured rates so close to a multiple are compared, whatever the timings say
constexpr double flHysteresis = 1.1;   // of the threshold
constexpr double flStopsPassing = 3.0; // standard errors
constexpr double flPasses = 4.0;       // standard errors
constexpr uint32_t uiRelockFactor = 2; // seconds without a drift per second with one
constexpr uint32_t uiMostRelock = 60;  // seconds
constexpr double flContradicts = 4.0;  // standard errors between two windows
constexpr double flLeastShare = 0.35;  // of a window must be there
constexpr double flNoLine = 1e-6;      // seconds: the threshold in lines where these are not known

struct SDrift
{
    bool bIsValid = false;
    double flTicksPerSecond = 0.0;
    double flErr = 0.0;
    double flNowErr = 0.0;  // of the offset at the instant, ticks
    double flScatter = 0.0; // of the blocks about the line, ticks
};

struct SDrifts
{
    SDrift oChosen;
    SDrift oLongest; // whatever shorter windows say
};

// The growth of the offset per tick, from the difference of the slopes of both series: the offset is that of fields of
// the same number, and these come once per period of the slower stream. Exact for rates far from the nominal ones.
double GetGrowth(const SStreamPhase& roFirst, const SStreamPhase& roSecond, double flSlopes)
{
    const bool bFirstIsSlow = roFirst.flPeriod >= roSecond.flPeriod;
    const SStreamPhase& roSlow = bFirstIsSlow ? roFirst : roSecond;
    const SStreamPhase& roFast = bFirstIsSlow ? roSecond : roFirst;
    const double flRatio = PairLock_GetMultiple(roSlow.flReferencePeriod / roFast.flReferencePeriod) *
                           roFast.flReferencePeriod / roSlow.flReferencePeriod;
    const double flSign = bFirstIsSlow ? 1.0 : -1.0;
    return flSign * (flRatio - 1.0) + flRatio * flSlopes * roFast.flPeriod / roFast.flReferencePeriod;
}

// Variance of the difference over a second that the jitter of the single fields leaves, had it no memory.
double GetFieldNoise(const SStreamPhase& roFirst, const SStreamPhase& roSecond, double flTicksPerSecond)
{
    return (roFirst.flNoise * roFirst.flPeriod + roSecond.flNoise * roSecond.flPeriod) / flTicksPerSecond;
}

double GetSlopeErr(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SBlockFit& roFit,
                   double flFieldNoise)
{
    // Rounding to whole ticks is no noise where the jitter is below a tick.
    const double flRounding = (roFirst.flNoise < 1.0 ? 0.25 : 0.0) + (roSecond.flNoise < 1.0 ? 0.25 : 0.0);
    const double flByFields = std::sqrt(flFieldNoise / roFit.oSums.flXX);
    return std::hypot(std::max(roFit.flSlopeErr, flByFields), std::sqrt(flRounding) / roFit.oSums.flWeight);
}

// Of the line at the instant.
double GetNowErr(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const PhaseSeries& raoDifference,
                 const SBlockFit& roFit, double flFieldNoise)
{
    const SLineSums& roSums = roFit.oSums;
    const double flByFields = flFieldNoise * (1.0 / roSums.flWeight + roSums.flMeanX * roSums.flMeanX / roSums.flXX);
    return std::sqrt(flByFields + BlockFit_GetBend(raoDifference, roFit, 0.0, flFieldNoise) + 2.0 * flRoundingVariance +
                     roFirst.flWander + roSecond.flWander);
}

// The error at the instant only when it is asked for: the bend is dear.
SDrift GetDrift(const SStreamPhase& roFirst, const SStreamPhase& roSecond, EBlockLength eLength,
                double flTicksPerSecond, bool bAsksNow)
{
    SDrift oDrift;
    PhaseSeries aoDifference;
    const auto uiLength = static_cast<size_t>(eLength);
    for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
    {
        const SLinePoint& roA = roFirst.aoSeries[uiLength][uiBlock];
        const SLinePoint& roB = roSecond.aoSeries[uiLength][uiBlock];
        aoDifference[uiBlock] = {roA.flX, roB.flY - roA.flY, std::min(roA.flWeight, roB.flWeight)};
        aoDifference[uiBlock].flX = roA.flWeight > 0.0 ? roA.flX : roB.flX;
    }
    const SBlockFit oFit = BlockFit_Get(aoDifference);
    const double flWindow = static_cast<double>(aiBlockSeconds[uiLength]) * uiBlocksPerWindow;
    if (!oFit.bIsValid || oFit.oSums.flWeight < flLeastShare * flWindow)
    {
        return oDrift;
    }
    oDrift.bIsValid = true;
    oDrift.flTicksPerSecond = GetGrowth(roFirst, roSecond, oFit.oSums.GetSlope() / flTicksPerSecond) * flTicksPerSecond;
    oDrift.flScatter = oFit.flSlopeErr * std::sqrt(oFit.oSums.flXX * oFit.uiBlocks / oFit.oSums.flWeight);
    const double flFieldNoise = GetFieldNoise(roFirst, roSecond, flTicksPerSecond);
    oDrift.flErr = GetSlopeErr(roFirst, roSecond, oFit, flFieldNoise);
    oDrift.flNowErr = bAsksNow ? GetNowErr(roFirst, roSecond, aoDifference, oFit, flFieldNoise) : 0.0;
    return oDrift;
}

// The longest window that the shorter ones do not contradict counts.
SDrifts ChooseDrift(const SStreamPhase& roFirst, const SStreamPhase& roSecond, double flTicksPerSecond)
{
    SDrift oChosen = GetDrift(roFirst, roSecond, EBlockLength::SECOND, flTicksPerSecond, true);
    SDrift oLongest = oChosen;
    bool bAgree = true;
    for (const EBlockLength eLength : {EBlockLength::TEN, EBlockLength::HUNDRED})
    {
        SDrift oLonger = GetDrift(roFirst, roSecond, eLength, flTicksPerSecond, !oChosen.bIsValid);
        oLongest = oLonger.bIsValid ? oLonger : oLongest;
        if (!oChosen.bIsValid)
        {
            oChosen = oLonger; // the watcher was late for long
            continue;
        }
        const double flErr = std::hypot(oChosen.flErr, oLonger.flErr);
        bAgree = bAgree && oLonger.bIsValid &&
                 std::abs(oLonger.flTicksPerSecond - oChosen.flTicksPerSecond) <= flContradicts * flErr;
        if (bAgree)
        {
            oLonger.flNowErr = oChosen.flNowErr;
            oChosen = oLonger;
        }
    }
    return {oChosen, oLongest};
}

// How long a drift still counts: until it has been away for long enough.
uint32_t CountDrift(const SPairFigures& roPair)
{
    const uint32_t uiToLock = roPair.uiSecondsToLock;
    return PairLock_Drifts(roPair) ? std::min(uiToLock + uiRelockFactor, uiMostRelock)
                                   : uiToLock - (uiToLock > 0 ? 1 : 0);
}

ELockState JudgeLock(SPairFigures& roPair, double flThreshold)
{
    if (std::abs(roPair.oOffsetSeconds.flValue) > PairLock_GetLimit(roPair, flThreshold))
    {
        roPair.uiSecondsToLock = 0;
        return ELockState::FREE;
    }
    roPair.uiSecondsToLock = CountDrift(roPair);
    return roPair.uiSecondsToLock > 0 ? ELockState::PASSING : ELockState::LOCKED;
}

bool IsDriftSure(const SEstimate& roDrift)
{
    return roDrift.flValue != 0.0 && std::abs(roDrift.flValue) > flStopsPassing * roDrift.flStdErr;
}

// The offset, told along the direction of the drift.
double GetAlongDrift(const SPairFigures& roPair)
{
    const double flDrift = roPair.oDriftRatio.flValue;
    return std::copysign(1.0, flDrift) * roPair.oOffsetSeconds.flValue;
}

// When a drift that is there brings the offset, told along its direction, to a place ahead.
SEstimate GetSecondsTo(const SPairFigures& roPair, double flAhead, double flOffsetErr)
{
    const double flDrift = std::abs(roPair.oDriftRatio.flValue);
    const double flSeconds = std::max(0.0, flAhead / flDrift);
    return {flSeconds, std::hypot(flOffsetErr, flSeconds * roPair.oDriftRatio.flStdErr) / flDrift, true};
}

// The next crossing of the threshold, inward or outward: as with zero.
SEstimate GetSecondsToThreshold(const SPairFigures& roPair, double flPeriod, double flThreshold)
{
    if (!IsDriftSure(roPair.oDriftRatio) || 2.0 * flThreshold >= flPeriod)
    {
        return {};
    }
    const double flOffset = GetAlongDrift(roPair);
    const double flNext = flOffset < -flThreshold  ? -flThreshold
                          : flOffset < flThreshold ? flThreshold
                                                   : flPeriod - flThreshold;
    return GetSecondsTo(roPair, flNext - flOffset, roPair.oOffsetSeconds.flStdErr);
}

bool AreComparable(const SStreamPhase& roFirst, const SStreamPhase& roSecond)
{
    const bool bFirstIsSlow = roFirst.flPeriod >= roSecond.flPeriod;
    const SStreamPhase& roSlow = bFirstIsSlow ? roFirst : roSecond;
    const SStreamPhase& roFast = bFirstIsSlow ? roSecond : roFirst;
    return PairLock_AreComparable(roSlow.oNominal, roFast.oNominal, roSlow.flPeriod / roFast.flPeriod);
}

} // namespace

SPairContext PairContext_Make(const SWatchSettings& roSettings, double flLineSeconds)
{
    return {PairLock_GetThreshold(roSettings.oThreshold, flLineSeconds),
            static_cast<double>(roSettings.uiTickFrequencyHz), flLineSeconds};
}

double PairLock_GetThreshold(const SLockThreshold& roThreshold, double flLineSeconds)
{
    const double flByLines = roThreshold.flLines * (flLineSeconds > 0.0 ? flLineSeconds : flNoLine);
    return roThreshold.flSeconds > 0.0 ? roThreshold.flSeconds : flByLines;
}

double PairLock_GetLimit(const SPairFigures& roPair, double flThreshold)
{
    const bool bWasWithin = roPair.eLock == ELockState::LOCKED || roPair.eLock == ELockState::PASSING;
    return (bWasWithin ? flHysteresis : 1.0) * flThreshold;
}

double PairLock_GetMultiple(double flRatio)
{
    return std::max(1.0, std::round(flRatio));
}

bool PairLock_AreComparable(const SNominalRate& roSlow, const SNominalRate& roFast, double flRatio)
{
    return (roSlow.IsKnown() && roFast.IsKnown() && NominalRate_IsMultiple(roSlow, roFast)) ||
           std::abs(flRatio / PairLock_GetMultiple(flRatio) - 1.0) < flSameRate;
}

bool PairLock_Drifts(const SPairFigures& roPair)
{
    const double flLimit = roPair.eLock == ELockState::PASSING ? flStopsPassing : flPasses;
    return std::abs(roPair.oDriftRatio.flValue) > flLimit * roPair.oDriftRatio.flStdErr;
}

SEstimate PairLock_GetSecondsToSlip(const SPairFigures& roPair, double flPeriod, double flOffsetErr)
{
    if (!IsDriftSure(roPair.oDriftRatio))
    {
        return {};
    }
    const double flOffset = GetAlongDrift(roPair);
    return GetSecondsTo(roPair, flOffset < 0.0 ? -flOffset : flPeriod - flOffset, flOffsetErr);
}

void PairLock_Update(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SPairContext& roContext,
                     SPairFigures& roPair)
{
    roPair.flLineSeconds = roContext.flLine;
    const auto Leave = [&roPair](ELockState eLock)
    {
        roPair.flOffsetLines = 0.0;
        roPair.eLock = eLock;
        roPair.uiSecondsToLock = 0;
        roPair.oOffsetSeconds = {};
        roPair.oDriftRatio = {};
        roPair.oLongDriftRatio = {};
        roPair.oSecondsToThreshold = {};
        roPair.oSecondsToSlip = {};
    };
    if (!roFirst.bIsKnown || !roSecond.bIsKnown)
    {
        Leave(ELockState::IDLE);
        return;
    }
    if (!AreComparable(roFirst, roSecond))
    {
        Leave(ELockState::DIFFERENT);
        return;
    }
    const double flPeriod = std::min(roFirst.flPeriod, roSecond.flPeriod);
    const double flApart = roSecond.flGrid - roFirst.flGrid;
    const double flOffset = flApart - flPeriod * std::round(flApart / flPeriod);
    const auto [oDrift, oLongest] = ChooseDrift(roFirst, roSecond, roContext.flTicksPerSecond);
    if (!oDrift.bIsValid)
    {
        Leave(ELockState::IDLE);
        return;
    }
    const double flScale = 1.0 / roContext.flTicksPerSecond;
    roPair.oOffsetSeconds = {flOffset * flScale, oDrift.flNowErr * flScale, true};
    roPair.flOffsetLines = roContext.flLine > 0.0 ? roPair.oOffsetSeconds.flValue / roContext.flLine : 0.0;
    roPair.oDriftRatio = {oDrift.flTicksPerSecond * flScale, oDrift.flErr * flScale, true};
    roPair.oLongDriftRatio = {oLongest.flTicksPerSecond * flScale, oLongest.flErr * flScale, true};
    roPair.flScatterSeconds = oLongest.flScatter * flScale;
    roPair.eLock = JudgeLock(roPair, roContext.flThreshold);
    roPair.oSecondsToThreshold = GetSecondsToThreshold(roPair, flPeriod * flScale, roContext.flThreshold);
    roPair.oSecondsToSlip = PairLock_GetSecondsToSlip(roPair, flPeriod * flScale, roPair.oOffsetSeconds.flStdErr);
}
