#include "ChipPairs.h"

#include <algorithm>
#include <cmath>

#include "PairLock.h"
#include "TimeUnits.h"

namespace
{

constexpr double flSigmas = 3.0; // that a bound stands for, and that a figure may be off

// A stream as others see it, in seconds of a clock that both have.
struct SPlace
{
    const SStreamFigures* poStream = nullptr;
    const SChipFigures* poChip = nullptr;
};

// The clock that a pair is compared by: how a chip stands to it.
struct STie
{
    int64_t iInstantNs = 0;
    double flRate = 1.0;        // its seconds per second of the chip
    double flUncertainty = 0.0; // of the instant, seconds
    double flRateUncertainty = 0.0;
};

// A grid by that clock.
struct SGrid
{
    double flAfter = 0.0; // field start, seconds after the first one's instant
    double flErr = 0.0;
    double flPeriod = 0.0;
    double flPeriodErr = 0.0; // as a ratio
};

STie GetTie(const SChipFigures& roChip, bool bIsShared)
{
    const SClockFigures& roClock = roChip.oClock;
    if (!bIsShared)
    {
        return {static_cast<int64_t>(roClock.uiMonotonicNs), roClock.flSecondsPerSecond, roClock.flMomentUncertainty,
                roClock.flRateUncertainty};
    }
    const uint64_t uiFrequency = roChip.uiTickFrequencyHz;
    const uint64_t uiRestNs = roClock.uiTick % uiFrequency * static_cast<uint64_t>(iNsPerSecond) / uiFrequency;
    const uint64_t uiNs = roClock.uiTick / uiFrequency * static_cast<uint64_t>(iNsPerSecond) + uiRestNs;
    return {static_cast<int64_t>(uiNs) + roChip.iSharedOffsetNs, 1.0, 0.0, 0.0};
}

bool IsKnown(const SPlace& roPlace)
{
    const SStreamFigures& roStream = *roPlace.poStream;
    return roStream.eState == EStreamState::RUNNING && roStream.oGridSeconds.bIsValid && roStream.flPeriodSeconds > 0.0;
}

SGrid GetGrid(const SPlace& roPlace, const STie& roTie, int64_t iOriginNs)
{
    const SStreamFigures& roStream = *roPlace.poStream;
    SGrid oGrid;
    oGrid.flAfter = static_cast<double>(roTie.iInstantNs - iOriginNs) * flSecondsPerNs +
                    roStream.oGridSeconds.flValue * roTie.flRate;
    oGrid.flErr = roStream.oGridSeconds.flStdErr;
    oGrid.flPeriod = roStream.flPeriodSeconds * roTie.flRate;
    const SEstimate& roRate = roStream.aoRateHz[static_cast<size_t>(ERateWindow::SECONDS_10)];
    const bool bIsKnown = roRate.bIsValid && roRate.flValue > 0.0;
    oGrid.flPeriodErr = bIsKnown ? roRate.flStdErr / roRate.flValue : oGrid.flErr;
    return oGrid;
}

SNominalRate GetNominal(const SStreamFigures& roStream)
{
    return {roStream.uiNominalNumerator, roStream.uiNominalDenominator};
}

// What is neither surely within nor surely beyond is not known.
ELockState Judge(const SPairFigures& roPair, double flUncertainty, double flThreshold)
{
    const double flUnsure = flUncertainty + flSigmas * roPair.oOffsetSeconds.flStdErr;
    const double flOffset = std::abs(roPair.oOffsetSeconds.flValue);
    if (flOffset - flUnsure > PairLock_GetLimit(roPair, flThreshold))
    {
        return ELockState::FREE;
    }
    if (flOffset + flUnsure > flThreshold)
    {
        return ELockState::IDLE;
    }
    return PairLock_Drifts(roPair) ? ELockState::PASSING : ELockState::LOCKED;
}

void Compare(const SPlace& roFirst, const SPlace& roSecond, const SLockThreshold& roThreshold,
             SChipPairFigures& roChips)
{
    const bool bIsShared =
        roFirst.poChip->uiSharedClock != 0 && roFirst.poChip->uiSharedClock == roSecond.poChip->uiSharedClock;
    const STie oTieFirst = GetTie(*roFirst.poChip, bIsShared);
    const STie oTieSecond = GetTie(*roSecond.poChip, bIsShared);
    const SGrid oFirst = GetGrid(roFirst, oTieFirst, oTieFirst.iInstantNs);
    const SGrid oSecond = GetGrid(roSecond, oTieSecond, oTieFirst.iInstantNs);
    const bool bFirstIsSlow = oFirst.flPeriod >= oSecond.flPeriod;
    const double flRatio = bFirstIsSlow ? oFirst.flPeriod / oSecond.flPeriod : oSecond.flPeriod / oFirst.flPeriod;
    SPairFigures& roPair = roChips.oPair;
    const SNominalRate oNominalFirst = GetNominal(*roFirst.poStream);
    const SNominalRate oNominalSecond = GetNominal(*roSecond.poStream);
    if (!PairLock_AreComparable(bFirstIsSlow ? oNominalFirst : oNominalSecond,
                                bFirstIsSlow ? oNominalSecond : oNominalFirst, flRatio))
    {
        roPair.eLock = ELockState::DIFFERENT;
        return;
    }
    // The second's field start that is nearest to the first one's, and from there the nearest of the faster one.
    const double flFields = std::round((oSecond.flAfter - oFirst.flAfter) / oSecond.flPeriod);
    const double flMoved = std::abs(flFields) * oSecond.flPeriod;
    const double flApart = oSecond.flAfter - flFields * oSecond.flPeriod - oFirst.flAfter;
    const double flShort = std::min(oFirst.flPeriod, oSecond.flPeriod);
    const double flErr = std::hypot(oFirst.flErr, oSecond.flErr, flMoved * oSecond.flPeriodErr);
    roPair.oOffsetSeconds = {std::remainder(flApart, flShort), flErr, true};
    roChips.flUncertaintySeconds =
        oTieFirst.flUncertainty + oTieSecond.flUncertainty + flMoved * oTieSecond.flRateUncertainty;
    const double flMultiple = PairLock_GetMultiple(flRatio);
    const double flDrift = bFirstIsSlow ? flMultiple * oSecond.flPeriod / oFirst.flPeriod - 1.0
                                        : 1.0 - flMultiple * oFirst.flPeriod / oSecond.flPeriod;
    const double flRateBound = oTieFirst.flRateUncertainty + oTieSecond.flRateUncertainty;
    roPair.oDriftRatio = {flDrift, std::hypot(oFirst.flPeriodErr, oSecond.flPeriodErr, flRateBound / flSigmas), true};
    const double flLine = roPair.flLineSeconds;
    roPair.flOffsetLines = flLine > 0.0 ? roPair.oOffsetSeconds.flValue / flLine : 0.0;
    roPair.eLock = Judge(roPair, roChips.flUncertaintySeconds, PairLock_GetThreshold(roThreshold, flLine));
    // A bound counts as so many standard errors.
    roPair.oSecondsToSlip =
        PairLock_GetSecondsToSlip(roPair, flShort, std::hypot(flErr, roChips.flUncertaintySeconds / flSigmas));
}

void UpdatePair(const SPlace& roFirst, const SPlace& roSecond, const SLockThreshold& roThreshold,
                SChipPairFigures& roChips)
{
    const ELockState eBefore = roChips.oPair.eLock;
    roChips.oPair = {};
    roChips.oPair.uiFirst = roChips.oFirst.uiIndex;
    roChips.oPair.uiSecond = roChips.oSecond.uiIndex;
    roChips.oPair.flLineSeconds = roFirst.poStream->flLineSeconds;
    roChips.flUncertaintySeconds = 0.0;
    if (IsKnown(roFirst) && IsKnown(roSecond))
    {
        roChips.oPair.eLock = eBefore;
        Compare(roFirst, roSecond, roThreshold, roChips);
    }
}

std::vector<SPlace> GetPlaces(const SWatchSnapshot& roSnapshot, EStreamDirection eDirection)
{
    std::vector<SPlace> aoPlaces;
    for (auto uiSlot = static_cast<size_t>(eDirection); uiSlot < roSnapshot.aoDirections.size(); uiSlot += 2)
    {
        const SChipFigures* poChip = roSnapshot.FindChip(StreamKey_FromSlot(uiSlot, 0).uiChip);
        for (const SStreamFigures& roStream : roSnapshot.aoDirections[uiSlot].aoStreams)
        {
            aoPlaces.push_back({&roStream, poChip});
        }
    }
    std::erase_if(aoPlaces, [](const SPlace& roPlace)
                  { return roPlace.poChip == nullptr || roPlace.poChip->uiTickFrequencyHz == 0; });
    return aoPlaces;
}

} // namespace

void CChipPairs::Update(SWatchSnapshot& roSnapshot)
{
    size_t uiPair = 0;
    for (const EStreamDirection eDirection : aeDirections)
    {
        const std::vector<SPlace> aoPlaces = GetPlaces(roSnapshot, eDirection);
        for (size_t uiFirst = 0; uiFirst < aoPlaces.size(); ++uiFirst)
        {
            for (size_t uiSecond = uiFirst + 1; uiSecond < aoPlaces.size(); ++uiSecond)
            {
                const SStreamKey& roFirst = aoPlaces[uiFirst].poStream->oKey;
                const SStreamKey& roSecond = aoPlaces[uiSecond].poStream->oKey;
                if (roFirst.uiChip == roSecond.uiChip)
                {
                    continue;
                }
                m_aoPairs.resize(std::max(m_aoPairs.size(), uiPair + 1));
                SChipPairFigures& roPair = m_aoPairs[uiPair++];
                if (roPair.oFirst != roFirst || roPair.oSecond != roSecond)
                {
                    roPair = {roFirst, roSecond, {}, 0.0}; // a chip has come in between
                }
                UpdatePair(aoPlaces[uiFirst], aoPlaces[uiSecond], roSnapshot.oThreshold, roPair);
            }
        }
    }
    m_aoPairs.resize(uiPair);
    roSnapshot.aoChipPairs = m_aoPairs;
}
