/*
 * The HTTP server that carries the watch's answers: GET and HEAD alone, with bounds on the size of a request, on the
 * time that one may take, and on connections. A connection has a thread of a small pool, which runs at a lower priority
 * than the watching; a client that is slow, silent or hostile holds one of them for a few seconds and nothing else.
 */
#ifndef HTTP_SERVER_H
#define HTTP_SERVER_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct SHttpRequest
{
    std::string szPath; // decoded, without the query
    std::string szQuery;
    std::string szIfNoneMatch;
    std::string szLastEventId;
    bool bAcceptsGzip = false;
    bool bIsHead = false;
};

// Sends a piece of a body; false when the client is gone or too slow, or when the server ends.
using HttpWriter = std::function<bool(std::string_view szPiece)>;

struct SHttpAnswer
{
    int iStatus = 200;
    const char* szType = "application/json";
    std::string_view szBody;
    std::shared_ptr<const std::string> poBody; // what szBody points into, unless that lasts for ever
    std::string szETag;                        // with its quotes; without one nothing may be kept by a cache
    bool bIsGzip = false;
    std::function<void(const HttpWriter& roWriter)> oStream; // instead of a body: writes until the client goes
};

// Requests answered so far, by status.
constexpr std::array<int, 9> aiHttpStatuses = {200, 304, 400, 403, 404, 405, 500, 503, 0}; // 0: any other one
using HttpCounts = std::array<uint64_t, aiHttpStatuses.size()>;

struct SHttpServer;
using HttpHandler = std::function<SHttpAnswer(const SHttpServer& roServer, const SHttpRequest& roRequest)>;

void HttpServer_Stop(SHttpServer* poServer);
struct SHttpServerDeleter
{
    void operator()(SHttpServer* poServer) const { HttpServer_Stop(poServer); }
};
// Its end closes every connection and waits for their threads: well below a second.
using HttpServerPtr = std::unique_ptr<SHttpServer, SHttpServerDeleter>;

/*
 * Starts to serve.
 *   szListen    in   ADDRESS:PORT, an IPv4 address in numbers; port 0 takes any free one
 *   oHandler    in   answers a request; called by many threads at once, and perhaps before this returns
 *   rszProblem  out  one line that says why it could not be
 * Null when it could not be. Bound to a loopback address, requests for any other host are refused with 403: a page from
 * elsewhere cannot have its name point here.
 */
HttpServerPtr HttpServer_Start(const std::string& szListen, HttpHandler oHandler, std::string& rszProblem);

/* The address in use, "127.0.0.1:9843". Thread-safe. */
const std::string& HttpServer_GetAddress(const SHttpServer& roServer);

/* Thread-safe. */
HttpCounts HttpServer_GetCounts(const SHttpServer& roServer);

/* True from the moment on at which the server ends. Thread-safe. */
bool HttpServer_IsEnding(const SHttpServer& roServer);

/* An answer whose body it owns. */
SHttpAnswer HttpAnswer_Make(int iStatus, const char* szType, std::string szBody);

/* {"error": ...} on one line. */
SHttpAnswer HttpAnswer_MakeError(int iStatus, std::string_view szText);

#endif
