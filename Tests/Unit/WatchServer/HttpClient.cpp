#include "HttpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

CHttpClient::CHttpClient(const std::string& szAddress) : m_iSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const size_t uiColon = szAddress.rfind(':');
    sockaddr_in oAddress = {};
    oAddress.sin_family = AF_INET;
    oAddress.sin_port = htons(static_cast<uint16_t>(std::stoi(szAddress.substr(uiColon + 1))));
    inet_pton(AF_INET, szAddress.substr(0, uiColon).c_str(), &oAddress.sin_addr);
    if (connect(m_iSocket, reinterpret_cast<const sockaddr*>(&oAddress), sizeof(oAddress)) != 0)
    {
        close(m_iSocket);
        m_iSocket = -1;
    }
}

CHttpClient::~CHttpClient()
{
    if (m_iSocket >= 0)
    {
        close(m_iSocket);
    }
}

void CHttpClient::Send(const std::string& szText) const
{
    static_cast<void>(!send(m_iSocket, szText.data(), szText.size(), MSG_NOSIGNAL));
}

const std::string& CHttpClient::ReadUntil(const std::string& szText)
{
    constexpr int iMostMs = 10000;
    while (m_szRead.find(szText) == std::string::npos)
    {
        pollfd oPoll = {m_iSocket, POLLIN, 0};
        char szPiece[16384];
        const ssize_t iRead = poll(&oPoll, 1, iMostMs) == 1 ? read(m_iSocket, szPiece, sizeof(szPiece)) : 0;
        if (iRead <= 0)
        {
            break;
        }
        m_szRead.append(szPiece, static_cast<size_t>(iRead));
    }
    return m_szRead;
}

bool CHttpClient::TakeUntil(const std::string& szText)
{
    const size_t uiFound = ReadUntil(szText).find(szText);
    m_szRead.erase(0, uiFound == std::string::npos ? m_szRead.size() : uiFound + szText.size());
    return uiFound != std::string::npos;
}

std::string HttpClient_Ask(const std::string& szAddress, const std::string& szRequestLine, const std::string& szHeaders)
{
    CHttpClient oClient(szAddress);
    oClient.Send(szRequestLine + " HTTP/1.1\r\nConnection: close\r\n" + szHeaders + "\r\n");
    return oClient.ReadAll();
}
