/*
 * One question to one stream over time: worse at once, better after a delay that grows while the fault comes back.
 */
#ifndef DOMAIN_HEALTH_H
#define DOMAIN_HEALTH_H

#include "WatchHealth.h"

// What a second says to a question.
struct SDomainFinding
{
    EHealthStatus eStatus = EHealthStatus::HEALTHY;
    SHealthReason oReason;
    int64_t iBeginUtcNs = 0;     // of the fault
    int64_t iEndUtcNs = 0;       // until when it lasted; 0: it lasts
    int64_t iFineUtcNs = 0;      // without a fault: since when that may be so; before the fault: since now
    uint64_t uiLost = 0;         // this second
    double flAwaySeconds = -1.0; // how long the signal has been away so far; negative: it is there
    bool IsFault() const { return eStatus > EHealthStatus::HEALTHY; }
};

struct SMoment
{
    int64_t iUtcNs = 0;
    uint64_t uiMonotonicNs = 0;
};

struct SDomainChange
{
    bool bBegan = false; // a fault; or one that came back before it had counted as gone
    bool bEnded = false; // the delay has passed
    int64_t iUtcNs = 0;  // when the fault began, or when its last stretch ended
};

/* Whether one status is worse than another one: inactive and healthy are equally good. */
constexpr bool HealthStatus_IsWorse(EHealthStatus eA, EHealthStatus eB)
{
    return eA > EHealthStatus::HEALTHY && eA > eB;
}

/* Enters a status where it is another one. */
void Health_Enter(SHealth& roHealth, EHealthStatus eStatus, const SHealthReason& roReason, int64_t iSinceUtcNs);

class CDomainHealth
{
public:
    SDomainChange Take(const SDomainFinding& roFinding, const SMoment& roNow, double flRecoverySeconds);
    /* The watch ends: so does a fault. */
    SDomainChange End(int64_t iNowUtcNs);

    const SHealth& Get() const { return m_oHealth; }

private:
    void TakeFault(const SDomainFinding& roFinding, const SMoment& roNow, uint64_t uiRecoveryNs,
                   SDomainChange& roChange);
    void TakeFine(const SDomainFinding& roFinding, const SMoment& roNow, SDomainChange& roChange);
    void Prolong(uint64_t uiRecoveryNs);

    SHealth m_oHealth;
    bool m_bIsPresent = false;  // the fault, in the last second
    uint64_t m_uiDelayNs = 0;   // until better counts
    uint64_t m_uiPresentNs = 0; // when it was last as bad as it counts
    int64_t m_iBeginUtcNs = 0;  // of the fault as it was last found
    int64_t m_iEndUtcNs = 0;    // when the last stretch of the fault ended
    uint64_t m_uiEndedNs = 0;   // when the last fault counted as gone; 0: there was none
};

#endif
