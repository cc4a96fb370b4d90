#include "PairSlip.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{

constexpr double flMostMargin = 0.125;                    // of the shorter period
constexpr double flOffPrediction = 0.25;                  // likewise: farther off than that nobody knows what happened
constexpr double flDrifts = 3.0;                          // standard errors
constexpr double flWanders = std::numbers::sqrt2;         // now and then: both are away from the line
constexpr double flGrain = std::numbers::inv_sqrt3 / 2.0; // of a period: it slips with a field
constexpr double flMarginStdErrs = 4.0;                   // of the offset

} // namespace

SSlipScale PairSlip_GetScale(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SPairContext& roContext,
                             double flElapsed)
{
    const double flShort = std::min(roFirst.flPeriod, roSecond.flPeriod) / roContext.flTicksPerSecond;
    const double flLong = std::max(roFirst.flPeriod, roSecond.flPeriod) / roContext.flTicksPerSecond;
    return {flShort, flShort * std::max(1.0, std::round(flLong / flShort)), roContext.flThreshold, flElapsed};
}

SWatchEvent PairSlip_MakeEvent(const SStreamKey& roStream, const SStreamKey& roAgainst, const SSlips& roSlips,
                               ESlip eSlip, uint64_t uiTick, uint32_t uiTickFrequencyHz)
{
    SWatchEvent oEvent = {};
    oEvent.eKind = EWatchEventKind::SLIPPED;
    oEvent.oKey = roStream;
    oEvent.uiTick = uiTick - static_cast<uint64_t>(roSlips.flSecondsAgo * uiTickFrequencyHz);
    oEvent.uiCount = roSlips.GetCount();
    oEvent.uiBefore = EventStream_Pack(roAgainst);
    oEvent.uiAfter = static_cast<uint64_t>(eSlip);
    return oEvent;
}

SSlips CPairSlip::Take(const SPairFigures& roPair, const SSlipScale& roScale)
{
    SSlips oSlips;
    const double flDrift = roPair.oDriftRatio.flValue;
    const double flOffset = roPair.oOffsetSeconds.flValue;
    const double flPredicted = m_flAhead + flDrift * roScale.flElapsed;
    const double flOff = std::remainder(flOffset - flPredicted, roScale.flShort);
    if (!roPair.oOffsetSeconds.bIsValid || !m_bIsKnown || std::abs(flOff) > flOffPrediction * roScale.flShort)
    {
        m_bIsKnown = roPair.oOffsetSeconds.bIsValid;
        m_flAhead = flOffset < 0.0 ? flOffset + roScale.flPeriod : flOffset;
        return oSlips;
    }
    m_flAhead = flPredicted + flOff;
    const double flMargin = std::min(std::max(roScale.flMargin, flMarginStdErrs * roPair.oOffsetSeconds.flStdErr),
                                     flMostMargin * roScale.flShort);
    const double flBeyond = m_flAhead > roScale.flPeriod + flMargin ? m_flAhead - roScale.flPeriod
                            : m_flAhead < -flMargin                 ? m_flAhead
                                                                    : 0.0;
    if (flBeyond != 0.0)
    {
        // More than one at once only where a second holds more than a period.
        oSlips.iPeriods =
            static_cast<int32_t>(std::copysign(1.0 + std::floor(std::abs(flBeyond) / roScale.flPeriod), flBeyond));
        m_flAhead -= oSlips.iPeriods * roScale.flPeriod;
        const double flRest = std::fmod(flBeyond, roScale.flPeriod);
        oSlips.flSecondsAgo = flDrift * flRest > 0.0 ? flRest / flDrift : 0.0;
    }
    return oSlips;
}

void CPairSlip::Fill(const SPairFigures& roPair, const SSlipScale& roScale, SSlipFigures& roFigures) const
{
    roFigures.oEverySeconds = {};
    roFigures.oNextSeconds = {};
    const bool bIsFree = roPair.eLock == ELockState::FREE || roPair.eLock == ELockState::PASSING;
    const double flDrift = std::abs(roPair.oLongDriftRatio.flValue);
    const double flDriftErr = roPair.oLongDriftRatio.flStdErr;
    if (!m_bIsKnown || !bIsFree || flDrift <= flDrifts * flDriftErr || flDrift == 0.0)
    {
        return;
    }
    const double flRest = roPair.oLongDriftRatio.flValue > 0.0 ? roScale.flPeriod - m_flAhead : m_flAhead;
    const double flAhead = flRest > 0.0 ? flRest : flRest + roScale.flPeriod;
    const double flEvery = roScale.flPeriod / flDrift;
    const double flNext = flAhead / flDrift;
    roFigures.oEverySeconds = {flEvery, flEvery * flDriftErr / flDrift, true};
    const double flPlaceErr = std::hypot(roPair.oOffsetSeconds.flStdErr, flWanders * roPair.flScatterSeconds);
    roFigures.oNextSeconds = {
        flNext, std::hypot(std::hypot(flPlaceErr, flNext * flDriftErr) / flDrift, flGrain * roScale.flPeriod), true};
}
