/*
 * One consistent moment of all that the watch knows, never changed once it is published. Plain data.
 */
#ifndef WATCH_PUBLICATION_H
#define WATCH_PUBLICATION_H

#include <array>
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
    SJudgement oJudgement;                             // of it
    std::array<std::vector<SStreamTexts>, 2> aaoTexts; // by EStreamDirection, by index
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
    const std::vector<SStreamTexts>& raoTexts = roPublication.aaoTexts[static_cast<size_t>(roKey.eDirection)];
    return roKey.uiIndex < raoTexts.size() ? raoTexts[roKey.uiIndex] : oNone;
}

/* How a stream is; inactive before it was judged. */
inline const SStreamHealth& WatchPublication_GetHealth(const SWatchPublication& roPublication, const SStreamKey& roKey)
{
    static const SStreamHealth oNone;
    const std::vector<SStreamHealth>& raoHealth =
        roPublication.oJudgement.aoStreams[static_cast<size_t>(roKey.eDirection)];
    return roKey.uiIndex < raoHealth.size() ? raoHealth[roKey.uiIndex] : oNone;
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
