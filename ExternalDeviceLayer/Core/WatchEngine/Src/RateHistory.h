/*
 * A stream's phase over the last 1000 seconds, as least-squares sums of seconds, tens and hundreds of seconds. The
 * blocks are whole seconds of the chip's clock, so those of all streams cover the same time and wander that streams
 * share cancels between them.
 *
 * A window ends at a whole second and holds ten blocks: ten seconds; or nine whole tens (hundreds) and the one begun,
 * so it covers 90 to 100 (900 to 1000) seconds.
 */
#ifndef RATE_HISTORY_H
#define RATE_HISTORY_H

#include <array>
#include <cstdint>

#include "FitSums.h"

constexpr uint32_t uiBlocksPerWindow = 10;

enum class EBlockLength : uint8_t
{
    SECOND,
    TEN,
    HUNDRED,
    COUNT
};
constexpr std::array<int64_t, 3> aiBlockSeconds = {1, 10, 100};

// The blocks of a window, oldest first.
struct SWindowTimes
{
    std::array<int64_t, uiBlocksPerWindow> aiBlock = {};  // number of the block since tick 0
    std::array<double, uiBlocksPerWindow> aflCentre = {}; // its middle, seconds after the window's end: negative
    int64_t iSeconds = 0;                                 // that the window covers
};

/* Which blocks a window that ends with second iEnd (exclusive) has. */
SWindowTimes RateHistory_GetTimes(EBlockLength eLength, int64_t iEnd);

class CRateHistory
{
public:
    explicit CRateHistory(uint32_t uiTickFrequencyHz) : m_uiTickFrequencyHz(uiTickFrequencyHz) {}

    /* Forgets everything; fields are numbered from 0 at uiTick on, on a grid of iPeriod ticks. */
    void Begin(uint64_t uiTick, int64_t iPeriod);
    /* Forgets everything until Begin. */
    void Stop() { m_bIsRunning = false; }
    bool IsRunning() const { return m_bIsRunning; }

    /* Takes in a field on the grid. */
    void Take(int64_t iNumber, uint64_t uiTick)
    {
        if (uiTick >= m_uiEndOfSecond)
        {
            OpenSecond(iNumber, uiTick);
        }
        m_oOpen.Take(iNumber, GetPhase(iNumber, uiTick));
    }
    /* Closes the seconds before iEnd: what comes for them from now on is not taken. */
    void CloseBefore(int64_t iEnd);

    int64_t GetPeriod() const { return m_iPeriod; }
    /* The second of the newest field. */
    int64_t GetSecond() const { return m_iSecond; }
    int64_t GetPhase(int64_t iNumber, uint64_t uiTick) const
    {
        return static_cast<int64_t>(uiTick - GetGridTick(iNumber));
    }
    /* What a field's tick is before its phase. */
    uint64_t GetGridTick(int64_t iNumber) const
    {
        return m_uiTick + static_cast<uint64_t>(iNumber) * static_cast<uint64_t>(m_iPeriod);
    }
    /* The block, or null when it is empty or no longer there. */
    const SFitSums* FindBlock(EBlockLength eLength, int64_t iBlock) const;

private:
    struct SBlock
    {
        int64_t iBlock = -1;
        SFitSums oSums;
    };
    // The newest ring entry of tens and hundreds is the one begun.
    using Ring = std::array<SBlock, uiBlocksPerWindow + 2>;

    void OpenSecond(int64_t iNumber, uint64_t uiTick);
    void CloseSecond();

    uint32_t m_uiTickFrequencyHz;
    bool m_bIsRunning = false;
    uint64_t m_uiTick = 0;
    int64_t m_iPeriod = 1;
    int64_t m_iSecond = -1; // that is open
    uint64_t m_uiEndOfSecond = 0;
    COpenSecond m_oOpen;
    std::array<Ring, 3> m_aoRings = {}; // by EBlockLength
};

#endif
