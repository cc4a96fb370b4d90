/*
 * Exact time in ticks: signed fixed point with 64 bits before and 64 behind the point.
 *
 * A field duration is a quotient of large integers; as fixed point it is off by less than 2^-64 tick, and the start of
 * field n, n times that, by less than n * 2^-64: below 2^-36 tick after 30 days of any video rate. Pure functions.
 */
#ifndef SIMULATED_BOARD_TICK_MATH_H
#define SIMULATED_BOARD_TICK_MATH_H

#include <cmath>
#include <cstdint>

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

// Ticks * 2^64.
using FixedTicks = Int128;

inline constexpr FixedTicks iOneTick = FixedTicks{1} << 64;

// uiNumerator / uiDenominator as fixed point, rounded down. The quotient must be below 2^63, the denominator below
// 2^127.
constexpr FixedTicks FixedTicks_Divide(UInt128 uiNumerator, UInt128 uiDenominator)
{
    UInt128 uiResult = uiNumerator / uiDenominator;
    UInt128 uiRest = uiNumerator % uiDenominator;
    for (int iBit = 0; iBit < 64; ++iBit)
    {
        uiResult <<= 1;
        uiRest <<= 1;
        if (uiRest >= uiDenominator)
        {
            uiRest -= uiDenominator;
            uiResult |= 1;
        }
    }
    return static_cast<FixedTicks>(uiResult);
}

/*
 * For what is no more exact than a double anyway: noise and figures that a scenario gives as a float. |flTicks| < 2^62.
 */
inline FixedTicks FixedTicks_FromDouble(double flTicks)
{
    const double flWhole = std::floor(flTicks);
    const auto uiFraction = static_cast<uint64_t>((flTicks - flWhole) * 0x1p63);
    return FixedTicks{static_cast<int64_t>(flWhole)} * iOneTick + FixedTicks{uiFraction} * 2;
}

constexpr double FixedTicks_ToDouble(FixedTicks iTicks)
{
    return static_cast<double>(iTicks) * 0x1p-64;
}

// To the nearest whole tick, halves upward. The time must not be negative.
constexpr uint64_t FixedTicks_Round(FixedTicks iTicks)
{
    return static_cast<uint64_t>((iTicks + iOneTick / 2) >> 64);
}

#endif
