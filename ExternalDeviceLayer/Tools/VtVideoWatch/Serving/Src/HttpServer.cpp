#include "HttpServer.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>

#include <civetweb.h>

#include "HttpSockets.h"

namespace
{

using Clock = std::chrono::steady_clock;

// More than there may be live listeners, so that a scrape always finds one.
constexpr const char* szThreads = "28";
constexpr const char* szQueue = "20";
constexpr const char* szRequestBytes = "8192";
constexpr const char* szIdleMs = "3000"; // for the whole of a request, and for each step of an answer
constexpr std::chrono::seconds oMostPerPiece{8};
constexpr size_t uiWriteBytes = 16384;

constexpr const char* szSecurityHeaders =
    "Content-Security-Policy: default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Connection: close\r\n";

std::string GetHeader(const mg_connection* poConnection, const char* szName)
{
    const char* szValue = mg_get_header(poConnection, szName);
    return szValue == nullptr ? std::string() : std::string(szValue);
}

// Without its port, "[::1]:80" and "localhost:80" alike.
std::string_view GetHostName(std::string_view szHost)
{
    const size_t uiColon = szHost.rfind(':');
    const size_t uiBracket = szHost.rfind(']');
    const bool bHasPort =
        uiColon != std::string_view::npos && (uiBracket == std::string_view::npos || uiBracket < uiColon);
    return bHasPort ? szHost.substr(0, uiColon) : szHost;
}

const char* GetReason(int iStatus)
{
    switch (iStatus)
    {
    case 200:
        return "OK";
    case 304:
        return "Not Modified";
    case 400:
        return "Bad Request";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 503:
        return "Service Unavailable";
    default:
        return "Internal Server Error";
    }
}

} // namespace

struct SHttpServer
{
    SListenAddress oAddress;
    std::string szAddress;
    HttpHandler oHandler;
    mg_context* poContext = nullptr;
    std::atomic<bool> bIsEnding = false;
    std::array<std::atomic<uint64_t>, aiHttpStatuses.size()> auiCounts = {};
};

namespace
{

void CountAnswer(SHttpServer& roServer, int iStatus)
{
    size_t i = 0;
    while (i + 1 < aiHttpStatuses.size() && aiHttpStatuses[i] != iStatus)
    {
        ++i;
    }
    roServer.auiCounts[i].fetch_add(1, std::memory_order_relaxed);
}

// The library bounds each step of a write, this bounds their sum.
bool WritePiece(const SHttpServer& roServer, mg_connection* poConnection, std::string_view szPiece)
{
    const Clock::time_point oLatest = Clock::now() + oMostPerPiece;
    while (!szPiece.empty())
    {
        const size_t uiBytes = std::min(szPiece.size(), uiWriteBytes);
        if (roServer.bIsEnding || Clock::now() > oLatest ||
            mg_write(poConnection, szPiece.data(), uiBytes) != static_cast<int>(uiBytes))
        {
            return false;
        }
        szPiece.remove_prefix(uiBytes);
    }
    return true;
}

std::string GetDate()
{
    const time_t iNow = std::time(nullptr);
    std::tm oTime = {};
    gmtime_r(&iNow, &oTime);
    char szDate[64];
    std::strftime(szDate, sizeof(szDate), "%a, %d %b %Y %H:%M:%S GMT", &oTime);
    return szDate;
}

std::string PrintHead(const SHttpAnswer& roAnswer)
{
    std::string szHead = "HTTP/1.1 " + std::to_string(roAnswer.iStatus) + " " + GetReason(roAnswer.iStatus) + "\r\n";
    szHead += "Date: " + GetDate() + "\r\n";
    szHead += szSecurityHeaders;
    szHead += std::string("Content-Type: ") + roAnswer.szType + "\r\n";
    szHead += roAnswer.szETag.empty()
                  ? "Cache-Control: no-store\r\n"
                  : "Cache-Control: no-cache\r\nVary: Accept-Encoding\r\nETag: " + roAnswer.szETag + "\r\n";
    szHead += roAnswer.bIsGzip ? "Content-Encoding: gzip\r\n" : "";
    szHead += roAnswer.iStatus == 405 ? "Allow: GET, HEAD\r\n" : "";
    szHead += roAnswer.iStatus == 503 ? "Retry-After: 2\r\n" : "";
    if (!roAnswer.oStream && roAnswer.iStatus != 304)
    {
        szHead += "Content-Length: " + std::to_string(roAnswer.szBody.size()) + "\r\n";
    }
    return szHead + "\r\n";
}

void Send(SHttpServer& roServer, mg_connection* poConnection, const SHttpAnswer& roAnswer, bool bIsHead)
{
    CountAnswer(roServer, roAnswer.iStatus);
    const HttpWriter oWriter = [&](std::string_view szPiece) { return WritePiece(roServer, poConnection, szPiece); };
    if (!oWriter(PrintHead(roAnswer)) || bIsHead)
    {
        return;
    }
    if (roAnswer.oStream)
    {
        roAnswer.oStream(oWriter);
        return;
    }
    oWriter(roAnswer.szBody);
}

bool IsHostAllowed(const SHttpServer& roServer, const std::string& szHost)
{
    const std::string_view szName = GetHostName(szHost);
    return !roServer.oAddress.bIsLoopback || szName.empty() || szName == "localhost" || szName == "127.0.0.1" ||
           szName == roServer.oAddress.szHost;
}

SHttpAnswer Answer(const SHttpServer& roServer, const mg_connection* poConnection, SHttpRequest& roRequest)
{
    const mg_request_info* poInfo = mg_get_request_info(poConnection);
    roRequest.bIsHead = std::strcmp(poInfo->request_method, "HEAD") == 0;
    if (!roRequest.bIsHead && std::strcmp(poInfo->request_method, "GET") != 0)
    {
        return HttpAnswer_MakeError(405, "only GET and HEAD are served");
    }
    if (!IsHostAllowed(roServer, GetHeader(poConnection, "Host")))
    {
        return HttpAnswer_MakeError(403, "this address is served for localhost alone");
    }
    roRequest.szPath = poInfo->local_uri == nullptr ? "" : poInfo->local_uri;
    roRequest.szQuery = poInfo->query_string == nullptr ? "" : poInfo->query_string;
    roRequest.szIfNoneMatch = GetHeader(poConnection, "If-None-Match");
    roRequest.szLastEventId = GetHeader(poConnection, "Last-Event-ID");
    roRequest.bAcceptsGzip = GetHeader(poConnection, "Accept-Encoding").find("gzip") != std::string::npos;
    return roServer.oHandler(roServer, roRequest);
}

int OnRequest(mg_connection* poConnection)
{
    auto* poServer = static_cast<SHttpServer*>(mg_get_user_data(mg_get_context(poConnection)));
    SHttpRequest oRequest;
    const SHttpAnswer oAnswer = Answer(*poServer, poConnection, oRequest);
    Send(*poServer, poConnection, oAnswer, oRequest.bIsHead);
    return oAnswer.iStatus;
}

// What the library itself refuses: requests that are malformed or too large.
int OnError(mg_connection* poConnection, int iStatus, const char* /*szMessage*/)
{
    auto* poServer = static_cast<SHttpServer*>(mg_get_user_data(mg_get_context(poConnection)));
    Send(*poServer, poConnection, HttpAnswer_MakeError(iStatus, GetReason(iStatus)), false);
    return 0;
}

void* OnThread(const mg_context* /*poContext*/, int /*iType*/)
{
    HttpSockets_LowerThreadPriority();
    return nullptr;
}

int KeepQuiet(const mg_connection* /*poConnection*/, const char* /*szMessage*/)
{
    return 1;
}

mg_context* StartLibrary(SHttpServer& roServer)
{
    mg_callbacks oCallbacks = {};
    oCallbacks.begin_request = OnRequest;
    oCallbacks.http_error = OnError;
    oCallbacks.init_thread = OnThread;
    // Not log_access: with that the library asks the time by a call that is not for several threads.
    oCallbacks.log_message = KeepQuiet;
    const std::string szPorts = roServer.oAddress.szHost + ":" + std::to_string(roServer.oAddress.uiPort);
    const char* aszOptions[] = {"listening_ports",
                                szPorts.c_str(),
                                "num_threads",
                                szThreads,
                                "connection_queue",
                                szQueue,
                                "max_request_size",
                                szRequestBytes,
                                "request_timeout_ms",
                                szIdleMs,
                                "enable_keep_alive",
                                "no",
                                nullptr};
    const CSignalsBlocked oBlocked;
    return mg_start(&oCallbacks, &roServer, aszOptions);
}

} // namespace

HttpServerPtr HttpServer_Start(const std::string& szListen, HttpHandler oHandler, std::string& rszProblem)
{
    HttpServerPtr poServer(new SHttpServer);
    poServer->oHandler = std::move(oHandler);
    if (!HttpSockets_ReadAddress(szListen, poServer->oAddress, rszProblem) ||
        !HttpSockets_TryListening(poServer->oAddress, rszProblem))
    {
        return nullptr;
    }
    poServer->poContext = StartLibrary(*poServer);
    mg_server_port oPort = {};
    if (poServer->poContext == nullptr || mg_get_server_ports(poServer->poContext, 1, &oPort) != 1)
    {
        rszProblem = "cannot listen on " + szListen + ": the server does not start";
        return nullptr;
    }
    poServer->oAddress.uiPort = static_cast<uint16_t>(oPort.port);
    poServer->szAddress = poServer->oAddress.szHost + ":" + std::to_string(oPort.port);
    return poServer;
}

void HttpServer_Stop(SHttpServer* poServer)
{
    if (poServer == nullptr)
    {
        return;
    }
    poServer->bIsEnding = true;
    if (poServer->poContext != nullptr)
    {
        // The library looks for its end every two seconds only; a socket that is shut down wakes it at once.
        HttpSockets_ShutDown(poServer->oAddress);
        mg_stop(poServer->poContext);
    }
    delete poServer;
}

const std::string& HttpServer_GetAddress(const SHttpServer& roServer)
{
    return roServer.szAddress;
}

bool HttpServer_IsEnding(const SHttpServer& roServer)
{
    return roServer.bIsEnding;
}

HttpCounts HttpServer_GetCounts(const SHttpServer& roServer)
{
    HttpCounts auiCounts = {};
    for (size_t i = 0; i < auiCounts.size(); ++i)
    {
        auiCounts[i] = roServer.auiCounts[i].load(std::memory_order_relaxed);
    }
    return auiCounts;
}
