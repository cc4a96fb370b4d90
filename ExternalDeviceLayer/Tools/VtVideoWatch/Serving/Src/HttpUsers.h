/*
 * Whether a request comes from one of the users. Checking a password takes long on purpose, so what came of it is
 * remembered, under a keyed digest of what was said. Thread-safe.
 */
#ifndef HTTP_USERS_H
#define HTTP_USERS_H

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "UserFile.h"

enum class EHttpAccess : uint8_t
{
    GRANTED,
    REFUSED,
    UNKNOWN // takes a check
};

class CHttpUsers
{
public:
    CHttpUsers();

    /* Without any, everybody may ask. What is remembered is forgotten. */
    void Set(std::vector<SUser> aoUsers);

    /* What is known of an Authorization header; at once. */
    EHttpAccess Find(const std::string& rszAuthorization) const;

    /* Finds out; may take a quarter of a second. */
    EHttpAccess Check(const std::string& rszAuthorization);

private:
    using Digest = std::array<uint8_t, 32>;
    struct SRemembered
    {
        std::map<Digest, EHttpAccess> oAccess;
        std::deque<Digest> aoOldestFirst;
    };

    Digest MakeDigest(const std::string& rszText) const;
    void Remember(const Digest& roDigest, EHttpAccess eAccess);

    Digest m_oKey = {}; // never changed
    mutable std::mutex m_oMutex;
    std::vector<SUser> m_aoUsers;
    uint64_t m_uiGeneration = 0;   // of the users
    SRemembered m_aoRemembered[2]; // granted, refused: who guesses does not make us forget who knows
};

#endif
