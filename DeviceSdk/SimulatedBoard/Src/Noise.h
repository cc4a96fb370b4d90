/*
 * Random draws that are a function of (key, counter) alone, so that any field's draw is known without those before it.
 * Pure functions.
 */
#ifndef SIMULATED_BOARD_NOISE_H
#define SIMULATED_BOARD_NOISE_H

#include <algorithm>
#include <cmath>
#include <cstdint>

// 64 well mixed bits: the finaliser of a 64-bit mixing generator (Steele, Lea, Flood: Fast Splittable Pseudorandom
// Number Generators, 2014; constants of Stafford's variant 13) over a Weyl sequence.
constexpr uint64_t Noise_Hash(uint64_t uiKey, uint64_t uiCounter)
{
    uint64_t uiState = uiKey + uiCounter * 0x9E3779B97F4A7C15u;
    uiState = (uiState ^ (uiState >> 30)) * 0xBF58476D1CE4E5B9u;
    uiState = (uiState ^ (uiState >> 27)) * 0x94D049BB133111EBu;
    return uiState ^ (uiState >> 31);
}

/*
 * Where the normal distribution with sigma 1 reaches a probability between 0 and 1. Rational approximations of P. J.
 * Acklam (2003), relative error below 1.2e-9. Unlike the usual way by logarithm and cosine it needs no tables in 19 of
 * 20 cases, which counts for a caller whom a sleep has left with cold caches.
 */
inline double Noise_Quantile(double flProbability)
{
    constexpr double flTail = 0.02425;
    const double flSmaller = std::min(flProbability, 1.0 - flProbability);
    if (flSmaller < flTail)
    {
        const double q = std::sqrt(-2.0 * std::log(flSmaller));
        const double flLow = (((((-7.784894002430293e-03 * q - 3.223964580411365e-01) * q - 2.400758277161838e+00) * q -
                                2.549732539343734e+00) *
                                   q +
                               4.374664141464968e+00) *
                                  q +
                              2.938163982698783e+00) /
                             ((((7.784695709041462e-03 * q + 3.224671290700398e-01) * q + 2.445134137142996e+00) * q +
                               3.754408661907416e+00) *
                                  q +
                              1.0);
        return flProbability < 0.5 ? flLow : -flLow;
    }
    const double q = flProbability - 0.5;
    const double r = q * q;
    return (((((-3.969683028665376e+01 * r + 2.209460984245205e+02) * r - 2.759285104469687e+02) * r +
              1.383577518672690e+02) *
                 r -
             3.066479806614716e+01) *
                r +
            2.506628277459239e+00) *
           q /
           (((((-5.447609879822406e+01 * r + 1.615858368580409e+02) * r - 1.556989798598866e+02) * r +
              6.680131188771972e+01) *
                 r -
             1.328068155288572e+01) *
                r +
            1.0);
}

/* A draw of that distribution, drawn back to four sigma beyond that. */
inline double Noise_Gaussian(uint64_t uiKey, uint64_t uiCounter)
{
    const uint64_t uiBits = Noise_Hash(uiKey, uiCounter) >> 12;
    const double flProbability = (static_cast<double>(uiBits) + 0.5) * 0x1p-52;
    return std::clamp(Noise_Quantile(flProbability), -4.0, 4.0);
}

// One of 0 to uiRange, all alike. uiRange below 2^32.
constexpr uint32_t Noise_Uniform(uint64_t uiKey, uint64_t uiCounter, uint32_t uiRange)
{
    return static_cast<uint32_t>(((Noise_Hash(uiKey, uiCounter) >> 32) * (uint64_t{uiRange} + 1)) >> 32);
}

#endif
