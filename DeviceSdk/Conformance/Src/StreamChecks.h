// Video inputs and outputs. Opens every stream that may be watched.
#ifndef STREAM_CHECKS_H
#define STREAM_CHECKS_H

#include <span>

#include "Check.h"

std::span<const SCheck> StreamChecks();

#endif
