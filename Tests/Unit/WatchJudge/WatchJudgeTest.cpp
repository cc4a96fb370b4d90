// The judgement of made-up seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "WatchJudge.h"

namespace
{

constexpr int64_t iSecond = 1'000'000'000;
constexpr int64_t iStart = 1'790'000'000 * iSecond;

// Streams at 60 Hz that run, are fed and taken, and whatever a test does to them.
class CWatched
{
public:
    CWatched(uint32_t uiInputs, uint32_t uiOutputs, const SJudgeSettings& roSettings = {}) : m_oJudge(roSettings)
    {
        for (uint32_t uiDirection = 0; uiDirection < 2; ++uiDirection)
        {
            const uint32_t uiCount = uiDirection == 0 ? uiInputs : uiOutputs;
            SDirectionFigures& roDirection = oSnapshot.aoDirections[uiDirection];
            for (uint32_t uiIndex = 0; uiIndex < uiCount; ++uiIndex)
            {
                AddStream(roDirection, static_cast<EStreamDirection>(uiDirection), uiIndex);
            }
        }
    }

    SStreamFigures& Input(uint32_t uiIndex) { return oSnapshot.aoDirections[0].aoStreams[uiIndex]; }
    SStreamFigures& Output(uint32_t uiIndex) { return oSnapshot.aoDirections[1].aoStreams[uiIndex]; }
    int64_t Now() const { return m_iNow; }

    // What the next second brings.
    void Happen(EWatchEventKind eKind, EStreamDirection eDirection, uint32_t uiIndex, int64_t iUtcNs,
                uint64_t uiCount = 1)
    {
        SWatchEvent oEvent = {};
        oEvent.eKind = eKind;
        oEvent.oKey = {eDirection, uiIndex};
        oEvent.iUtcNs = iUtcNs;
        oEvent.uiCount = uiCount;
        oEvent.uiBefore = eKind == EWatchEventKind::CADENCE_CHANGED ? 1 : 0;
        aoHappenings.push_back(oEvent);
    }
    void Run(uint32_t uiSeconds)
    {
        for (uint32_t uiPassed = 0; uiPassed < uiSeconds; ++uiPassed)
        {
            m_iNow += iSecond;
            for (SDirectionFigures& roDirection : oSnapshot.aoDirections)
            {
                for (SStreamFigures& roStream : roDirection.aoStreams)
                {
                    roStream.oCounters.flWatchedSeconds += 1.0;
                    roStream.oCounters.flRunningSeconds += roStream.eState == EStreamState::RUNNING ? 1.0 : 0.0;
                }
            }
            oSnapshot.oClock.iUtcNs = m_iNow;
            oSnapshot.oClock.uiMonotonicNs = static_cast<uint64_t>(m_iNow - iStart + iSecond);
            const auto aoTold = m_oJudge.Take({oSnapshot, aoHappenings, aoHappenings}, oJudgement);
            aoEvents.insert(aoEvents.end(), aoTold.begin(), aoTold.end());
            aoHappenings.clear();
        }
    }
    void SetState(SStreamFigures& roStream, EStreamState eState, int64_t iSinceUtcNs)
    {
        roStream.eState = eState;
        roStream.iStateSinceUtcNs = iSinceUtcNs;
    }
    const SHealth& Health(EStreamDirection eDirection, uint32_t uiIndex, EHealthDomain eDomain) const
    {
        return oJudgement.aoStreams[static_cast<size_t>(eDirection)][uiIndex].aoDomains[static_cast<size_t>(eDomain)];
    }
    void Lock(uint32_t uiFirst, uint32_t uiSecond, ELockState eLock)
    {
        for (SPairFigures& roPair : oSnapshot.aoDirections[0].aoPairs)
        {
            if (roPair.uiFirst == uiFirst && roPair.uiSecond == uiSecond)
            {
                roPair.eLock = eLock;
                return;
            }
        }
        SPairFigures& roPair = oSnapshot.aoDirections[0].aoPairs.emplace_back();
        roPair.uiFirst = uiFirst;
        roPair.uiSecond = uiSecond;
        roPair.eLock = eLock;
    }

    SWatchSnapshot oSnapshot;
    SJudgement oJudgement;
    std::vector<SWatchEvent> aoHappenings;
    std::vector<SWatchEvent> aoEvents; // of incidents

private:
    void AddStream(SDirectionFigures& roDirection, EStreamDirection eDirection, uint32_t uiIndex) const
    {
        SStreamFigures& roStream = roDirection.aoStreams.emplace_back();
        roStream.oKey = {eDirection, uiIndex};
        roStream.eState = EStreamState::RUNNING;
        roStream.iStateSinceUtcNs = m_iNow;
        roStream.flNominalRateHz = 60.0;
        roStream.flPeriodSeconds = 1.0 / 60.0;
        roStream.oCounters.uiFieldsObserved = 1;
        roStream.oDescription.uiMomentNs = 1;
        roStream.oDescription.bHasSkippedBuffers = true;
        roStream.oFeed.bHasFed = true;
        roStream.oFeed.oCadence.uiNbOfRuns = 1;
        roStream.oFeed.oCadence.auiRuns[0] = 1;
        roStream.oFeed.iCadenceSinceUtcNs = m_iNow;
    }

    CWatchJudge m_oJudge;
    int64_t m_iNow = iStart;
};

constexpr auto eIn = EStreamDirection::INPUT;
constexpr auto eOut = EStreamDirection::OUTPUT;

const SIncident& GetOnly(const CWatched& roWatched)
{
    EXPECT_EQ(roWatched.oJudgement.aoIncidents.size(), 1U);
    static const SIncident oNone;
    return roWatched.oJudgement.aoIncidents.empty() ? oNone : roWatched.oJudgement.aoIncidents.front();
}

void Lose(CWatched& roWatched, SStreamFigures& roStream, int64_t iUtcNs)
{
    roWatched.SetState(roStream, EStreamState::LOST, iUtcNs);
    roWatched.Happen(EWatchEventKind::SIGNAL_LOST, roStream.oKey.eDirection, roStream.oKey.uiIndex, iUtcNs);
}

TEST(WatchJudge, HoldsALockAcrossDirectionsThatWasToldAndNoOther)
{
    SJudgeSettings oSettings;
    oSettings.aoStreams[1].resize(2);
    oSettings.aoStreams[1][1].uiLockedAcross = 1; // the second output with the first input
    CWatched oWatched(1, 2, oSettings);
    for (const uint32_t uiOutput : {0U, 1U})
    {
        SAcrossFigures& roPair = oWatched.oSnapshot.aoAcross.emplace_back();
        roPair.oFirst = {eIn, 0};
        roPair.oSecond = {eOut, uiOutput};
        roPair.oPair.eLock = ELockState::LOCKED;
    }
    oWatched.Run(100);
    const int64_t iLockedUtcNs = oWatched.Now();
    oWatched.oSnapshot.aoAcross[0].oPair.eLock = oWatched.oSnapshot.aoAcross[1].oPair.eLock = ELockState::FREE;
    oWatched.Run(3);
    const auto Get = [&oWatched](EStreamDirection eDirection, uint32_t uiIndex) -> const SHealth&
    { return oWatched.Health(eDirection, uiIndex, EHealthDomain::SYNCHRONISATION); };
    EXPECT_EQ(Get(eOut, 1).eStatus, EHealthStatus::UNHEALTHY);
    EXPECT_EQ(Get(eOut, 1).oReason.eReason, EHealthReason::LOCK_LOST);
    EXPECT_EQ(Get(eOut, 1).oReason.uiBefore, 1U) << "a stream of the other direction";
    EXPECT_EQ(Get(eOut, 0).eStatus, EHealthStatus::HEALTHY);
    EXPECT_EQ(Get(eIn, 0).eStatus, EHealthStatus::HEALTHY);
    EXPECT_EQ(GetOnly(oWatched).iBeginUtcNs, iLockedUtcNs);
}

TEST(WatchJudge, HoldsNothingAgainstWhatNobodyExpects)
{
    CWatched oWatched(2, 2);
    oWatched.Output(0).oFeed = {};              // an idle desktop
    oWatched.Output(1).oFeed.bIsStalled = true; // one that was used for a moment
    oWatched.SetState(oWatched.Input(1), EStreamState::IDLE, oWatched.Now());
    oWatched.Run(30);
    oWatched.Happen(EWatchEventKind::FIELDS_UNOBSERVED, eIn, 0, oWatched.Now(), 3); // an everyday late wake
    oWatched.Run(1);
    Lose(oWatched, oWatched.Input(0), oWatched.Now()); // gone before it was usual
    oWatched.Run(100);
    EXPECT_TRUE(oWatched.aoEvents.empty());
    EXPECT_EQ(oWatched.oJudgement.oOverall.eStatus, EHealthStatus::HEALTHY);
    EXPECT_EQ(oWatched.oJudgement.aoStreams[0][1].oOverall.eStatus, EHealthStatus::INACTIVE);
}

TEST(WatchJudge, SaysWhatWasToldUnhealthyAndWhatWasLearnedPartially)
{
    SJudgeSettings oTold;
    oTold.aoStreams[1].resize(1);
    oTold.aoStreams[1][0].bIsFed = true;
    for (const bool bIsTold : {false, true})
    {
        CWatched oWatched(0, 1, bIsTold ? oTold : SJudgeSettings{});
        oWatched.Run(bIsTold ? 5 : 65);
        const int64_t iBegin = oWatched.Now() - iSecond / 3;
        oWatched.Output(0).oFeed.bIsStalled = true;
        oWatched.Output(0).oFeed.iStalledSinceUtcNs = iBegin;
        oWatched.Happen(EWatchEventKind::BUFFERS_REPEATED, eOut, 0, iBegin, 80);
        oWatched.Run(10);
        const SHealth& roFeed = oWatched.Health(eOut, 0, EHealthDomain::FEED);
        EXPECT_EQ(roFeed.eStatus, bIsTold ? EHealthStatus::UNHEALTHY : EHealthStatus::PARTIALLY_HEALTHY);
        EXPECT_EQ(roFeed.oReason.eReason, EHealthReason::FEED_STALLED);
        EXPECT_EQ(roFeed.iSinceUtcNs, iBegin);
        EXPECT_EQ(oWatched.oJudgement.oOverall.eStatus, roFeed.eStatus);
        const SIncident& roIncident = GetOnly(oWatched);
        EXPECT_EQ(roIncident.iBeginUtcNs, iBegin);
        EXPECT_EQ(roIncident.eDomain, EHealthDomain::FEED);
        EXPECT_EQ(roIncident.uiLost, 80U);
        EXPECT_EQ(roIncident.iEndUtcNs, 0);
        EXPECT_EQ(oWatched.aoEvents.size(), 1U);
    }
}

TEST(WatchJudge, IsWorseAtOnceAndBetterAfterADelayThatGrowsWithFlapping)
{
    CWatched oWatched(1, 0);
    oWatched.Run(65);
    int64_t iLastBack = 0;
    for (uint32_t uiFlap = 0; uiFlap < 30; ++uiFlap)
    {
        Lose(oWatched, oWatched.Input(0), oWatched.Now());
        oWatched.Run(1);
        EXPECT_EQ(oWatched.Health(eIn, 0, EHealthDomain::SIGNAL).eStatus, EHealthStatus::PARTIALLY_HEALTHY);
        oWatched.Run(4);
        EXPECT_TRUE(uiFlap > 0 || GetOnly(oWatched).uiLost == 300U) << "so far";
        iLastBack = oWatched.Now();
        oWatched.SetState(oWatched.Input(0), EStreamState::RUNNING, iLastBack);
        oWatched.Run(5);
    }
    // 3, 4.5, 6.75 s: the third recovery is overtaken by the next loss, and from there on it is one.
    ASSERT_EQ(oWatched.oJudgement.aoIncidents.size(), 3U);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 1U);
    oWatched.Run(54);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 1U) << "a minute";
    oWatched.Run(2);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 0U);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents.front().iEndUtcNs, iLastBack);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents.front().uiLost, 28U * 300U);
    const SHealth& roSignal = oWatched.Health(eIn, 0, EHealthDomain::SIGNAL);
    EXPECT_EQ(roSignal.auiTransitions[static_cast<size_t>(EHealthStatus::PARTIALLY_HEALTHY)], 3U);
    EXPECT_EQ(roSignal.auiTransitions[static_cast<size_t>(EHealthStatus::HEALTHY)], 3U);
    // Forgiven after a minute without.
    oWatched.Run(65);
    Lose(oWatched, oWatched.Input(0), oWatched.Now());
    oWatched.Run(1);
    oWatched.SetState(oWatched.Input(0), EStreamState::RUNNING, oWatched.Now());
    oWatched.Run(4);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 0U);
}

TEST(WatchJudge, JoinsWhatBeginsTogetherAndOnlyThat)
{
    CWatched oWatched(4, 1);
    for (uint32_t uiFirst = 0; uiFirst < 3; ++uiFirst)
    {
        for (uint32_t uiSecond = uiFirst + 1; uiSecond < 3; ++uiSecond)
        {
            oWatched.Lock(uiFirst, uiSecond, ELockState::LOCKED);
        }
    }
    oWatched.Run(70);
    // Three of one lock group within a field, and one that has nothing to do with them.
    const int64_t iBegin = oWatched.Now();
    for (uint32_t uiInput = 0; uiInput < 3; ++uiInput)
    {
        Lose(oWatched, oWatched.Input(uiInput), iBegin + uiInput * 2'000'000);
    }
    Lose(oWatched, oWatched.Input(3), iBegin + 200'000'000);
    oWatched.Run(1);
    ASSERT_EQ(oWatched.oJudgement.aoIncidents.size(), 2U);
    const SIncident& roGroup = oWatched.oJudgement.aoIncidents[1];
    EXPECT_EQ(roGroup.auiStreams[0], 0b0111U);
    EXPECT_EQ(roGroup.eShared, EIncidentShare::LOCK_GROUP);
    EXPECT_TRUE(roGroup.bIsWhole);
    EXPECT_NEAR(roGroup.flSpreadSeconds, 0.004, 1e-9);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[0].auiStreams[0], 0b1000U);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[0].eShared, EIncidentShare::STREAM);
    // Both directions in the same field: what they share is the board.
    const int64_t iBack = oWatched.Now();
    for (uint32_t uiInput = 0; uiInput < 4; ++uiInput)
    {
        oWatched.SetState(oWatched.Input(uiInput), EStreamState::RUNNING, iBack - uiInput * 1'000'000);
    }
    oWatched.Run(70);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 0U);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[1].iEndUtcNs, iBack) << "with the last of them";
    Lose(oWatched, oWatched.Input(0), oWatched.Now());
    Lose(oWatched, oWatched.Output(0), oWatched.Now() + 10'000'000);
    oWatched.Run(1);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[0].eShared, EIncidentShare::BOARD);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 1U);
}

TEST(WatchJudge, JoinsWhatBeginsTogetherOnTwoChipsAndLeavesTheOtherChipAlone)
{
    CWatched oWatched(2, 0);
    std::vector<SDirectionFigures>& raoDirections = oWatched.oSnapshot.aoDirections;
    raoDirections.resize(6);
    for (uint32_t uiChip = 1; uiChip <= 2; ++uiChip)
    {
        SDirectionFigures& roInputs = raoDirections[2 * uiChip];
        roInputs = raoDirections[0];
        std::ranges::for_each(roInputs.aoStreams, [=](SStreamFigures& roStream) { roStream.oKey.uiChip = uiChip; });
    }
    raoDirections[0] = {};
    oWatched.Run(70);
    const int64_t iBegin = oWatched.Now();
    Lose(oWatched, raoDirections[2].aoStreams[1], iBegin);
    Lose(oWatched, raoDirections[4].aoStreams[1], iBegin + 1'000'000);
    oWatched.Run(1);
    ASSERT_EQ(oWatched.oJudgement.aoIncidents.size(), 1U);
    const SIncident& roIncident = oWatched.oJudgement.aoIncidents[0];
    EXPECT_EQ(roIncident.eShared, EIncidentShare::MACHINE);
    EXPECT_EQ(roIncident.auiStreams[2], 0b10U);
    EXPECT_EQ(roIncident.auiStreams[4], 0b10U);
    EXPECT_FALSE(roIncident.bIsWhole);
    EXPECT_EQ(oWatched.oJudgement.aoStreams[4][0].oOverall.eStatus, EHealthStatus::HEALTHY);
}

TEST(WatchJudge, NamesTheStreamThatLeftItsLockGroup)
{
    CWatched oWatched(3, 0);
    const auto LockAll = [&](ELockState eOfThird)
    {
        oWatched.Lock(0, 1, ELockState::LOCKED);
        oWatched.Lock(0, 2, eOfThird);
        oWatched.Lock(1, 2, eOfThird);
    };
    LockAll(ELockState::LOCKED);
    oWatched.Run(70);
    const int64_t iLocked = oWatched.Now();
    LockAll(ELockState::PASSING);
    oWatched.Run(5);
    EXPECT_TRUE(oWatched.oJudgement.aoIncidents.empty()) << "still where it was";
    LockAll(ELockState::FREE);
    oWatched.Run(1);
    const SIncident& roIncident = GetOnly(oWatched);
    EXPECT_EQ(roIncident.auiStreams[0], 0b100U);
    EXPECT_EQ(roIncident.eDomain, EHealthDomain::SYNCHRONISATION);
    EXPECT_EQ(roIncident.iBeginUtcNs, iLocked) << "when it left the lock, not the threshold";
    EXPECT_EQ(oWatched.Health(eIn, 0, EHealthDomain::SYNCHRONISATION).eStatus, EHealthStatus::HEALTHY);
}

TEST(WatchJudge, TellsWhatWasExpectedOfTheDescription)
{
    SJudgeSettings oTold;
    oTold.aoStreams[0].resize(1);
    oTold.aoStreams[0][0].aoMembers = {{EDescriptionMember::COLOUR_SPACE, 3}};
    CWatched oWatched(2, 0, oTold);
    for (uint32_t uiInput = 0; uiInput < 2; ++uiInput)
    {
        oWatched.Input(uiInput).oDescription.oTimings.uiHActive = 1920;
        oWatched.Input(uiInput).oDescription.oTimings.uiVActive = 1080;
        oWatched.Input(uiInput).oDescription.oTimings.uiVRate_Hz = 60;
        oWatched.Input(uiInput).oDescription.oTimings.fColorSpace = 3;
    }
    oWatched.Run(70);
    EXPECT_TRUE(oWatched.oJudgement.aoIncidents.empty());
    const int64_t iBegin = oWatched.Now();
    for (uint32_t uiInput = 0; uiInput < 2; ++uiInput)
    {
        oWatched.Input(uiInput).oDescription.oTimings.fColorSpace = 4;
        oWatched.Happen(EWatchEventKind::DESCRIPTION_CHANGED, eIn, uiInput, iBegin + uiInput * iSecond / 2);
    }
    oWatched.Run(10);
    const SHealth& roTold = oWatched.Health(eIn, 0, EHealthDomain::SIGNAL);
    EXPECT_EQ(roTold.eStatus, EHealthStatus::UNHEALTHY);
    EXPECT_EQ(roTold.oReason.uiBefore, 3U);
    EXPECT_EQ(roTold.oReason.uiAfter, 4U);
    // The other one is taken for what it is now, but it has been told.
    EXPECT_EQ(oWatched.Health(eIn, 1, EHealthDomain::SIGNAL).eStatus, EHealthStatus::HEALTHY);
    ASSERT_EQ(oWatched.oJudgement.aoIncidents.size(), 2U);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[0].iBeginUtcNs, iBegin + iSecond / 2);
    EXPECT_EQ(oWatched.oJudgement.aoIncidents[0].iEndUtcNs, iBegin + iSecond / 2);
}

TEST(WatchJudge, JoinsACadenceThatBreaksWithTheStallThatItTurnsOutToBe)
{
    CWatched oWatched(0, 2);
    oWatched.Run(70);
    const int64_t iBegin = oWatched.Now() - 100'000'000;
    oWatched.Output(0).oFeed.oCadence = {};
    oWatched.Happen(EWatchEventKind::CADENCE_CHANGED, eOut, 0, iBegin);
    oWatched.Happen(EWatchEventKind::CADENCE_CHANGED, eOut, 0, iBegin + 50'000'000);
    oWatched.Run(1);
    EXPECT_EQ(oWatched.Health(eOut, 0, EHealthDomain::FEED).oReason.eReason, EHealthReason::CADENCE_BROKEN);
    oWatched.Output(0).oFeed.bIsStalled = true;
    oWatched.Output(0).oFeed.iStalledSinceUtcNs = iBegin;
    oWatched.Run(20);
    EXPECT_EQ(oWatched.Health(eOut, 0, EHealthDomain::FEED).oReason.eReason, EHealthReason::FEED_STALLED);
    EXPECT_EQ(GetOnly(oWatched).iBeginUtcNs, iBegin);
    // Switched off on purpose: no fault of it, and none of it when it comes back idle.
    oWatched.SetState(oWatched.Output(0), EStreamState::IDLE, oWatched.Now());
    oWatched.Run(5);
    EXPECT_EQ(oWatched.oJudgement.uiIncidentsOpen, 0U);
    oWatched.SetState(oWatched.Output(0), EStreamState::RUNNING, oWatched.Now());
    oWatched.Run(100);
    EXPECT_EQ(oWatched.aoEvents.size(), 2U);
}

} // namespace
