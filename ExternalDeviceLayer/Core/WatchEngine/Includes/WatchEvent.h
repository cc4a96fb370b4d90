/*
 * Something that happened to a stream or a lock group, with its moment. Numbers only: words are made where they are
 * shown.
 */
#ifndef WATCH_EVENT_H
#define WATCH_EVENT_H

#include <cstdint>

#include "StreamKey.h"

enum class EWatchEventKind : uint8_t
{
    WATCH_BEGAN,         // the stream is watched from here on
    WATCH_ENDED,         // until here
    STATE_CHANGED,       // uiBefore, uiAfter: EStreamState
    SIGNAL_LOST,         // the moment is that of the last field
    SIGNAL_BACK,         // flSeconds: how long it was away
    FIELDS_LOST,         // uiCount fields that a waiting thread was not given; flSeconds: the longest run of them
    FIELDS_UNOBSERVED,   // uiCount fields while the watcher was late; says nothing about the signal
    COUNTER_REPEATED,    // uiCount fields whose counter did not move
    COUNTER_BACKWARD,    // uiBefore, uiAfter: field counters
    FIELD_EARLY,         // uiCount fields; flSeconds: the largest deviation from the grid, negative
    FIELD_LATE,          // uiCount fields; flSeconds: the largest deviation from the grid
    PHASE_STEPPED,       // the grid itself moved by flSeconds and stays there
    TIMINGS_CHANGED,     // flBefore, flAfter: nominal rates, Hz
    FORMAT_CHANGED,      // uiBefore, uiAfter: VtPixelFormat
    CAPTURE_CHANGED,     // uiBefore, uiAfter: VtVideoIn_State
    POWER_CHANGED,       // uiBefore, uiAfter: VtVideoOut_PowerState
    BUFFERS_SKIPPED,     // uiCount buffers; flSeconds: how long the queue took to fill before, 0: it was full
    BUFFERS_REPEATED,    // outputs: uiCount fields that showed a buffer once more
    BUFFERS_OVERWRITTEN, // outputs: uiCount buffers replaced before they were shown
    LOCK_CHANGED,        // against the direction's reference; uiBefore, uiAfter: ELockState
    REFERENCE_CHANGED,   // of the direction; uiBefore, uiAfter: indexes
    GROUP_FORMED,        // uiGroup; uiMembers
    GROUP_CHANGED,       // uiGroup; uiMembers from here on
    GROUP_ENDED,         // uiGroup; flSeconds: how long it lasted
    FEED_STALLED,        // outputs: the moment is that of the first field that should have shown another picture
    FEED_RESUMED,        // outputs: flSeconds: how long no picture came
    CADENCE_CHANGED,     // outputs; uiBefore, uiAfter: cadences as Cadence_Pack makes them
    FIELD_ORDER_SWAPPED, // the moment is that of the first field of the new order
    DESCRIPTION_CHANGED, // uiGroup: EDescriptionMember; uiBefore, uiAfter: its values
    INCIDENT_BEGAN,      // of the stream of its first fault; uiGroup, its number; uiBefore: EHealthDomain
    INCIDENT_ENDED,      // likewise; flSeconds: how long it lasted; uiAfter: what was lost
    COUNTER_FORWARD,     // without the time for it; uiBefore, uiAfter: field counters
    SLIPPED,             // uiBefore: against which stream, as EventStream_Pack; uiAfter: ESlip
    COUNT
};

// What became of a picture when two streams slipped against each other.
enum class ESlip : uint8_t
{
    DROPPED, // there was one too many for the slower one
    REPEATED
};

/* A stream of the same chip as one number and back, for events. */
constexpr uint64_t EventStream_Pack(const SStreamKey& roKey)
{
    return uint64_t{roKey.uiIndex} | static_cast<uint64_t>(roKey.eDirection) << 32U;
}
constexpr SStreamKey EventStream_Unpack(uint64_t uiPacked, uint32_t uiChip)
{
    return {uiPacked >> 32U == 0 ? EStreamDirection::INPUT : EStreamDirection::OUTPUT, static_cast<uint32_t>(uiPacked),
            uiChip};
}

struct SWatchEvent
{
    uint64_t uiNumber; // grows by one per event, from 1
    int64_t iUtcNs;    // when it happened, nanoseconds since 1970-01-01 UTC
    uint64_t uiTick;   // the same in the board's ticks; 0: not known
    EWatchEventKind eKind;
    SStreamKey oKey;  // of the stream; of the first member for groups
    uint64_t uiCount; // see the kinds; events of one kind that come in bursts are folded into one
    uint64_t uiBefore;
    uint64_t uiAfter;
    double flBefore;
    double flAfter;
    double flSeconds;
    uint32_t uiGroup;   // identity of a lock group or of an incident, from 1; a member of the description
    uint32_t uiMembers; // bit i: stream i of the direction
};

#endif
