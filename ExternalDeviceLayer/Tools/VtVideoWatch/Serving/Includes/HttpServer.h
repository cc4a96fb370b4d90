/*
 * The HTTP server that carries the watch's answers: GET and HEAD alone, with bounds on the size of a request, on the
 * time that one may take, and on connections. A thread takes connections in, one per daemon of the library moves their
 * bytes, and two make the answers that take longer; all of them run at a lower priority than the watching. A client
 * that is slow, silent or hostile holds a place among connections for a few seconds, and loses it to whoever needs it.
 */
#ifndef HTTP_SERVER_H
#define HTTP_SERVER_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct SHttpRequest
{
    std::string szPath; // decoded, without the query
    std::string szQuery;
    std::string szAccept;
    std::string szIfNoneMatch;
    std::string szLastEventId;
    bool bAcceptsGzip = false;
    bool bIsHead = false;
};

using HttpPiece = std::shared_ptr<const std::string>;

enum class EHttpNext : uint8_t
{
    PIECE,
    NOTHING_YET,
    END
};

// A body that is not there as a whole. Its end means that the client is gone, or the server ends.
class IHttpStream
{
public:
    virtual ~IHttpStream() = default;

    /*
     * Before anything is taken.
     *   fnWake  in  to be called whenever there may be something after NOTHING_YET; by any thread, also later than
     * needed
     */
    virtual void SetWaker(std::function<void()> fnWake) = 0;

    /* The next piece. Must not wait. One thread at a time. */
    virtual EHttpNext TakeNext(HttpPiece& rpoPiece) = 0;
};

struct SHttpAnswer
{
    int iStatus = 200;
    const char* szType = "application/json";
    std::string_view szBody;
    HttpPiece poBody;   // what szBody points into, unless that lasts for ever
    std::string szETag; // with its quotes; without one nothing may be kept by a cache
    bool bIsGzip = false;
    bool bVariesByEncoding = false;        // gzip or not, as the client accepts
    std::shared_ptr<IHttpStream> poStream; // instead of a body; none for HEAD
};

// Requests answered so far, by status.
constexpr std::array<int, 10> aiHttpStatuses = {200, 304, 400, 401, 403, 404, 405, 500, 503, 0}; // 0: any other one

struct SHttpCounts
{
    std::array<uint64_t, aiHttpStatuses.size()> auiAnswers = {};
    uint64_t uiOpen = 0;    // connections now
    uint64_t uiDropped = 0; // connections that were ended because they took too long, or for the sake of others
};

struct SHttpServer;
using HttpHandler = std::function<SHttpAnswer(const SHttpServer& roServer, const SHttpRequest& roRequest)>;

// Who may use unix sockets.
struct SHttpSocketFile
{
    uint32_t uiMode = 0660;
    std::string szGroup; // empty: as it comes
};

// Files that say how to serve; empty: none. Not for unix sockets, whose rights say who may use them.
struct SHttpFiles
{
    std::string szCertificate; // PEM, with those between it and its authority
    std::string szKey;
    std::string szClientCa; // clients must have a certificate of one of these authorities
    std::string szUsers;    // lines of htpasswd -B
};

struct SHttpSetup
{
    std::vector<std::string> aszListen; // see ListenAddress_Read
    SHttpSocketFile oSocketFile;
    SHttpFiles oFiles;
    HttpHandler oHandler; // answers a request; called by several threads at once
    // Whether that may take longer than some milliseconds: then it has a thread of its own, and delays no other answer.
    std::function<bool(const SHttpRequest& roRequest)> oIsSlow;
};

void HttpServer_Stop(SHttpServer* poServer);
struct SHttpServerDeleter
{
    void operator()(SHttpServer* poServer) const { HttpServer_Stop(poServer); }
};
// Its end closes every connection and waits for its threads: well below a second. Streams must have been told before.
using HttpServerPtr = std::unique_ptr<SHttpServer, SHttpServerDeleter>;

/*
 * Starts to serve on all addresses of a setup, and on the sockets that the service manager hands over; without either,
 * on szDefaultListen. oSetup      in   the handler may be called before this returns rszProblem  out  one line that
 * says why it could not be Null when it could not be. At a loopback address, requests for any other host are refused
 * with 403: a page from elsewhere cannot have its name point here.
 */
HttpServerPtr HttpServer_Start(SHttpSetup oSetup, std::string& rszProblem);

/* The addresses in use, "127.0.0.1:80", with the ports that were taken for 0. Thread-safe. */
const std::vector<std::string>& HttpServer_GetAddresses(const SHttpServer& roServer);

/* The same as who asks writes them, "https://127.0.0.1:80/". Thread-safe. */
std::vector<std::string> HttpServer_GetUrls(const SHttpServer& roServer);

/* One line for whoever leaves an address open to everybody on the network; mostly empty. Thread-safe. */
std::string HttpServer_GetWarning(const SHttpServer& roServer);

/*
 * Reads the files of the setup again. Connections under another certificate are ended when it has changed.
 *   rszProblem  out  one line that says what is wrong: then everything stays as it is
 * Thread-safe.
 */
bool HttpServer_Reload(SHttpServer& roServer, std::string& rszProblem);

/* Thread-safe. */
SHttpCounts HttpServer_GetCounts(const SHttpServer& roServer);

/* An answer whose body it owns. */
SHttpAnswer HttpAnswer_Make(int iStatus, const char* szType, std::string szBody);

/* The same answer compressed, where a client takes that and it is worth it. */
SHttpAnswer HttpAnswer_Compress(SHttpAnswer oAnswer, const SHttpRequest& roRequest);

/* {"error": ...} on one line. */
SHttpAnswer HttpAnswer_MakeError(int iStatus, std::string_view szText);

#endif
