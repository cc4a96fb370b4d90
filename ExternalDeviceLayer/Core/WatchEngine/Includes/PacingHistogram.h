/*
 * How closely fields keep to their grid. Plain data and pure functions.
 */
#ifndef PACING_HISTOGRAM_H
#define PACING_HISTOGRAM_H

#include <array>
#include <cstdint>

// Deviations of fields from their grid, in fixed bins, so that histograms of streams, minutes and machines add up. Ten
// bins per decade from 1 us to 0.1 s for each sign, one for what is nearer, one beyond on either side.
constexpr uint32_t uiPacingDecades = 5;
constexpr uint32_t uiPacingBinsPerDecade = 10;
constexpr uint32_t uiPacingBinsPerSign = uiPacingDecades * uiPacingBinsPerDecade + 1;
constexpr uint32_t uiPacingBins = 2 * uiPacingBinsPerSign + 1;
// Lower bounds of the bins of a sign, seconds: 1e-6 * 10^(n / 10).
constexpr std::array<double, uiPacingBinsPerSign> aflPacingBounds = []
{
    constexpr std::array<double, uiPacingBinsPerDecade> aflDecade = {
        1.0,
        1.2589254117941673,
        1.5848931924611134,
        1.9952623149688795,
        2.5118864315095801,
        3.1622776601683795,
        3.9810717055349722,
        5.0118723362727229,
        6.3095734448019325,
        7.9432823472428150,
    };
    std::array<double, uiPacingBinsPerSign> aflBounds = {};
    double flDecade = 1e-6;
    for (uint32_t uiBound = 0; uiBound < uiPacingBinsPerSign; ++uiBound)
    {
        aflBounds[uiBound] = flDecade * aflDecade[uiBound % uiPacingBinsPerDecade];
        flDecade *= uiBound % uiPacingBinsPerDecade == uiPacingBinsPerDecade - 1 ? 10.0 : 1.0;
    }
    return aflBounds;
}();

// The field that is farthest off its grid.
struct SPacingWorst
{
    double flSeconds = 0.0; // signed: positive is late
    int64_t iUtcNs = 0;     // its start; 0: there is none
};

struct SPacingHistogram
{
    // From the earliest fields to the latest: the middle one holds what is within 1 us.
    std::array<uint64_t, uiPacingBins> auiCounts = {};
    double flSumSeconds = 0.0;
    SPacingWorst oWorst;
};

// Percentiles of the size of the deviation, seconds.
struct SPacingFigures
{
    double flP50 = 0.0;
    double flP95 = 0.0;
    double flP99 = 0.0;
    double flP999 = 0.0;
    uint64_t uiCount = 0;
};

/* The bin of a deviation in seconds. */
uint32_t Pacing_GetBin(double flSeconds);
/* Adds one histogram to another one. */
void Pacing_Merge(SPacingHistogram& roInto, const SPacingHistogram& roFrom);
/* What came on top of an earlier state of the same histogram; oWorst: the worst field of that. */
SPacingHistogram Pacing_GetGrowth(const SPacingHistogram& roNow, const SPacingHistogram& roBefore,
                                  const SPacingWorst& roWorst);
/*
 * The deviation's size that a share of all fields does not exceed, seconds: the upper bound of the bin in which it
 * lies; 0 within 1 us, and beyond the last bound the worst field's. 0 without fields.
 */
double Pacing_GetPercentile(const SPacingHistogram& roHistogram, double flShare);
SPacingFigures Pacing_GetFigures(const SPacingHistogram& roHistogram);

#endif
