#include "DirectionWatch.h"

#include <array>
#include <bit>

#include "TimeUnits.h"

namespace
{

// What the settings name of the direction itself; negative: nothing.
int32_t GetOwnReference(const SWatchSettings& roSettings, EStreamDirection eDirection)
{
    const std::optional<SStreamKey>& roReference = roSettings.aoReferences[static_cast<size_t>(eDirection)];
    return roReference && roReference->eDirection == eDirection ? static_cast<int32_t>(roReference->uiIndex) : -1;
}

} // namespace

CDirectionWatch::CDirectionWatch(SWatchContext& roContext, const SWatchSettings& roSettings,
                                 EStreamDirection eDirection, uint32_t uiNbOfStreams)
    : m_roContext(roContext),
      m_roSettings(roSettings),
      m_eDirection(eDirection),
      m_aoSlips(uiNbOfStreams),
      m_oReference(GetOwnReference(roSettings, eDirection))
{
    const std::optional<SStreamKey>& roReference = roSettings.aoReferences[static_cast<size_t>(eDirection)];
    if (roReference && roReference->eDirection != eDirection)
    {
        m_oForeign = roReference;
    }
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
    }
}

void CDirectionWatch::Conclude(const SInstant& roInstant, const SClockReading& roClock, const SAgainst& roAgainst)
{
    UpdateGroups(roClock);
    UpdateReference(roInstant, roClock, roAgainst);
}

std::optional<SStreamKey> CDirectionWatch::GetReference() const
{
    if (m_oForeign)
    {
        return m_oForeign;
    }
    const int32_t iReference = m_oReference.Get();
    return iReference >= 0 && static_cast<uint32_t>(iReference) < GetCount()
               ? std::optional(SStreamKey{m_eDirection, static_cast<uint32_t>(iReference)})
               : std::nullopt;
}

bool CDirectionWatch::StandsForGroup(uint32_t uiStream) const
{
    for (const SGroupLife& roGroup : m_oGroups.Get())
    {
        if ((roGroup.uiMembers >> uiStream & 1U) != 0)
        {
            const std::optional<SStreamKey> oReference = GetReference();
            const bool bHasReference = oReference && oReference->eDirection == m_eDirection &&
                                       (roGroup.uiMembers >> oReference->uiIndex & 1U) != 0;
            return uiStream ==
                   (bHasReference ? oReference->uiIndex : static_cast<uint32_t>(std::countr_zero(roGroup.uiMembers)));
        }
    }
    return true;
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
        PairLock_Update(roFirst.GetPhase(), roSecond.GetPhase(), PairContext_Make(m_roSettings, GetLine(roPair)),
                        roPair);
    }
}

void CDirectionWatch::UpdateGroups(const SClockReading& roClock)
{
    std::array<uint64_t, uiMaxStreamsPerDirection> auiLocked = {};
    for (const SPairFigures& roPair : m_aoPairs)
    {
        if (roPair.eLock == ELockState::LOCKED)
        {
            auiLocked[roPair.uiFirst] |= uint64_t{1} << roPair.uiSecond;
            auiLocked[roPair.uiSecond] |= uint64_t{1} << roPair.uiFirst;
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
        oEvent.uiMembers = static_cast<uint32_t>(roChange.oGroup.uiMembers);
        if (roChange.eChange == EGroupChange::ENDED)
        {
            oEvent.flSeconds = static_cast<double>(roClock.uiMonotonicNs - roChange.oGroup.uiSinceNs) * flSecondsPerNs;
        }
        m_roContext.oEvents.Add(oEvent, roClock.uiMonotonicNs);
    }
}

bool CDirectionWatch::ChooseReference(const SClockReading& roClock)
{
    uint32_t uiRunning = 0;
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        uiRunning |= m_apoStreams[uiStream]->GetPhase().bIsKnown ? 1U << uiStream : 0U;
    }
    uint32_t uiGrouped = 0;
    for (const SGroupLife& roGroup : m_oGroups.Get())
    {
        uiGrouped |= static_cast<uint32_t>(roGroup.uiMembers);
    }
    const int32_t iBefore = m_oReference.Get();
    const bool bChanged =
        m_oReference.Update(uiRunning, uiGrouped, static_cast<uint32_t>(m_oGroups.GetLargest().uiMembers),
                            roClock.uiMonotonicNs) &&
        m_oReference.Get() < static_cast<int32_t>(GetCount());
    if (bChanged && iBefore >= 0)
    {
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::REFERENCE_CHANGED, static_cast<uint32_t>(m_oReference.Get()));
        oEvent.uiBefore = static_cast<uint64_t>(iBefore);
        oEvent.uiAfter = static_cast<uint64_t>(m_oReference.Get());
        m_roContext.oEvents.Add(oEvent, roClock.uiMonotonicNs);
    }
    return bChanged;
}

void CDirectionWatch::UpdateReference(const SInstant& roInstant, const SClockReading& roClock,
                                      const SAgainst& roAgainst)
{
    const bool bChanged = !m_oForeign && ChooseReference(roClock);
    std::array<ELockState, uiMaxStreamsPerDirection> aeBefore = {};
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        aeBefore[uiStream] = m_apoStreams[uiStream]->GetFigures().eLock;
        if (bChanged)
        {
            m_aoSlips[uiStream].Forget();
        }
    }
    FillReferencePhases(roAgainst);
    UpdateSlips(roInstant, roClock, roAgainst);
    for (uint32_t uiStream = 0; uiStream < GetCount() && !bChanged; ++uiStream)
    {
        AddLockEvent(uiStream, aeBefore[uiStream], m_apoStreams[uiStream]->GetFigures().eLock, roClock);
    }
}

void CDirectionWatch::UpdateSlips(const SInstant& roInstant, const SClockReading& roClock, const SAgainst& roAgainst)
{
    const auto flElapsed = static_cast<double>(roInstant.iSecond - m_iLastSecond);
    m_iLastSecond = roInstant.iSecond;
    const std::optional<SStreamKey> oReference = GetReference();
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        const SPairFigures* poPair = FindPairWithReference(uiStream, roAgainst);
        if (poPair == nullptr)
        {
            continue;
        }
        const SStreamPhase& roReference =
            m_oForeign ? *roAgainst.poReference : m_apoStreams[oReference->uiIndex]->GetPhase();
        const SSlipScale oScale = PairSlip_GetScale(m_apoStreams[uiStream]->GetPhase(), roReference,
                                                    PairContext_Make(m_roSettings, poPair->flLineSeconds), flElapsed);
        const SSlips oSlips = m_aoSlips[uiStream].Take(*poPair, oScale);
        if (oSlips.iPeriods == 0)
        {
            continue;
        }
        m_apoStreams[uiStream]->GetFigures().oCounters.uiSlips += oSlips.GetCount();
        // What goes from an input to an output is dropped when that falls behind, whichever is told of.
        const bool bSecondFellBehind = oSlips.iPeriods > 0;
        const bool bIsDropped = m_oForeign ? bSecondFellBehind : bSecondFellBehind == (uiStream == poPair->uiSecond);
        m_roContext.oEvents.Add(PairSlip_MakeEvent({m_eDirection, uiStream}, *oReference, oSlips,
                                                   bIsDropped ? ESlip::DROPPED : ESlip::REPEATED, roInstant.uiTick,
                                                   m_roSettings.uiTickFrequencyHz),
                                roClock.uiMonotonicNs);
    }
}

void CDirectionWatch::AddLockEvent(uint32_t uiStream, ELockState eBefore, ELockState eAfter,
                                   const SClockReading& roClock)
{
    if (eBefore == eAfter || GetReference() == SStreamKey{m_eDirection, uiStream})
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

const SPairFigures* CDirectionWatch::FindPairWithReference(uint32_t uiStream, const SAgainst& roAgainst) const
{
    const std::optional<SStreamKey> oReference = GetReference();
    if (m_oForeign)
    {
        return uiStream < roAgainst.apoPairs.size() ? roAgainst.apoPairs[uiStream] : nullptr;
    }
    return oReference ? FindPair(oReference->uiIndex, uiStream) : nullptr;
}

void CDirectionWatch::FillReferencePhases(const SAgainst& roAgainst)
{
    const bool bIsOutput = m_eDirection == EStreamDirection::OUTPUT;
    for (uint32_t uiStream = 0; uiStream < GetCount(); ++uiStream)
    {
        SStreamFigures& roFigures = m_apoStreams[uiStream]->GetFigures();
        roFigures.oPhaseSeconds = {};
        roFigures.oDriftRatio = {};
        roFigures.flPhaseLineSeconds = 0.0;
        roFigures.oSecondsToThreshold = {};
        roFigures.oSecondsToSlip = {};
        roFigures.eLock = ELockState::IDLE;
        const SPairFigures* poPair = FindPairWithReference(uiStream, roAgainst);
        if (poPair != nullptr)
        {
            // Outputs come second in pairs across.
            const bool bIsSecond = m_oForeign ? bIsOutput : uiStream == poPair->uiSecond;
            const double flSign = bIsSecond ? 1.0 : -1.0;
            roFigures.oPhaseSeconds = poPair->oOffsetSeconds;
            roFigures.oPhaseSeconds.flValue *= flSign;
            roFigures.oDriftRatio = poPair->oDriftRatio;
            roFigures.oDriftRatio.flValue *= flSign;
            roFigures.eLock = poPair->eLock;
            roFigures.flPhaseLineSeconds = poPair->flLineSeconds;
            roFigures.oSecondsToThreshold = poPair->oSecondsToThreshold;
            roFigures.oSecondsToSlip = poPair->oSecondsToSlip;
        }
        else if (GetReference() && m_apoStreams[uiStream]->GetPhase().bIsKnown)
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
    const std::optional<SStreamKey> oReference = GetReference();
    roFigures.bHasReference = oReference.has_value();
    roFigures.oReference = oReference.value_or(SStreamKey{m_eDirection, 0});
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
        roFigures.aoGroups.push_back(
            {roGroup.uiGroup, static_cast<uint32_t>(roGroup.uiMembers), roClock.GetUtcNs(roGroup.uiSinceNs)});
    }
}
