/*
 * One consistent moment of all that the watch knows, never changed once it is published. Plain data.
 */
#ifndef WATCH_PUBLICATION_H
#define WATCH_PUBLICATION_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "WatchHealth.h"
#include "WatchSnapshot.h"

// Texts of a stream: printable UTF-8, whatever the board calls itself.
struct SStreamTexts
{
    std::string szId;       // "IN_00"
    std::string szName;     // connector's name
    std::string szStandard; // timings, "1920 x 1080p @ 60 Hz"
    std::string szFormat;   // pixel format's name
    std::string szCapture;  // capture state or power state
};

// What the program itself costs and loses.
struct SWatchCosts
{
    uint64_t uiRingOverruns = 0; // records that found no room
    uint64_t uiStoreWriteFailures = 0;
    uint64_t uiStoreRowsWaiting = 0;
    uint64_t uiStoreRowsDropped = 0;
    bool bStoreIsFailing = false;
    uint64_t uiJournalWriteFailures = 0;
    uint64_t uiJournalLinesDropped = 0;
    bool bJournalIsFailing = false;
    uint64_t uiRecordings = 0;        // of incidents, written
    uint64_t uiRecordingFailures = 0; // that could not be written
    bool bRecordingIsFailing = false;
    uint64_t uiIncidentFailures = 0; // of the program that is told of incidents
    uint64_t uiMemoryFailures = 0;   // pieces of work that found no memory and were dropped
    double flAnalysisSeconds = 0.0;  // of the last pass
    double flCpuSeconds = 0.0;       // of the process so far
    uint64_t uiResidentBytes = 0;
};

struct SWatchPublication
{
    SWatchSnapshot oSnapshot;
    SJudgement oJudgement; // of it
    // By StreamKey_GetSlot, by index.
    std::vector<std::vector<SStreamTexts>> aaoTexts = std::vector<std::vector<SStreamTexts>>(2);
    SWatchCosts oCosts;
    std::string szHost;
    std::string szBoard; // path of the libVeltrano.so in use
    uint64_t uiBoardVersion = 0;
    bool bIsSimulated = false; // the board says of itself that it is simulated
    int64_t iStartUtcNs = 0;
};
using WatchPublicationPtr = std::shared_ptr<const SWatchPublication>;

/* Texts of a stream; empty ones when the publication has none for it. */
inline const SStreamTexts& WatchPublication_GetTexts(const SWatchPublication& roPublication, const SStreamKey& roKey)
{
    static const SStreamTexts oNone;
    const size_t uiSlot = StreamKey_GetSlot(roKey);
    const bool bHas = uiSlot < roPublication.aaoTexts.size() && roKey.uiIndex < roPublication.aaoTexts[uiSlot].size();
    return bHas ? roPublication.aaoTexts[uiSlot][roKey.uiIndex] : oNone;
}

/* How a stream is; inactive before it was judged. */
inline const SStreamHealth& WatchPublication_GetHealth(const SWatchPublication& roPublication, const SStreamKey& roKey)
{
    static const SStreamHealth oNone;
    const std::vector<std::vector<SStreamHealth>>& raaoHealth = roPublication.oJudgement.aoStreams;
    const size_t uiSlot = StreamKey_GetSlot(roKey);
    const bool bHas = uiSlot < raaoHealth.size() && roKey.uiIndex < raaoHealth[uiSlot].size();
    return bHas ? raaoHealth[uiSlot][roKey.uiIndex] : oNone;
}

/* The figures of a stream; null when there is no such stream. */
inline const SStreamFigures* WatchPublication_Find(const SWatchSnapshot& roSnapshot, const SStreamKey& roKey)
{
    const size_t uiSlot = StreamKey_GetSlot(roKey);
    const bool bHas =
        uiSlot < roSnapshot.aoDirections.size() && roKey.uiIndex < roSnapshot.aoDirections[uiSlot].aoStreams.size();
    return bHas ? &roSnapshot.aoDirections[uiSlot].aoStreams[roKey.uiIndex] : nullptr;
}

/* One call per chip that is watched, for its inputs or its outputs: with a key that is of these, and their figures. */
template <typename TVisit>
void WatchPublication_ForEachChip(const SWatchSnapshot& roSnapshot, EStreamDirection eDirection, const TVisit& roVisit)
{
    for (auto uiSlot = static_cast<size_t>(eDirection); uiSlot < roSnapshot.aoDirections.size(); uiSlot += 2)
    {
        roVisit(StreamKey_FromSlot(uiSlot, 0), roSnapshot.aoDirections[uiSlot]);
    }
}

/* One call per stream of both directions. */
template <typename TVisit> void WatchPublication_ForEachStream(const SWatchSnapshot& roSnapshot, const TVisit& roVisit)
{
    for (const SDirectionFigures& roDirection : roSnapshot.aoDirections)
    {
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            roVisit(roStream);
        }
    }
}

#endif
