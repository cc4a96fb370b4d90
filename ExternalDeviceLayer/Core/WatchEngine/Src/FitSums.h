/*
 * A stream's phase over its field number as sums that combine, so that a window is put together from the seconds in
 * it. Ticks.
 *
 * The phase of a field is what its tick is beyond a grid of whole ticks: tick - base - number x grid period. It is an
 * integer, so nothing is lost however long a stream runs; the sums are doubles relative to an origin nearby.
 */
#ifndef FIT_SUMS_H
#define FIT_SUMS_H

#include <cstdint>

#include "LineFit.h"

constexpr double flRoundingVariance = 1.0 / 12.0; // of rounding to whole ticks

// Sums of a set of fields: x are numbers, y phases, each field weighs 1.
struct SFitSums
{
    int64_t iNumber = 0; // origin: what the means are relative to
    int64_t iPhase = 0;
    SLineSums oLine;
    double flNoise = 0.0;        // sum of squares about lines through single seconds: free of slow wander
    double flNoiseFreedom = 0.0; // its degrees of freedom
    double flSteps = 0.0;        // sum of squares of what successive fields differ by, about its mean
    double flStepFreedom = 0.0;

    double GetCount() const { return oLine.flWeight; }
    bool IsEmpty() const { return oLine.flWeight == 0.0; }
};

// A straight line through fields, relative to iNumber and iPhase.
struct SLine
{
    bool bIsValid = false;
    int64_t iNumber = 0;
    int64_t iPhase = 0;
    SLineSums oSums;
    double flSlope = 0.0;          // ticks per field
    double flVariance = 0.0;       // of a field about the line; never below that of the rounding to whole ticks
    double flNoise = 0.0;          // of a field about the lines of single seconds; likewise
    double flWander = 0.0;         // the part of the variance that neighbouring fields share
    double flWanderInSecond = 0.0; // and of the noise: what no block of a second can show

    double GetCount() const { return oSums.flWeight; }
    double GetPhase(double flNumber) const { return oSums.GetY(flNumber); }
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
        const double flStep = flPhase - m_flBefore;
        const double flIsNext = flNumber == m_flNumberBefore + 1.0 ? 1.0 : 0.0;
        m_flSteps += flIsNext;
        m_flStep += flIsNext * flStep;
        m_flStepStep += flIsNext * flStep * flStep;
        m_flBefore = flPhase;
        m_flNumberBefore = flNumber;
    }
    bool IsEmpty() const { return m_flCount == 0.0; }
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
    // From one field to the next.
    double m_flNumberBefore = -2.0;
    double m_flBefore = 0.0;
    double m_flSteps = 0.0;
    double m_flStep = 0.0;
    double m_flStepStep = 0.0;
};

#endif
