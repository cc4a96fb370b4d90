#include "Remark.h"

#include <cstdio>
#include <syslog.h>

#include "TextLine.h"

void Remark_Say(const std::string& szText)
{
    Remark_SayPlain("libVeltrano (Linux): " + szText);
}

void Remark_SayPlain(const std::string& szText)
{
    const std::string szLine = TextLine_Make(szText);
    std::fprintf(stderr, "%s\n", szLine.c_str());
    syslog(LOG_USER | LOG_NOTICE, "%s", szLine.c_str());
}
