/*
 * Time deviation (TDEV) of a stream's grid at 1, 10 and 100 s. Ticks.
 *
 * ITU-T G.810 (1996), appendix II.5: TDEV(n tau0)^2 is a sixth of the mean square of the second difference of
 * neighbouring means over n phases. The phases here are the means of whole seconds. The mean square is over all second
 * differences, one per second, until there are 1000 of them, and fades with that length from then on.
 */
#ifndef TIME_DEVIATION_H
#define TIME_DEVIATION_H

#include <array>
#include <cstdint>

#include "WatchSnapshot.h"

class CTimeDeviation
{
public:
    void Clear();
    /* Takes in the phase of a second; those of successive seconds belong together. */
    void Take(int64_t iSecond, double flPhase);
    /* In ticks, with its standard error. */
    SEstimate Get(ETdevTime eTime) const;

private:
    static constexpr uint32_t msc_uiPhases = 300;

    struct SMeanSquare
    {
        uint32_t uiCount = 0;
        double flMean = 0.0;
    };

    double GetMean(uint32_t uiBack, uint32_t uiCount) const;

    int64_t m_iSecond = -1;
    uint32_t m_uiNext = 0;
    uint32_t m_uiInRow = 0; // successive seconds in the ring
    std::array<double, msc_uiPhases> m_aflPhases = {};
    std::array<SMeanSquare, auiTdevSeconds.size()> m_aoSquares = {};
};

#endif
