// Whose stamps, and how late. Opens every stream that may be watched.
#ifndef TIMING_CHECKS_H
#define TIMING_CHECKS_H

#include <span>

#include "Check.h"

std::span<const SCheck> TimingChecks();

#endif
