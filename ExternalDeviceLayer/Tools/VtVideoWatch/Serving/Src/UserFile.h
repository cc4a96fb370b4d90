/*
 * Who may ask: a list of names with bcrypt hashes, as "htpasswd -B" writes it, and what a request says of itself. No
 * state; any thread.
 */
#ifndef USER_FILE_H
#define USER_FILE_H

#include <string>
#include <string_view>
#include <vector>

#include "Fault.h"

struct SUser
{
    std::string szName;
    std::string szHash; // "$2y$05$..."
};

struct SCredentials
{
    std::string szName;
    std::string szPassword;
};

/*
 * Reads a list: a line "name:hash" each; empty lines and those that begin with # are passed over. What
 * is wrong is told with its line.
 */
CFault UserFile_Read(std::string_view szText, std::vector<SUser>& raoUsers);

/* Name and password of an Authorization header; false when it is none of the basic kind. */
bool UserFile_ReadAuthorization(std::string_view szHeader, SCredentials& roCredentials);

#endif
