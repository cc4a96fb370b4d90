/*
 * Least squares of a stream's phase over its field number: sums that combine, so that a window is put together from
 * the seconds in it. Ticks.
 *
 * The phase of a field is what its tick is beyond a grid of whole ticks: tick - base - number x grid period. It is an
 * integer, so nothing is lost however long a stream runs; the sums are doubles relative to an origin nearby.
 * Combination: Chan, Golub, LeVeque, "Updating formulae and a pairwise algorithm for computing sample variances", 1979.
 */
#ifndef LINE_FIT_H
#define LINE_FIT_H

#include <cstdint>

// Centred sums of a set of fields.
struct SFitSums
{
    int64_t iNumber = 0; // origin: what the means are relative to
    int64_t iPhase = 0;
    double flCount = 0.0;
    double flMeanNumber = 0.0;
    double flMeanPhase = 0.0;
    double flNumberNumber = 0.0; // sums of products of deviations from the means
    double flNumberPhase = 0.0;
    double flPhasePhase = 0.0;
    double flNoise = 0.0;        // sum of squares about lines through single seconds: free of slow wander
    double flNoiseFreedom = 0.0; // its degrees of freedom
};

// A straight line through fields: phase = flPhase + flSlope x (number - iNumber), relative to iPhase.
struct SLine
{
    bool bIsValid = false;
    int64_t iNumber = 0;
    int64_t iPhase = 0;
    double flCount = 0.0;
    double flMeanNumber = 0.0; // relative to iNumber
    double flMeanPhase = 0.0;  // relative to iPhase
    double flSlope = 0.0;      // ticks per field
    double flNumberNumber = 0.0;
    double flVariance = 0.0; // of a field about the line; never below that of the rounding to whole ticks
    double flNoise = 0.0;    // of a field about the lines of single seconds; likewise

    double GetPhase(double flNumber) const { return flMeanPhase + flSlope * (flNumber - flMeanNumber); }
};

/* The sums of both sets together. */
SFitSums FitSums_Combine(const SFitSums& roA, const SFitSums& roB);

/* The line through a set of at least three fields. */
SLine FitSums_GetLine(const SFitSums& roSums);

// One second's fields, taken in one by one.
class COpenSecond
{
public:
    void Begin(int64_t iNumber, int64_t iPhase)
    {
        *this = {};
        m_iNumber = iNumber;
        m_iPhase = iPhase;
    }
    void Take(int64_t iNumber, int64_t iPhase)
    {
        const auto flNumber = static_cast<double>(iNumber - m_iNumber);
        const auto flPhase = static_cast<double>(iPhase - m_iPhase);
        m_flCount += 1.0;
        m_flNumber += flNumber;
        m_flPhase += flPhase;
        m_flNumberNumber += flNumber * flNumber;
        m_flNumberPhase += flNumber * flPhase;
        m_flPhasePhase += flPhase * flPhase;
    }
    bool IsEmpty() const { return m_flCount == 0.0; }
    int64_t GetNumberOrigin() const { return m_iNumber; }
    int64_t GetPhaseOrigin() const { return m_iPhase; }
    SFitSums Close() const;

private:
    int64_t m_iNumber = 0;
    int64_t m_iPhase = 0;
    double m_flCount = 0.0;
    double m_flNumber = 0.0;
    double m_flPhase = 0.0;
    double m_flNumberNumber = 0.0;
    double m_flNumberPhase = 0.0;
    double m_flPhasePhase = 0.0;
};

#endif
