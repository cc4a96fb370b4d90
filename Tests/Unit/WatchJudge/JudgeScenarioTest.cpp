// Faults that a simulated board plays, as somebody who planted them would conclude: which incidents there must be, of
// which streams and domain, from which field on, and that there are no others.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "WatchBench.h"
#include "WatchJudge.h"

namespace
{

constexpr auto eIn = EStreamDirection::INPUT;
constexpr auto eOut = EStreamDirection::OUTPUT;

// The bench with a judge behind it.
class CJudged
{
public:
    explicit CJudged(const std::string& rszChip, const SJudgeSettings& roSettings = {}, const SBenchSetup& roSetup = {})
        : oBench(rszChip, roSetup), m_oJudge(roSettings)
    {
        oBench.fnSecond = [this](const CWatchEngine& roEngine, std::span<const SWatchEvent> aoEvents)
        {
            const auto aoTold = m_oJudge.Take({oBench.oSnapshot, roEngine.GetHappenings(), aoEvents}, oJudgement);
            for (const SWatchEvent& roEvent : aoTold)
            {
                if (roEvent.eKind == EWatchEventKind::INCIDENT_BEGAN)
                {
                    ++uiBegan;
                }
            }
            for (const SIncident& roIncident : oJudgement.aoIncidents)
            {
                aoAll.resize(std::max<size_t>(aoAll.size(), roIncident.uiNumber));
                aoAll[roIncident.uiNumber - 1] = roIncident;
            }
            for (const std::vector<SStreamHealth>& raoStreams : oJudgement.aoStreams)
            {
                for (const SStreamHealth& roStream : raoStreams)
                {
                    bWasUnhealthy |= roStream.oOverall.eStatus == EHealthStatus::UNHEALTHY;
                }
            }
        };
    }

    CWatchBench oBench;
    SJudgement oJudgement;
    std::vector<SIncident> aoAll; // by number
    uint32_t uiBegan = 0;
    bool bWasUnhealthy = false;

private:
    CWatchJudge m_oJudge;
};

std::string Describe(const std::vector<SIncident>& raoIncidents)
{
    std::string szText;
    for (const SIncident& roIncident : raoIncidents)
    {
        szText += std::to_string(roIncident.uiNumber) + ": domain " +
                  std::to_string(static_cast<int>(roIncident.eDomain)) + ", reason " +
                  std::to_string(static_cast<int>(roIncident.oFirst.eReason)) + ", inputs " +
                  std::to_string(roIncident.auiStreams[0]) + ", outputs " + std::to_string(roIncident.auiStreams[1]) +
                  ", lost " + std::to_string(roIncident.uiLost) + "\n";
    }
    return szText;
}

struct SPlanted
{
    const char* szName;
    const char* szChip;
    EHealthDomain eDomain;
    uint32_t uiInputs; // streams that must be in it
    uint32_t uiOutputs;
    EStreamDirection eDirection; // whose field it begins at
    uint64_t uiField;            // of stream 0 of that direction
    uint64_t uiLost;             // 0: not compared
    double flDateTolerance;      // fields
};

// 60 fields a second; what is learned in the first minute is broken at 70 s.
const SPlanted aoPlanted[] = {
    {"a stall of a feed",
     "[[chip.output]]\nstandard = '1080p60'\nevent = [{kind = 'buffers_run_out', at_s = 70, for_s = 8}]\n"
     "[[chip.output]]\nstandard = '1080p60'",
     EHealthDomain::FEED, 0, 1, eOut, 4200, 480, 1.5},
    {"a stall of a film at 3:2",
     "[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 24\n"
     "event = [{kind = 'buffers_run_out', at_s = 70, for_s = 8}]",
     EHealthDomain::FEED, 0, 1, eOut, 4200, 0, 3.0},
    {"a consumer that takes nothing",
     "[[chip.input]]\nstandard = '1080p60'\nevent = [{kind = 'slow_consumer', at_s = 70, for_s = 10}]\n"
     "[[chip.input]]\nstandard = '1080p60'",
     EHealthDomain::FEED, 1, 0, eIn, 4200, 0, 10.0},
    {"a break of a cadence",
     "[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 24\n"
     "event = [{kind = 'buffers_run_out', at_s = 70}]",
     EHealthDomain::FEED, 0, 1, eOut, 4200, 0, 4.0},
    {"another cadence for good",
     "[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 30\n"
     "event = [{kind = 'cadence_change', at_s = 70, set_buffer_rate = 24}]",
     EHealthDomain::FEED, 0, 1, eOut, 4200, 0, 4.0},
    {"swapped fields",
     "[[chip.input]]\nstandard = '1080i60'\nevent = [{kind = 'field_order_swap', at_s = 70, for_s = 5}]\n"
     "[[chip.input]]\nstandard = '1080i60'",
     EHealthDomain::SIGNAL, 1, 0, eIn, 4200, 0, 1.5},
    {"a lost signal",
     "[[chip.input]]\nstandard = '1080p60'\nevent = [{kind = 'signal_loss', at_s = 70, for_s = 5}]\n"
     "[[chip.input]]\nstandard = '1080p60'\n[[chip.output]]\nstandard = '1080p60'",
     EHealthDomain::SIGNAL, 1, 0, eIn, 4200, 300, 1.5},
    {"fields that are not delivered",
     "[[chip.input]]\nstandard = '1080p60'\nevent = [{kind = 'missed_field', at_s = 70, for_fields = 4}]\n"
     "[[chip.input]]\nstandard = '1080p60'",
     EHealthDomain::DELIVERY, 1, 0, eIn, 4200, 4, 1.5},
    {"a common reference that goes away",
     "[[chip.lock_group]]\nname = 'house'\nevent = [{kind = 'signal_loss', at_s = 70, for_s = 5}]\n"
     "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
     "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
     "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
     "[[chip.input]]\nstandard = '1080p60'\nppm = 3",
     EHealthDomain::SIGNAL, 7, 0, eIn, 4200, 900, 1.5},
};

TEST(JudgeScenario, MakesOneIncidentOfEachPlantedFaultAndNothingElse)
{
    for (const SPlanted& roPlanted : aoPlanted)
    {
        SCOPED_TRACE(roPlanted.szName);
        CJudged oJudged(roPlanted.szChip);
        oJudged.oBench.Run(100);
        ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
        const SIncident& roIncident = oJudged.aoAll.front();
        EXPECT_EQ(roIncident.eDomain, roPlanted.eDomain) << Describe(oJudged.aoAll);
        EXPECT_EQ(roIncident.auiStreams[0], roPlanted.uiInputs);
        EXPECT_EQ(roIncident.auiStreams[1], roPlanted.uiOutputs);
        EXPECT_EQ(roIncident.eWorst, EHealthStatus::PARTIALLY_HEALTHY) << "nobody told";
        EXPECT_EQ(oJudged.oJudgement.uiIncidentsOpen, 0U);
        const VtSim_Field oField = CWatchBench::GetTruth(roPlanted.eDirection, 0, roPlanted.uiField);
        const auto iLate = roIncident.iBeginUtcNs - oJudged.oBench.ToUtcNs(oField.uiTickRefCounter);
        EXPECT_LE(std::abs(static_cast<double>(iLate)) * 60e-9, roPlanted.flDateTolerance) << iLate;
        if (roPlanted.uiLost != 0)
        {
            EXPECT_NEAR(static_cast<double>(roIncident.uiLost), static_cast<double>(roPlanted.uiLost), 2.0);
        }
    }
}

TEST(JudgeScenario, SaysWhatALockGroupHasInCommon)
{
    CJudged oJudged(aoPlanted[8].szChip);
    oJudged.oBench.Run(80);
    ASSERT_EQ(oJudged.aoAll.size(), 1U);
    EXPECT_EQ(oJudged.aoAll[0].eShared, EIncidentShare::LOCK_GROUP);
    EXPECT_TRUE(oJudged.aoAll[0].bIsWhole);
}

TEST(JudgeScenario, FindsTheOneThatDriftsOutOfItsGroup)
{
    CJudged oJudged("[[chip.lock_group]]\nname = 'house'\n"
                    "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
                    "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
                    "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\n"
                    "event = [{kind = 'lock_lost', at_s = 100, ppm = 8}]");
    oJudged.oBench.Run(140);
    ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.aoAll[0].eDomain, EHealthDomain::SYNCHRONISATION);
    EXPECT_EQ(oJudged.aoAll[0].auiStreams[0], 4U);
}

TEST(JudgeScenario, SaysOfAMachineThatStoodStillWhatItWas)
{
    SJudgeSettings oTold;
    for (uint32_t uiDirection = 0; uiDirection < 2; ++uiDirection)
    {
        oTold.aoStreams[uiDirection].resize(2);
        oTold.aoStreams[uiDirection][0].bRuns = true;
        oTold.aoStreams[uiDirection][1].bRuns = true;
    }
    oTold.aoStreams[1][0].bIsFed = true;
    CJudged oJudged("[[chip.input]]\nstandard = '1080p60'\n[[chip.input]]\nstandard = '1080p50'\n"
                    "[[chip.output]]\nstandard = '1080p60'\n[[chip.output]]\nstandard = '1080p60'",
                    oTold);
    oJudged.oBench.Run(70);
    for (uint32_t uiStream = 0; uiStream < 2; ++uiStream)
    {
        oJudged.oBench.StarveUntil(eIn, uiStream, 1.8);
        oJudged.oBench.StarveUntil(eOut, uiStream, 1.8);
    }
    oJudged.oBench.Run(20);
    ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.aoAll[0].eShared, EIncidentShare::MACHINE);
    EXPECT_NEAR(oJudged.aoAll[0].flStoodSeconds, 1.8, 0.1);
    EXPECT_FALSE(oJudged.bWasUnhealthy);
    // The causes are the whole of what was not observed.
    for (const SDirectionFigures& roDirection : oJudged.oBench.oSnapshot.aoDirections)
    {
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            uint64_t uiSum = 0;
            for (const uint64_t uiCause : roStream.oCounters.auiUnobservedCauses)
            {
                uiSum += uiCause;
            }
            EXPECT_GT(uiSum, 80U);
            EXPECT_EQ(uiSum, roStream.oCounters.uiFieldsUnobserved);
        }
    }
}

TEST(JudgeScenario, TellsTheMemberThatChangedAndBeginsNoWindowAnew)
{
    CJudged oJudged("[[chip.input]]\nstandard = '1080p60'\n"
                    "event = [{kind = 'description_change', at_s = 70, color_space = 2, for_s = 10}]");
    oJudged.oBench.Run(75);
    const SWatchEvent* poChange = oJudged.oBench.Find(EWatchEventKind::DESCRIPTION_CHANGED, 0);
    ASSERT_NE(poChange, nullptr);
    EXPECT_EQ(static_cast<EDescriptionMember>(poChange->uiGroup), EDescriptionMember::COLOUR_SPACE);
    EXPECT_EQ(poChange->uiAfter, 2U);
    EXPECT_TRUE(oJudged.oBench.GetInput(0).aoRateHz[1].bIsValid) << "the ten seconds go on";
    EXPECT_EQ(oJudged.oBench.Count(EWatchEventKind::TIMINGS_CHANGED, 0), 0U);
    EXPECT_EQ(oJudged.uiBegan, 1U);
    EXPECT_EQ(oJudged.aoAll[0].oFirst.eReason, EHealthReason::DESCRIPTION_CHANGED);
}

TEST(JudgeScenario, HoldsAFlappingCableOpenLonger)
{
    CJudged oJudged("[[chip.input]]\nstandard = '1080p60'\n"
                    "event = [{kind = 'signal_loss', at_s = 70, for_s = 5, every_s = 10, times = 12}]");
    oJudged.oBench.Run(300);
    EXPECT_LE(oJudged.uiBegan, 3U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.oJudgement.uiIncidentsOpen, 0U);
    uint64_t uiLost = 0;
    for (const SIncident& roIncident : oJudged.aoAll)
    {
        uiLost += roIncident.uiLost;
    }
    EXPECT_NEAR(static_cast<double>(uiLost), 12 * 300.0, 12.0);
}

TEST(JudgeScenario, FindsNothingInWhatIsAsItShouldBe)
{
    const char* szHours = std::getenv("VT_WATCH_JUDGE_HOURS");
    const uint32_t uiSeconds = szHours != nullptr ? 3600U * static_cast<uint32_t>(std::atoi(szHours)) : 900U;
    CJudged oJudged("[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 24\n"
                    "[[chip.output]]\nstandard = '1080p50'\nset_buffer_rate = 25\n"
                    "[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 20\nset_buffer_irregular = 1\n"
                    "[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 0.05\nset_buffer_irregular = 1\n"
                    "[[chip.input]]\nstandard = '1080i50'\nppm = 4\njitter_ticks = 30\n"
                    "[[chip.input]]\nstandard = '1080p59.94'");
    oJudged.oBench.Run(uiSeconds);
    EXPECT_EQ(oJudged.uiBegan, 0U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.oJudgement.oOverall.eStatus, EHealthStatus::HEALTHY);
    const auto& raoOutputs = oJudged.oBench.oSnapshot.aoDirections[1].aoStreams;
    EXPECT_EQ(raoOutputs[0].oFeed.oCadence, (SCadence{{3, 2}, 2}));
    EXPECT_EQ(raoOutputs[1].oFeed.oCadence, (SCadence{{2}, 1}));
    EXPECT_EQ(raoOutputs[0].oCounters.uiRepeatedBeyond, 0U);
}

} // namespace
