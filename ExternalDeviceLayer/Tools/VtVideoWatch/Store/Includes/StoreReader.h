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

#include "StoreFile.h"
#include "WatchPublication.h"
#include "WatchReader.h"

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
    SStreamKey oKey;
    SStreamTexts oTexts; // as they were last
};

class CStoreReader : public IWatchArchive
{
public:
    explicit CStoreReader(std::string szFile) : m_szFile(std::move(szFile)) {}

    /*
     * Opens the store. Everything below tries that too, for the file may come into being later, and finds nothing while
     * it cannot be done.
     */
    CFault Open();

    void FindEvents(const SEventQuery& roQuery, uint64_t uiBeforeNumber, std::vector<SWatchEvent>& raoEvents) override;
    void FindMinutes(const SHistoryQuery& roQuery, std::vector<SMinuteSummary>& raoMinutes) override;
    int64_t GetBegin() override;
    void FindIncidents(const SIncidentQuery& roQuery, uint64_t uiBeforeNumber,
                       std::vector<SIncident>& raoIncidents) override;

    std::vector<SStoreRun> FindRuns(int64_t iFromUtcNs, int64_t iToUtcNs);
    std::vector<SStoreStream> FindStreams();

    /* The first thing that could not be read since the store was opened: what was found then is not all there is. */
    CFault GetFault();

private:
    CFault Reach();
    CStoreStatement Ask(const std::string& rszSql);
    int64_t GetVersion();
    void Note(const CStoreStatement& roStatement);

    const std::string m_szFile;
    std::mutex m_oMutex;
    StoreFilePtr m_poFile;
    CFault m_oFault;
};

#endif
