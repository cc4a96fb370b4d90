/*
 * Failing calls: which call of which operation returns a status instead of doing its work. Thread-safe.
 */
#ifndef SIMULATED_BOARD_FAULTS_H
#define SIMULATED_BOARD_FAULTS_H

#include <atomic>
#include <deque>

#include "Scenario.h"

class CFaults
{
public:
    explicit CFaults(const std::vector<SFaultRule>& raoRules);

    /* Counts a call and tells whether it fails. Costs next to nothing without rules. */
    std::optional<VtStatus> Count(EOperation eOperation, std::optional<uint32_t> uiChip,
                                  std::optional<uint32_t> uiIndex)
    {
        return m_bAny ? CountByRules(eOperation, uiChip, uiIndex) : std::nullopt;
    }

private:
    struct SRule
    {
        explicit SRule(const SFaultRule& roFaultRule) : oRule(roFaultRule) {}
        SFaultRule oRule;
        std::atomic<uint64_t> uiCalls{0};
    };

    std::optional<VtStatus> CountByRules(EOperation eOperation, std::optional<uint32_t> uiChip,
                                         std::optional<uint32_t> uiIndex);

    const bool m_bAny;
    std::array<std::deque<SRule>, uiOperations> m_aaoRules;
};

#endif
