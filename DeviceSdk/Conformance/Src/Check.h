// A promise of the interface: a sentence, and the function that checks it.
#ifndef CHECK_H
#define CHECK_H

#include "Findings.h"

// Who runs the program may pull a cable when asked: how long each direction is given, 0 for not at all.
extern uint32_t g_uiLossAtMostS;

struct SCheck
{
    const char* szPromise;
    /* Called with the library loaded and the chip's handle. */
    void (*fnCheck)(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiChip);
};

#endif
