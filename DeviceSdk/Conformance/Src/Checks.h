// The promises of the interface, each a sentence and the function that checks it.
#ifndef CHECKS_H
#define CHECKS_H

#include "Findings.h"

#include <span>

struct SCheck
{
    const char* szPromise;
    // Called with the library loaded and the chip's handle.
    void (*fnCheck)(CFindings& roFindings, VtDevice_Handle hDev, uint32_t uiChip);
};

// Loading, devices, connectors, custom calls, names, the debug channel.
std::span<const SCheck> DeviceChecks();

// Video inputs and outputs. Opens every stream that may be watched.
std::span<const SCheck> StreamChecks();

#endif
