// Faults that a simulated board plays, as somebody who planted them would conclude: which incidents there must be, of
// which streams and domain, from which field on, and that there are no others.
#include <gtest/gtest.h>

#include <algorithm>
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
    std::string szChip;
    EHealthDomain eDomain;
    EHealthReason eReason;
    EIncidentShare eShared;
    uint32_t uiInputs; // streams that must be in it
    uint32_t uiOutputs;
    uint64_t uiField = 4200; // of the first stream, with which it begins; 0: the first one that OUT_01 shows otherwise
    uint64_t uiLost = 0;     // 0: what the truth of the first stream has
    uint64_t uiLasts = 0;    // fields from the begin to the end; of outputs that are compared: until the next picture
};

constexpr auto eSignal = EHealthDomain::SIGNAL;
constexpr auto eFeed = EHealthDomain::FEED;
constexpr auto eAlone = EIncidentShare::STREAM;

// What several streams follow.
std::string House(const std::string& rszKeys)
{
    return "[[chip.lock_group]]\nname = 'house'\n" + rszKeys;
}

const std::string szStall = Event("'buffers_run_out', at_s = 70, for_s = 8");
const std::string szFilm = "set_buffer_rate = 24\n";
const std::string szVideo = "set_buffer_rate = 30\n";
const std::string szLocked = "lock_group = 'house'\n";

// 60 fields a second; what is learned in the first minute is broken at 70 s.
const SPlanted aoPlanted[] = {
    {"a stall of a feed", Out(szStall) + Out(), eFeed, EHealthReason::FEED_STALLED, eAlone, 0, 1, 0},
    {"a stall of a film at 3:2", Out(szFilm + Event("'buffers_run_out', at_s = 70.02, for_s = 8")) + Out(szFilm), eFeed,
     EHealthReason::FEED_STALLED, eAlone, 0, 1, 0},
    {"a stall of both directions", In(szStall) + Out(szStall) + Out(), eFeed, EHealthReason::CONSUMER_STALLED,
     EIncidentShare::BOARD, 1, 1, 4200, 960, 480},
    {"a consumer that takes nothing", In(Event("'slow_consumer', at_s = 70.3, for_s = 9.5")) + In(), eFeed,
     EHealthReason::CONSUMER_STALLED, eAlone, 1, 0, 4218, 0, 570},
    {"a consumer that takes every other picture", In(Event("'slow_consumer', at_s = 70, for_s = 10, takes = 0.5")),
     eFeed, EHealthReason::CONSUMER_STALLED, eAlone, 1, 0, 4200, 0, 600},
    {"a consumer that misses some", In(Event("'skipped_buffers', at_s = 70, count = 4")), eFeed,
     EHealthReason::BUFFERS_SKIPPED, eAlone, 1, 0},
    {"a break of a cadence", Out(szFilm + Event("'buffers_run_out', at_s = 70")) + Out(szFilm), eFeed,
     EHealthReason::CADENCE_BROKEN, eAlone, 0, 1, 0},
    {"another cadence for good",
     Out(szVideo + Event("'cadence_change', at_s = 70, set_buffer_rate = 24")) + Out(szVideo), eFeed,
     EHealthReason::CADENCE_BROKEN, eAlone, 0, 1, 0},
    {"swapped fields", In(Event("'field_order_swap', at_s = 70, for_s = 5"), "1080i60") + In("", "1080i60"), eSignal,
     EHealthReason::FIELD_ORDER_SWAPPED, eAlone, 1, 0, 4200, 0, 300},
    {"other colours", In(Event("'description_change', at_s = 70.3, color_space = 2")), eSignal,
     EHealthReason::DESCRIPTION_CHANGED, eAlone, 1, 0, 4218},
    {"a lost signal", In(Event("'signal_loss', at_s = 70, for_s = 5")) + In() + Out(), eSignal,
     EHealthReason::SIGNAL_LOST, eAlone, 1, 0, 4200, 300, 300},
    {"fields that are not delivered", In(Event("'missed_field', at_s = 70, for_fields = 4")) + In(),
     EHealthDomain::DELIVERY, EHealthReason::FIELDS_LOST, eAlone, 1, 0, 4200, 4, 4},
    {"one bad stream, in all ways at once",
     Out(Event(
         "'missed_field', at_s = 70, for_fields = 3, every_s = 2, times = 4}, {kind = 'buffers_run_out', at_s = 71, "
         "for_s = 3}, {kind = 'signal_loss', at_s = 75, for_s = 0.5")) +
         Out() + In(),
     EHealthDomain::DELIVERY, EHealthReason::FIELDS_LOST, eAlone, 0, 1, 4200, 4 * 3 + 180 + 30, 6 * 60 + 3},
    {"a common reference that goes away",
     House(Event("'signal_loss', at_s = 70, for_s = 5")) + In(szLocked) + In(szLocked) + In(szLocked) + In("ppm = 3"),
     eSignal, EHealthReason::SIGNAL_LOST, EIncidentShare::LOCK_GROUP, 7, 0, 4200, 900, 300},
    {"streams of many rates, lost within a field",
     In("ppm = 5\n" + Event("'signal_loss', at_s = 70.004, for_s = 5")) +
         In("phase_us = 7000\n" + Event("'signal_loss', at_s = 70.003, for_s = 5"), "1080p50") +
         In(Event("'signal_loss', at_s = 70.001, for_s = 5"), "1080p59.94") + In("ppm = -7\nphase_us = 3000") +
         Out("ppm = 3\n" + Event("'signal_loss', at_s = 70.01, for_s = 5")),
     eSignal, EHealthReason::SIGNAL_LOST, EIncidentShare::BOARD, 7, 1, 4200, 300 + 250 + 300 + 300, 301},
};

// What truly was: the field that it began with, and what it cost.
struct STruth
{
    uint64_t uiField = 0;
    uint64_t uiLost = 0;
    uint64_t uiLasts = 0;
};

bool HasNewPicture(uint32_t uiOutput, uint64_t uiField)
{
    return CWatchBench::GetTruth(eOut, uiOutput, uiField).uiSetBufferCounter !=
           CWatchBench::GetTruth(eOut, uiOutput, uiField - 1).uiSetBufferCounter;
}

// What OUT_00 shows otherwise than OUT_01, to which nothing happens; from a picture that is due on, until one comes.
STruth CompareOutputs()
{
    STruth oTruth;
    oTruth.uiField = 4000;
    while (HasNewPicture(0, oTruth.uiField) == HasNewPicture(1, oTruth.uiField))
    {
        ++oTruth.uiField;
    }
    while (!HasNewPicture(0, oTruth.uiField + oTruth.uiLost))
    {
        ++oTruth.uiLost;
    }
    oTruth.uiLasts = oTruth.uiLost;
    return oTruth;
}

STruth GetTruth(const SPlanted& roPlanted)
{
    if (roPlanted.uiField == 0)
    {
        return CompareOutputs();
    }
    const uint64_t uiSkipped = roPlanted.uiInputs != 0 ? CWatchBench::GetTruth(eIn, 0, 5400).uiSkipBufferCount : 0;
    return {roPlanted.uiField, roPlanted.uiLost != 0 ? roPlanted.uiLost : uiSkipped, roPlanted.uiLasts};
}

// Within a field of the truth.
void ExpectField(const CWatchBench& roBench, int64_t iUtcNs, EStreamDirection eDirection, uint64_t uiField)
{
    const VtSim_Field oField = CWatchBench::GetTruth(eDirection, 0, uiField);
    EXPECT_NEAR(static_cast<double>(iUtcNs - roBench.ToUtcNs(oField.uiTickRefCounter)) * 60e-9, 0.0, 1.01) << uiField;
}

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
        EXPECT_EQ(roIncident.oFirst.eReason, roPlanted.eReason) << Describe(oJudged.aoAll);
        EXPECT_EQ(roIncident.eShared, roPlanted.eShared);
        EXPECT_TRUE(roIncident.bIsWhole || roPlanted.eShared != EIncidentShare::LOCK_GROUP);
        EXPECT_EQ(roIncident.auiStreams[0], roPlanted.uiInputs);
        EXPECT_EQ(roIncident.auiStreams[1], roPlanted.uiOutputs);
        EXPECT_EQ(roIncident.eWorst, EHealthStatus::PARTIALLY_HEALTHY) << "nobody told";
        EXPECT_EQ(oJudged.oJudgement.uiIncidentsOpen, 0U);
        const STruth oTruth = GetTruth(roPlanted);
        const auto eDirection = roPlanted.uiInputs != 0 ? eIn : eOut;
        ExpectField(oJudged.oBench, roIncident.iBeginUtcNs, eDirection, oTruth.uiField);
        ExpectField(oJudged.oBench, roIncident.iEndUtcNs, eDirection, oTruth.uiField + oTruth.uiLasts);
        EXPECT_NEAR(static_cast<double>(roIncident.uiLost), static_cast<double>(oTruth.uiLost), 4.0);
        EXPECT_GT(roIncident.uiFirstEvent, 0U);
    }
}

TEST(JudgeScenario, FindsTheOneThatDriftsOutOfItsGroup)
{
    CJudged oJudged(House("") + In(szLocked) + In(szLocked) + In(szLocked + Event("'lock_lost', at_s = 100, ppm = 8")));
    oJudged.oBench.Run(140);
    ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.aoAll[0].eDomain, EHealthDomain::SYNCHRONISATION);
    EXPECT_EQ(oJudged.aoAll[0].auiStreams[0], 4U);
}

// Before anything is learned: what streams share is what they share now.
TEST(JudgeScenario, KnowsALockGroupAsSoonAsItIsOne)
{
    SJudgeSettings oTold;
    oTold.aoStreams[0].resize(4);
    for (SStreamExpectation& roTold : oTold.aoStreams[0])
    {
        roTold.bRuns = true;
    }
    CJudged oJudged(House(Event("'signal_loss', at_s = 12, for_s = 2")) + In(szLocked) +
                        In("ppm = 40\nphase_us = 6000") + In(szLocked) + In(szLocked),
                    oTold);
    oJudged.oBench.Run(25);
    ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.aoAll[0].auiStreams[0], 0b1101U);
    EXPECT_EQ(oJudged.aoAll[0].eShared, EIncidentShare::LOCK_GROUP);
    EXPECT_TRUE(oJudged.aoAll[0].bIsWhole && oJudged.aoAll[0].bIsTogether);
    EXPECT_EQ(oJudged.aoAll[0].eWorst, EHealthStatus::UNHEALTHY);
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
    CJudged oJudged(In() + In("", "1080p50") + Out(szFilm) + Out(), oTold);
    oJudged.oBench.Run(70);
    const int64_t iStillUtcNs = oJudged.oBench.GetHandedInUtcNs();
    for (uint32_t uiStream = 0; uiStream < 2; ++uiStream)
    {
        oJudged.oBench.StarveUntil(eIn, uiStream, 1.8);
        oJudged.oBench.StarveUntil(eOut, uiStream, 1.8);
    }
    oJudged.oBench.Run(20);
    ASSERT_EQ(oJudged.uiBegan, 1U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.aoAll[0].eShared, EIncidentShare::MACHINE);
    EXPECT_EQ(oJudged.aoAll[0].eDomain, EHealthDomain::OBSERVATION);
    EXPECT_EQ(oJudged.aoAll[0].eWorst, EHealthStatus::PARTIALLY_HEALTHY);
    EXPECT_EQ(oJudged.oJudgement.uiIncidentsOpen, 0U);
    EXPECT_NEAR(oJudged.aoAll[0].flStoodSeconds, 1.8, 2.01 / 60.0) << "the fields at both ends were waited for";
    EXPECT_NEAR(static_cast<double>(oJudged.aoAll[0].iBeginUtcNs - iStillUtcNs), 0.0, 1e9 / 50.0);
    uint64_t uiUnobserved = 0;
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
            uiUnobserved += uiSum;
        }
    }
    EXPECT_EQ(oJudged.aoAll[0].uiLost, uiUnobserved);
}

TEST(JudgeScenario, TellsTheMemberThatChangedAndBeginsNoWindowAnew)
{
    CJudged oJudged(In(Event("'description_change', at_s = 70, color_space = 2, for_s = 10")));
    oJudged.oBench.Run(75);
    const SWatchEvent* poChange = oJudged.oBench.Find(EWatchEventKind::DESCRIPTION_CHANGED, 0);
    ASSERT_NE(poChange, nullptr);
    EXPECT_EQ(static_cast<EDescriptionMember>(poChange->uiGroup), EDescriptionMember::COLOUR_SPACE);
    EXPECT_EQ(poChange->uiAfter, 2U);
    EXPECT_TRUE(oJudged.oBench.GetInput(0).aoRateHz[1].bIsValid) << "the ten seconds go on";
    EXPECT_EQ(oJudged.oBench.Count(EWatchEventKind::TIMINGS_CHANGED, 0), 0U);
}

// Percentiles lie in the bin of the true ones, of stamps against the exact times that only the board knows, or next to
// it.
void ExpectPacing(const SStreamFigures& roInput)
{
    std::vector<double> aflTrue;
    for (uint64_t uiField = 0; uiField < roInput.oCounters.uiFields; ++uiField)
    {
        const VtSim_Field oField = CWatchBench::GetTruth(eIn, roInput.oKey.uiIndex, uiField);
        aflTrue.push_back(
            std::abs(static_cast<double>(static_cast<int64_t>(oField.uiTickRefCounter - oField.uiExactTicks)) -
                     static_cast<double>(oField.uiExactFraction) * 0x1p-64) *
            1e-8);
    }
    std::ranges::sort(aflTrue);
    EXPECT_NEAR(static_cast<double>(Pacing_GetFigures(roInput.oPacing).uiCount), static_cast<double>(aflTrue.size()),
                40.0);
    for (const double flShare : {0.5, 0.95, 0.99, 0.999})
    {
        const double flTrue = aflTrue[static_cast<size_t>(flShare * static_cast<double>(aflTrue.size()))];
        // What is told is the upper bound of a bin, and so belongs to the next one.
        const auto uiTold = Pacing_GetBin(Pacing_GetPercentile(roInput.oPacing, flShare)) - 1;
        EXPECT_NEAR(static_cast<double>(uiTold), static_cast<double>(Pacing_GetBin(flTrue)), 1.0)
            << flShare << " " << flTrue;
    }
    EXPECT_NEAR(std::abs(roInput.oPacing.oWorst.flSeconds), aflTrue.back(), 0.3 * aflTrue.back());
}

TEST(JudgeScenario, FindsNothingInWhatIsAsItShouldBe)
{
    const char* szHours = std::getenv("VT_WATCH_JUDGE_HOURS");
    const uint32_t uiSeconds = szHours != nullptr ? 3600U * static_cast<uint32_t>(std::atoi(szHours)) : 900U;
    const std::string szIrregular = "set_buffer_irregular = 1\nset_buffer_rate = ";
    CJudged oJudged(Out(szFilm) + Out("set_buffer_rate = 25", "1080p50") + Out(szIrregular + "20") +
                    Out(szIrregular + "0.05") + In("ppm = 4\njitter_ticks = 30", "1080i50") +
                    In("jitter_ticks = 500", "1080p59.94"));
    oJudged.oBench.Run(uiSeconds);
    EXPECT_EQ(oJudged.uiBegan, 0U) << Describe(oJudged.aoAll);
    EXPECT_EQ(oJudged.oJudgement.oOverall.eStatus, EHealthStatus::HEALTHY);
    const auto& raoOutputs = oJudged.oBench.oSnapshot.aoDirections[1].aoStreams;
    EXPECT_EQ(raoOutputs[0].oFeed.oCadence, (SCadence{{3, 2}, 2}));
    EXPECT_EQ(raoOutputs[1].oFeed.oCadence, (SCadence{{2}, 1}));
    EXPECT_EQ(raoOutputs[0].oCounters.uiRepeatedBeyond, 0U);
    ExpectPacing(oJudged.oBench.GetInput(1));
}

} // namespace
