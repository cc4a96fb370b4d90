// See DomainHealth.h.
#include "DomainHealth.h"

#include <algorithm>

#include "TimeUnits.h"

namespace
{

constexpr uint64_t uiLongestDelayNs = iNsPerMinute;
constexpr uint64_t uiMemoryNs = iNsPerMinute; // a fault that comes back within this flaps

// The same moment on the other clock.
uint64_t ToMonotonicNs(int64_t iUtcNs, const SMoment& roNow)
{
    return roNow.uiMonotonicNs - static_cast<uint64_t>(std::max<int64_t>(0, roNow.iUtcNs - iUtcNs));
}

} // namespace

void Health_Enter(SHealth& roHealth, EHealthStatus eStatus, const SHealthReason& roReason, int64_t iSinceUtcNs)
{
    roHealth.oReason = roReason;
    if (roHealth.iSinceUtcNs == 0)
    {
        roHealth.eStatus = eStatus;
        roHealth.iSinceUtcNs = iSinceUtcNs;
    }
    else if (roHealth.eStatus != eStatus)
    {
        roHealth.eStatus = eStatus;
        roHealth.iSinceUtcNs = iSinceUtcNs;
        ++roHealth.auiTransitions[static_cast<size_t>(eStatus)];
    }
}

void CDomainHealth::Prolong(uint64_t uiRecoveryNs)
{
    m_uiDelayNs = std::clamp(m_uiDelayNs + m_uiDelayNs / 2, uiRecoveryNs, std::max(uiLongestDelayNs, uiRecoveryNs));
}

SDomainChange CDomainHealth::Take(const SDomainFinding& roFinding, const SMoment& roNow, double flRecoverySeconds)
{
    SDomainChange oChange;
    if (roFinding.IsFault())
    {
        TakeFault(roFinding, roNow, static_cast<uint64_t>(flRecoverySeconds * flNsPerSecond), oChange);
    }
    else if (m_oHealth.eStatus > EHealthStatus::HEALTHY)
    {
        TakeFine(roFinding, roNow, oChange);
    }
    else
    {
        Health_Enter(m_oHealth, roFinding.eStatus, roFinding.oReason,
                     roFinding.iFineUtcNs != 0 ? roFinding.iFineUtcNs : roNow.iUtcNs);
    }
    return oChange;
}

void CDomainHealth::TakeFault(const SDomainFinding& roFinding, const SMoment& roNow, uint64_t uiRecoveryNs,
                              SDomainChange& roChange)
{
    const bool bWasFine = m_oHealth.eStatus <= EHealthStatus::HEALTHY;
    if (bWasFine && (m_uiEndedNs == 0 || roNow.uiMonotonicNs - m_uiEndedNs > uiMemoryNs))
    {
        m_uiDelayNs = uiRecoveryNs;
    }
    else if (bWasFine || !m_bIsPresent)
    {
        Prolong(uiRecoveryNs);
    }
    roChange.bBegan = bWasFine || !m_bIsPresent;
    roChange.iUtcNs = roFinding.iBeginUtcNs;
    m_iBeginUtcNs = roFinding.iBeginUtcNs;
    m_bIsPresent = true;
    m_iEndUtcNs = roFinding.iEndUtcNs;
    const bool bIsAsBad = roFinding.eStatus >= m_oHealth.eStatus;
    if (bIsAsBad)
    {
        m_uiPresentNs = roFinding.iEndUtcNs != 0 ? ToMonotonicNs(roFinding.iEndUtcNs, roNow) : roNow.uiMonotonicNs;
    }
    if (bIsAsBad || roNow.uiMonotonicNs - m_uiPresentNs >= m_uiDelayNs)
    {
        Health_Enter(m_oHealth, roFinding.eStatus, roFinding.oReason, roFinding.iBeginUtcNs);
    }
}

void CDomainHealth::TakeFine(const SDomainFinding& roFinding, const SMoment& roNow, SDomainChange& roChange)
{
    if (m_bIsPresent && m_iEndUtcNs == 0)
    {
        m_iEndUtcNs = roFinding.iFineUtcNs > m_iBeginUtcNs ? roFinding.iFineUtcNs : roNow.iUtcNs;
        m_uiPresentNs = ToMonotonicNs(m_iEndUtcNs, roNow);
    }
    m_bIsPresent = false;
    if (roNow.uiMonotonicNs - m_uiPresentNs < m_uiDelayNs)
    {
        return;
    }
    roChange.bEnded = true;
    roChange.iUtcNs = m_iEndUtcNs;
    m_uiEndedNs = roNow.uiMonotonicNs;
    Health_Enter(m_oHealth, roFinding.eStatus, roFinding.oReason, roNow.iUtcNs);
}

SDomainChange CDomainHealth::End(int64_t iNowUtcNs)
{
    SDomainChange oChange;
    oChange.bEnded = m_oHealth.eStatus > EHealthStatus::HEALTHY;
    oChange.iUtcNs = m_iEndUtcNs != 0 ? m_iEndUtcNs : iNowUtcNs;
    return oChange;
}
