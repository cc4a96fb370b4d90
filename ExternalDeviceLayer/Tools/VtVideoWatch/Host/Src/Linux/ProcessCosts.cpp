#include "ProcessCosts.h"

#include <cstdio>
#include <unistd.h>

#include "WatchClocks.h"

SProcessCosts ProcessCosts_Read()
{
    SProcessCosts oCosts;
    oCosts.flCpuSeconds = static_cast<double>(ReadClockNs(CLOCK_PROCESS_CPUTIME_ID)) * 1e-9;
    std::FILE* poFile = std::fopen("/proc/self/statm", "re");
    if (poFile == nullptr)
    {
        return oCosts;
    }
    unsigned long uiSize = 0;
    unsigned long uiResident = 0;
    if (std::fscanf(poFile, "%lu %lu", &uiSize, &uiResident) == 2)
    {
        oCosts.uiResidentBytes = static_cast<uint64_t>(uiResident) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    }
    std::fclose(poFile);
    return oCosts;
}
