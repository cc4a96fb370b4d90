/*
 * What the process costs the machine. No state; any thread.
 */
#ifndef PROCESS_COSTS_H
#define PROCESS_COSTS_H

#include <cstdint>

struct SProcessCosts
{
    double flCpuSeconds = 0.0;    // processor time so far
    uint64_t uiResidentBytes = 0; // 0: not known
};

SProcessCosts ProcessCosts_Read();

#endif
