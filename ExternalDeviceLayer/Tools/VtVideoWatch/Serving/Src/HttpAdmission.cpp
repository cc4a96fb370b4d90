#include "HttpAdmission.h"

#include <cstring>
#include <functional>

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <microhttpd.h>

#include "HttpReply.h"
#include "HttpRequest.h"
#include "Memory.h"

namespace
{

std::string GetHeader(MHD_Connection* poConnection, const char* szName)
{
    const char* szValue = MHD_lookup_connection_value(poConnection, MHD_HEADER_KIND, szName);
    return szValue == nullptr ? std::string() : std::string(szValue);
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

template <typename FMake> SHttpAnswer MakeAnswer(const FMake& roMake)
{
    SHttpAnswer oAnswer;
    if (!Memory_Do("an answer", [&] { oAnswer = roMake(); }))
    {
        oAnswer = {};
        oAnswer.iStatus = 503;
        oAnswer.szBody = "{\"error\":\"no memory\"}\n";
    }
    return oAnswer;
}

// Has another thread make the answer.
MHD_Result Work(CHttpJobs& roJobs, const HttpCallPtr& rpoCall, std::function<SHttpAnswer()> fnMake)
{
    rpoCall->eStage = EHttpStage::AT_WORK;
    std::function<void()> fnJob = [poCall = rpoCall, fnMake = std::move(fnMake)]
    { HttpCall_Finish(*poCall, MakeAnswer(fnMake)); };
    // Asleep before the job can end, and nothing behind it that may find no memory.
    if (!HttpCall_Sleep(*rpoCall))
    {
        return MHD_NO;
    }
    if (!roJobs.Put(std::move(fnJob)))
    {
        HttpCall_Finish(*rpoCall, MakeAnswer([] { return HttpAnswer_MakeError(503, "too many ask at once"); }));
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
                    [&roService, poCall = rpoCall] { return roService.oAnswer(poCall->oRequest); });
    }
    rpoCall->oAnswer = MakeAnswer([&] { return roService.oAnswer(rpoCall->oRequest); });
    return HttpReply_Send(roService, rpoCall);
}

} // namespace

MHD_Result HttpAdmission_ReadHead(SHttpService& roService, const HttpCallPtr& rpoCall, const char* szMethod,
                                  const char* szVersion)
{
    SHttpRequest& roRequest = rpoCall->oRequest;
    MHD_Connection* poConnection = rpoCall->poConnection;
    rpoCall->eStage = EHttpStage::HEADED;
    roRequest.bIsHead = std::strcmp(szMethod, "HEAD") == 0;
    if (!roRequest.bIsHead && std::strcmp(szMethod, "GET") != 0)
    {
        return HttpReply_Refuse(roService, rpoCall, 405, "only GET and HEAD are served");
    }
    std::string szHost = GetHeader(poConnection, "Host");
    if (!HttpRequest_ReadTarget(rpoCall->szTarget, roRequest, szHost))
    {
        return HttpReply_Refuse(roService, rpoCall, 400, "give a path, as in GET /metrics");
    }
    if (szHost.empty() && std::strcmp(szVersion, "HTTP/1.1") == 0)
    {
        return HttpReply_Refuse(roService, rpoCall, 400, "the Host header is missing");
    }
    if (HasBody(poConnection))
    {
        return HttpReply_Refuse(roService, rpoCall, 400, "a request has no body here");
    }
    if (!IsHostAllowed(*rpoCall->poPlace->poListener, szHost))
    {
        return HttpReply_Refuse(roService, rpoCall, 403, "this address is served for localhost alone");
    }
    roRequest.szAccept = GetHeader(poConnection, "Accept");
    roRequest.szIfNoneMatch = GetHeader(poConnection, "If-None-Match");
    roRequest.szLastEventId = GetHeader(poConnection, "Last-Event-ID");
    roRequest.bAcceptsGzip = HttpRequest_AcceptsGzip(GetHeader(poConnection, "Accept-Encoding"));
    return MHD_YES;
}

MHD_Result HttpAdmission_Decide(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    roService.oConnections.SetPhase(*rpoCall->poPlace, EHttpPhase::ANSWERING);
    if (!HasCertificate(rpoCall))
    {
        return HttpReply_Refuse(roService, rpoCall, 403, "a client certificate is needed");
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
        return HttpReply_Send(roService, rpoCall);
    case EHttpAccess::UNKNOWN:
        break;
    }
    return Work(roService.oChecks, rpoCall,
                [&roService, poCall = rpoCall, szAuthorization]
                {
                    return roService.oUsers.Check(szAuthorization) == EHttpAccess::GRANTED
                               ? roService.oAnswer(poCall->oRequest)
                               : RefuseUser();
                });
}
