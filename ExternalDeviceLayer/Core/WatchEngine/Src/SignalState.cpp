#include "SignalState.h"

#include <algorithm>

#include "TimeUnits.h"

namespace
{

constexpr double flSilentNs = flNsPerSecond;
constexpr double flSilentPeriods = 4.0;
constexpr double flLeastTimeOutNs = 1e6;
constexpr double flTimeOutFactor = 1.5;

double GetSeconds(uint64_t uiFromNs, uint64_t uiToNs)
{
    return std::max(0.0, static_cast<double>(static_cast<int64_t>(uiToNs - uiFromNs)) * flSecondsPerNs);
}

} // namespace

void CSignalState::AddEvent(EWatchEventKind eKind, uint64_t uiTick, uint64_t uiMonotonicNs, double flSeconds)
{
    SWatchEvent oEvent = m_roOutput.MakeEvent(eKind, uiTick);
    oEvent.flSeconds = flSeconds;
    m_roOutput.AddEvent(oEvent, uiMonotonicNs);
}

void CSignalState::SetState(EStreamState eState, uint64_t uiTick, uint64_t uiMonotonicNs)
{
    const EStreamState eBefore = m_roFigures.eState;
    if (eState == eBefore)
    {
        return;
    }
    if (eBefore == EStreamState::RUNNING)
    {
        m_flRunningSeconds += GetSeconds(m_uiSinceNs, uiMonotonicNs);
    }
    m_roFigures.eState = eState;
    m_uiSinceTick = uiTick;
    m_uiSinceNs = uiMonotonicNs;
    SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::STATE_CHANGED, uiTick);
    oEvent.uiBefore = static_cast<uint64_t>(eBefore);
    oEvent.uiAfter = static_cast<uint64_t>(eState);
    m_roOutput.AddEvent(oEvent, uiMonotonicNs);
}

bool CSignalState::IsMeantToRun() const
{
    const SStreamDescription& roDescription = m_roFigures.oDescription;
    if (m_roOutput.IsOutput())
    {
        // All zero: nobody has described it yet.
        return roDescription.uiMomentNs == 0 || roDescription.ePowerState == VtVideoOut_PowerState_ON ||
               roDescription.ePowerState == VtVideoOut_PowerState_BLANKED;
    }
    return m_bIsCanceled || (roDescription.eCaptureState != VtVideoIn_State_STOPPED &&
                             roDescription.eCaptureState != VtVideoIn_State_NOT_INITIALIZED);
}

void CSignalState::Begin(uint64_t uiMonotonicNs)
{
    if (m_uiBeganNs == 0)
    {
        m_uiBeganNs = uiMonotonicNs;
        m_uiSinceNs = uiMonotonicNs;
        AddEvent(EWatchEventKind::WATCH_BEGAN, 0, uiMonotonicNs);
    }
}

void CSignalState::BeginAway(bool bIsCanceled)
{
    m_bIsCanceled = bIsCanceled;
    if ((!m_bHasField && !m_bIsBackWithout) || m_bIsAway)
    {
        return;
    }
    m_bIsAway = true;
    m_bIsUndecided = true;
}

void CSignalState::DeclareLoss()
{
    m_bIsUndecided = false;
    ++m_roFigures.oCounters.uiSignalLosses;
    AddEvent(EWatchEventKind::SIGNAL_LOST, m_uiLastTick, m_uiLastNs);
    SetState(EStreamState::LOST, m_uiLastTick, m_uiLastNs);
}

void CSignalState::EndAway(const SFieldRecord& roRecord, double flPeriod)
{
    if (m_bIsUndecided)
    {
        DeclareLoss();
    }
    m_bIsAway = false;
    if (m_roFigures.eState != EStreamState::LOST)
    {
        return;
    }
    const bool bByTick = m_uiLastTick != 0;
    const auto flTicks = static_cast<double>(static_cast<int64_t>(roRecord.uiTick - m_uiLastTick));
    const double flSeconds = bByTick ? std::max(0.0, flTicks - flPeriod) * m_roOutput.GetSecondsPerTick()
                                     : GetSeconds(m_uiLastNs, roRecord.uiArrivalNs);
    m_flLostSeconds += std::min(flSeconds, GetSeconds(m_uiBeganNs, roRecord.uiArrivalNs));
    AddEvent(EWatchEventKind::SIGNAL_BACK, roRecord.uiTick, roRecord.uiArrivalNs, flSeconds);
}

bool CSignalState::TakeField(const SFieldRecord& roRecord, double flPeriod)
{
    Begin(roRecord.uiWaitBeginNs);
    if (!m_bHasField && m_uiBeganNs == roRecord.uiWaitBeginNs)
    {
        // The signal was there when the watch began, for its first wait already ended with a field.
        m_flRunningSeconds = GetSeconds(m_uiBeganNs, roRecord.uiArrivalNs);
    }
    const bool bIsFirst = !m_bHasField || m_bIsAway || m_roFigures.eState == EStreamState::GONE;
    if (m_bIsAway)
    {
        EndAway(roRecord, flPeriod);
    }
    m_bHasField = true;
    m_bIsBackWithout = false;
    m_oEarlier = {};
    m_uiLastTick = roRecord.uiTick;
    m_uiLastNs = roRecord.uiArrivalNs;
    m_flWaitedNs = 0.0;
    SetState(EStreamState::RUNNING, roRecord.uiTick, roRecord.uiArrivalNs);
    return bIsFirst;
}

// Time that was waited in vain. A wait that took much longer than others that timed out was not all waiting: the
// machine stood still.
void CSignalState::AddSilence(const SFieldRecord& roRecord)
{
    const auto flNs = static_cast<double>(static_cast<int64_t>(roRecord.uiArrivalNs - roRecord.uiWaitBeginNs));
    m_flTimeOutNs = std::clamp(flNs, flLeastTimeOutNs, m_flTimeOutNs);
    m_flWaitedNs += std::min(flNs, flTimeOutFactor * m_flTimeOutNs);
}

// The device is back, the signal is not: not yet, or it is lost from here on.
void CSignalState::ComeBack(const SFieldRecord& roRecord)
{
    m_bIsBackWithout = m_bHasField || m_bIsBackWithout;
    m_bHasField = false;
    m_bIsAway = false;
    m_uiLastTick = 0;
    m_uiLastNs = roRecord.uiArrivalNs;
    m_flWaitedNs = 0.0;
    SetState(EStreamState::IDLE, 0, roRecord.uiArrivalNs);
}

void CSignalState::TakeOther(const SFieldRecord& roRecord, double flPeriod)
{
    Begin(roRecord.uiWaitBeginNs);
    if (roRecord.eResult == EWaitResult::GONE)
    {
        m_bIsUndecided = false;
        SetState(EStreamState::GONE, 0, roRecord.uiArrivalNs);
        return;
    }
    if (m_roFigures.eState == EStreamState::GONE)
    {
        ComeBack(roRecord);
    }
    if (roRecord.eResult == EWaitResult::CANCELED)
    {
        BeginAway(true);
    }
    else
    {
        const double flPeriodNs = flPeriod * m_roOutput.GetContext().oClock.GetNsPerTick();
        AddSilence(roRecord);
        const bool bIsSilent = m_flWaitedNs >= std::max(flSilentNs, flSilentPeriods * flPeriodNs);
        if (bIsSilent && (m_roFigures.eState == EStreamState::RUNNING || m_bIsBackWithout))
        {
            BeginAway(false);
        }
    }
}

// An earlier run knew this stream: it is lost since that one saw it, and it only counts as a loss of this run when
// nobody has told of it yet.
void CSignalState::InheritLoss(const SClockReading& roClock)
{
    const bool bIsNoSignal = m_bIsCanceled || m_flWaitedNs >= flSilentNs;
    if (m_oEarlier.eState == EEarlierState::UNKNOWN || m_bHasField || !bIsNoSignal || !IsMeantToRun() ||
        m_roFigures.eState != EStreamState::IDLE)
    {
        return;
    }
    m_uiLastTick = 0;
    m_uiLastNs = roClock.GetMonotonicNs(m_oEarlier.iUtcNs);
    m_bIsAway = true;
    if (m_oEarlier.eState == EEarlierState::RUNNING)
    {
        DeclareLoss();
    }
    SetState(EStreamState::LOST, 0, m_uiLastNs);
    m_oEarlier = {};
}

void CSignalState::Analyse(const SClockReading& roClock)
{
    Begin(roClock.uiMonotonicNs);
    InheritLoss(roClock);
    if (m_bIsUndecided && IsMeantToRun())
    {
        DeclareLoss();
    }
    else if (m_bIsUndecided || (m_roFigures.eState == EStreamState::LOST && !IsMeantToRun()))
    {
        m_bIsUndecided = false;
        SetState(EStreamState::IDLE, m_uiLastTick, m_uiLastNs);
    }
    const EStreamState eState = m_roFigures.eState;
    const double flSince = GetSeconds(m_uiSinceNs, roClock.uiMonotonicNs);
    // A loss may be older than the watch; what is counted is what was watched.
    const double flLost = std::min(flSince, GetSeconds(m_uiBeganNs, roClock.uiMonotonicNs));
    SStreamCounters& roCounters = m_roFigures.oCounters;
    // What is still going on is an estimate; a figure that has been shown does not shrink again.
    roCounters.flRunningSeconds =
        std::max(roCounters.flRunningSeconds, m_flRunningSeconds + (eState == EStreamState::RUNNING ? flSince : 0.0));
    roCounters.flSignalLostSeconds =
        std::max(roCounters.flSignalLostSeconds, m_flLostSeconds + (eState == EStreamState::LOST ? flLost : 0.0));
    roCounters.flWatchedSeconds = GetSeconds(m_uiBeganNs, roClock.uiMonotonicNs);
    const bool bByTick = m_uiSinceTick != 0 && m_roOutput.GetContext().oClock.IsKnown();
    const uint64_t uiSinceNs = bByTick ? m_roOutput.GetContext().oClock.ToMonotonicNs(m_uiSinceTick) : m_uiSinceNs;
    m_roFigures.iStateSinceUtcNs = roClock.GetUtcNs(uiSinceNs);
}
