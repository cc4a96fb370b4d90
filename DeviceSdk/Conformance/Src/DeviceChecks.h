// Loading, devices, connectors, custom calls, names, the debug channel.
#ifndef DEVICE_CHECKS_H
#define DEVICE_CHECKS_H

#include <span>

#include "Check.h"

std::span<const SCheck> DeviceChecks();

#endif
