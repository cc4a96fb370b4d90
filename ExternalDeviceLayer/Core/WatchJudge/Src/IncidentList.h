/*
 * Faults joined to incidents. See WatchJudge.h for which of them belong together.
 */
#ifndef INCIDENT_LIST_H
#define INCIDENT_LIST_H

#include <deque>
#include <span>
#include <vector>

#include "DomainHealth.h"
#include "WatchEvent.h"

// A fault that begins.
struct SFaultBegin
{
    SStreamKey oKey;
    EHealthDomain eDomain = EHealthDomain::SIGNAL;
    int64_t iBeginUtcNs = 0;
    int64_t iEndUtcNs = 0; // 0: it lasts
    EHealthStatus eStatus = EHealthStatus::PARTIALLY_HEALTHY;
    SHealthReason oReason;
    double flPeriodSeconds = 0.0;
    uint32_t uiPeers = 0; // bit i: it was in lock with stream i of its direction
    uint64_t uiFirstEvent = 0;
    uint64_t uiLost = 0;
};

class CIncidentList
{
public:
    explicit CIncidentList(uint64_t uiBefore) : m_uiLast(uiBefore) {}

    void Begin(const SFaultBegin& roFault);
    /* What the fault of a stream lost meanwhile, and how bad it is. */
    void Take(const SStreamKey& roKey, EHealthDomain eDomain, uint64_t uiLost, EHealthStatus eStatus,
              const SHealthReason& roReason);
    void End(const SStreamKey& roKey, EHealthDomain eDomain, int64_t iEndUtcNs);
    /*
     * Ends what has no fault any more, and tells what the streams of those that have changed share.
     *   rauiRunning  in  the streams that run
     */
    void Close(const StreamBits& rauiRunning);

    /* Those that began or ended since the last call of ForgetEvents. */
    std::span<const SWatchEvent> GetEvents() const { return m_aoEvents; }
    void ForgetEvents() { m_aoEvents.clear(); }
    void Fill(SJudgement& roJudgement) const;

private:
    static constexpr size_t msc_uiKept = 32; // that have ended

    struct SMember
    {
        SFaultBegin oFault;
        bool bIsOpen = true;
    };
    struct SOpen
    {
        SIncident oIncident;
        std::vector<SMember> aoMembers;
        bool bIsNew = true; // its begin has not been told
        bool bHasChanged = true;
    };

    SOpen* FindFor(const SFaultBegin& roFault);
    SMember* FindMember(const SStreamKey& roKey, EHealthDomain eDomain, SOpen*& rpoOpen);
    void Join(SOpen& roOpen, const SFaultBegin& roFault);
    static void Explain(SOpen& roOpen, const StreamBits& rauiRunning);

    uint64_t m_uiLast;
    uint64_t m_uiBegun = 0;
    std::vector<SOpen> m_aoOpen;
    std::deque<SIncident> m_aoEnded; // newest first
    std::vector<SWatchEvent> m_aoEvents;
};

#endif
