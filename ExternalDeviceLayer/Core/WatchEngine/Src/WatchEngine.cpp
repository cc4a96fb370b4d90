// See WatchEngine.h.
#include "WatchEngine.h"

#include <array>
#include <cmath>

#include "DirectionWatch.h"
#include "TaiGrid.h"
#include "TimeUnits.h"

namespace
{

// How long after its start a field may be handed in and still be in time for the analysis of its second.
constexpr uint64_t uiSettleNs = 50'000'000;
constexpr uint64_t uiStallMemoryNs = 2'000'000'000;

} // namespace

struct SWatchEngine
{
    SWatchEngine(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
        : oSettings(roSettings),
          oContext(roSettings, uiNbOfInputs, uiNbOfOutputs),
          aoDirections{CDirectionWatch(oContext, oSettings, EStreamDirection::INPUT, uiNbOfInputs),
                       CDirectionWatch(oContext, oSettings, EStreamDirection::OUTPUT, uiNbOfOutputs)}
    {
    }
    SWatchEngine(const SWatchEngine&) = delete;
    SWatchEngine& operator=(const SWatchEngine&) = delete;

    SWatchSettings oSettings;
    SWatchContext oContext;
    std::array<CDirectionWatch, 2> aoDirections; // by EStreamDirection
    SInstant oInstant;
    uint64_t uiSnapshots = 0;
};

namespace
{

CStreamWatch& GetStream(SWatchEngine& roEngine, const SStreamKey& roKey)
{
    return roEngine.aoDirections[static_cast<size_t>(roKey.eDirection)].GetStream(roKey.uiIndex);
}

// The newest whole second that all fields must have been handed in for. True when it is another one than before.
bool UpdateInstant(SWatchEngine& roEngine, const SClockReading& roClock)
{
    const CTickClock& roTicks = roEngine.oContext.oClock;
    if (!roTicks.IsKnown())
    {
        return false;
    }
    const auto iTick = static_cast<int64_t>(roTicks.ToTick(roClock.uiMonotonicNs - uiSettleNs));
    const int64_t iSecond = iTick > 0 ? iTick / roEngine.oSettings.uiTickFrequencyHz : 0;
    if (iTick <= 0 || (roEngine.oInstant.bIsKnown && iSecond == roEngine.oInstant.iSecond))
    {
        return false;
    }
    SInstant& roInstant = roEngine.oInstant;
    roInstant.bIsKnown = true;
    roInstant.iSecond = iSecond;
    roInstant.uiTick = static_cast<uint64_t>(iSecond) * roEngine.oSettings.uiTickFrequencyHz;
    for (size_t uiLength = 0; uiLength < roInstant.aoTimes.size(); ++uiLength)
    {
        roInstant.aoTimes[uiLength] = RateHistory_GetTimes(static_cast<EBlockLength>(uiLength), iSecond);
    }
    return true;
}

void FillClock(const SWatchEngine& roEngine, const SClockReading& roClock, SClockFigures& roFigures)
{
    const CTickClock& roTicks = roEngine.oContext.oClock;
    roFigures.uiMonotonicNs = roClock.uiMonotonicNs;
    roFigures.uiTick = 0;
    if (roEngine.oInstant.bIsKnown)
    {
        roFigures.uiTick = roEngine.oInstant.uiTick;
        roFigures.uiMonotonicNs = roTicks.ToMonotonicNs(roFigures.uiTick);
    }
    roFigures.iUtcNs = roClock.iUtcNs + static_cast<int64_t>(roFigures.uiMonotonicNs - roClock.uiMonotonicNs);
    roFigures.flTickUncertaintySeconds = roTicks.GetUncertaintySeconds();
    roFigures.bTicksAreMonotonic = roEngine.oSettings.bTicksAreMonotonic;
    roFigures.iTaiOffsetSeconds = roClock.iTaiOffsetSeconds;
    roFigures.bIsSynchronised = roClock.bIsSynchronised;
    roFigures.flEstimatedErrorSeconds = roClock.flEstimatedErrorSeconds;
}

// The phase of every stream against the grid of the world.
void FillTaiPhases(const SWatchEngine& roEngine, const SClockReading& roClock, SDirectionFigures& roFigures)
{
    const CTickClock& roTicks = roEngine.oContext.oClock;
    const double flNowAfterInstant = -roTicks.GetNsAfter(roEngine.oInstant.uiTick, roClock.uiMonotonicNs);
    const int64_t iTaiNs = roClock.iUtcNs + roClock.iTaiOffsetSeconds * iNsPerSecond;
    const double flUncertainty =
        roTicks.GetUncertaintySeconds() + roClock.flEstimatedErrorSeconds + roClock.flReadingErrorSeconds;
    for (SStreamFigures& roStream : roFigures.aoStreams)
    {
        roStream.oTaiPhaseSeconds = {};
        roStream.flTaiUncertaintySeconds = flUncertainty;
        const SNominalRate oRate{roStream.uiNominalNumerator, roStream.uiNominalDenominator};
        // Without the offset between TAI and UTC only those rates have a phase for which whole seconds do not matter.
        if (!roStream.oGridSeconds.bIsValid || !oRate.IsKnown() ||
            (roClock.iTaiOffsetSeconds == 0 && !TaiGrid_IsWholePerSecond(oRate)))
        {
            continue;
        }
        const double flAfterNs = roStream.oGridSeconds.flValue * 1e9 - flNowAfterInstant;
        roStream.oTaiPhaseSeconds = {TaiGrid_GetPhase(iTaiNs, flAfterNs, oRate), roStream.oGridSeconds.flStdErr, true};
    }
}

} // namespace

void WatchEngine_Destroy(SWatchEngine* poEngine)
{
    delete poEngine;
}

WatchEnginePtr WatchEngine_Create(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
{
    if (roSettings.uiTickFrequencyHz == 0 || uiNbOfInputs > uiMaxStreamsPerDirection ||
        uiNbOfOutputs > uiMaxStreamsPerDirection)
    {
        return nullptr;
    }
    return WatchEnginePtr(new SWatchEngine(roSettings, uiNbOfInputs, uiNbOfOutputs));
}

void WatchEngine_TakeRecord(SWatchEngine& roEngine, const SStreamKey& roKey, const SFieldRecord& roRecord)
{
    GetStream(roEngine, roKey).TakeRecord(roRecord);
}

void WatchEngine_TakeDescription(SWatchEngine& roEngine, const SStreamKey& roKey,
                                 const SStreamDescription& roDescription)
{
    GetStream(roEngine, roKey).TakeDescription(roDescription);
}

void WatchEngine_Analyse(SWatchEngine& roEngine, const SClockReading& roClock, SWatchSnapshot& roSnapshot)
{
    roEngine.oContext.oClock.Update();
    const bool bIsNew = UpdateInstant(roEngine, roClock);
    for (CDirectionWatch& roDirection : roEngine.aoDirections)
    {
        roDirection.Analyse(roClock, roEngine.oInstant, bIsNew);
    }
    roEngine.oContext.oStalls.DropBefore(roClock.uiMonotonicNs - uiStallMemoryNs);
    roEngine.oContext.oEvents.Flush(roClock, roEngine.oContext.oClock);

    roSnapshot.uiNumber = ++roEngine.uiSnapshots;
    roSnapshot.uiTickFrequencyHz = roEngine.oSettings.uiTickFrequencyHz;
    roSnapshot.oThreshold = roEngine.oSettings.oThreshold;
    roSnapshot.uiEventsDropped = roEngine.oContext.oEvents.GetDropped();
    FillClock(roEngine, roClock, roSnapshot.oClock);
    for (size_t uiDirection = 0; uiDirection < roEngine.aoDirections.size(); ++uiDirection)
    {
        SDirectionFigures& roFigures = roSnapshot.aoDirections[uiDirection];
        roEngine.aoDirections[uiDirection].Fill(roClock, roFigures);
        FillTaiPhases(roEngine, roClock, roFigures);
    }
}

void WatchEngine_TakeStall(SWatchEngine& roEngine, uint64_t uiBeginNs, uint64_t uiEndNs)
{
    roEngine.oContext.oStalls.Add(uiBeginNs, uiEndNs);
}

void WatchEngine_EndEpisodes(SWatchEngine& roEngine)
{
    roEngine.oContext.oEvents.EndAll();
}

std::span<const SWatchEvent> WatchEngine_TakeEvents(SWatchEngine& roEngine)
{
    return roEngine.oContext.oEvents.Take();
}
