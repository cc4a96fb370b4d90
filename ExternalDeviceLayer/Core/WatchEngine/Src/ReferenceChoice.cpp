#include "ReferenceChoice.h"

#include <bit>

#include "TimeUnits.h"

namespace
{

constexpr uint64_t uiStoppedNs = 10 * iNsPerSecond;
constexpr uint64_t uiBesideNs = 60 * iNsPerSecond;
constexpr uint64_t uiYoungNs = 10 * iNsPerSecond;

} // namespace

void CReferenceChoice::Observe(uint32_t uiRunning, uint32_t uiGrouped, uint64_t uiNowNs)
{
    const uint32_t uiBit = m_iReference >= 0 ? 1U << static_cast<uint32_t>(m_iReference) : 0;
    m_uiRunningNs = (uiRunning & uiBit) != 0 ? uiNowNs : m_uiRunningNs;
    m_uiBesideNs = uiGrouped == 0 || (uiGrouped & uiBit) != 0 ? uiNowNs : m_uiBesideNs;
}

bool CReferenceChoice::MustChange(uint64_t uiNowNs) const
{
    if (m_iReference < 0)
    {
        return true;
    }
    const bool bIsYoung = uiNowNs - m_uiSinceNs <= uiYoungNs && m_uiBesideNs != uiNowNs;
    return uiNowNs - m_uiRunningNs > uiStoppedNs || uiNowNs - m_uiBesideNs > uiBesideNs || bIsYoung;
}

bool CReferenceChoice::Update(uint32_t uiRunning, uint32_t uiGrouped, uint32_t uiLargest, uint64_t uiNowNs)
{
    Observe(uiRunning, uiGrouped, uiNowNs);
    int32_t iReference = m_iReference;
    if (m_iSetting >= 0)
    {
        iReference = m_iSetting;
    }
    else if (MustChange(uiNowNs))
    {
        const uint32_t uiAmong = (uiLargest & uiRunning) != 0 ? uiLargest & uiRunning : uiRunning;
        iReference = uiAmong != 0 ? std::countr_zero(uiAmong) : m_iReference;
    }
    if (iReference == m_iReference)
    {
        return false;
    }
    m_iReference = iReference;
    m_uiSinceNs = uiNowNs;
    m_uiRunningNs = uiNowNs;
    m_uiBesideNs = uiNowNs;
    return true;
}
