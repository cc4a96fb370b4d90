// The engine beside a model that keeps every field and works each figure out from the raw stamps.
#include "ReferenceModel.h"
#include "WatchEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <tuple>
#include <utility>

namespace
{

constexpr uint64_t gc_uiAnalysedNs = 160'000'000;

class WatchReference : public testing::TestWithParam<uint64_t>
{
protected:
    void SetUp() override;
    void HandIn(uint64_t uiEndNs);
    void Run();
    void CompareStream(uint32_t uiIndex);
    void CompareEvents(uint32_t uiIndex);
    void ComparePair(const SPairFigures& roPair, SModelPair& roModel);
    void CompareTimes(const SPairFigures& roPair, double flThreshold);
    void CompareAcross();
    void CompareWithReference();
    uint32_t CountChange(uint32_t uiIndex, bool bChanged);
    void CompareGroups();
    void CompareGroupEvents();
    void Analyse(const SClockReading& roClock);
    const SDirectionFigures& GetInputs() const { return m_oSnapshot.aoDirections[0]; }

    SScene m_oScene = Scene_Make(GetParam());
    std::vector<CReferenceModel> m_aoModels;
    std::vector<size_t> m_auiTaken = std::vector<size_t>(m_oScene.aoInputs.size());
    std::unique_ptr<CWatchEngine> m_poEngine;
    SWatchSnapshot m_oSnapshot;
    std::vector<SWatchEvent> m_aoEvents;
    std::vector<SWatchEvent> m_aoNewEvents;
    std::vector<SModelPair> m_aoPairs =
        std::vector<SModelPair>(m_oScene.aoInputs.size() * (m_oScene.aoInputs.size() - 1) / 2);
    std::vector<ELockState> m_aeLocks = std::vector<ELockState>(m_oScene.aoInputs.size(), ELockState::IDLE);
    std::vector<std::pair<uint32_t, uint64_t>> m_aoChanges{m_oScene.aoInputs.size()};
    uint32_t m_uiReference = 0;
    std::vector<SLockGroup> m_aoGroups;
};

void WatchReference::SetUp()
{
    m_poEngine = std::make_unique<CWatchEngine>(m_oScene.oSettings, static_cast<uint32_t>(m_oScene.aoInputs.size()), 1);
    for (const SSceneStream& roStream : m_oScene.aoInputs)
    {
        m_aoModels.emplace_back(m_oScene, roStream);
    }
}

void WatchReference::HandIn(uint64_t uiEndNs)
{
    for (uint32_t uiIndex = 0; uiIndex < m_auiTaken.size(); ++uiIndex)
    {
        const SSceneStream& roStream = m_oScene.aoInputs[uiIndex];
        const SStreamKey oKey = {EStreamDirection::INPUT, uiIndex};
        SStreamDescription oDescription = roStream.oDescription;
        oDescription.uiMomentNs = uiEndNs;
        m_poEngine->TakeDescription(oKey, oDescription);
        // The first stream is an output as well.
        const SStreamKey oOutput = {EStreamDirection::OUTPUT, 0};
        if (uiIndex == 0)
        {
            oDescription.ePowerState = VtVideoOut_PowerState_ON;
            m_poEngine->TakeDescription(oOutput, oDescription);
        }
        size_t& ruiNext = m_auiTaken[uiIndex];
        while (ruiNext < roStream.aoRecords.size() && roStream.aoRecords[ruiNext].uiArrivalNs < uiEndNs)
        {
            if (uiIndex == 0)
            {
                m_poEngine->TakeRecord(oOutput, roStream.aoRecords[ruiNext]);
            }
            m_poEngine->TakeRecord(oKey, roStream.aoRecords[ruiNext++]);
        }
    }
}

void WatchReference::Run()
{
    SClockReading oClock = {};
    for (uint64_t uiSecond = 1; uiSecond <= m_oScene.uiSeconds; ++uiSecond)
    {
        oClock.uiMonotonicNs = gc_uiSceneBeginNs + uiSecond * 1'000'000'000 + gc_uiAnalysedNs;
        oClock.iUtcNs = static_cast<int64_t>(oClock.uiMonotonicNs) + gc_iSceneUtcNs;
        HandIn(oClock.uiMonotonicNs);
        Analyse(oClock);
        if (HasFailure())
        {
            return;
        }
    }
    m_poEngine->End();
    ASSERT_TRUE(m_poEngine->Analyse(oClock, m_oSnapshot));
    const std::span<const SWatchEvent> aoLast = m_poEngine->TakeEvents();
    m_aoEvents.insert(m_aoEvents.end(), aoLast.begin(), aoLast.end());
}

void WatchReference::Analyse(const SClockReading& roClock)
{
    while (m_poEngine->Analyse(roClock, m_oSnapshot))
    {
        const std::span<const SWatchEvent> aoNew = m_poEngine->TakeEvents();
        m_aoNewEvents.assign(aoNew.begin(), aoNew.end());
        m_aoEvents.insert(m_aoEvents.end(), aoNew.begin(), aoNew.end());
        for (uint32_t uiIndex = 0; uiIndex < m_aoModels.size(); ++uiIndex)
        {
            CompareStream(uiIndex);
        }
        for (size_t uiPair = 0; uiPair < m_aoPairs.size(); ++uiPair)
        {
            ComparePair(GetInputs().aoPairs[uiPair], m_aoPairs[uiPair]);
        }
        CompareAcross();
        CompareWithReference();
        CompareGroups();
    }
}

void WatchReference::CompareStream(uint32_t uiIndex)
{
    const CReferenceModel& roModel = m_aoModels[uiIndex];
    const SStreamFigures& roFigures = m_oSnapshot.aoDirections[0].aoStreams[uiIndex];
    const SStreamCounters& roCounters = roFigures.oCounters;
    const uint64_t uiTick = m_oSnapshot.oClock.uiTick;
    SCOPED_TRACE(testing::Message() << "input " << uiIndex << " at second "
                                    << uiTick / m_oScene.oSettings.uiTickFrequencyHz);
    using enum EWatchEventKind;
    EXPECT_EQ(roCounters.uiFieldsObserved, roModel.CountFields(uiTick));
    EXPECT_EQ(roCounters.uiFieldsLost, roModel.CountFacts(FIELDS_LOST, uiTick));
    EXPECT_EQ(roCounters.uiFieldsUnobserved, roModel.CountFacts(FIELDS_UNOBSERVED, uiTick));
    EXPECT_EQ(roCounters.uiFieldsRepeated, roModel.CountFacts(COUNTER_REPEATED, uiTick));
    EXPECT_EQ(roCounters.uiCounterBackward, roModel.CountFacts(COUNTER_BACKWARD, uiTick));
    EXPECT_EQ(roCounters.uiCounterForward, roModel.CountFacts(COUNTER_FORWARD, uiTick));
    EXPECT_EQ(roCounters.uiFieldsEarly, roModel.CountFacts(FIELD_EARLY, uiTick));
    EXPECT_EQ(roCounters.uiFieldsLate, roModel.CountFacts(FIELD_LATE, uiTick));
    EXPECT_EQ(roCounters.uiPhaseSteps, roModel.CountFacts(PHASE_STEPPED, uiTick));
    EXPECT_EQ(roCounters.uiSignalLosses, roModel.CountFacts(SIGNAL_LOST, uiTick));
    EXPECT_EQ(roCounters.uiLateWakes, roModel.CountLateWakes(uiTick));
    EXPECT_EQ(roFigures.eState, roModel.GetState(uiTick));
    for (size_t uiWindow = 0; uiWindow < 3; ++uiWindow)
    {
        const SModelLine oLine = roModel.Fit(uiTick, auiRateWindowSeconds[uiWindow]);
        const SEstimate& roRate = roFigures.aoRateHz[uiWindow];
        SCOPED_TRACE(testing::Message() << "window " << auiRateWindowSeconds[uiWindow]);
        const bool bFull = roFigures.eState == EStreamState::RUNNING && oLine.flPart > 0.75;
        if (uiWindow == 0 && !bFull)
        {
            continue; // how few fields of a second are enough is told nowhere
        }
        EXPECT_EQ(roRate.bIsValid, oLine.oSlope.bIsValid);
        if (roRate.bIsValid && oLine.oSlope.bIsValid)
        {
            const double flRate = m_oScene.oSettings.uiTickFrequencyHz / oLine.oSlope.flValue;
            EXPECT_NEAR(roRate.flValue, flRate, 1e-12 * flRate);
            const double flError = flRate * oLine.oSlope.flStdErr / oLine.oSlope.flValue;
            EXPECT_NEAR(roRate.flStdErr, flError, 1e-5 * flError);
        }
    }
}

void WatchReference::ComparePair(const SPairFigures& roPair, SModelPair& roModel)
{
    const SStreamFigures& roFirst = GetInputs().aoStreams[roPair.uiFirst];
    const SStreamFigures& roSecond = GetInputs().aoStreams[roPair.uiSecond];
    const uint64_t uiTick = m_oSnapshot.oClock.uiTick;
    SCOPED_TRACE(testing::Message() << "pair " << roPair.uiFirst << ", " << roPair.uiSecond << " at second "
                                    << uiTick / m_oScene.oSettings.uiTickFrequencyHz);
    const double flFirstHz = m_oScene.aoInputs[roPair.uiFirst].flNominalHz;
    const double flSecondHz = m_oScene.aoInputs[roPair.uiSecond].flNominalHz;
    const double flMultiple = std::max(flFirstHz, flSecondHz) / std::min(flFirstHz, flSecondHz);
    if (flMultiple != std::round(flMultiple))
    {
        EXPECT_TRUE(roPair.eLock == ELockState::DIFFERENT || roPair.eLock == ELockState::IDLE);
        EXPECT_FALSE(roPair.oOffsetSeconds.bIsValid);
        return;
    }
    const SModelLine oFirst = m_aoModels[roPair.uiFirst].Fit(uiTick, 10);
    const SModelLine oSecond = m_aoModels[roPair.uiSecond].Fit(uiTick, 10);
    if (roPair.oOffsetSeconds.bIsValid && oFirst.oSlope.bIsValid && oSecond.oSlope.bIsValid)
    {
        const double flPeriod = std::min(roFirst.flPeriodSeconds, roSecond.flPeriodSeconds);
        const double flOffset =
            m_aoModels[roPair.uiSecond].GetMoment(oSecond) - m_aoModels[roPair.uiFirst].GetMoment(oFirst);
        EXPECT_NEAR(std::remainder(roPair.oOffsetSeconds.flValue - flOffset, flPeriod), 0.0,
                    flMultiple > 1.0 || std::abs(flOffset) > 0.5 * flPeriod ? 5e-6 * flPeriod : 2e-12);
        EXPECT_LE(std::abs(roPair.oOffsetSeconds.flValue), 0.5 * flPeriod);
    }
    const bool bOfSecond = GetInputs().bHasReference && GetInputs().oReference.uiIndex == roPair.uiSecond;
    const double flThreshold = 1.0 / 1125.0 / (bOfSecond ? flSecondHz : flFirstHz);
    EXPECT_NEAR(roPair.flLineSeconds, flThreshold, 1e-15);
    roModel.Step(roPair, flThreshold);
    EXPECT_EQ(roPair.eLock, roModel.eLock);
    EXPECT_EQ(roPair.uiSecondsToLock, roModel.eLock == ELockState::PASSING ? roModel.uiLeft : 0U);
    CompareTimes(roPair, flThreshold);
}

void WatchReference::CompareTimes(const SPairFigures& roPair, double flThreshold)
{
    const bool bDrifts = roPair.oOffsetSeconds.bIsValid && roPair.oDriftRatio.bIsValid &&
                         std::abs(roPair.oDriftRatio.flValue) > 3.0 * roPair.oDriftRatio.flStdErr;
    EXPECT_EQ(roPair.oSecondsToSlip.bIsValid, bDrifts);
    EXPECT_EQ(roPair.oSecondsToThreshold.bIsValid, bDrifts);
    if (!bDrifts)
    {
        return;
    }
    const double flPeriod = std::min(GetInputs().aoStreams[roPair.uiFirst].flPeriodSeconds,
                                     GetInputs().aoStreams[roPair.uiSecond].flPeriodSeconds);
    const double flDrift = std::abs(roPair.oDriftRatio.flValue);
    const double flAhead = std::copysign(1.0, roPair.oDriftRatio.flValue) * roPair.oOffsetSeconds.flValue;
    const double flToSlip = flAhead < 0.0 ? -flAhead : flPeriod - flAhead;
    const double flToThreshold = flAhead < -flThreshold  ? -flThreshold - flAhead
                                 : flAhead < flThreshold ? flThreshold - flAhead
                                                         : flPeriod - flThreshold - flAhead;
    EXPECT_NEAR(roPair.oSecondsToSlip.flValue, flToSlip / flDrift, 5e-6 * flPeriod / flDrift);
    EXPECT_NEAR(roPair.oSecondsToThreshold.flValue, flToThreshold / flDrift, 5e-6 * flPeriod / flDrift);
}

// Changes of lock in the episode.
uint32_t WatchReference::CountChange(uint32_t uiIndex, bool bChanged)
{
    const uint64_t uiSecond = m_oSnapshot.oClock.uiTick / m_oScene.oSettings.uiTickFrequencyHz;
    auto& [uiCount, uiLast] = m_aoChanges[uiIndex];
    uiCount = uiSecond - uiLast > 10 ? 0 : uiCount;
    uiCount += bChanged ? 1 : 0;
    uiLast = bChanged ? uiSecond : uiLast;
    return uiCount;
}

// Against the output that the first input is as well, every other input is what it is against that, the other way
// round.
void WatchReference::CompareAcross()
{
    ASSERT_EQ(m_oSnapshot.aoAcross.size(), m_oScene.aoInputs.size());
    for (const SPairFigures& roPair : GetInputs().aoPairs)
    {
        const SPairFigures& roAcross = m_oSnapshot.aoAcross[roPair.uiSecond].oPair;
        if (roPair.uiFirst != 0)
        {
            continue;
        }
        SCOPED_TRACE(testing::Message() << "input " << roPair.uiSecond << " with the output");
        EXPECT_EQ(roAcross.oOffsetSeconds.bIsValid, roPair.oOffsetSeconds.bIsValid);
        EXPECT_DOUBLE_EQ(std::abs(roAcross.oOffsetSeconds.flValue), std::abs(roPair.oOffsetSeconds.flValue));
        EXPECT_DOUBLE_EQ(roAcross.oOffsetSeconds.flStdErr, roPair.oOffsetSeconds.flStdErr);
        EXPECT_DOUBLE_EQ(roAcross.oDriftRatio.flValue, -roPair.oDriftRatio.flValue);
        EXPECT_DOUBLE_EQ(roAcross.oSecondsToSlip.flValue, roPair.oSecondsToSlip.flValue);
    }
}

// What is told of a stream against the reference is what its pair says.
void WatchReference::CompareWithReference()
{
    for (const SPairFigures& roPair : GetInputs().aoPairs)
    {
        const uint32_t uiReference = GetInputs().oReference.uiIndex;
        if (!GetInputs().bHasReference || (roPair.uiFirst != uiReference && roPair.uiSecond != uiReference))
        {
            continue;
        }
        const uint32_t uiOther = roPair.uiFirst == uiReference ? roPair.uiSecond : roPair.uiFirst;
        const SStreamFigures& roStream = GetInputs().aoStreams[uiOther];
        const double flSign = roPair.uiFirst == uiReference ? 1.0 : -1.0;
        SCOPED_TRACE(testing::Message() << "input " << uiOther << " against " << uiReference << " at second "
                                        << m_oSnapshot.oClock.uiTick / m_oScene.oSettings.uiTickFrequencyHz);
        EXPECT_EQ(roStream.oPhaseSeconds.flValue, flSign * roPair.oOffsetSeconds.flValue);
        EXPECT_EQ(roStream.oDriftRatio.flValue, flSign * roPair.oDriftRatio.flValue);
        EXPECT_EQ(roStream.eLock, roPair.eLock);
        EXPECT_EQ(roStream.oSecondsToSlip.flValue, roPair.oSecondsToSlip.flValue);
        const ELockState eBefore = std::exchange(m_aeLocks[uiOther], roStream.eLock);
        if (roStream.eLock == ELockState::DIFFERENT || uiReference != m_uiReference)
        {
            continue;
        }
        if (CountChange(uiOther, roStream.eLock != eBefore) > 10)
        {
            continue; // they are folded
        }
        std::vector<SWatchEvent> aoChanges = m_aoNewEvents;
        std::erase_if(aoChanges,
                      [&](const SWatchEvent& roEvent)
                      {
                          return roEvent.eKind != EWatchEventKind::LOCK_CHANGED ||
                                 roEvent.oKey != SStreamKey{EStreamDirection::INPUT, uiOther};
                      });
        EXPECT_EQ(aoChanges.size(), roStream.eLock != eBefore ? 1U : 0U);
        for (const SWatchEvent& roEvent : aoChanges)
        {
            EXPECT_EQ(roEvent.uiBefore, static_cast<uint64_t>(eBefore));
            EXPECT_EQ(roEvent.uiAfter, static_cast<uint64_t>(roStream.eLock));
        }
    }
    m_uiReference = GetInputs().oReference.uiIndex;
}

// A group that was not there formed, one that is no more ended, one with other members changed.
void WatchReference::CompareGroupEvents()
{
    using TChange = std::tuple<EWatchEventKind, uint32_t, uint32_t>; // kind, group, members
    std::vector<TChange> aoExpected;
    const std::vector<SLockGroup>& raoNow = GetInputs().aoGroups;
    for (const SLockGroup& roGroup : raoNow)
    {
        const auto itOld = std::ranges::find(m_aoGroups, roGroup.uiGroup, &SLockGroup::uiGroup);
        if (itOld == m_aoGroups.end() || itOld->uiMembers != roGroup.uiMembers)
        {
            const bool bFormed = itOld == m_aoGroups.end();
            aoExpected.emplace_back(bFormed ? EWatchEventKind::GROUP_FORMED : EWatchEventKind::GROUP_CHANGED,
                                    roGroup.uiGroup, roGroup.uiMembers);
        }
    }
    for (const SLockGroup& roGroup : m_aoGroups)
    {
        if (std::ranges::find(raoNow, roGroup.uiGroup, &SLockGroup::uiGroup) == raoNow.end())
        {
            aoExpected.emplace_back(EWatchEventKind::GROUP_ENDED, roGroup.uiGroup, roGroup.uiMembers);
        }
    }
    std::vector<TChange> aoTold;
    for (const SWatchEvent& roEvent : m_aoNewEvents)
    {
        if (roEvent.eKind >= EWatchEventKind::GROUP_FORMED && roEvent.eKind <= EWatchEventKind::GROUP_ENDED)
        {
            aoTold.emplace_back(roEvent.eKind, roEvent.uiGroup, roEvent.uiMembers);
        }
    }
    std::ranges::sort(aoExpected);
    std::ranges::sort(aoTold);
    EXPECT_EQ(aoTold, aoExpected);
    m_aoGroups = raoNow;
}

// Whoever is reached by locked pairs is in one group.
void WatchReference::CompareGroups()
{
    std::vector<uint32_t> auiSets;
    for (uint32_t uiIndex = 0; uiIndex < m_aoModels.size(); ++uiIndex)
    {
        uint32_t uiMembers = 1U << uiIndex;
        for (size_t uiRound = 0; uiRound < m_aoPairs.size(); ++uiRound)
        {
            for (const SPairFigures& roPair : GetInputs().aoPairs)
            {
                const uint32_t uiBoth = (1U << roPair.uiFirst) | (1U << roPair.uiSecond);
                uiMembers |= roPair.eLock == ELockState::LOCKED && (uiMembers & uiBoth) != 0 ? uiBoth : 0;
            }
        }
        if (std::popcount(uiMembers) > 1 && std::ranges::find(auiSets, uiMembers) == auiSets.end())
        {
            auiSets.push_back(uiMembers);
        }
    }
    std::vector<uint32_t> auiTold;
    for (const SLockGroup& roGroup : GetInputs().aoGroups)
    {
        auiTold.push_back(roGroup.uiMembers);
    }
    std::ranges::sort(auiSets);
    std::ranges::sort(auiTold);
    CompareGroupEvents();
    EXPECT_EQ(auiTold, auiSets) << "at second " << m_oSnapshot.oClock.uiTick / m_oScene.oSettings.uiTickFrequencyHz;
}

void WatchReference::CompareEvents(uint32_t uiIndex)
{
    SCOPED_TRACE(testing::Message() << "events of input " << uiIndex);
    std::vector<SWatchEvent> aoEvents = m_aoEvents;
    std::erase_if(aoEvents,
                  [&](const SWatchEvent& roEvent)
                  {
                      return roEvent.oKey != SStreamKey{EStreamDirection::INPUT, uiIndex} ||
                             roEvent.eKind <= EWatchEventKind::WATCH_ENDED ||
                             (roEvent.eKind >= EWatchEventKind::LOCK_CHANGED &&
                              roEvent.eKind != EWatchEventKind::COUNTER_FORWARD);
                  });
    std::ranges::stable_sort(aoEvents, {},
                             [](const SWatchEvent& roEvent) { return std::pair(roEvent.eKind, roEvent.uiTick); });
    const std::vector<SModelFact> aoExpected = m_aoModels[uiIndex].FoldEvents(m_oSnapshot.oClock.uiTick);
    EXPECT_EQ(aoEvents.size(), aoExpected.size());
    for (size_t i = 0; i < std::min(aoEvents.size(), aoExpected.size()); ++i)
    {
        SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(aoExpected[i].eKind) << " at tick "
                                        << aoExpected[i].uiTick);
        ASSERT_EQ(aoEvents[i].eKind, aoExpected[i].eKind) << aoEvents[i].uiTick;
        const bool bIsReckoned = aoEvents[i].eKind == EWatchEventKind::FIELDS_LOST ||
                                 aoEvents[i].eKind == EWatchEventKind::FIELDS_UNOBSERVED;
        const double flTolerance = bIsReckoned ? 1000.0 : 1.0; // ns: 12 periods of another stream's rate by 0.8 ppm
        EXPECT_NEAR(static_cast<double>(static_cast<int64_t>(aoEvents[i].uiTick - aoExpected[i].uiTick)), 0.0,
                    flTolerance);
        EXPECT_EQ(aoEvents[i].uiCount, aoExpected[i].uiCount);
        EXPECT_EQ(aoEvents[i].uiBefore, aoExpected[i].uiBefore);
        EXPECT_EQ(aoEvents[i].uiAfter, aoExpected[i].uiAfter);
        EXPECT_NEAR(aoEvents[i].flSeconds, aoExpected[i].flSeconds, 1e-6);
        EXPECT_NEAR(static_cast<double>(aoEvents[i].iUtcNs - gc_iSceneUtcNs -
                                        static_cast<int64_t>(Scene_ToNs(m_oScene, aoExpected[i].uiTick))),
                    0.0, flTolerance);
    }
}

TEST_P(WatchReference, FiguresAndEventsAreThoseOfRawStamps)
{
    SCOPED_TRACE(testing::Message() << "seed " << GetParam());
    Run();
    for (uint32_t uiIndex = 0; uiIndex < m_aoModels.size() && !HasFailure(); ++uiIndex)
    {
        CompareEvents(uiIndex);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, WatchReference, testing::Range<uint64_t>(1, 7));

} // namespace
