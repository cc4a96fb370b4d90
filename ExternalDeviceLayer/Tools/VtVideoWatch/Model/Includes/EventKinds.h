/*
 * What there is to know of every kind of event: its word, and which of an event's members it uses. The one table;
 * answers, journal, queries and the page's words follow it. No state; any thread.
 */
#ifndef EVENT_KINDS_H
#define EVENT_KINDS_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "WatchEvent.h"

// What the values before and after of an event are.
enum class EEventValues : uint8_t
{
    NONE,
    NUMBER,
    HERTZ,
    STATE,
    LOCK,
    FORMAT,
    CAPTURE,
    POWER,
    STREAM,
    CADENCE,
    MEMBER // of a description: the event names it
};

struct SEventKind
{
    EWatchEventKind eKind;
    const char* szName;
    bool bHasCount = false;
    bool bHasSeconds = false;
    bool bIsOfGroup = false; // it has a lock group and members
    EEventValues eValues = EEventValues::NONE;
    bool bIsOfIncident = false; // it has an incident and its domain
    bool bIsOfPair = false;     // it is told against another stream, and has what became of a picture
};

// By EWatchEventKind.
constexpr std::array<SEventKind, static_cast<size_t>(EWatchEventKind::COUNT)> aoEventKinds = {{
    {EWatchEventKind::WATCH_BEGAN, "watch_began"},
    {EWatchEventKind::WATCH_ENDED, "watch_ended"},
    {.eKind = EWatchEventKind::STATE_CHANGED, .szName = "state_changed", .eValues = EEventValues::STATE},
    {EWatchEventKind::SIGNAL_LOST, "signal_lost"},
    {.eKind = EWatchEventKind::SIGNAL_BACK, .szName = "signal_back", .bHasSeconds = true},
    {.eKind = EWatchEventKind::FIELDS_LOST, .szName = "fields_lost", .bHasCount = true},
    {.eKind = EWatchEventKind::FIELDS_UNOBSERVED, .szName = "fields_unobserved", .bHasCount = true},
    {.eKind = EWatchEventKind::COUNTER_REPEATED, .szName = "counter_repeated", .bHasCount = true},
    {.eKind = EWatchEventKind::COUNTER_BACKWARD, .szName = "counter_backward", .eValues = EEventValues::NUMBER},
    {.eKind = EWatchEventKind::FIELD_EARLY, .szName = "field_early", .bHasCount = true, .bHasSeconds = true},
    {.eKind = EWatchEventKind::FIELD_LATE, .szName = "field_late", .bHasCount = true, .bHasSeconds = true},
    {.eKind = EWatchEventKind::PHASE_STEPPED, .szName = "phase_stepped", .bHasSeconds = true},
    {.eKind = EWatchEventKind::TIMINGS_CHANGED, .szName = "timings_changed", .eValues = EEventValues::HERTZ},
    {.eKind = EWatchEventKind::FORMAT_CHANGED, .szName = "format_changed", .eValues = EEventValues::FORMAT},
    {.eKind = EWatchEventKind::CAPTURE_CHANGED, .szName = "capture_changed", .eValues = EEventValues::CAPTURE},
    {.eKind = EWatchEventKind::POWER_CHANGED, .szName = "power_changed", .eValues = EEventValues::POWER},
    {.eKind = EWatchEventKind::BUFFERS_SKIPPED, .szName = "buffers_skipped", .bHasCount = true},
    {.eKind = EWatchEventKind::BUFFERS_REPEATED, .szName = "buffers_repeated", .bHasCount = true},
    {.eKind = EWatchEventKind::BUFFERS_OVERWRITTEN, .szName = "buffers_overwritten", .bHasCount = true},
    {.eKind = EWatchEventKind::LOCK_CHANGED, .szName = "lock_changed", .eValues = EEventValues::LOCK},
    {.eKind = EWatchEventKind::REFERENCE_CHANGED, .szName = "reference_changed", .eValues = EEventValues::STREAM},
    {.eKind = EWatchEventKind::GROUP_FORMED, .szName = "group_formed", .bIsOfGroup = true},
    {.eKind = EWatchEventKind::GROUP_CHANGED, .szName = "group_changed", .bIsOfGroup = true},
    {.eKind = EWatchEventKind::GROUP_ENDED, .szName = "group_ended", .bHasSeconds = true, .bIsOfGroup = true},
    {EWatchEventKind::FEED_STALLED, "feed_stalled"},
    {.eKind = EWatchEventKind::FEED_RESUMED, .szName = "feed_resumed", .bHasSeconds = true},
    {.eKind = EWatchEventKind::CADENCE_CHANGED, .szName = "cadence_changed", .eValues = EEventValues::CADENCE},
    {EWatchEventKind::FIELD_ORDER_SWAPPED, "field_order_swapped"},
    {.eKind = EWatchEventKind::DESCRIPTION_CHANGED, .szName = "description_changed", .eValues = EEventValues::MEMBER},
    {.eKind = EWatchEventKind::INCIDENT_BEGAN, .szName = "incident_began", .bIsOfIncident = true},
    {.eKind = EWatchEventKind::INCIDENT_ENDED, .szName = "incident_ended", .bHasSeconds = true, .bIsOfIncident = true},
    {.eKind = EWatchEventKind::COUNTER_FORWARD, .szName = "counter_forward", .eValues = EEventValues::NUMBER},
    {.eKind = EWatchEventKind::SLIPPED, .szName = "slipped", .bHasCount = true, .bIsOfPair = true},
}};
static_assert(std::ranges::all_of(aoEventKinds, [](const SEventKind& roKind)
                                  { return &roKind == &aoEventKinds[static_cast<size_t>(roKind.eKind)]; }));

/* A kind outside of the enumeration is "unknown", and uses no member. */
constexpr SEventKind EventKind_Get(EWatchEventKind eKind)
{
    const auto uiKind = static_cast<size_t>(eKind);
    return uiKind < aoEventKinds.size() ? aoEventKinds[uiKind] : SEventKind{eKind, "unknown"};
}

/* The kind that a word stands for; nothing when it stands for none. */
constexpr std::optional<EWatchEventKind> EventKind_Find(std::string_view szName)
{
    const auto* poKind = std::ranges::find(aoEventKinds, szName, &SEventKind::szName);
    return poKind == aoEventKinds.end() ? std::nullopt : std::optional(poKind->eKind);
}

#endif
