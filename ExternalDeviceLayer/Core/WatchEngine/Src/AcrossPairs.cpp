#include "AcrossPairs.h"

#include <algorithm>

#include "PathDelay.h"
#include "TimeUnits.h"

namespace
{

constexpr auto uiInput = static_cast<size_t>(EStreamDirection::INPUT);
constexpr auto uiOutput = static_cast<size_t>(EStreamDirection::OUTPUT);
constexpr uint64_t uiInputBits = (uint64_t{1} << uiMaxStreamsPerDirection) - 1; // of a group; outputs stand above

} // namespace

CAcrossPairs::CAcrossPairs(SWatchContext& roContext, const SWatchSettings& roSettings,
                           std::array<CDirectionWatch, 2>& raoDirections)
    : m_roContext(roContext),
      m_roSettings(roSettings),
      m_raoDirections(raoDirections),
      m_uiInputs(raoDirections[uiInput].GetCount()),
      m_uiOutputs(raoDirections[uiOutput].GetCount()),
      m_aoSlips(size_t{m_uiInputs} * m_uiOutputs),
      m_oGroups(uiInputBits)
{
    for (uint32_t uiPair = 0; uiPair < m_uiInputs * m_uiOutputs; ++uiPair)
    {
        SAcrossFigures& roPair = m_aoPairs.emplace_back();
        roPair.oFirst = {EStreamDirection::INPUT, uiPair / m_uiOutputs};
        roPair.oSecond = {EStreamDirection::OUTPUT, uiPair % m_uiOutputs};
        roPair.oPair.uiFirst = roPair.oFirst.uiIndex;
        roPair.oPair.uiSecond = roPair.oSecond.uiIndex;
    }
    for (const SStreamPath& roPath : roSettings.aoPaths)
    {
        if (roPath.oInput.uiIndex < m_uiInputs && roPath.oOutput.uiIndex < m_uiOutputs)
        {
            SPath& roNew = m_aoPaths.emplace_back();
            roNew.oFigures.oInput = roPath.oInput;
            roNew.oFigures.oOutput = roPath.oOutput;
        }
    }
}

CStreamWatch& CAcrossPairs::GetStream(const SStreamKey& roKey)
{
    return m_raoDirections[static_cast<size_t>(roKey.eDirection)].GetStream(roKey.uiIndex);
}

SPairContext CAcrossPairs::MakeContext(const SAcrossFigures& roPair)
{
    const bool bSecondIsReference = m_raoDirections[uiInput].GetReference() == roPair.oSecond;
    const double flLine = GetStream(bSecondIsReference ? roPair.oSecond : roPair.oFirst).GetFigures().flLineSeconds;
    return PairContext_Make(m_roSettings, flLine);
}

SSlipScale CAcrossPairs::MakeScale(const SAcrossFigures& roPair, double flElapsed)
{
    return PairSlip_GetScale(GetStream(roPair.oFirst).GetPhase(), GetStream(roPair.oSecond).GetPhase(),
                             MakeContext(roPair), flElapsed);
}

void CAcrossPairs::Update()
{
    for (SAcrossFigures& roPair : m_aoPairs)
    {
        PairLock_Update(GetStream(roPair.oFirst).GetPhase(), GetStream(roPair.oSecond).GetPhase(), MakeContext(roPair),
                        roPair.oPair);
    }
}

SAgainst CAcrossPairs::GetAgainst(const std::optional<SStreamKey>& roReference, EStreamDirection eDirection)
{
    if (!roReference || roReference->eDirection == eDirection)
    {
        return {};
    }
    const bool bIsInput = eDirection == EStreamDirection::INPUT;
    const uint32_t uiCount = bIsInput ? m_uiInputs : m_uiOutputs;
    for (uint32_t uiStream = 0; uiStream < uiCount; ++uiStream)
    {
        const uint32_t uiOther = roReference->uiIndex;
        m_apoAgainst[uiStream] = &(bIsInput ? GetPair(uiStream, uiOther) : GetPair(uiOther, uiStream)).oPair;
    }
    return {&GetStream(*roReference).GetPhase(), {m_apoAgainst.data(), uiCount}};
}

void CAcrossPairs::Conclude(const SInstant& roInstant, const SClockReading& roClock)
{
    const auto flElapsed = static_cast<double>(roInstant.iSecond - m_iLastSecond);
    m_iLastSecond = roInstant.iSecond;
    UpdateGroups(roClock);
    UpdateSlips(flElapsed, roInstant, roClock);
    UpdatePaths(flElapsed, roClock);
}

// Also by way of others of their direction.
void CAcrossPairs::UpdateGroups(const SClockReading& roClock)
{
    std::array<uint64_t, size_t{2}* uiMaxStreamsPerDirection> auiLocked = {};
    const auto Join = [&auiLocked](uint32_t uiA, uint32_t uiB)
    {
        auiLocked[uiA] |= uint64_t{1} << uiB;
        auiLocked[uiB] |= uint64_t{1} << uiA;
    };
    for (const SAcrossFigures& roPair : m_aoPairs)
    {
        if (roPair.oPair.eLock == ELockState::LOCKED)
        {
            Join(roPair.oFirst.uiIndex, uiMaxStreamsPerDirection + roPair.oSecond.uiIndex);
        }
    }
    for (const CDirectionWatch& roDirection : m_raoDirections)
    {
        const uint32_t uiFrom = &roDirection == &m_raoDirections[uiInput] ? 0 : uiMaxStreamsPerDirection;
        for (const SPairFigures& roPair : roDirection.GetPairs())
        {
            if (roPair.eLock == ELockState::LOCKED)
            {
                Join(uiFrom + roPair.uiFirst, uiFrom + roPair.uiSecond);
            }
        }
    }
    m_oGroups.Update(auiLocked, roClock.uiMonotonicNs);
}

bool CAcrossPairs::IsPath(const SAcrossFigures& roPair) const
{
    return std::ranges::any_of(
        m_aoPaths, [&roPair](const SPath& roPath)
        { return roPath.oFigures.oInput == roPair.oFirst && roPath.oFigures.oOutput == roPair.oSecond; });
}

// A slip is told once for all that are in lock with each other, and of a pair with a reference; where one is the
// other's reference, the other tells it.
bool CAcrossPairs::IsTold(const SAcrossFigures& roPair) const
{
    const CDirectionWatch& roInputs = m_raoDirections[uiInput];
    const CDirectionWatch& roOutputs = m_raoDirections[uiOutput];
    if (roInputs.GetReference() == roPair.oSecond || roOutputs.GetReference() == roPair.oFirst)
    {
        return false;
    }
    const bool bHasReference = roInputs.GetReference() == roPair.oFirst || roOutputs.GetReference() == roPair.oSecond;
    return IsPath(roPair) || (bHasReference && roInputs.StandsForGroup(roPair.oFirst.uiIndex) &&
                              roOutputs.StandsForGroup(roPair.oSecond.uiIndex));
}

void CAcrossPairs::UpdateSlips(double flElapsed, const SInstant& roInstant, const SClockReading& roClock)
{
    for (size_t uiPair = 0; uiPair < m_aoPairs.size(); ++uiPair)
    {
        SAcrossFigures& roPair = m_aoPairs[uiPair];
        const SSlipScale oScale = MakeScale(roPair, flElapsed);
        const SSlips oSlips = m_aoSlips[uiPair].Take(roPair.oPair, oScale);
        m_aoSlips[uiPair].Fill(roPair.oPair, oScale, roPair.oSlip);
        roPair.oSlip.uiCount += oSlips.GetCount();
        if (oSlips.iPeriods != 0 && IsTold(roPair))
        {
            const ESlip eSlip = oSlips.iPeriods > 0 ? ESlip::DROPPED : ESlip::REPEATED;
            m_roContext.oEvents.Add(PairSlip_MakeEvent(roPair.oSecond, roPair.oFirst, oSlips, eSlip, roInstant.uiTick,
                                                       m_roSettings.uiTickFrequencyHz),
                                    roClock.uiMonotonicNs);
        }
    }
}

void CAcrossPairs::UpdatePaths(double flElapsed, const SClockReading& roClock)
{
    for (SPath& roPath : m_aoPaths)
    {
        SPathFigures& roFigures = roPath.oFigures;
        const SAcrossFigures& roPair = GetPair(roFigures.oInput.uiIndex, roFigures.oOutput.uiIndex);
        // A delay steps with each field of the faster one.
        SSlipScale oScale = MakeScale(roPair, flElapsed);
        oScale.flPeriod = oScale.flShort;
        const SSlips oSteps = roPath.oStep.Take(roPair.oPair, oScale);
        roFigures.uiSteps += oSteps.GetCount();
        if (oSteps.iPeriods != 0)
        {
            roFigures.flLastStepSeconds = -oSteps.iPeriods * oScale.flShort;
            roFigures.iLastStepUtcNs = roClock.iUtcNs - static_cast<int64_t>(oSteps.flSecondsAgo * flNsPerSecond);
        }
        PathDelay_Fill(GetStream(roFigures.oInput).GetFigures(), GetStream(roFigures.oOutput).GetFigures(),
                       roPair.oPair, roFigures);
    }
}

void CAcrossPairs::MakeRoom(SWatchSnapshot& roSnapshot) const
{
    roSnapshot.aoAcross.reserve(m_aoPairs.size());
    roSnapshot.aoAcrossGroups.reserve(uiMaxStreamsPerDirection);
    roSnapshot.aoPaths.reserve(m_aoPaths.size());
}

void CAcrossPairs::Fill(const SClockReading& roClock, SWatchSnapshot& roSnapshot) const
{
    roSnapshot.aoAcross = m_aoPairs;
    roSnapshot.aoAcrossGroups.clear();
    for (const SGroupLife& roGroup : m_oGroups.Get())
    {
        roSnapshot.aoAcrossGroups.push_back({roGroup.uiGroup,
                                             {static_cast<uint32_t>(roGroup.uiMembers & uiInputBits),
                                              static_cast<uint32_t>(roGroup.uiMembers >> uiMaxStreamsPerDirection)},
                                             roClock.GetUtcNs(roGroup.uiSinceNs)});
    }
    roSnapshot.aoPaths.clear();
    for (const SPath& roPath : m_aoPaths)
    {
        roSnapshot.aoPaths.push_back(roPath.oFigures);
    }
}
