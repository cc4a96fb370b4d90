#include "ProcessFigures.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/resource.h>

namespace
{

uint64_t CountOpenFiles()
{
    DIR* poDirectory = opendir("/proc/self/fd");
    uint64_t uiOpen = 0;
    while (poDirectory != nullptr && readdir(poDirectory) != nullptr)
    {
        ++uiOpen;
    }
    if (poDirectory != nullptr)
    {
        closedir(poDirectory);
    }
    // Among them were this folder itself, "." and "..".
    return uiOpen - std::min<uint64_t>(uiOpen, 3);
}

// Threads and virtual memory are the 20th and 23rd of the fields; the second one is a name, which may hold anything.
void ReadStat(SProcessFigures& roFigures)
{
    char szStat[1024] = "";
    std::FILE* poFile = std::fopen("/proc/self/stat", "re");
    if (poFile == nullptr)
    {
        return;
    }
    szStat[std::fread(szStat, 1, sizeof(szStat) - 1, poFile)] = '\0';
    std::fclose(poFile);
    const char* szAfterName = std::strrchr(szStat, ')');
    unsigned long uiThreads = 0;
    unsigned long uiBytes = 0;
    if (szAfterName != nullptr &&
        std::sscanf(szAfterName + 1,
                    " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %lu %*d %*u %lu", &uiThreads,
                    &uiBytes) == 2)
    {
        roFigures.uiThreads = uiThreads;
        roFigures.uiVirtualBytes = uiBytes;
    }
}

} // namespace

SProcessFigures ProcessFigures_Read()
{
    SProcessFigures oFigures;
    rlimit oLimit = {};
    oFigures.uiOpenFiles = CountOpenFiles();
    oFigures.uiMostFiles = getrlimit(RLIMIT_NOFILE, &oLimit) == 0 ? static_cast<uint64_t>(oLimit.rlim_cur) : 0;
    ReadStat(oFigures);
    return oFigures;
}
