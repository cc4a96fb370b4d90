/*
 * Everything that the watch serves, on one address: metrics, JSON, the live stream, the page. It reads through
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

#include "WatchReader.h"

struct SWatchServer;
void WatchServer_Stop(SWatchServer* poServer);
struct SWatchServerDeleter
{
    void operator()(SWatchServer* poServer) const { WatchServer_Stop(poServer); }
};
// Its end sends every client away and waits for the threads: well below a second.
using WatchServerPtr = std::unique_ptr<SWatchServer, SWatchServerDeleter>;

/* Whether a text is an ADDRESS:PORT to listen on, free or not; rszProblem is one line that says how it should look. */
bool WatchServer_IsAddress(const std::string& szListen, std::string& rszProblem);

/*
 * Starts to serve.
 *   roReader    in   must outlive the server
 *   szListen    in   ADDRESS:PORT, see HttpServer_Start
 *   rszProblem  out  one line that says why it could not be
 * Null when it could not be. One thread at a time, like the end.
 */
WatchServerPtr WatchServer_Start(IWatchReader& roReader, const std::string& szListen, std::string& rszProblem);

/* The address in use, "127.0.0.1:9843". Thread-safe. */
const std::string& WatchServer_GetAddress(const SWatchServer& roServer);

#endif
