/*
 * What a report tells, worked out from a store. No output, no clock. Moments are nanoseconds since 1970-01-01 UTC.
 */
#ifndef REPORT_DATA_H
#define REPORT_DATA_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "StoreReader.h"

struct SReportStream
{
    SStreamKey oKey;
    SStreamTexts oTexts;
    double flWatchedSeconds = 0.0;
    double flRunningSeconds = 0.0;
    uint64_t uiFields = 0;
    uint64_t uiLost = 0;
    uint64_t uiUnobserved = 0;
    uint64_t uiSkipped = 0;
    uint64_t uiSignalLosses = 0;
    double flWorstGapSeconds = 0.0;   // the longest time without a field that the signal had, by the events
    SEstimate oRateHz;                // mean of the minutes, weighted by their seconds
    double flLockedSeconds = 0.0;     // in minutes that ended in lock with the reference
    double flWorstPhaseSeconds = 0.0; // the one farthest from the reference, with its sign
    bool bHasPhase = false;
    int64_t iLostFromUtcNs = 0; // 0: it was not lost from the first minute on
    SEstimate oDriftPerHour;    // of the rate, relative to it: slope of a line through the minutes
    SPacingHistogram oPacing;   // of all of its fields
};

// One hour: fields by the minutes, the rest by the events that began in it.
struct SReportHour
{
    int64_t iUtcNs = 0; // begin
    uint64_t uiEvents = 0;
    uint64_t uiSignalLosses = 0;
    uint64_t uiFieldsLost = 0;
    uint64_t uiFieldsUnobserved = 0;
    uint64_t uiLockChanges = 0;
};

// A time without the signal, or without fields of it.
struct SReportOutage
{
    SStreamKey oKey;
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;
    uint64_t uiFields = 0; // that were lost; 0: the signal was
    bool bIsOpen = false;  // still so at the end of what is told
};

// A lock group with one set of members.
struct SReportLock
{
    SStreamKey oOf;         // a stream of its direction
    uint32_t uiMembers = 0; // bit i: stream i
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;
    bool bIsOpen = false; // still there at the end of what is told
};

struct SReport
{
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;
    std::vector<SStoreRun> aoRuns;
    std::vector<SIncident> aoIncidents;   // by their begin
    std::vector<SReportOutage> aoOutages; // by their begin
    std::vector<SReportStream> aoStreams;
    std::vector<SReportHour> aoHours; // in which something happened, in order
    std::vector<SReportLock> aoLocks; // by their begin
};

/* Puts a report together from a store. */
SReport ReportData_Collect(CStoreReader& roStore, int64_t iFromUtcNs, int64_t iToUtcNs);

/* Where the watch, or what is told of it, ends. */
int64_t ReportData_GetEnd(const SReport& roReport);

/* Adds up the minutes of one of the report's streams, and its hours. */
void ReportData_AddMinutes(SReport& roReport, SReportStream& roStream, std::span<const SMinuteSummary> aoMinutes);

/* Takes hours, gaps and locks from the events, oldest first. */
void ReportData_AddEvents(SReport& roReport, std::span<const SWatchEvent> aoEvents);

#endif
