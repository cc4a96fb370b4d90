// See Faults.h.
#include "Faults.h"

CFaults::CFaults(const std::vector<SFaultRule>& raoRules) : m_bAny(!raoRules.empty())
{
    for (const SFaultRule& roRule : raoRules)
    {
        m_aaoRules[static_cast<size_t>(roRule.eOperation)].emplace_back(roRule);
    }
}

std::optional<VtStatus> CFaults::CountByRules(EOperation eOperation, std::optional<uint32_t> uiChip,
                                              std::optional<uint32_t> uiIndex)
{
    std::optional<VtStatus> eStatus;
    for (SRule& roRule : m_aaoRules[static_cast<size_t>(eOperation)])
    {
        const SFaultRule& ro = roRule.oRule;
        if ((ro.uiChip && ro.uiChip != uiChip) || (ro.uiIndex && ro.uiIndex != uiIndex))
        {
            continue;
        }
        const SSchedule oCalls{.uiFirst = ro.uiFirstCall, .uiLength = ro.uiTimes, .uiPeriod = ro.uiPeriod};
        if (oCalls.IsActive(roRule.uiCalls.fetch_add(1, std::memory_order_relaxed) + 1) && !eStatus)
        {
            eStatus = ro.eStatus;
        }
    }
    return eStatus;
}
