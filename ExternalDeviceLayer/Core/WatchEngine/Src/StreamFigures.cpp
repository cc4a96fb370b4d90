// The figures of a stream at an instant. See StreamWatch.h.
#include <algorithm>
#include <cmath>

#include "StreamWatch.h"

void CStreamWatch::AnalysePhase(const SInstant& roInstant)
{
    m_oHistory.CloseBefore(roInstant.iSecond);
    std::array<SRateFit, 3> aoFits;
    for (size_t uiLength = 0; uiLength < aoFits.size(); ++uiLength)
    {
        aoFits[uiLength] =
            StreamPhase_FitWindow(m_oHistory, static_cast<EBlockLength>(uiLength), roInstant.aoTimes[uiLength]);
    }
    FillRates(aoFits, roInstant.iSecond - 1);
    if (m_bIsAmbiguous)
    {
        ChooseNominal();
    }
    m_oPhase.bIsKnown = false;
    if (m_oFigures.eState == EStreamState::RUNNING)
    {
        StreamPhase_Find(m_oPhase, m_oHistory, roInstant, aoFits, m_roContext.uiTickFrequencyHz);
    }
    for (int64_t iSecond = std::max(m_iLastSecond + 1, roInstant.iSecond - uiBlocksPerWindow);
         iSecond < roInstant.iSecond; ++iSecond)
    {
        TakeTimeError(iSecond, aoFits[0].oLine.flSlope);
    }
    m_iLastSecond = roInstant.iSecond - 1;
    const double flSecondsPerTick = 1.0 / m_roContext.uiTickFrequencyHz;
    m_oFigures.oGridSeconds = {m_oPhase.flGrid * flSecondsPerTick, m_oPhase.flGridErr * flSecondsPerTick,
                               m_oPhase.bIsKnown};
    m_oFigures.flPeriodSeconds = GetPeriod() * flSecondsPerTick;
    FillJitter(aoFits[0], roInstant);
}

void CStreamWatch::FillRate(ERateWindow eWindow, const SRateFit& roFit)
{
    SEstimate& roRate = m_oFigures.aoRateHz[static_cast<size_t>(eWindow)];
    SEstimate& roPpm = m_oFigures.aoRatePpm[static_cast<size_t>(eWindow)];
    roRate = {};
    roPpm = {};
    if (!roFit.bIsFull || !roFit.oLine.bIsValid)
    {
        return;
    }
    const double flPeriod = static_cast<double>(m_oHistory.GetPeriod()) + roFit.oLine.flSlope;
    const double flRelativeErr = roFit.flSlopeErr / flPeriod;
    roRate.flValue = m_roContext.uiTickFrequencyHz / flPeriod;
    roRate.flStdErr = roRate.flValue * flRelativeErr;
    roRate.bIsValid = true;
    const double flNominalPeriod = GetNominalPeriod();
    if (flNominalPeriod > 0.0)
    {
        roPpm = {(flNominalPeriod / flPeriod - 1.0) * 1e6, flRelativeErr * 1e6, true};
    }
}

void CStreamWatch::FillRates(const std::array<SRateFit, 3>& raoFits, int64_t iSecond)
{
    SRateFit oSecond;
    if (const SFitSums* poSecond = m_oHistory.FindBlock(EBlockLength::SECOND, iSecond); poSecond != nullptr)
    {
        oSecond.oLine = FitSums_GetLine(*poSecond);
        if (oSecond.oLine.bIsValid)
        {
            const double flByFields = std::sqrt(oSecond.oLine.flVariance / oSecond.oLine.flNumberNumber);
            const double flByParts = m_oRecent.GetSlopeErrorByParts(iSecond);
            const double flRounding = oSecond.oLine.flNoise < 1.0 ? 0.5 / oSecond.oLine.flCount : 0.0;
            oSecond.flSlopeErr = std::hypot(std::max(flByFields, flByParts), flRounding);
            oSecond.bIsFull = 2.0 * oSecond.oLine.flCount * GetPeriod() > m_roContext.uiTickFrequencyHz;
        }
    }
    FillRate(ERateWindow::SECONDS_1, oSecond);
    FillRate(ERateWindow::SECONDS_10, raoFits[0]);
    FillRate(ERateWindow::SECONDS_100, raoFits[1]);
    FillRate(ERateWindow::SECONDS_1000, raoFits[2]);
}

void CStreamWatch::FillJitter(const SRateFit& roTen, const SInstant& roInstant)
{
    const double flSecondsPerTick = 1.0 / m_roContext.uiTickFrequencyHz;
    m_oFigures.flJitterRmsSeconds = 0.0;
    m_oFigures.flJitterPeakSeconds = 0.0;
    m_oFigures.oIntervals = {};
    if (roTen.oLine.bIsValid)
    {
        const SJitterFigures oJitter = m_oRecent.GetJitter(roTen.oLine, roInstant.iSecond, flSecondsPerTick);
        m_oFigures.flJitterRmsSeconds = std::sqrt(roTen.oLine.flVariance) * flSecondsPerTick;
        m_oFigures.flJitterPeakSeconds = oJitter.flPeakTicks * flSecondsPerTick;
        m_oFigures.oIntervals = oJitter.oIntervals;
    }
    for (size_t uiTime = 0; uiTime < auiTdevSeconds.size(); ++uiTime)
    {
        SEstimate oEstimate = m_oTimeDeviation.Get(static_cast<ETdevTime>(uiTime));
        oEstimate.flValue *= flSecondsPerTick;
        oEstimate.flStdErr *= flSecondsPerTick;
        m_oFigures.aoTdevSeconds[uiTime] = oEstimate;
    }
}

// The phase of a second's middle against the nominal rate, for the time deviation.
void CStreamWatch::TakeTimeError(int64_t iSecond, double flSlope)
{
    const SFitSums* poSecond = m_oHistory.FindBlock(EBlockLength::SECOND, iSecond);
    if (poSecond == nullptr || poSecond->flCount == 0.0)
    {
        return;
    }
    const double flNominalPeriod = GetNominalPeriod();
    const auto flGridPeriod = static_cast<double>(m_oHistory.GetPeriod());
    const double flExcess = flNominalPeriod > 0.0 ? flGridPeriod - flNominalPeriod : 0.0;
    const double flNumber = static_cast<double>(poSecond->iNumber) + poSecond->flMeanNumber;
    const double flPhase = static_cast<double>(poSecond->iPhase) + poSecond->flMeanPhase;
    // From the mean of the fields to the middle of the second, along the slope.
    const uint64_t uiMiddle = static_cast<uint64_t>(iSecond) * m_roContext.uiTickFrequencyHz;
    const double flToMiddle =
        static_cast<double>(static_cast<int64_t>(uiMiddle - m_oHistory.GetGridTick(poSecond->iNumber))) +
        m_roContext.uiTickFrequencyHz / 2.0 - poSecond->flMeanNumber * flGridPeriod - flPhase;
    const double flFields = flToMiddle / (flGridPeriod + flSlope);
    m_oTimeDeviation.Take(iSecond, flPhase + flNumber * flExcess + flFields * (flSlope + flExcess));
}
