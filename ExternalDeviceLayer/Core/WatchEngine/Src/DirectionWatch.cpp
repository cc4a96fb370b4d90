#include "DirectionWatch.h"

#include <array>
#include <bit>

#include "TimeUnits.h"

namespace
{

constexpr double flNoLine = 1e-6; // seconds: the threshold in lines where these are not known

} // namespace

CDirectionWatch::CDirectionWatch(SWatchContext& roContext, const SWatchSettings& roSettings,
                                 EStreamDirection eDirection, uint32_t uiNbOfStreams)
    : m_roContext(roContext),
      m_roSettings(roSettings),
      m_eDirection(eDirection),
      m_oReference(eDirection == EStreamDirection::INPUT ? roSettings.iReferenceInput : roSettings.iReferenceOutput)
{
    for (uint32_t uiIndex = 0; uiIndex < uiNbOfStreams; ++uiIndex)
    {
        m_apoStreams.push_back(std::make_unique<CStreamWatch>(roContext, SStreamKey{eDirection, uiIndex}));
        for (uint32_t uiSecond = uiIndex + 1; uiSecond < uiNbOfStreams; ++uiSecond)
        {
            SPairFigures& roPair = m_aoPairs.emplace_back();
            roPair.uiFirst = uiIndex;
            roPair.uiSecond = uiSecond;
        }
    }
}

SWatchEvent CDirectionWatch::MakeEvent(EWatchEventKind eKind, uint32_t uiIndex) const
{
    SWatchEvent oEvent = {};
    oEvent.eKind = eKind;
    oEvent.oKey = {m_eDirection, uiIndex};
    return oEvent;
}

void CDirectionWatch::ForgetTicks()
{
    for (const std::unique_ptr<CStreamWatch>& rpoStream : m_apoStreams)
    {
        rpoStream->ForgetTicks();
    }
}

void CDirectionWatch::Release()
{
    for (const std::unique_ptr<CStreamWatch>& rpoStream : m_apoStreams)
    {
        rpoStream->Release();
    }
}

void CDirectionWatch::Analyse(const SInstant& roInstant, const SClockReading& roClock, bool bIsWholeSecond)
{
    for (const std::unique_ptr<CStreamWatch>& rpoStream : m_apoStreams)
    {
        rpoStream->AnalyseFields(roInstant, roClock);
        if (bIsWholeSecond)
        {
            rpoStream->AnalysePhase(roInstant);
        }
    }
    if (bIsWholeSecond)
    {
        UpdatePairs();
        UpdateGroups(roClock);
        UpdateReference(roClock);
    }
}

// One ruler for a comparison, wherever it is told.
double CDirectionWatch::GetLine(const SPairFigures& roPair) const
{
    const bool bSecondIsReference = m_oReference.Get() == static_cast<int32_t>(roPair.uiSecond);
    const uint32_t uiStream = bSecondIsReference ? roPair.uiSecond : roPair.uiFirst;
    return m_apoStreams[uiStream]->GetFigures().flLineSeconds;
}

void CDirectionWatch::UpdatePairs()
{
    for (SPairFigures& roPair : m_aoPairs)
    {
        const CStreamWatch& roFirst = *m_apoStreams[roPair.uiFirst];
        const CStreamWatch& roSecond = *m_apoStreams[roPair.uiSecond];
        const double flLine = GetLine(roPair);
        const double flByLines = m_roSettings.oThreshold.flLines * (flLine > 0.0 ? flLine : flNoLine);
        const SPairContext oContext{m_roSettings.oThreshold.flSeconds > 0.0 ? m_roSettings.oThreshold.flSeconds
                                                                            : flByLines,
                                    static_cast<double>(m_roSettings.uiTickFrequencyHz)};
        PairLock_Update(roFirst.GetPhase(), roSecond.GetPhase(), oContext, roPair);
        roPair.flLineSeconds = flLine;
        roPair.flOffsetLines = flLine > 0.0 ? roPair.oOffsetSeconds.flValue / flLine : 0.0;
    }
}

void CDirectionWatch::UpdateGroups(const SClockReading& roClock)
{
    std::array<uint32_t, uiMaxStreamsPerDirection> auiLocked = {};
    for (const SPairFigures& roPair : m_aoPairs)
    {
        if (roPair.eLock == ELockState::LOCKED)
        {
            auiLocked[roPair.uiFirst] |= 1U << roPair.uiSecond;
            auiLocked[roPair.uiSecond] |= 1U << roPair.uiFirst;
        }
    }
    for (const SGroupChange& roChange :
         m_oGroups.Update(std::span(auiLocked).first(m_apoStreams.size()), roClock.uiMonotonicNs))
    {
        const EWatchEventKind eKind = roChange.eChange == EGroupChange::FORMED    ? EWatchEventKind::GROUP_FORMED
                                      : roChange.eChange == EGroupChange::CHANGED ? EWatchEventKind::GROUP_CHANGED
                                                                                  : EWatchEventKind::GROUP_ENDED;
        SWatchEvent oEvent = MakeEvent(eKind, static_cast<uint32_t>(std::countr_zero(roChange.oGroup.uiMembers)));
        oEvent.uiGroup = roChange.oGroup.uiGroup;
        oEvent.uiMembers = roChange.oGroup.uiMembers;
        if (roChange.eChange == EGroupChange::ENDED)
        {
            oEvent.flSeconds = static_cast<double>(roClock.uiMonotonicNs - roChange.oGroup.uiSinceNs) * flSecondsPerNs;
        }
        m_roContext.oEvents.Add(oEvent, roClock.uiMonotonicNs);
    }
}

void CDirectionWatch::UpdateReference(const SClockReading& roClock)
{
    uint32_t uiRunning = 0;
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        uiRunning |= m_apoStreams[uiStream]->GetPhase().bIsKnown ? 1U << uiStream : 0U;
    }
    uint32_t uiGrouped = 0;
    for (const SGroupLife& roGroup : m_oGroups.Get())
    {
        uiGrouped |= roGroup.uiMembers;
    }
    const int32_t iBefore = m_oReference.Get();
    const bool bChanged =
        m_oReference.Update(uiRunning, uiGrouped, m_oGroups.GetLargest().uiMembers, roClock.uiMonotonicNs) &&
        m_oReference.Get() < static_cast<int32_t>(GetCount());
    if (bChanged && iBefore >= 0)
    {
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::REFERENCE_CHANGED, static_cast<uint32_t>(m_oReference.Get()));
        oEvent.uiBefore = static_cast<uint64_t>(iBefore);
        oEvent.uiAfter = static_cast<uint64_t>(m_oReference.Get());
        m_roContext.oEvents.Add(oEvent, roClock.uiMonotonicNs);
    }
    std::array<ELockState, uiMaxStreamsPerDirection> aeBefore = {};
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        aeBefore[uiStream] = m_apoStreams[uiStream]->GetFigures().eLock;
    }
    FillReferencePhases();
    for (uint32_t uiStream = 0; uiStream < GetCount() && !bChanged; ++uiStream)
    {
        AddLockEvent(uiStream, aeBefore[uiStream], m_apoStreams[uiStream]->GetFigures().eLock, roClock);
    }
}

void CDirectionWatch::AddLockEvent(uint32_t uiStream, ELockState eBefore, ELockState eAfter,
                                   const SClockReading& roClock)
{
    if (eBefore == eAfter || static_cast<int32_t>(uiStream) == m_oReference.Get())
    {
        return;
    }
    SWatchEvent oEvent = MakeEvent(EWatchEventKind::LOCK_CHANGED, uiStream);
    oEvent.uiBefore = static_cast<uint64_t>(eBefore);
    oEvent.uiAfter = static_cast<uint64_t>(eAfter);
    m_roContext.oEvents.Add(oEvent, roClock.uiMonotonicNs);
}

const SPairFigures* CDirectionWatch::FindPair(uint32_t uiA, uint32_t uiB) const
{
    if (uiA == uiB)
    {
        return nullptr;
    }
    const uint32_t uiFirst = std::min(uiA, uiB);
    const uint32_t uiSecond = std::max(uiA, uiB);
    // Rows before the first one's hold one pair less each.
    const uint32_t uiRow = uiFirst * GetCount() - uiFirst * (uiFirst + 1) / 2;
    return &m_aoPairs[uiRow + uiSecond - uiFirst - 1];
}

void CDirectionWatch::FillReferencePhases()
{
    const int32_t iReference = m_oReference.Get();
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        SStreamFigures& roFigures = m_apoStreams[uiStream]->GetFigures();
        roFigures.oPhaseSeconds = {};
        roFigures.oDriftRatio = {};
        roFigures.flPhaseLineSeconds = 0.0;
        roFigures.oSecondsToThreshold = {};
        roFigures.oSecondsToSlip = {};
        roFigures.eLock = ELockState::IDLE;
        const bool bHasReference = iReference >= 0 && static_cast<uint32_t>(iReference) < GetCount();
        const SPairFigures* poPair = bHasReference ? FindPair(static_cast<uint32_t>(iReference), uiStream) : nullptr;
        if (poPair != nullptr)
        {
            const double flSign = uiStream == poPair->uiSecond ? 1.0 : -1.0;
            roFigures.oPhaseSeconds = poPair->oOffsetSeconds;
            roFigures.oPhaseSeconds.flValue *= flSign;
            roFigures.oDriftRatio = poPair->oDriftRatio;
            roFigures.oDriftRatio.flValue *= flSign;
            roFigures.eLock = poPair->eLock;
            roFigures.flPhaseLineSeconds = poPair->flLineSeconds;
            roFigures.oSecondsToThreshold = poPair->oSecondsToThreshold;
            roFigures.oSecondsToSlip = poPair->oSecondsToSlip;
        }
        else if (bHasReference && m_apoStreams[uiStream]->GetPhase().bIsKnown)
        {
            // The reference against itself.
            roFigures.flPhaseLineSeconds = roFigures.flLineSeconds;
            roFigures.oPhaseSeconds = {0.0, 0.0, true};
            roFigures.oDriftRatio = {0.0, 0.0, true};
            roFigures.eLock = ELockState::LOCKED;
        }
    }
}

void CDirectionWatch::MakeRoom(SDirectionFigures& roFigures) const
{
    roFigures.aoStreams.resize(GetCount());
    roFigures.aoPairs.reserve(m_aoPairs.size());
    roFigures.aoGroups.reserve(GetCount());
}

void CDirectionWatch::Fill(const SClockReading& roClock, SDirectionFigures& roFigures) const
{
    const int32_t iReference = m_oReference.Get();
    roFigures.bHasReference = iReference >= 0 && static_cast<uint32_t>(iReference) < GetCount();
    roFigures.uiReference = roFigures.bHasReference ? static_cast<uint32_t>(iReference) : 0;
    roFigures.aoStreams.resize(GetCount());
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        roFigures.aoStreams[uiStream] = m_apoStreams[uiStream]->GetFigures();
        roFigures.aoStreams[uiStream].oLastEvent = m_roContext.oEvents.GetLast({m_eDirection, uiStream});
    }
    roFigures.aoPairs = m_aoPairs;
    roFigures.aoGroups.clear();
    for (const SGroupLife& roGroup : m_oGroups.Get())
    {
        roFigures.aoGroups.push_back({roGroup.uiGroup, roGroup.uiMembers, roClock.GetUtcNs(roGroup.uiSinceNs)});
    }
}
