/*
 * The analysis behind the watch: field accounting, rates, phases, locks, all of it with its uncertainty.
 *
 * No I/O, no texts, no clock of its own: records and moments are handed in, figures and events come out. One thread
 * owns an engine and makes all calls. Nothing is allocated after the streams have been added, but for the snapshot that
 * the caller keeps.
 */
#ifndef WATCH_ENGINE_H
#define WATCH_ENGINE_H

#include <cstdint>
#include <memory>
#include <span>

#include "FieldRecord.h"
#include "WatchEvent.h"
#include "WatchSnapshot.h"

struct SWatchSettings
{
    uint32_t uiTickFrequencyHz = 0;
    SLockThreshold oThreshold = {};
    int32_t iReferenceInput = -1; // index of the stream that phases are told against; -1: the engine chooses
    int32_t iReferenceOutput = -1;
    bool bTicksAreMonotonic = false; // the board says that its ticks are CLOCK_MONOTONIC plus iTickOffsetNs
    int64_t iTickOffsetNs = 0;
    uint64_t uiEventsBefore = 0; // events are numbered on from here
};

// What the clocks of the machine say, read together by the caller.
struct SClockReading
{
    uint64_t uiMonotonicNs = 0;           // CLOCK_MONOTONIC
    int64_t iUtcNs = 0;                   // CLOCK_REALTIME at the same moment
    int32_t iTaiOffsetSeconds = 0;        // TAI - UTC, 0: not known
    bool bIsSynchronised = false;         // the kernel's word
    double flEstimatedErrorSeconds = 0.0; // the kernel's estimate
    double flReadingErrorSeconds = 0.0;   // how far apart both clocks may have been read
};

struct SWatchEngine;
void WatchEngine_Destroy(SWatchEngine* poEngine);
struct SWatchEngineDeleter
{
    void operator()(SWatchEngine* poEngine) const { WatchEngine_Destroy(poEngine); }
};
using WatchEnginePtr = std::unique_ptr<SWatchEngine, SWatchEngineDeleter>;

/*
 * Makes an engine for a fixed number of streams.
 *   roSettings    in  see there
 *   uiNbOfInputs  in  0 to uiMaxStreamsPerDirection
 *   uiNbOfOutputs in  likewise
 * Null for a tick frequency of 0 or too many streams.
 */
WatchEnginePtr WatchEngine_Create(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs);

/* Takes in what a stream's thread saw. Records of one stream come in the order in which they were made. */
void WatchEngine_TakeRecord(SWatchEngine& roEngine, const SStreamKey& roKey, const SFieldRecord& roRecord);

/*
 * Takes in that the caller itself was due and did not run: a witness that the machine was late, not a signal.
 *   uiBeginNs, uiEndNs  in  CLOCK_MONOTONIC
 */
void WatchEngine_TakeStall(SWatchEngine& roEngine, uint64_t uiBeginNs, uint64_t uiEndNs);

/*
 * Takes in a description of a stream. One that is read after a canceled wait tells an output that was switched off from
 * a signal that was lost, if it is there by the next analysis.
 */
void WatchEngine_TakeDescription(SWatchEngine& roEngine, const SStreamKey& roKey,
                                 const SStreamDescription& roDescription);

/*
 * Analyses everything up to a moment: about once a second.
 *   roClock     in   the clocks now; all records handed in so far lie before
 *   roSnapshot  out  the figures; its vectors are reused
 */
void WatchEngine_Analyse(SWatchEngine& roEngine, const SClockReading& roClock, SWatchSnapshot& roSnapshot);

/* Makes the next analysis hand out what is held back of bursts that go on: before the last one. */
void WatchEngine_EndEpisodes(SWatchEngine& roEngine);

/* The events since the last call, oldest first; valid until the next call of any operation. */
std::span<const SWatchEvent> WatchEngine_TakeEvents(SWatchEngine& roEngine);

#endif
