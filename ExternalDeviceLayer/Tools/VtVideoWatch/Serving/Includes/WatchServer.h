/*
 * Everything that the watch serves, at all its addresses: metrics, JSON, the live stream, the page. It reads through
 * WatchReader.h alone and has threads of its own.
 *
 *   /               the page, and its files beside it
 *   /metrics        for Prometheus
 *   /api/v1/...     streams, pairs, history, events, live
 *   /healthz        200 while snapshots come
 */
#ifndef WATCH_SERVER_H
#define WATCH_SERVER_H

#include <memory>
#include <string>
#include <vector>

#include "HttpServer.h"
#include "WatchReader.h"

struct SWatchServer;
void WatchServer_Stop(SWatchServer* poServer);
struct SWatchServerDeleter
{
    void operator()(SWatchServer* poServer) const { WatchServer_Stop(poServer); }
};
// Its end sends every client away and waits for the threads: well below a second.
using WatchServerPtr = std::unique_ptr<SWatchServer, SWatchServerDeleter>;

// Where and how to serve.
struct SServingOptions
{
    std::vector<std::string> aszListen; // as ListenAddress_Read takes them
    SHttpSocketFile oSocketFile = {};
    SHttpFiles oFiles = {};
};

/*
 * Starts to serve.
 *   roReader    in   must outlive the server
 *   roOptions   in   where
 *   rszProblem  out  one line that says why it could not be
 * Null when it could not be. One thread at a time, like the end.
 */
WatchServerPtr WatchServer_Start(IWatchReader& roReader, const SServingOptions& roOptions, std::string& rszProblem);

/* The addresses in use, "127.0.0.1:80", with the ports that were taken for 0. Thread-safe. */
const std::vector<std::string>& WatchServer_GetAddresses(const SWatchServer& roServer);

/* See HttpServer_GetUrls, HttpServer_GetWarning, HttpServer_Reload. Thread-safe. */
std::vector<std::string> WatchServer_GetUrls(const SWatchServer& roServer);
std::string WatchServer_GetWarning(const SWatchServer& roServer);
bool WatchServer_Reload(SWatchServer& roServer, std::string& rszProblem);

#endif
