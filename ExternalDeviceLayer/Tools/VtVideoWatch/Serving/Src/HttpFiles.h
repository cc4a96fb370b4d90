/*
 * The files that say how to serve: certificate, key, authorities, users. Read as a whole, and again on demand. No
 * state; any thread.
 */
#ifndef HTTP_FILES_H
#define HTTP_FILES_H

#include <string>
#include <vector>

#include "Fault.h"
#include "HttpServer.h"
#include "UserFile.h"

// The files' texts: empty for those that are not named.
struct SHttpKeys
{
    std::string szCertificate;
    std::string szKey;
    std::string szClientCa;
    bool operator==(const SHttpKeys&) const = default;
};

/* Reads certificate and key, which must belong together, and the authorities for clients. */
CFault HttpFiles_ReadKeys(const SHttpFiles& roFiles, SHttpKeys& roKeys);

/* Reads the users; none without a file. */
CFault HttpFiles_ReadUsers(const SHttpFiles& roFiles, std::vector<SUser>& raoUsers);

#endif
