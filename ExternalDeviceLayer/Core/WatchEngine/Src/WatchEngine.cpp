#include "WatchEngine.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "AcrossPairs.h"
#include "TaiGrid.h"
#include "TimeUnits.h"

namespace
{

// How long after an instant it is analysed: fields that started before it have been handed in by then, and so have
// those that tell whether a wait was held up.
constexpr uint64_t uiSettleNs = 120'000'000;
constexpr uint64_t uiSecondNs = iNsPerSecond;
constexpr uint64_t uiStallMemoryNs = 2'000'000'000;
// How long a field takes to reach the watch at the least, as a bound: so many of the caller's own wake-ups, for it goes
// through the board besides; and so much where nobody has measured these.
constexpr double flWakesPerField = 3.0;
constexpr double flUnknownDelaySeconds = 30e-6;
// So many seconds are made up for after a stall; whoever stood still for longer did not watch.
constexpr uint64_t uiMostBehindNs = 60 * uiSecondNs;

// A reference that is not there is none.
SWatchSettings LeaveMissing(SWatchSettings oSettings, const std::array<uint32_t, 2>& rauiCounts)
{
    for (std::optional<SStreamKey>& roReference : oSettings.aoReferences)
    {
        const bool bIsMissing =
            roReference && roReference->uiIndex >= rauiCounts[static_cast<size_t>(roReference->eDirection)];
        roReference = bIsMissing ? std::nullopt : roReference;
    }
    return oSettings;
}

} // namespace

struct SWatchEngineState
{
    SWatchEngineState(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
        : oSettings(LeaveMissing(roSettings, {uiNbOfInputs, uiNbOfOutputs})),
          oContext(roSettings, uiNbOfInputs, uiNbOfOutputs),
          aoDirections{CDirectionWatch(oContext, oSettings, EStreamDirection::INPUT, uiNbOfInputs),
                       CDirectionWatch(oContext, oSettings, EStreamDirection::OUTPUT, uiNbOfOutputs)},
          oAcross(oContext, oSettings, aoDirections)
    {
    }

    SWatchSettings oSettings;
    SWatchContext oContext;
    std::array<CDirectionWatch, 2> aoDirections; // by EStreamDirection
    CAcrossPairs oAcross;
    SInstant oInstant; // the last one
    bool bIsToEnd = false;
    uint64_t uiSnapshots = 0;
};

namespace
{

CStreamWatch& GetStream(SWatchEngineState& roEngine, const SStreamKey& roKey)
{
    return roEngine.aoDirections[static_cast<size_t>(roKey.eDirection)].GetStream(roKey.uiIndex);
}

// The first whole second of the chip's clock that does not begin before a moment of CLOCK_MONOTONIC.
uint64_t FindWholeSecond(const SWatchEngineState& roEngine, uint64_t uiMonotonicNs)
{
    const uint64_t uiFrequency = roEngine.oSettings.uiTickFrequencyHz;
    const uint64_t uiTick = roEngine.oContext.oClock.ToTick(uiMonotonicNs);
    const uint64_t uiRest = uiTick % uiFrequency;
    return uiRest == 0 ? uiTick : uiTick - uiRest + uiFrequency;
}

// Half a second of the chip, though no more than half a one of the machine.
uint64_t GetHalfSecondNs(const SWatchEngineState& roEngine)
{
    const double flNs = roEngine.oContext.oClock.GetNsPerTick() * roEngine.oSettings.uiTickFrequencyHz / 2.0;
    return static_cast<uint64_t>(std::clamp(flNs, 0.0, flNsPerSecond / 2.0));
}

// Puts the next instant a second after the last one: of the chip's clock if that is known, and nearest to it if it has
// begun anew or runs at another speed.
void UpdateBoundary(SWatchEngineState& roEngine, uint64_t uiExpectedNs)
{
    SBoundary& roNext = roEngine.oContext.oNext;
    const CTickClock& roTicks = roEngine.oContext.oClock;
    roNext.uiMonotonicNs = uiExpectedNs;
    roNext.bIsKnown = true;
    if (!roTicks.IsKnown())
    {
        return;
    }
    const uint64_t uiTick = roNext.uiTick;
    const bool bIsNear = roNext.bHasTick && std::abs(roTicks.GetNsAfter(uiTick, uiExpectedNs)) < uiSecondNs / 2.0;
    roNext.uiTick = bIsNear ? uiTick : FindWholeSecond(roEngine, uiExpectedNs - GetHalfSecondNs(roEngine));
    roNext.uiMonotonicNs = roTicks.ToMonotonicNs(roNext.uiTick);
    roNext.bHasTick = true;
}

void UpdateClock(SWatchEngineState& roEngine)
{
    CTickClock& roClock = roEngine.oContext.oClock;
    const uint32_t uiEpoch = roClock.GetEpoch();
    roClock.Update();
    if (roClock.GetEpoch() == uiEpoch)
    {
        return;
    }
    roEngine.oContext.oEvents.ForgetTicks();
    for (CDirectionWatch& roDirection : roEngine.aoDirections)
    {
        roDirection.ForgetTicks();
    }
}

// Begins when the first record or the first analysis comes.
void BeginBoundary(SWatchEngineState& roEngine, uint64_t uiNowNs)
{
    UpdateBoundary(roEngine, uiNowNs + uiSecondNs / 2);
}

void MakeInstant(SWatchEngineState& roEngine, uint64_t uiNowNs)
{
    const SBoundary& roNext = roEngine.oContext.oNext;
    SInstant& roInstant = roEngine.oInstant;
    roInstant.bHasTick = roNext.bHasTick;
    roInstant.uiMonotonicNs = roNext.uiMonotonicNs;
    roInstant.uiTick = roNext.uiTick;
    roInstant.iSecond = static_cast<int64_t>(roNext.uiTick / roEngine.oSettings.uiTickFrequencyHz);
    roInstant.uiNowNs = uiNowNs;
    for (size_t uiLength = 0; uiLength < roInstant.aoTimes.size(); ++uiLength)
    {
        roInstant.aoTimes[uiLength] = RateHistory_GetTimes(static_cast<EBlockLength>(uiLength), roInstant.iSecond);
    }
}

uint64_t GetDueNs(const SWatchEngineState& roEngine)
{
    const SBoundary& roNext = roEngine.oContext.oNext;
    return roNext.bIsKnown ? roNext.uiMonotonicNs + uiSettleNs : 0;
}

bool IsDue(const SWatchEngineState& roEngine, uint64_t uiNowNs)
{
    return static_cast<int64_t>(uiNowNs - GetDueNs(roEngine)) >= 0;
}

// Takes in what was handed in before the next instant.
void ReleaseAll(SWatchEngineState& roEngine)
{
    for (CDirectionWatch& roDirection : roEngine.aoDirections)
    {
        roDirection.Release();
    }
}

// The last moment of all, which is no whole second: whatever was handed in belongs before it.
void EndNow(SWatchEngineState& roEngine, uint64_t uiNowNs)
{
    SBoundary& roNext = roEngine.oContext.oNext;
    roEngine.oContext.oEvents.EndAll();
    roNext.uiMonotonicNs = uiNowNs;
    roNext.uiTick = roNext.bHasTick ? roEngine.oContext.oClock.ToTick(uiNowNs) : 0;
    ReleaseAll(roEngine);
}

// What the clocks said at the instant.
SClockReading MoveTo(const SClockReading& roClock, uint64_t uiMonotonicNs)
{
    SClockReading oMoved = roClock;
    oMoved.iUtcNs = roClock.GetUtcNs(uiMonotonicNs);
    oMoved.uiMonotonicNs = uiMonotonicNs;
    return oMoved;
}

// Goes on to the next second, and takes in what has been handed in for it. After a long stall to the newest one.
void GoOn(SWatchEngineState& roEngine, uint64_t uiNowNs)
{
    SBoundary& roNext = roEngine.oContext.oNext;
    const uint64_t uiNextNs = roNext.uiMonotonicNs + uiSecondNs;
    const bool bIsFarBehind = static_cast<int64_t>(uiNowNs - uiNextNs) > static_cast<int64_t>(uiMostBehindNs);
    roNext.uiTick += roEngine.oSettings.uiTickFrequencyHz;
    UpdateBoundary(roEngine, bIsFarBehind ? uiNowNs : uiNextNs);
    ReleaseAll(roEngine);
}

// The delay that no arrival of the envelope undercuts.
double GetLeastDelay(const SWatchEngineState& roEngine, const SClockReading& roClock)
{
    const double flDelay =
        roClock.flLeastWakeSeconds > 0.0 ? flWakesPerField * roClock.flLeastWakeSeconds : flUnknownDelaySeconds;
    return roEngine.oSettings.bTicksAreMonotonic ? 0.0 : flDelay;
}

// The envelope's own, and that.
double GetTickUncertainty(const SWatchEngineState& roEngine, const SClockReading& roClock)
{
    return roEngine.oContext.oClock.GetUncertaintySeconds() + GetLeastDelay(roEngine, roClock);
}

void FillClock(const SWatchEngineState& roEngine, const SClockReading& roClock, SClockFigures& roFigures)
{
    roFigures.uiMonotonicNs = roClock.uiMonotonicNs;
    roFigures.uiTick = roEngine.oInstant.bHasTick ? roEngine.oInstant.uiTick : 0;
    roFigures.iUtcNs = roClock.iUtcNs;
    const CTickClock& roTicks = roEngine.oContext.oClock;
    roFigures.flTickUncertaintySeconds = GetTickUncertainty(roEngine, roClock);
    roFigures.flMomentUncertainty = roTicks.GetMomentUncertaintySeconds() + GetLeastDelay(roEngine, roClock);
    roFigures.flSecondsPerSecond = roTicks.GetNsPerTick() * roEngine.oSettings.uiTickFrequencyHz * flSecondsPerNs;
    roFigures.flRateUncertainty = roTicks.GetRateUncertainty();
    roFigures.bTicksAreMonotonic = roEngine.oSettings.bTicksAreMonotonic;
    roFigures.iTaiOffsetSeconds = roClock.iTaiOffsetSeconds;
    roFigures.bIsSynchronised = roClock.bIsSynchronised;
    roFigures.flEstimatedErrorSeconds = roClock.flEstimatedErrorSeconds;
}

// The phase of every stream against the grid of the world.
void FillTaiPhases(const SWatchEngineState& roEngine, const SClockReading& roClock, SDirectionFigures& roFigures)
{
    const CTickClock& roTicks = roEngine.oContext.oClock;
    // What rounding to whole nanoseconds has taken off the instant.
    const double flRestNs = roTicks.GetNsAfter(roEngine.oInstant.uiTick, roClock.uiMonotonicNs);
    const double flNsPerSecondOfChip = roTicks.GetNsPerTick() * roEngine.oSettings.uiTickFrequencyHz;
    const auto iTaiNs = static_cast<int64_t>(static_cast<uint64_t>(roClock.iUtcNs) +
                                             static_cast<uint64_t>(roClock.iTaiOffsetSeconds * iNsPerSecond));
    const double flUncertainty =
        GetTickUncertainty(roEngine, roClock) + roClock.flEstimatedErrorSeconds + roClock.flReadingErrorSeconds;
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
        const double flAfterNs = roStream.oGridSeconds.flValue * flNsPerSecondOfChip + flRestNs;
        roStream.oTaiPhaseSeconds = {TaiGrid_GetPhase(iTaiNs, flAfterNs, oRate), roStream.oGridSeconds.flStdErr, true};
    }
}

// A whole second: what streams are to each other.
void Compare(SWatchEngineState& roEngine, const SClockReading& roClock)
{
    roEngine.oAcross.Update();
    for (const EStreamDirection eDirection : aeDirections)
    {
        CDirectionWatch& roDirection = roEngine.aoDirections[static_cast<size_t>(eDirection)];
        roDirection.Conclude(roEngine.oInstant, roClock,
                             roEngine.oAcross.GetAgainst(roDirection.GetReference(), eDirection));
    }
    roEngine.oAcross.Conclude(roEngine.oInstant, roClock);
}

void FillSnapshot(SWatchEngineState& roEngine, const SClockReading& roClock, SWatchSnapshot& roSnapshot)
{
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
    roEngine.oAcross.Fill(roClock, roSnapshot);
}

} // namespace

CWatchEngine::CWatchEngine(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
    : m_poState(std::make_unique<SWatchEngineState>(roSettings, uiNbOfInputs, uiNbOfOutputs))
{
}

CWatchEngine::~CWatchEngine() = default;

void CWatchEngine::TakeRecord(const SStreamKey& roKey, const SFieldRecord& roRecord)
{
    GetStream(*m_poState, roKey).TakeRecord(roRecord);
    if (!m_poState->oContext.oNext.bIsKnown)
    {
        BeginBoundary(*m_poState, roRecord.uiArrivalNs);
    }
}

void CWatchEngine::TellEarlier(const SStreamKey& roKey, const SEarlierRun& roEarlier)
{
    GetStream(*m_poState, roKey).TellEarlier(roEarlier);
}

void CWatchEngine::TakeDescription(const SStreamKey& roKey, const SStreamDescription& roDescription)
{
    GetStream(*m_poState, roKey).TakeDescription(roDescription);
}

uint64_t CWatchEngine::GetDueNs() const
{
    return ::GetDueNs(*m_poState);
}

bool CWatchEngine::Analyse(const SClockReading& roClock, SWatchSnapshot& roSnapshot)
{
    SWatchEngineState& roEngine = *m_poState;
    SWatchContext& roContext = roEngine.oContext;
    if (!roContext.oNext.bIsKnown)
    {
        BeginBoundary(roEngine, roClock.uiMonotonicNs);
    }
    // First, so that want of memory leaves everything as it is, to be analysed later.
    for (size_t uiDirection = 0; uiDirection < roEngine.aoDirections.size(); ++uiDirection)
    {
        roEngine.aoDirections[uiDirection].MakeRoom(roSnapshot.aoDirections[uiDirection]);
    }
    roEngine.oAcross.MakeRoom(roSnapshot);
    if (!roEngine.bIsToEnd && IsDue(roEngine, roClock.uiMonotonicNs))
    {
        UpdateClock(roEngine);
        UpdateBoundary(roEngine, roContext.oNext.uiMonotonicNs);
        // What was held for the second behind the boundary may be of this one now: the first is found with the clock.
        ReleaseAll(roEngine);
    }
    if (roEngine.bIsToEnd)
    {
        EndNow(roEngine, roClock.uiMonotonicNs);
    }
    else if (!IsDue(roEngine, roClock.uiMonotonicNs))
    {
        return false;
    }
    const bool bIsWholeSecond = !roEngine.bIsToEnd && roContext.oNext.bHasTick;
    MakeInstant(roEngine, roClock.uiMonotonicNs);
    const SClockReading oThen = MoveTo(roClock, roEngine.oInstant.uiMonotonicNs);
    for (CDirectionWatch& roDirection : roEngine.aoDirections)
    {
        roDirection.Analyse(roEngine.oInstant, oThen, bIsWholeSecond);
    }
    if (bIsWholeSecond)
    {
        Compare(roEngine, oThen);
    }
    roContext.oStalls.DropBefore(oThen.uiMonotonicNs - uiStallMemoryNs);
    roContext.oEvents.Flush(oThen, roContext.oClock);
    FillSnapshot(roEngine, oThen, roSnapshot);
    GoOn(roEngine, roClock.uiMonotonicNs);
    roEngine.bIsToEnd = false;
    return true;
}

void CWatchEngine::TakeStall(uint64_t uiBeginNs, uint64_t uiEndNs)
{
    SStall oStall;
    oStall.oStretch = {uiBeginNs, uiEndNs};
    oStall.bIsMachine = true;
    m_poState->oContext.oStalls.Add(oStall);
}

void CWatchEngine::End()
{
    m_poState->bIsToEnd = true;
}

std::span<const SWatchEvent> CWatchEngine::GetHappenings() const
{
    return m_poState->oContext.oEvents.GetHappenings();
}

void CWatchEngine::Number(SWatchEvent& roEvent)
{
    m_poState->oContext.oEvents.Number(roEvent);
}

std::span<const SWatchEvent> CWatchEngine::TakeEvents()
{
    return m_poState->oContext.oEvents.Take();
}
