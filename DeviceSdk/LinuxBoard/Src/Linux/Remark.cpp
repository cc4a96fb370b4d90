#include "Remark.h"

#include <cstdio>
#include <syslog.h>

namespace LinuxBoard
{

void Remark_Say(const std::string& szText)
{
    std::fprintf(stderr, "libVeltrano (Linux): %s\n", szText.c_str());
    syslog(LOG_USER | LOG_NOTICE, "libVeltrano (Linux): %s", szText.c_str());
}

} // namespace LinuxBoard
