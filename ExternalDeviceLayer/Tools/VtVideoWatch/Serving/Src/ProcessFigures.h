/*
 * What the process has of the machine's goods at this moment. No state; any thread.
 */
#ifndef PROCESS_FIGURES_H
#define PROCESS_FIGURES_H

#include <cstdint>

// 0: not known.
struct SProcessFigures
{
    uint64_t uiOpenFiles = 0;
    uint64_t uiMostFiles = 0;
    uint64_t uiVirtualBytes = 0;
    uint64_t uiThreads = 0;
};

SProcessFigures ProcessFigures_Read();

#endif
