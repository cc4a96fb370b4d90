// The promises of the interface, each a sentence and the function that checks it.
#ifndef CHECKS_H
#define CHECKS_H

#include <span>

#include "Findings.h"

// Who runs the program may pull a cable when asked: how long each direction is given, 0 for not at all.
extern uint32_t g_uiLossAtMostS;

struct SCheck
{
    const char* szPromise;
    /* Called with the library loaded and the chip's handle. */
    void (*fnCheck)(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiChip);
};

/* Loading, devices, connectors, custom calls, names, the debug channel. */
std::span<const SCheck> DeviceChecks();

/* Video inputs and outputs. Opens every stream that may be watched. */
std::span<const SCheck> StreamChecks();

/* Whose stamps, and how late. Opens every stream that may be watched. */
std::span<const SCheck> TimingChecks();

#endif
