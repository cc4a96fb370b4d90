#include "HttpFiles.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <gnutls/gnutls.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr off_t iMostBytes = 1 << 20;

// Empty when it can be read; a secret must not be one for everybody.
std::string FindFileProblem(int iFile, bool bIsSecret)
{
    struct stat oStat = {};
    if (iFile < 0 || fstat(iFile, &oStat) != 0)
    {
        return std::strerror(errno);
    }
    if (!S_ISREG(oStat.st_mode) || oStat.st_size > iMostBytes)
    {
        return "no file of at most 1 MiB";
    }
    return bIsSecret && (oStat.st_mode & S_IRWXO) != 0 ? "others may read it; chmod o= helps" : "";
}

CFault ReadFile(const char* szOption, const std::string& rszPath, bool bIsSecret, std::string& rszText)
{
    rszText.clear();
    if (rszPath.empty())
    {
        return {};
    }
    // A pipe must not hold the start up.
    const int iFile = open(rszPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    std::string szFault = FindFileProblem(iFile, bIsSecret);
    char achPiece[16384];
    ssize_t iRead = 0;
    while (szFault.empty() && (iRead = read(iFile, achPiece, sizeof(achPiece))) > 0)
    {
        rszText.append(achPiece, static_cast<size_t>(iRead));
    }
    szFault = iRead < 0 ? std::strerror(errno) : szFault;
    if (iFile >= 0)
    {
        close(iFile);
    }
    return szFault.empty() ? CFault() : CFault(std::string(szOption) + " " + rszPath + ": " + szFault);
}

gnutls_datum_t GetDatum(const std::string& rszText)
{
    // The library takes what it only reads as if it wrote.
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(rszText.data())), static_cast<unsigned>(rszText.size())};
}

struct SCredentialsDeleter
{
    void operator()(gnutls_certificate_credentials_t poCredentials) const
    {
        gnutls_certificate_free_credentials(poCredentials);
    }
};

CFault CheckKeys(const SHttpFiles& roFiles, const SHttpKeys& roKeys)
{
    gnutls_certificate_credentials_t poMade = nullptr;
    if (gnutls_certificate_allocate_credentials(&poMade) != GNUTLS_E_SUCCESS)
    {
        return CFault("no memory for a certificate");
    }
    const std::unique_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>, SCredentialsDeleter> poCredentials(
        poMade);
    const gnutls_datum_t oCertificate = GetDatum(roKeys.szCertificate);
    const gnutls_datum_t oKey = GetDatum(roKeys.szKey);
    const gnutls_datum_t oClientCa = GetDatum(roKeys.szClientCa);
    const int iPair =
        gnutls_certificate_set_x509_key_mem2(poMade, &oCertificate, &oKey, GNUTLS_X509_FMT_PEM, nullptr, 0);
    if (iPair < 0)
    {
        std::string szWhy = gnutls_strerror(iPair);
        szWhy.resize(szWhy.find_last_not_of('.') + 1);
        return CFault("--tls-certificate " + roFiles.szCertificate + ", --tls-key " + roFiles.szKey + ": " + szWhy);
    }
    const int iTrusted =
        roKeys.szClientCa.empty() ? 1 : gnutls_certificate_set_x509_trust_mem(poMade, &oClientCa, GNUTLS_X509_FMT_PEM);
    if (iTrusted <= 0)
    {
        return CFault("--tls-client-ca " + roFiles.szClientCa + ": no certificate in it");
    }
    return {};
}

} // namespace

CFault HttpFiles_ReadKeys(const SHttpFiles& roFiles, SHttpKeys& roKeys)
{
    CFault oFault = ReadFile("--tls-certificate", roFiles.szCertificate, false, roKeys.szCertificate);
    oFault = oFault ? oFault : ReadFile("--tls-key", roFiles.szKey, true, roKeys.szKey);
    oFault = oFault ? oFault : ReadFile("--tls-client-ca", roFiles.szClientCa, false, roKeys.szClientCa);
    return oFault || roFiles.szCertificate.empty() ? oFault : CheckKeys(roFiles, roKeys);
}

CFault HttpFiles_ReadUsers(const SHttpFiles& roFiles, std::vector<SUser>& raoUsers)
{
    std::string szText;
    raoUsers.clear();
    if (roFiles.szUsers.empty())
    {
        return {};
    }
    if (CFault oFault = ReadFile("--users", roFiles.szUsers, true, szText))
    {
        return oFault;
    }
    const CFault oFault = UserFile_Read(szText, raoUsers);
    return oFault ? CFault("--users " + roFiles.szUsers + ": " + oFault.GetText()) : CFault();
}
