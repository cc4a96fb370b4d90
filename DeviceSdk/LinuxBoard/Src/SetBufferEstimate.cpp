#include "SetBufferEstimate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace
{

constexpr double flTurn = 2.0 * std::numbers::pi;
/* Looks of a learning walk round the field, so that where their middles lie on average tells where the changes are. */
constexpr double flLearnStep = 9.0 / 16.0;
constexpr uint32_t uiLearnLooks = 32;
constexpr uint32_t uiLeastMoments = 6;
/* Of a length of 1: buffers set anywhere in a field, or twice in it, have no moment to keep away from. */
constexpr double flLeastAgreement = 0.3;
constexpr double flGuardStep = 0.25;
constexpr uint32_t uiLeastGuardPause = 8;
constexpr uint32_t uiMostGuardPause = 256;
constexpr uint32_t uiLooksAtStill = 30;
/* Two distances without a common divisor: an application that takes its buffers in turn is caught by one of them. */
constexpr std::array<double, 2> aflStillPauses = {7.0, 9.0};
/* The next look is no nearer than this to the last one. */
constexpr double flLeastStep = 0.2;

double Fraction(double flFields)
{
    return flFields - std::floor(flFields);
}

double FieldsBetween(uint64_t uiFromNs, uint64_t uiToNs, uint64_t uiPeriodNs)
{
    return static_cast<double>(static_cast<int64_t>(uiToNs - uiFromNs)) / static_cast<double>(uiPeriodNs);
}

} // namespace

bool CSetBufferEstimate::IsChanged(uint32_t uiFramebufferId)
{
    // Going dark sets no buffer.
    if (uiFramebufferId == m_uiFramebufferId || uiFramebufferId == 0)
    {
        return false;
    }
    const bool bFirst = m_uiFramebufferId == 0;
    m_uiFramebufferId = uiFramebufferId;
    return !bFirst;
}

void CSetBufferEstimate::BeginLearning()
{
    m_ePlan = EPlan::LEARN;
    m_uiLearned = m_uiMoments = 0;
    m_flSumCos = m_flSumSin = 0.0;
}

/* A change lies between the last look and this one; on average, in the middle. */
void CSetBufferEstimate::Learn(bool bChanged, uint64_t uiNowNs)
{
    if (bChanged && m_uiLearned != 0 && m_uiPeriodNs != 0)
    {
        const uint64_t uiMiddleNs = m_uiLastNs + (uiNowNs - m_uiLastNs) / 2;
        const double flAngle = flTurn * Fraction(FieldsBetween(m_uiFieldNs, uiMiddleNs, m_uiPeriodNs));
        m_flSumCos += std::cos(flAngle);
        m_flSumSin += std::sin(flAngle);
        m_uiMoments++;
    }
    if (++m_uiLearned >= uiLearnLooks)
    {
        EndLearning();
    }
}

void CSetBufferEstimate::EndLearning()
{
    m_ePlan = EPlan::USUAL;
    m_uiSinceGuard = 0;
    const double flAgreement = std::hypot(m_flSumCos, m_flSumSin);
    if (m_uiMoments >= uiLeastMoments && flAgreement >= flLeastAgreement * m_uiMoments)
    {
        m_flUsual = Fraction(std::atan2(m_flSumSin, m_flSumCos) / flTurn + 0.5);
    }
}

/* Where buffers are set all over a field, learning again and again helps nobody. */
void CSetBufferEstimate::PassGuard(bool bGood)
{
    const uint32_t uiPause = bGood ? m_uiGuardPause / 2 : m_uiGuardPause * 2;
    m_uiGuardPause = std::clamp(uiPause, uiLeastGuardPause, uiMostGuardPause);
    if (!bGood)
    {
        BeginLearning();
    }
}

void CSetBufferEstimate::PlanNext(bool bChanged)
{
    switch (m_ePlan)
    {
    case EPlan::LEARN:
        return;
    case EPlan::GUARD_BEHIND: // a buffer so soon behind the usual look may come before it next time
        m_ePlan = EPlan::USUAL;
        PassGuard(!bChanged);
        return;
    case EPlan::GUARD_BEFORE: // one that comes between this look and the usual one may come behind it next time
        m_ePlan = EPlan::USUAL;
        m_bGuardDoubts = !bChanged;
        return;
    case EPlan::USUAL:
        break;
    }
    if (m_bGuardDoubts)
    {
        m_bGuardDoubts = false;
        PassGuard(!bChanged);
    }
    if (m_ePlan == EPlan::USUAL && !m_bStill && ++m_uiSinceGuard >= m_uiGuardPause)
    {
        m_uiSinceGuard = 0;
        m_ePlan = m_bGuardBefore ? EPlan::GUARD_BEFORE : EPlan::GUARD_BEHIND;
        m_bGuardBefore = !m_bGuardBefore;
    }
}

void CSetBufferEstimate::Look(uint32_t uiFramebufferId, uint64_t uiNowNs)
{
    const bool bChanged = IsChanged(uiFramebufferId);
    m_uiCount += bChanged ? 1 : 0;
    m_uiUnchanged = bChanged ? 0 : m_uiUnchanged + 1;
    const bool bWasStill = m_bStill;
    m_bStill = m_uiUnchanged >= uiLooksAtStill || (m_bStill && !bChanged);
    if (m_ePlan == EPlan::LEARN)
    {
        Learn(bChanged, uiNowNs);
    }
    else
    {
        PlanNext(bChanged);
    }
    if (bChanged && (bWasStill || m_uiCount == 1))
    {
        BeginLearning();
    }
    m_uiLastNs = uiNowNs;
}

/* From a phase to the next usual look that is not too near. */
double CSetBufferEstimate::StepToUsual(double flPhase) const
{
    return flLeastStep + Fraction(m_flUsual - flPhase - flLeastStep);
}

uint64_t CSetBufferEstimate::NextLookNs(uint64_t uiFieldNs, uint64_t uiPeriodNs)
{
    m_uiFieldNs = uiFieldNs;
    m_uiPeriodNs = std::max<uint64_t>(uiPeriodNs, 1);
    const uint64_t uiFromNs = std::max(m_uiLastNs, uiFieldNs > uiPeriodNs ? uiFieldNs - uiPeriodNs : uiFieldNs);
    double flStep = StepToUsual(Fraction(FieldsBetween(uiFieldNs, uiFromNs, m_uiPeriodNs)));
    switch (m_ePlan)
    {
    case EPlan::LEARN:
        flStep = flLearnStep;
        break;
    case EPlan::GUARD_BEHIND:
        flStep = flGuardStep;
        break;
    case EPlan::GUARD_BEFORE:
        flStep += flStep > 2.0 * flGuardStep ? -flGuardStep : 1.0 - flGuardStep;
        break;
    case EPlan::USUAL:
        flStep += m_bStill ? aflStillPauses[m_uiUnchanged % aflStillPauses.size()] - 1.0 : 0.0;
        break;
    }
    return uiFromNs + static_cast<uint64_t>(flStep * static_cast<double>(m_uiPeriodNs));
}
