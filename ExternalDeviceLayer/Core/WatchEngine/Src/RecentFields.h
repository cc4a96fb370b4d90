/*
 * The fields of the last seconds one by one, for what sums cannot tell: peaks, the distribution of intervals, and how
 * far the parts of one second agree. Ticks.
 */
#ifndef RECENT_FIELDS_H
#define RECENT_FIELDS_H

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "FitSums.h"
#include "WatchSnapshot.h"

// A field on the grid, relative to the first one of its second.
struct SRecentField
{
    float flNumber;
    float flPhase;
};

struct SRecentSecond
{
    int64_t iSecond = -1;
    int64_t iNumber = 0; // of its first field
    int64_t iPhase = 0;
    uint32_t uiCount = 0;
    uint32_t uiEarly = 0; // fields off the grid
    uint32_t uiLate = 0;
};

struct SJitterFigures
{
    double flPeakTicks = 0.0; // peak to peak
    SIntervalHistogram oIntervals;
};

class CRecentFields
{
public:
    CRecentFields();

    void Clear();
    void Take(int64_t iSecond, int64_t iNumber, int64_t iPhase)
    {
        SRecentSecond& roSecond = m_aoSeconds[static_cast<size_t>(iSecond) % m_aoSeconds.size()];
        if (roSecond.iSecond != iSecond)
        {
            roSecond = {iSecond, iNumber, iPhase, 0, 0, 0};
        }
        if (roSecond.uiCount < msc_uiMostPerSecond)
        {
            GetFields(roSecond)[roSecond.uiCount++] = {static_cast<float>(iNumber - roSecond.iNumber),
                                                       static_cast<float>(iPhase - roSecond.iPhase)};
        }
    }
    void TakeOffGrid(int64_t iSecond, uint32_t uiEarly, uint32_t uiLate);

    /* Peak to peak about a line, and the intervals by their deviation from it, over the ten seconds before iEnd. */
    SJitterFigures GetJitter(const SLine& roLine, int64_t iEnd, double flSecondsPerTick) const;
    /*
     * Standard error of the slope through one second, ticks per field, from eight parts of it; 0 when there are too few
     * fields.
     */
    double GetSlopeErrorByParts(int64_t iSecond) const;

private:
    static constexpr uint32_t msc_uiSeconds = 12;
    static constexpr uint32_t msc_uiMostPerSecond = 1024;

    SRecentField* GetFields(const SRecentSecond& roSecond)
    {
        return &m_paoFields[static_cast<size_t>(&roSecond - m_aoSeconds.data()) * msc_uiMostPerSecond];
    }
    std::span<const SRecentField> GetSecond(int64_t iSecond, const SRecentSecond*& rpoSecond) const;

    std::array<SRecentSecond, msc_uiSeconds> m_aoSeconds = {};
    std::unique_ptr<SRecentField[]> m_paoFields; // by second; memory that is not needed is never touched
};

#endif
