#include "HttpDaemon.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "HttpCall.h"
#include "HttpRequest.h"

namespace
{

// Line and headers of a request, and what the library needs beside them.
constexpr size_t uiConnectionBytes = 12288;
constexpr size_t uiStreamBytes = 16384;
// TLS 1.2 and up, and keys that nobody can read later who has that of the certificate.
constexpr const char* szTlsPriorities = "SECURE128:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-RSA:%SERVER_PRECEDENCE";

constexpr std::pair<const char*, const char*> aszSecurityHeaders[] = {
    {"Content-Security-Policy", "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

std::string GetHeader(MHD_Connection* poConnection, const char* szName)
{
    const char* szValue = MHD_lookup_connection_value(poConnection, MHD_HEADER_KIND, szName);
    return szValue == nullptr ? std::string() : std::string(szValue);
}

HttpConnectionPtr FindPlace(const SHttpService& roService, MHD_Connection* poConnection)
{
    const MHD_ConnectionInfo* poInfo = MHD_get_connection_info(poConnection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return poInfo == nullptr ? nullptr : roService.oConnections.Find(poInfo->connect_fd);
}

void CountAnswer(SHttpService& roService, int iStatus)
{
    size_t i = 0;
    while (i + 1 < aiHttpStatuses.size() && aiHttpStatuses[i] != iStatus)
    {
        ++i;
    }
    roService.auiCounts[i].fetch_add(1, std::memory_order_relaxed);
}

// A call, and the service that it is made to: what the library's callbacks are given of a stream.
struct SStreamReader
{
    SHttpService& roService;
    HttpCallPtr poCall;
};

bool TakePiece(SHttpService& roService, SHttpCall& roCall)
{
    roCall.uiSent = 0;
    while (!roCall.poPlace->poDaemon->bIsEnding)
    {
        switch (roCall.oAnswer.poStream->TakeNext(roCall.poPiece))
        {
        case EHttpNext::PIECE:
            roService.oConnections.SetPhase(*roCall.poPlace, EHttpPhase::ANSWERING);
            return true;
        case EHttpNext::END:
            return false;
        case EHttpNext::NOTHING_YET:
            roCall.poPiece = nullptr;
            roService.oConnections.SetPhase(*roCall.poPlace, EHttpPhase::WAITING);
            if (HttpCall_Sleep(roCall))
            {
                return true;
            }
        }
    }
    return false;
}

ssize_t OnRead(void* poReader, uint64_t /*uiPosition*/, char* pchTo, size_t uiMost)
{
    const SStreamReader& roReader = *static_cast<SStreamReader*>(poReader);
    SHttpCall& roCall = *roReader.poCall;
    const bool bIsSent = roCall.poPiece == nullptr || roCall.uiSent == roCall.poPiece->size();
    if (bIsSent && !TakePiece(roReader.roService, roCall))
    {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (roCall.poPiece == nullptr)
    {
        return 0;
    }
    const size_t uiBytes = roCall.poPiece->copy(pchTo, uiMost, roCall.uiSent);
    roCall.uiSent += uiBytes;
    return static_cast<ssize_t>(uiBytes);
}

void OnReadOver(void* poReader)
{
    delete static_cast<SStreamReader*>(poReader);
}

MHD_Response* MakeResponse(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    const SHttpAnswer& roAnswer = rpoCall->oAnswer;
    if (roAnswer.poStream != nullptr)
    {
        roAnswer.poStream->SetWaker(
            [poCall = std::weak_ptr<SHttpCall>(rpoCall)]
            {
                if (const HttpCallPtr poAwake = poCall.lock())
                {
                    HttpCall_Wake(*poAwake);
                }
            });
        auto poReader = std::make_unique<SStreamReader>(SStreamReader{roService, rpoCall});
        MHD_Response* poResponse =
            MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, uiStreamBytes, OnRead, poReader.get(), OnReadOver);
        // It deletes the reader, if it is there.
        static_cast<void>(poResponse == nullptr ? nullptr : poReader.release());
        return poResponse;
    }
    // The call keeps the body until it is over.
    return MHD_create_response_from_buffer(roAnswer.szBody.size(), const_cast<char*>(roAnswer.szBody.data()),
                                           MHD_RESPMEM_PERSISTENT);
}

void AddHeaders(MHD_Response* poResponse, const SHttpAnswer& roAnswer)
{
    const auto Add = [poResponse](const char* szName, const std::string& rszValue)
    { MHD_add_response_header(poResponse, szName, rszValue.c_str()); };
    for (const auto& [szName, szValue] : aszSecurityHeaders)
    {
        Add(szName, szValue);
    }
    Add("Content-Type", roAnswer.szType);
    Add("Cache-Control", roAnswer.szETag.empty() ? "no-store" : "no-cache");
    if (!roAnswer.szETag.empty())
    {
        Add("ETag", roAnswer.szETag);
    }
    if (roAnswer.bVariesByEncoding)
    {
        Add("Vary", "Accept, Accept-Encoding");
    }
    if (roAnswer.bIsGzip)
    {
        Add("Content-Encoding", "gzip");
    }
    if (roAnswer.iStatus == 401)
    {
        Add("WWW-Authenticate", "Basic realm=\"VtVideoWatch\", charset=\"UTF-8\"");
    }
    if (roAnswer.iStatus == 405)
    {
        Add("Allow", "GET, HEAD");
    }
    if (roAnswer.iStatus == 503)
    {
        Add("Retry-After", "2");
    }
}

MHD_Result Send(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    CountAnswer(roService, rpoCall->oAnswer.iStatus);
    roService.oConnections.SetPhase(*rpoCall->poPlace, EHttpPhase::ANSWERING);
    MHD_Response* poResponse = MakeResponse(roService, rpoCall);
    if (poResponse == nullptr)
    {
        return MHD_NO;
    }
    AddHeaders(poResponse, rpoCall->oAnswer);
    const MHD_Result eResult =
        MHD_queue_response(rpoCall->poConnection, static_cast<unsigned>(rpoCall->oAnswer.iStatus), poResponse);
    MHD_destroy_response(poResponse);
    return eResult;
}

MHD_Result Refuse(SHttpService& roService, const HttpCallPtr& rpoCall, int iStatus, const char* szText)
{
    rpoCall->oAnswer = HttpAnswer_MakeError(iStatus, szText);
    return Send(roService, rpoCall);
}

bool HasBody(MHD_Connection* poConnection)
{
    const std::string szLength = GetHeader(poConnection, "Content-Length");
    return !GetHeader(poConnection, "Transfer-Encoding").empty() || (!szLength.empty() && szLength != "0");
}

bool IsHostAllowed(const SHttpListener& roListener, const std::string& rszHost)
{
    // A browser finds no way to a unix socket, and a proxy behind one serves its own name.
    if (!roListener.oAddress.bIsLoopback || roListener.oAddress.eKind == EListenKind::UNIX || rszHost.empty())
    {
        return true;
    }
    return ListenAddress_IsLoopbackHost(std::string(HttpRequest_GetHostName(rszHost)));
}

// The headers are there. What is refused is refused now, before any body.
MHD_Result ReadHead(SHttpService& roService, const HttpCallPtr& rpoCall, const char* szMethod, const char* szVersion)
{
    SHttpRequest& roRequest = rpoCall->oRequest;
    MHD_Connection* poConnection = rpoCall->poConnection;
    rpoCall->eStage = EHttpStage::HEADED;
    roRequest.bIsHead = std::strcmp(szMethod, "HEAD") == 0;
    if (!roRequest.bIsHead && std::strcmp(szMethod, "GET") != 0)
    {
        return Refuse(roService, rpoCall, 405, "only GET and HEAD are served");
    }
    std::string szHost = GetHeader(poConnection, "Host");
    if (!HttpRequest_ReadTarget(rpoCall->szTarget, roRequest, szHost))
    {
        return Refuse(roService, rpoCall, 400, "give a path, as in GET /metrics");
    }
    if (szHost.empty() && std::strcmp(szVersion, "HTTP/1.1") == 0)
    {
        return Refuse(roService, rpoCall, 400, "the Host header is missing");
    }
    if (HasBody(poConnection))
    {
        return Refuse(roService, rpoCall, 400, "a request has no body here");
    }
    if (!IsHostAllowed(*rpoCall->poPlace->poListener, szHost))
    {
        return Refuse(roService, rpoCall, 403, "this address is served for localhost alone");
    }
    roRequest.szAccept = GetHeader(poConnection, "Accept");
    roRequest.szIfNoneMatch = GetHeader(poConnection, "If-None-Match");
    roRequest.szLastEventId = GetHeader(poConnection, "Last-Event-ID");
    roRequest.bAcceptsGzip = HttpRequest_AcceptsGzip(GetHeader(poConnection, "Accept-Encoding"));
    return MHD_YES;
}

SHttpAnswer MakeAnswer(SHttpService& roService, const SHttpRequest& roRequest)
{
    try
    {
        return roService.oAnswer(roRequest);
    }
    catch (const std::bad_alloc&)
    {
        SHttpAnswer oAnswer;
        oAnswer.iStatus = 503;
        oAnswer.szBody = "{\"error\":\"no memory\"}\n";
        return oAnswer;
    }
}

// Has another thread make the answer.
MHD_Result Work(CHttpJobs& roJobs, const HttpCallPtr& rpoCall, std::function<SHttpAnswer()> fnMake)
{
    rpoCall->eStage = EHttpStage::AT_WORK;
    // Asleep before the job can end.
    if (!HttpCall_Sleep(*rpoCall))
    {
        return MHD_NO;
    }
    if (!roJobs.Put([poCall = rpoCall, fnMake = std::move(fnMake)] { HttpCall_Finish(*poCall, fnMake()); }))
    {
        HttpCall_Finish(*rpoCall, HttpAnswer_MakeError(503, "too many ask at once"));
    }
    return MHD_YES;
}

// Of an authority that clients must have theirs from.
bool HasCertificate(const HttpCallPtr& rpoCall)
{
    SHttpConnection& roPlace = *rpoCall->poPlace;
    if (!roPlace.poDaemon->bAsksForCertificates || roPlace.bIsCertified)
    {
        return true;
    }
    const MHD_ConnectionInfo* poInfo =
        MHD_get_connection_info(rpoCall->poConnection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    std::string szPurpose = GNUTLS_KP_TLS_WWW_CLIENT;
    gnutls_typed_vdata_st oPurpose = {GNUTLS_DT_KEY_PURPOSE_OID, reinterpret_cast<unsigned char*>(szPurpose.data()), 0};
    unsigned uiFaults = 0;
    roPlace.bIsCertified = poInfo != nullptr && poInfo->tls_session != nullptr &&
                           gnutls_certificate_verify_peers(static_cast<gnutls_session_t>(poInfo->tls_session),
                                                           &oPurpose, 1, &uiFaults) == GNUTLS_E_SUCCESS &&
                           uiFaults == 0;
    return roPlace.bIsCertified;
}

SHttpAnswer RefuseUser()
{
    return HttpAnswer_MakeError(401, "name and password are needed");
}

MHD_Result AnswerUser(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    if (roService.oIsSlow(rpoCall->oRequest))
    {
        return Work(roService.oJobs, rpoCall,
                    [&roService, poCall = rpoCall] { return MakeAnswer(roService, poCall->oRequest); });
    }
    rpoCall->oAnswer = MakeAnswer(roService, rpoCall->oRequest);
    return Send(roService, rpoCall);
}

// The whole request is there.
MHD_Result Decide(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    roService.oConnections.SetPhase(*rpoCall->poPlace, EHttpPhase::ANSWERING);
    if (!HasCertificate(rpoCall))
    {
        return Refuse(roService, rpoCall, 403, "a client certificate is needed");
    }
    if (rpoCall->poPlace->poListener->oAddress.eKind == EListenKind::UNIX)
    {
        return AnswerUser(roService, rpoCall);
    }
    const std::string szAuthorization = GetHeader(rpoCall->poConnection, "Authorization");
    switch (roService.oUsers.Find(szAuthorization))
    {
    case EHttpAccess::GRANTED:
        return AnswerUser(roService, rpoCall);
    case EHttpAccess::REFUSED:
        rpoCall->oAnswer = RefuseUser();
        return Send(roService, rpoCall);
    case EHttpAccess::UNKNOWN:
        break;
    }
    return Work(roService.oChecks, rpoCall,
                [&roService, poCall = rpoCall, szAuthorization]
                {
                    return roService.oUsers.Check(szAuthorization) == EHttpAccess::GRANTED
                               ? MakeAnswer(roService, poCall->oRequest)
                               : RefuseUser();
                });
}

MHD_Result OnRequestGuarded(SHttpService& roService, MHD_Connection* poConnection, const char* szMethod,
                            const char* szVersion)
{
    const HttpConnectionPtr poPlace = FindPlace(roService, poConnection);
    const HttpCallPtr poCall = poPlace == nullptr ? nullptr : poPlace->poCall;
    if (poCall == nullptr || poPlace->poDaemon->bIsEnding)
    {
        return MHD_NO;
    }
    switch (poCall->eStage)
    {
    case EHttpStage::NAMED:
        return ReadHead(roService, poCall, szMethod, szVersion);
    case EHttpStage::AT_WORK:
        return Send(roService, poCall);
    case EHttpStage::HEADED:
        break;
    }
    return Decide(roService, poCall);
}

// What is thrown for want of memory must not reach the library; the connection is closed.
template <typename FGuarded> auto Guard(const FGuarded& roGuarded, decltype(roGuarded()) oFailed)
{
    try
    {
        return roGuarded();
    }
    catch (const std::bad_alloc&)
    {
        return oFailed;
    }
}

MHD_Result OnRequest(void* poService, MHD_Connection* poConnection, const char* /*szUrl*/, const char* szMethod,
                     const char* szVersion, const char* /*pchBody*/, size_t* puiBody, void** /*ppoCall*/)
{
    *puiBody = 0;
    return Guard(
        [&] { return OnRequestGuarded(*static_cast<SHttpService*>(poService), poConnection, szMethod, szVersion); },
        MHD_NO);
}

// The first line of a request. Its target is told here alone as it came.
void* OnTarget(void* poService, const char* szTarget, MHD_Connection* poConnection)
{
    auto& roService = *static_cast<SHttpService*>(poService);
    return Guard(
        [&]() -> void*
        {
            const HttpConnectionPtr poPlace = FindPlace(roService, poConnection);
            if (poPlace != nullptr)
            {
                auto poCall = std::make_shared<SHttpCall>();
                poCall->szTarget = szTarget;
                poCall->poConnection = poConnection;
                poCall->poPlace = poPlace;
                roService.oConnections.SetCall(*poPlace, poCall);
                roService.oConnections.SetPhase(*poPlace, EHttpPhase::READING);
            }
            return nullptr;
        },
        nullptr);
}

void OnOver(void* poService, MHD_Connection* poConnection, void** /*ppoCall*/, MHD_RequestTerminationCode /*eCode*/)
{
    auto& roService = *static_cast<SHttpService*>(poService);
    const HttpConnectionPtr poPlace = FindPlace(roService, poConnection);
    if (poPlace != nullptr && poPlace->poCall != nullptr)
    {
        HttpCall_End(*poPlace->poCall);
        roService.oConnections.SetCall(*poPlace, nullptr);
        roService.oConnections.SetPhase(*poPlace, EHttpPhase::KEPT);
    }
}

void OnConnection(void* poService, MHD_Connection* poConnection, void** /*ppoContext*/,
                  MHD_ConnectionNotificationCode eCode)
{
    auto& roService = *static_cast<SHttpService*>(poService);
    const MHD_ConnectionInfo* poInfo = MHD_get_connection_info(poConnection, MHD_CONNECTION_INFO_CONNECTION_FD);
    if (eCode == MHD_CONNECTION_NOTIFY_CLOSED && poInfo != nullptr)
    {
        OnOver(poService, poConnection, nullptr, MHD_REQUEST_TERMINATED_WITH_ERROR);
        roService.oConnections.Leave(poInfo->connect_fd);
    }
}

} // namespace

bool CHttpDaemon::Start(unsigned uiMostConnections, const SHttpKeys* poKeys)
{
    unsigned uiFlags =
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME;
    std::vector<MHD_OptionItem> aoTls;
    const auto AddText = [&aoTls](MHD_OPTION eOption, const std::string& rszText) {
        aoTls.push_back({eOption, 0, const_cast<char*>(rszText.c_str())});
    };
    const std::string szPriorities = szTlsPriorities;
    if (poKeys != nullptr)
    {
        uiFlags |= MHD_USE_TLS;
        AddText(MHD_OPTION_HTTPS_MEM_CERT, poKeys->szCertificate);
        AddText(MHD_OPTION_HTTPS_MEM_KEY, poKeys->szKey);
        AddText(MHD_OPTION_HTTPS_PRIORITIES, szPriorities);
    }
    if (poKeys != nullptr && !poKeys->szClientCa.empty())
    {
        m_poState->bAsksForCertificates = true;
        AddText(MHD_OPTION_HTTPS_MEM_TRUST, poKeys->szClientCa);
    }
    aoTls.push_back({MHD_OPTION_END, 0, nullptr});
    m_poDaemon = MHD_start_daemon(uiFlags, 0, nullptr, nullptr, OnRequest, &m_roService,
                                  MHD_OPTION_CONNECTION_MEMORY_LIMIT, uiConnectionBytes, MHD_OPTION_CONNECTION_LIMIT,
                                  uiMostConnections, MHD_OPTION_URI_LOG_CALLBACK, OnTarget, &m_roService,
                                  MHD_OPTION_NOTIFY_COMPLETED, OnOver, &m_roService, MHD_OPTION_NOTIFY_CONNECTION,
                                  OnConnection, &m_roService, MHD_OPTION_ARRAY, aoTls.data(), MHD_OPTION_END);
    return m_poDaemon != nullptr;
}

CHttpDaemon::~CHttpDaemon()
{
    m_poState->bIsEnding = true;
    // The library does not end with anything laid aside; what comes now is not laid aside any more.
    for (const HttpCallPtr& rpoCall : m_roService.oConnections.GetCalls(*m_poState))
    {
        HttpCall_Wake(*rpoCall);
    }
    if (m_poDaemon != nullptr)
    {
        MHD_stop_daemon(m_poDaemon);
    }
}

void CHttpDaemon::Add(int iSocket)
{
    sockaddr_storage oPeer = {};
    socklen_t uiSize = sizeof(oPeer);
    getpeername(iSocket, reinterpret_cast<sockaddr*>(&oPeer), &uiSize);
    // It closes the socket when it cannot.
    if (MHD_add_connection(m_poDaemon, iSocket, reinterpret_cast<const sockaddr*>(&oPeer), uiSize) != MHD_YES)
    {
        m_roService.oConnections.Leave(iSocket);
    }
}
