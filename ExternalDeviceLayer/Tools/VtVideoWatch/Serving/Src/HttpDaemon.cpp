#include "HttpDaemon.h"

#include <string>
#include <vector>

#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "HttpAdmission.h"
#include "HttpCall.h"
#include "HttpReply.h"
#include "Memory.h"

namespace
{

// Line and headers of a request, and what the library needs beside them.
constexpr size_t uiConnectionBytes = 12288;
// TLS 1.2 and up, and keys that nobody can read later who has that of the certificate.
constexpr const char* szTlsPriorities = "SECURE128:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-RSA:%SERVER_PRECEDENCE";

HttpConnectionPtr FindPlace(const SHttpService& roService, MHD_Connection* poConnection)
{
    const MHD_ConnectionInfo* poInfo = MHD_get_connection_info(poConnection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return poInfo == nullptr ? nullptr : roService.oConnections.Find(poInfo->connect_fd);
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
        return HttpAdmission_ReadHead(roService, poCall, szMethod, szVersion);
    case EHttpStage::AT_WORK:
        return HttpReply_Send(roService, poCall);
    case EHttpStage::HEADED:
        break;
    }
    return HttpAdmission_Decide(roService, poCall);
}

// What is thrown for want of memory must not reach the library; the connection is closed.
template <typename FGuarded> auto Guard(const FGuarded& roGuarded, decltype(roGuarded()) oFailed)
{
    auto oAnswer = oFailed;
    return Memory_Do("a request", [&] { oAnswer = roGuarded(); }) ? oAnswer : oFailed;
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
