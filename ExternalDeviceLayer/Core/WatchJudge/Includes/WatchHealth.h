/*
 * What a watch is judged to be: the health of streams by domains, and incidents. Plain data, numbers only: words are
 * made where they are shown. The four statuses are those of AMWA BCP-008-01.
 */
#ifndef WATCH_HEALTH_H
#define WATCH_HEALTH_H

#include <array>
#include <cstdint>
#include <vector>

#include "StreamKey.h"

enum class EHealthStatus : uint8_t
{
    INACTIVE, // nothing is meant to happen
    HEALTHY,
    PARTIALLY_HEALTHY, // what it used to do it does no longer
    UNHEALTHY,         // what it was told to do it does not
    COUNT
};
constexpr auto uiNbOfHealthStatuses = static_cast<uint32_t>(EHealthStatus::COUNT);

enum class EHealthDomain : uint8_t
{
    SIGNAL,          // present, timings valid
    DELIVERY,        // no lost fields
    FEED,            // an output gets pictures, those of an input are taken
    SYNCHRONISATION, // lock, rate
    OBSERVATION,     // the watcher itself
    COUNT
};
constexpr auto uiNbOfHealthDomains = static_cast<uint32_t>(EHealthDomain::COUNT);

enum class EHealthReason : uint8_t
{
    NONE,                // all is well
    NOT_RUNNING,         // nothing is meant to come
    NO_SIGNAL,           // expected, and has never come
    SWITCHED_OFF,        // expected, and stopped or powered off
    SIGNAL_LOST,         //
    DEVICE_GONE,         //
    TIMINGS_INVALID,     // the totals do not hold what is active
    OTHER_STANDARD,      // than expected; uiMember, uiBefore: expected, uiAfter
    DESCRIPTION_CHANGED, // uiMember, uiBefore, uiAfter
    FIELD_ORDER_SWAPPED, //
    FIELDS_LOST,         // uiCount
    FEED_STALLED,        //
    NOT_FED,             // expected, and has never been
    CADENCE_BROKEN,      // uiBefore, uiAfter: cadences as Cadence_Pack makes them
    BUFFERS_SKIPPED,     // uiCount
    CONSUMER_STALLED,    //
    LOCK_LOST,           // uiMember: index of a stream that it was in lock with; uiBefore: 1 of the other direction
    LOCK_DRIFTS,         // likewise
    RATE_OFF,            // flValue: ppm against the nominal rate
    FIELDS_UNOBSERVED,   // uiCount
    COUNT
};

struct SHealthReason
{
    EHealthReason eReason = EHealthReason::NONE;
    uint64_t uiCount = 0;
    uint32_t uiMember = 0;
    uint64_t uiBefore = 0;
    uint64_t uiAfter = 0;
    double flValue = 0.0;
};

struct SHealth
{
    EHealthStatus eStatus = EHealthStatus::INACTIVE;
    int64_t iSinceUtcNs = 0; // when it came to this status
    SHealthReason oReason;
    std::array<uint64_t, uiNbOfHealthStatuses> auiTransitions = {}; // into each, since the watch began
};

struct SStreamHealth
{
    SHealth oOverall;                                   // the worst of its domains
    std::array<SHealth, uiNbOfHealthDomains> aoDomains; // by EHealthDomain
};

// Streams as bits, by StreamKey_GetSlot.
using StreamBits = std::array<uint32_t, uiMaxSlots>;

// What the streams of an incident have in common.
enum class EIncidentShare : uint8_t
{
    STREAM, // there is but one
    LOCK_GROUP,
    BOARD,   // one chip
    MACHINE, // several chips, or who watches
    NONE,
    COUNT
};

struct SIncident
{
    uint64_t uiNumber = 0; // from 1, never used twice
    int64_t iBeginUtcNs = 0;
    int64_t iEndUtcNs = 0;                         // when its last fault ended; 0: open
    EHealthDomain eDomain = EHealthDomain::SIGNAL; // of the first fault
    EHealthStatus eWorst = EHealthStatus::PARTIALLY_HEALTHY;
    SStreamKey oFirstStream; // of the first fault
    SHealthReason oFirst;
    StreamBits auiStreams = {};
    EIncidentShare eShared = EIncidentShare::STREAM;
    bool bIsWhole = false;        // all streams of what is shared
    bool bIsTogether = false;     // all within one field period
    double flSpreadSeconds = 0.0; // between the first and the last begin of those that make it one incident
    double flStoodSeconds = 0.0;  // MACHINE: how long it stood still at once, as far as fields tell
    uint64_t uiLost = 0;          // fields or pictures
    uint64_t uiFirstEvent = 0;    // number of the first event that belongs to it, 0: none
};

struct SJudgement
{
    SHealth oOverall; // the worst of all streams
    // By StreamKey_GetSlot, then index.
    std::vector<std::vector<SStreamHealth>> aoStreams = std::vector<std::vector<SStreamHealth>>(2);
    std::vector<SIncident> aoIncidents; // open and the last ones, newest first
    uint32_t uiIncidentsOpen = 0;
    uint64_t uiIncidents = 0; // begun since the watch began
};

#endif
