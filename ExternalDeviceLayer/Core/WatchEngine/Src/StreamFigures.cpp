#include "StreamFigures.h"

#include <algorithm>
#include <cmath>

namespace
{

void FillRate(CStreamOutput& roOutput, const CStreamGrid& roGrid, ERateWindow eWindow, const SRateFit& roFit)
{
    SEstimate& roRate = roOutput.GetFigures().aoRateHz[static_cast<size_t>(eWindow)];
    SEstimate& roPpm = roOutput.GetFigures().aoRatePpm[static_cast<size_t>(eWindow)];
    roRate = {};
    roPpm = {};
    if (!roFit.bIsFull || !roFit.oLine.bIsValid)
    {
        return;
    }
    const double flPeriod = static_cast<double>(roGrid.GetHistory().GetPeriod()) + roFit.oLine.flSlope;
    const double flRelativeErr = roFit.flSlopeErr / flPeriod;
    roRate.flValue = roOutput.GetContext().uiTickFrequencyHz / flPeriod;
    roRate.flStdErr = roRate.flValue * flRelativeErr;
    roRate.bIsValid = true;
    const double flNominalPeriod = roOutput.GetNominalPeriod();
    if (flNominalPeriod > 0.0)
    {
        const double flRatio = flNominalPeriod / flPeriod;
        roPpm = {(flRatio - 1.0) * 1e6, flRatio * flRelativeErr * 1e6, true};
    }
}

// The line through the last second alone.
SRateFit FitSecond(const CStreamOutput& roOutput, const CStreamGrid& roGrid, int64_t iSecond)
{
    SRateFit oFit;
    const SFitSums* poSecond = roGrid.GetHistory().FindBlock(EBlockLength::SECOND, iSecond);
    if (poSecond == nullptr)
    {
        return oFit;
    }
    oFit.oLine = FitSums_GetLine(*poSecond);
    if (oFit.oLine.bIsValid)
    {
        oFit.flSlopeErr = StreamPhase_GetSlopeErr(oFit.oLine, roGrid.GetRecent().GetSlopeErrorByParts(iSecond));
        oFit.bIsFull = 2.0 * oFit.oLine.GetCount() * roGrid.GetPeriod() > roOutput.GetContext().uiTickFrequencyHz;
    }
    return oFit;
}

} // namespace

RateFits StreamFigures_FitWindows(const CStreamGrid& roGrid, const SInstant& roInstant)
{
    RateFits aoFits;
    for (size_t uiLength = 0; uiLength < aoFits.size(); ++uiLength)
    {
        aoFits[uiLength] = StreamPhase_FitWindow(roGrid.GetHistory(), static_cast<EBlockLength>(uiLength),
                                                 roInstant.aoTimes[uiLength]);
    }
    return aoFits;
}

void StreamFigures_FillRates(CStreamOutput& roOutput, const CStreamGrid& roGrid, const RateFits& raoFits,
                             const SInstant& roInstant)
{
    FillRate(roOutput, roGrid, ERateWindow::SECONDS_1, FitSecond(roOutput, roGrid, roInstant.iSecond - 1));
    FillRate(roOutput, roGrid, ERateWindow::SECONDS_10, raoFits[0]);
    FillRate(roOutput, roGrid, ERateWindow::SECONDS_100, raoFits[1]);
    FillRate(roOutput, roGrid, ERateWindow::SECONDS_1000, raoFits[2]);
}

void StreamFigures_FillGrid(CStreamOutput& roOutput, const CStreamGrid& roGrid, const SStreamPhase& roPhase)
{
    const double flSecondsPerTick = roOutput.GetSecondsPerTick();
    SStreamFigures& roFigures = roOutput.GetFigures();
    roFigures.oGridSeconds = {roPhase.flGrid * flSecondsPerTick, roPhase.flGridErr * flSecondsPerTick,
                              roPhase.bIsKnown};
    roFigures.flPeriodSeconds = roGrid.GetPeriod() * flSecondsPerTick;
}

void StreamFigures_FillJitter(CStreamOutput& roOutput, const CStreamGrid& roGrid, const SLine& roTen,
                              const SInstant& roInstant)
{
    const double flSecondsPerTick = roOutput.GetSecondsPerTick();
    SStreamFigures& roFigures = roOutput.GetFigures();
    roFigures.flJitterRmsSeconds = 0.0;
    roFigures.flJitterPeakSeconds = 0.0;
    roFigures.oIntervals = {};
    if (roTen.bIsValid)
    {
        const SJitterFigures oJitter = roGrid.GetRecent().GetJitter(roTen, roInstant.iSecond, flSecondsPerTick);
        roFigures.flJitterRmsSeconds = std::sqrt(roTen.flVariance) * flSecondsPerTick;
        roFigures.flJitterPeakSeconds = oJitter.flPeakTicks * flSecondsPerTick;
        roFigures.oIntervals = oJitter.oIntervals;
    }
    for (size_t uiTime = 0; uiTime < auiTdevSeconds.size(); ++uiTime)
    {
        SEstimate oEstimate = roGrid.GetTimeDeviation().Get(static_cast<ETdevTime>(uiTime));
        oEstimate.flValue *= flSecondsPerTick;
        oEstimate.flStdErr *= flSecondsPerTick;
        roFigures.aoTdevSeconds[uiTime] = oEstimate;
    }
}
