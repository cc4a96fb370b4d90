/*
 * Structured entries in the system's journal. Without one they go nowhere. May block; any thread.
 */
#ifndef SYSTEM_JOURNAL_H
#define SYSTEM_JOURNAL_H

#include <span>
#include <string>

// The entries that the watch makes, by which they are found: journalctl MESSAGE_ID=...
constexpr char szIncidentBeganId[] = "4c5d8ecb7e0c4b5b9f0b6f4d1f0a93e1";
constexpr char szIncidentEndedId[] = "b0a7b2c9d3f1472ea1d5c1f7e86b2c44";

/* An entry of fields, "NAME=value" each. */
void SystemJournal_Put(std::span<const std::string> aszFields);

#endif
