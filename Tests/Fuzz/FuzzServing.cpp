// Whatever a client, an administrator or a service manager says is either understood or refused: user files,
// Authorization, Accept, Accept-Encoding, If-None-Match, targets, addresses. The first byte tells which.
#include "HttpRequest.h"
#include "ListenAddress.h"
#include "Require.h"
#include "UserFile.h"

namespace
{

void ReadUsers(const std::string& rszText)
{
    std::vector<SUser> aoUsers;
    const CFault oFault = UserFile_Read(rszText, aoUsers);
    oFault ? RequireOneLine(oFault.GetText()) : Require(!aoUsers.empty());
    for (const SUser& roUser : aoUsers)
    {
        Require(!roUser.szName.empty() && roUser.szName.find(':') == std::string::npos && roUser.szHash.size() == 60);
    }
}

void ReadAuthorization(const std::string& rszText)
{
    SCredentials oCredentials;
    Require(!UserFile_ReadAuthorization(rszText, oCredentials) ||
            (oCredentials.szName.find(':') == std::string::npos &&
             oCredentials.szPassword.find('\0') == std::string::npos));
}

void ReadAccept(const std::string& rszText)
{
    const int iWeight = HttpRequest_GetAcceptWeight(rszText, "application/openmetrics-text", "1.0.0");
    Require(iWeight >= 0 && iWeight <= 1000);
    Require(!HttpRequest_AcceptsGzip(rszText) || rszText.find_first_of("gG*") != std::string::npos);
    Require(!HttpRequest_HasTag(rszText, "\"a\"") || rszText.find_first_of("a*") != std::string::npos);
}

void ReadTarget(const std::string& rszText)
{
    SHttpRequest oRequest;
    std::string szHost = "localhost";
    Require(!HttpRequest_ReadTarget(rszText, oRequest, szHost) || !oRequest.szPath.empty());
    (void)ListenAddress_IsLoopbackHost(std::string(HttpRequest_GetHostName(rszText)));
}

// What is understood is understood again when it is printed.
void ReadAddress(const std::string& rszText)
{
    SListenAddress oAddress;
    SListenAddress oAgain;
    if (ListenAddress_Read(rszText, oAddress))
    {
        return;
    }
    Require(!ListenAddress_Read(ListenAddress_Print(oAddress), oAgain) && oAgain.szHost == oAddress.szHost &&
            oAgain.uiPort == oAddress.uiPort && oAgain.bIsLoopback == oAddress.bIsLoopback);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* puiData, size_t uiSize)
{
    constexpr void (*afnRead[])(const std::string&) = {ReadUsers, ReadAuthorization, ReadAccept, ReadTarget,
                                                       ReadAddress};
    if (uiSize > 0)
    {
        afnRead[puiData[0] % 5](std::string(reinterpret_cast<const char*>(puiData) + 1, uiSize - 1));
    }
    return 0;
}
