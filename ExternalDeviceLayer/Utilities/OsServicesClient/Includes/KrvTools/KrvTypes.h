/*
 * Basic types that every layer shares: the 32-bit boolean and the fixed texts.
 */
#ifndef KRV_TYPES_H
#define KRV_TYPES_H

#include <cstdint>

// 1 is true or success, 0 is false or failure.
using Bool32 = uint32_t;

// Fixed text buffers, terminator included.
using VTSTR64 = char[64];
using VTSTR256 = char[256];
using VTSTR4096 = char[4096];

// The low 32 bits of a value, as "%d" shows them.
constexpr int32_t LowInt(uint64_t uiValue)
{
    return static_cast<int32_t>(uiValue);
}

#endif
