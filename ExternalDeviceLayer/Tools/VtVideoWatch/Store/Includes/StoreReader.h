/*
 * What a store holds, for answers and reports. One connection of its own, which never keeps the writer from writing.
 * Thread-safe: callers take turns.
 */
#ifndef STORE_READER_H
#define STORE_READER_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "MinuteSummary.h"
#include "StoreFile.h"
#include "WatchData.h"

// How a run of the program ended; numbers of the store.
enum class ERunEnd : uint8_t
{
    OPEN,   // it runs, or was killed and nobody has written since
    CLOSED, // it said so
    BROKEN  // the next one said so
};

// A run of the program.
struct SStoreRun
{
    int64_t iBeginUtcNs = 0;
    int64_t iEndUtcNs = 0; // of the last second that was written
    ERunEnd eEnd = ERunEnd::OPEN;
    std::string szHost;
    std::string szBoard;
};

// A stream that has ever been watched.
struct SStoreStream
{
    EStreamDirection eDirection = EStreamDirection::INPUT;
    uint32_t uiIndex = 0;
    SStreamTexts oTexts; // as they were last
};

class CStoreReader
{
public:
    /* Opens the store; on a fault everything below finds nothing. */
    EStoreOpen Open(const std::string& rszFile, std::string& rszFault);
    bool IsOpen() const { return m_poFile != nullptr; }

    /* Appends events that fit a query and are older than one, newest first; uiMost counts what is there already. */
    void FindEvents(const SEventQuery& roQuery, uint64_t uiBeforeNumber, std::vector<SWatchEvent>& raoEvents);

    /* Appends the minutes of a stream that begin in a query's range, oldest first, at most uiMost, the newest ones. */
    void FindMinutes(const SHistoryQuery& roQuery, std::vector<SMinuteSummary>& raoMinutes);

    /* Begin of the oldest minute; INT64_MAX when there is none. */
    int64_t GetBegin();

    std::vector<SStoreRun> FindRuns(int64_t iFromUtcNs, int64_t iToUtcNs);
    std::vector<SStoreStream> FindStreams();

private:
    std::mutex m_oMutex;
    StoreFilePtr m_poFile;
};

/* Whether an event fits a query: its moment, number, kind and stream; a lock group fits by any of its members. */
bool StoreReader_Fits(const SWatchEvent& roEvent, const SEventQuery& roQuery);

#endif
