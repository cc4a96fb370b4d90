/*
 * Which stream of a direction the phases are told against. The one that the settings name, if any; otherwise the first
 * member of the largest lock group, or the first stream that runs while there is none. It stays for as long as it runs;
 * it is chosen anew when it has not run for 10 s, when it is in no group although there has been one for 60 s, and once
 * within its first 10 s when the first group is found.
 */
#ifndef REFERENCE_CHOICE_H
#define REFERENCE_CHOICE_H

#include <cstdint>

#include "WatchSnapshot.h"

class CReferenceChoice
{
public:
    explicit CReferenceChoice(int32_t iSetting) : m_iSetting(iSetting) {}

    /*
     * Brings the choice up to now.
     *   uiRunning  in  streams that run, as bits
     *   uiGrouped  in  streams that are in a lock group
     *   uiLargest  in  members of the largest one
     * True when another stream has become the reference.
     */
    bool Update(uint32_t uiRunning, uint32_t uiGrouped, uint32_t uiLargest, uint64_t uiNowNs);
    /* Index of the reference, negative: there is none. */
    int32_t Get() const { return m_iReference; }

private:
    void Observe(uint32_t uiRunning, uint32_t uiGrouped, uint64_t uiNowNs);
    bool MustChange(uint64_t uiNowNs) const;

    int32_t m_iSetting;
    int32_t m_iReference = -1;
    uint64_t m_uiSinceNs = 0;
    uint64_t m_uiRunningNs = 0; // when it last ran
    uint64_t m_uiBesideNs = 0;  // when there last was no group, or it was in one
};

#endif
