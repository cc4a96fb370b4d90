// Random draws that are a function of (key, counter) alone, so that any field's draw is known without those before it.
// Pure functions.
#ifndef SIMULATED_BOARD_NOISE_H
#define SIMULATED_BOARD_NOISE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

// 64 well mixed bits: the finaliser of a 64-bit mixing generator (Steele, Lea, Flood: Fast Splittable Pseudorandom
// Number Generators, 2014; constants of Stafford's variant 13) over a Weyl sequence.
constexpr uint64_t Noise_Hash(uint64_t uiKey, uint64_t uiCounter)
{
    uint64_t uiState = uiKey + uiCounter * 0x9E3779B97F4A7C15u;
    uiState = (uiState ^ (uiState >> 30)) * 0xBF58476D1CE4E5B9u;
    uiState = (uiState ^ (uiState >> 27)) * 0x94D049BB133111EBu;
    return uiState ^ (uiState >> 31);
}

// A draw of the normal distribution with sigma 1 (Box and Muller, 1958), drawn back to four sigma beyond that.
inline double Noise_Gaussian(uint64_t uiKey, uint64_t uiCounter)
{
    const uint64_t uiBits = Noise_Hash(uiKey, uiCounter);
    const double flRadius = (static_cast<double>(uiBits >> 32) + 1.0) * 0x1p-32; // (0, 1]
    const double flAngle = static_cast<double>(uiBits & 0xFFFFFFFFu) * 0x1p-32;  // [0, 1)
    const double flDraw = std::sqrt(-2.0 * std::log(flRadius)) * std::cos(2.0 * std::numbers::pi * flAngle);
    return std::clamp(flDraw, -4.0, 4.0);
}

// One of 0 to uiRange, all alike. uiRange below 2^32.
constexpr uint32_t Noise_Uniform(uint64_t uiKey, uint64_t uiCounter, uint32_t uiRange)
{
    return static_cast<uint32_t>(((Noise_Hash(uiKey, uiCounter) >> 32) * (uint64_t{uiRange} + 1)) >> 32);
}

#endif
