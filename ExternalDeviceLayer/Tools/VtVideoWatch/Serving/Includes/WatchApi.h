/*
 * The answers under /api/v1/ but for the live ones: figures, pairs, history and events as JSON (docs/api/), and whether
 * the watch is well. Reads through WatchReader.h alone.
 */
#ifndef WATCH_API_H
#define WATCH_API_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "HttpServer.h"
#include "RecordingSource.h"
#include "WatchReader.h"

// Thread-safe.
class CWatchApi
{
public:
    /* poSource  in  null: there are no recordings */
    CWatchApi(IWatchReader& roReader, IRecordingSource* poSource) : m_roReader(roReader), m_poSource(poSource) {}

    SHttpAnswer AnswerStreams(const SHttpRequest& roRequest);
    SHttpAnswer AnswerPairs(const SHttpRequest& roRequest);
    SHttpAnswer AnswerHistory(const SHttpRequest& roRequest);
    SHttpAnswer AnswerEvents(const SHttpRequest& roRequest);
    SHttpAnswer AnswerIncidents(const SHttpRequest& roRequest);
    SHttpAnswer AnswerRecording(const SHttpRequest& roRequest);
    SHttpAnswer AnswerRecordings(const SHttpRequest& roRequest);
    SHttpAnswer AnswerFields(const SHttpRequest& roRequest);
    SHttpAnswer AnswerHealth(const SHttpRequest& roRequest);

private:
    // What was made of the newest snapshot: however many ask, it is made once.
    struct SMade
    {
        std::mutex oMutex;
        WatchPublicationPtr poFrom;
        std::shared_ptr<const std::string> poText;
    };

    using MakeText = std::string (CWatchApi::*)(const SWatchPublication& roPublication);
    SHttpAnswer AnswerMade(const SHttpRequest& roRequest, SMade& roMade, MakeText oMake);
    std::string MakeStreams(const SWatchPublication& roPublication);
    std::string MakePairs(const SWatchPublication& roPublication);

    IWatchReader& m_roReader;
    IRecordingSource* const m_poSource;
    SMade m_oStreams;
    SMade m_oPairs;
    std::atomic<uint32_t> m_uiFileStreams{0}; // answers that are files
};

#endif
