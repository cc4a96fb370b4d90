#include "CheckCommand.h"
#include <cstdio>
int CheckCommand_Run(const SCheckOptions& /*roOptions*/)
{
    return 3;
}
int CheckCommand_RefuseUsage(const std::string& rszText)
{
    std::puts(("VIDEO UNKNOWN - " + rszText).c_str());
    return 3;
}
