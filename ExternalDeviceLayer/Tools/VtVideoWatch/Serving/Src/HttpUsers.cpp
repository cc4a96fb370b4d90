#include "HttpUsers.h"

#include <algorithm>
#include <memory>

#include <crypt.h>
#include <gnutls/crypto.h>

namespace
{

constexpr size_t uiMostRemembered = 256; // of each kind

// Who is not known is checked against somebody's hash, so that names cannot be told by time.
bool IsUser(const std::vector<SUser>& raoUsers, const SCredentials& roCredentials)
{
    const auto oFound =
        std::ranges::find_if(raoUsers, [&](const SUser& roUser) { return roUser.szName == roCredentials.szName; });
    const std::string& rszHash = oFound == raoUsers.end() ? raoUsers.front().szHash : oFound->szHash;
    const auto poData = std::make_unique<crypt_data>();
    const char* szHash = crypt_r(roCredentials.szPassword.c_str(), rszHash.c_str(), poData.get());
    const std::string szMade = szHash == nullptr ? "" : szHash;
    return szMade.size() == rszHash.size() && gnutls_memcmp(szMade.data(), rszHash.data(), szMade.size()) == 0 &&
           oFound != raoUsers.end();
}

} // namespace

CHttpUsers::CHttpUsers()
{
    static_cast<void>(gnutls_rnd(GNUTLS_RND_KEY, m_oKey.data(), m_oKey.size()));
}

void CHttpUsers::Set(std::vector<SUser> aoUsers)
{
    const std::lock_guard oGuard(m_oMutex);
    m_aoUsers = std::move(aoUsers);
    ++m_uiGeneration;
    for (SRemembered& roRemembered : m_aoRemembered)
    {
        roRemembered = {};
    }
}

CHttpUsers::Digest CHttpUsers::MakeDigest(const std::string& rszText) const
{
    Digest oDigest = {};
    static_cast<void>(gnutls_hmac_fast(GNUTLS_MAC_SHA256, m_oKey.data(), m_oKey.size(), rszText.data(), rszText.size(),
                                       oDigest.data()));
    return oDigest;
}

EHttpAccess CHttpUsers::Find(const std::string& rszAuthorization) const
{
    const std::lock_guard oGuard(m_oMutex);
    SCredentials oCredentials;
    if (m_aoUsers.empty())
    {
        return EHttpAccess::GRANTED;
    }
    if (!UserFile_ReadAuthorization(rszAuthorization, oCredentials))
    {
        return EHttpAccess::REFUSED;
    }
    const Digest oDigest = MakeDigest(rszAuthorization);
    for (const SRemembered& roRemembered : m_aoRemembered)
    {
        const auto oFound = roRemembered.oAccess.find(oDigest);
        if (oFound != roRemembered.oAccess.end())
        {
            return oFound->second;
        }
    }
    return EHttpAccess::UNKNOWN;
}

EHttpAccess CHttpUsers::Check(const std::string& rszAuthorization)
{
    const EHttpAccess eKnown = Find(rszAuthorization);
    std::vector<SUser> aoUsers;
    uint64_t uiGeneration = 0;
    {
        const std::lock_guard oGuard(m_oMutex);
        aoUsers = m_aoUsers;
        uiGeneration = m_uiGeneration;
    }
    SCredentials oCredentials;
    if (eKnown != EHttpAccess::UNKNOWN || aoUsers.empty() ||
        !UserFile_ReadAuthorization(rszAuthorization, oCredentials))
    {
        return eKnown;
    }
    const EHttpAccess eAccess = IsUser(aoUsers, oCredentials) ? EHttpAccess::GRANTED : EHttpAccess::REFUSED;
    const std::lock_guard oGuard(m_oMutex);
    if (uiGeneration == m_uiGeneration)
    {
        Remember(MakeDigest(rszAuthorization), eAccess);
    }
    return eAccess;
}

void CHttpUsers::Remember(const Digest& roDigest, EHttpAccess eAccess)
{
    SRemembered& roRemembered = m_aoRemembered[eAccess == EHttpAccess::GRANTED ? 0 : 1];
    if (!roRemembered.oAccess.emplace(roDigest, eAccess).second)
    {
        return;
    }
    roRemembered.aoOldestFirst.push_back(roDigest);
    if (roRemembered.aoOldestFirst.size() > uiMostRemembered)
    {
        roRemembered.oAccess.erase(roRemembered.aoOldestFirst.front());
        roRemembered.aoOldestFirst.pop_front();
    }
}
