/*
 * Follows the grid on which a stream's fields start, field by field: predicts the next start, tells fields that are
 * early or late from a grid that has moved, and finds the grid again when the rate has jumped. Ticks.
 *
 * The prediction is a growing-memory least-squares line whose memory stops growing after 32 fields, in its recursive
 * form (E. Brookner, "Tracking and Kalman Filtering Made Easy", 1998, chapters 1.2.6 and 1.2.10). Deviations from it
 * have a running mean square. A field is off the grid when it deviates by more than 8 times its root, though at least
 * 2 ticks and 1 us and at most an eighth of the period; after a gap 2 ppm of its length are added. Four fields off the
 * grid in a row decide: all off by the same: the grid has moved; on a line of their own: the rate has jumped;
 * otherwise the jitter has grown, or there is no grid and the search begins anew.
 */
#ifndef GRID_TRACKER_H
#define GRID_TRACKER_H

#include <array>
#include <cstdint>

enum class EGridVerdict : uint8_t
{
    SEARCHING, // the grid is not known yet
    FOUND,     // from this field on it is; fields are numbered from 0 here
    ON_GRID,
    HELD,  // off the grid: what it is will be known at the latest four fields later
    MOVED, // the grid has moved or its rate has jumped: the search has begun anew
};

struct SGridResult
{
    EGridVerdict eVerdict = EGridVerdict::SEARCHING;
    int64_t iNumber = 0;          // of the field on the grid
    uint32_t uiEarly = 0;         // fields that turned out to be early
    uint32_t uiLate = 0;          // and late
    double flEarliestTicks = 0.0; // their largest deviations
    double flLatestTicks = 0.0;
    uint64_t uiOffGridTick = 0; // the first of them
    bool bHasDeviation = false; // of the field itself, ticks
    double flDeviationTicks = 0.0;
    uint32_t uiReleased = 0;  // held fields before it whose deviation is known now: CGridTracker::GetReleased
    double flStepTicks = 0.0; // by how much the grid has moved; 0: it has not, or nobody can tell
    uint64_t uiStepTick = 0;  // the first field there
};

class CGridTracker
{
public:
    explicit CGridTracker(uint32_t uiTickFrequencyHz);

    /* Begins the search anew. */
    void Restart();
    /* Takes in a field that comes iFields fields (at least 1) after the one before. */
    SGridResult Take(int64_t iFields, uint64_t uiTick);

    /* One of the fields that the last call released, before the next one. */
    double GetReleased(uint32_t uiField) const { return m_aoHeld[uiField].flDeviation; }
    uint64_t GetReleasedTick(uint32_t uiField) const { return m_aoHeld[uiField].uiTick; }

    bool IsKnown() const { return m_uiMemory >= msc_uiSearchFields; }
    /* The period in ticks; 0 until two fields have come. */
    double GetPeriod() const { return m_uiMemory >= 2 ? m_flPeriod : 0.0; }

private:
    static constexpr uint32_t msc_uiSearchFields = 8;
    static constexpr uint32_t msc_uiHeldFields = 4;

    struct SHeldField
    {
        int64_t iNumber;
        uint64_t uiTick;
        double flDeviation;
    };

    double GetTolerance(int64_t iFields) const;
    void Search(int64_t iFields, uint64_t uiTick, SGridResult& roResult);
    void Follow(int64_t iFields, uint64_t uiTick, double flDeviation);
    void Correct(int64_t iFields, double flDeviation);
    void ReleaseHeld(SGridResult& roResult);
    bool TakeOnGrid(int64_t iSince, uint64_t uiTick, double flDeviation, SGridResult& roResult);
    void JudgeHeld(SGridResult& roResult);
    bool TakeNewLine(double flLeast, double flMost, SGridResult& roResult);
    void BeginAgain(SGridResult& roResult);

    double m_flFloor; // least tolerance
    uint32_t m_uiMemory = 0;
    uint64_t m_uiLastTick = 0; // of the last field on the grid
    int64_t m_iNumber = 0;     // its number
    double m_flAhead = 0.0;    // where the line is at that field, beyond its tick
    double m_flPeriod = 0.0;
    double m_flMeanSquare = 0.0;
    uint32_t m_uiHeld = 0;
    int64_t m_iHeldFields = 0; // since the last field on the grid
    std::array<SHeldField, msc_uiHeldFields> m_aoHeld = {};
};

#endif
