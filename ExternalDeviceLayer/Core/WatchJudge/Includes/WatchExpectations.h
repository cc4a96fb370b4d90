/*
 * What streams were told to do. What nobody told is learned from what they do.
 */
#ifndef WATCH_EXPECTATIONS_H
#define WATCH_EXPECTATIONS_H

#include <cstdint>
#include <vector>

#include "DescriptionMembers.h"

struct SExpectedMember
{
    EDescriptionMember eMember = EDescriptionMember::H_ACTIVE;
    uint64_t uiValue = 0;
};

struct SStreamExpectation
{
    bool bRuns = false;
    bool bIsFed = false;         // outputs
    uint32_t uiLockedWith = 0;   // bit i: stream i of the direction
    uint32_t uiLockedAcross = 0; // the same of the other direction
    // Fields per second as a ratio; 0: any.
    uint64_t uiRateNumerator = 0;
    uint64_t uiRateDenominator = 1;
    std::vector<SExpectedMember> aoMembers; // of the description

    bool IsTold() const
    {
        return bRuns || bIsFed || (uiLockedWith | uiLockedAcross) != 0 || uiRateNumerator != 0 || !aoMembers.empty();
    }
};

struct SJudgeSettings
{
    // By StreamKey_GetSlot; missing ones expect nothing.
    std::vector<std::vector<SStreamExpectation>> aoStreams = std::vector<std::vector<SStreamExpectation>>(2);
    double flLearnSeconds = 60.0;   // so long a stream does something before it is expected to go on
    double flRecoverySeconds = 3.0; // so long it must be better to count as better
    double flMostPpm = 5000.0;      // of a rate against the nominal one (CTA-861 allows 0.5 %)
    uint64_t uiIncidentsBefore = 0; // number of the last incident of earlier runs
};

#endif
