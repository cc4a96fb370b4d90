/*
 * Everything that the watch serves, at all its addresses: metrics, JSON, the live stream, the page. It reads through
 * WatchReader.h alone and has threads of its own.
 *
 *   /               the page, and its files beside it
 *   /metrics        for Prometheus
 *   /api/v1/...     streams, pairs, history, events, live, recording
 *   /healthz        200 while snapshots come
 */
#ifndef WATCH_SERVER_H
#define WATCH_SERVER_H

#include <memory>
#include <string>
#include <vector>

#include "HttpServer.h"
#include "RecordingSource.h"
#include "WatchReader.h"

// Where and how to serve.
struct SServingOptions
{
    std::vector<std::string> aszListen; // as ListenAddress_Read takes them
    SHttpSocketFile oSocketFile = {};
    SHttpFiles oFiles = {};
};

struct SWatchServerParts;

// One thread at a time starts and ends it; all else is thread-safe. Its end sends every client away and waits for the
// threads: well below a second.
class CWatchServer
{
public:
    /*
     *   roReader  in  must outlive the server
     *   poSource  in  likewise; null: recordings cannot be asked for
     */
    explicit CWatchServer(IWatchReader& roReader, IRecordingSource* poSource = nullptr);
    ~CWatchServer();
    CWatchServer(const CWatchServer&) = delete;
    CWatchServer& operator=(const CWatchServer&) = delete;

    /* Starts to serve, once. */
    CFault Start(const SServingOptions& roOptions);

    /* See CHttpServer. */
    const std::vector<std::string>& GetAddresses() const;
    std::vector<std::string> GetUrls() const;
    std::string GetWarning() const;
    CFault Reload();

private:
    const std::unique_ptr<SWatchServerParts> m_poParts;
};

#endif
