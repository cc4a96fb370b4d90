/*
 * The inputs against the outputs of a chip: both stamp with one counter, so that such a pair is compared as one of a
 * direction is. What they are in lock with across directions, when they slip, and how long pictures take from an input
 * to an output that is fed from it.
 */
#ifndef ACROSS_PAIRS_H
#define ACROSS_PAIRS_H

#include <array>
#include <span>
#include <vector>

#include "DirectionWatch.h"
#include "PairSlip.h"

class CAcrossPairs
{
public:
    CAcrossPairs(SWatchContext& roContext, const SWatchSettings& roSettings,
                 std::array<CDirectionWatch, 2>& raoDirections);

    /* Compares everybody anew, after the directions have been analysed. */
    void Update();
    /* Finds groups, slips and delays, after the directions have concluded. */
    void Conclude(const SInstant& roInstant, const SClockReading& roClock);
    /* What a direction concludes with, whose reference may be of the other one; valid until the next call. */
    SAgainst GetAgainst(const std::optional<SStreamKey>& roReference, EStreamDirection eDirection);

    void MakeRoom(SWatchSnapshot& roSnapshot) const;
    void Fill(const SClockReading& roClock, SWatchSnapshot& roSnapshot) const;

private:
    struct SPath
    {
        SPathFigures oFigures;
        CPairSlip oStep;
    };

    SAcrossFigures& GetPair(uint32_t uiInput, uint32_t uiOutput) { return m_aoPairs[uiInput * m_uiOutputs + uiOutput]; }
    CStreamWatch& GetStream(const SStreamKey& roKey);
    SPairContext MakeContext(const SAcrossFigures& roPair);
    SSlipScale MakeScale(const SAcrossFigures& roPair, double flElapsed);
    bool IsTold(const SAcrossFigures& roPair) const;
    bool IsPath(const SAcrossFigures& roPair) const;
    void UpdateGroups(const SClockReading& roClock);
    void UpdateSlips(double flElapsed, const SInstant& roInstant, const SClockReading& roClock);
    void UpdatePaths(double flElapsed, const SClockReading& roClock);

    SWatchContext& m_roContext;
    const SWatchSettings& m_roSettings;
    std::array<CDirectionWatch, 2>& m_raoDirections;
    uint32_t m_uiInputs;
    uint32_t m_uiOutputs;
    std::vector<SAcrossFigures> m_aoPairs; // ordered by input, then output
    std::vector<CPairSlip> m_aoSlips;      // by pair
    std::vector<SPath> m_aoPaths;
    CLockGroups m_oGroups;
    std::array<const SPairFigures*, uiMaxStreamsPerDirection> m_apoAgainst = {};
    int64_t m_iLastSecond = 0;
};

#endif
