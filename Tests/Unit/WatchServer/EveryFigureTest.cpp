// A publication whose figures are all different, and every document that is made of it, to the letter: what stands in
// another's place, in another unit or with another sign is not what EveryFigure.txt says, which was read line by line.
#include <algorithm>
#include <array>
#include <bit>
#include <fstream>
#include <memory>
#include <span>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "EventJson.h"
#include "EventKinds.h"
#include "HealthJson.h"
#include "HealthTexts.h"
#include "LiveJson.h"
#include "TimeUnits.h"
#include "WatchJson.h"
#include "WatchMetrics.h"

namespace
{

constexpr int64_t gc_iUtcNs = 1'795'299'937'123'456'789;

// Whole numbers one after the other, and what is made of them.
class CFigures
{
public:
    uint64_t Whole() { return ++m_uiLast; }
    uint32_t Small() { return static_cast<uint32_t>(Whole()); }
    double Real() { return static_cast<double>(Whole()) + 0.25; }
    int64_t Moment() { return gc_iUtcNs - static_cast<int64_t>(Whole()) * iNsPerSecond; }
    SEstimate Estimate() { return {Real(), Real(), true}; }
    SQueueLevel Level() { return {Real(), Small(), Small()}; }

private:
    uint64_t m_uiLast = 0;
};

SHealth MakeHealth(CFigures& roNext, EHealthStatus eStatus, const SHealthReason& roReason)
{
    SHealth oHealth{eStatus, roNext.Moment(), roReason, {}};
    for (uint64_t& ruiTransitions : oHealth.auiTransitions)
    {
        ruiTransitions = roNext.Whole();
    }
    return oHealth;
}

SStreamHealth MakeStreamHealth(CFigures& roNext)
{
    const std::array<SHealthReason, uiNbOfHealthDomains> aoReasons = {
        {{EHealthReason::SIGNAL_LOST},
         {EHealthReason::FIELDS_LOST, roNext.Whole()},
         {EHealthReason::CADENCE_BROKEN, 0, 0, 0x0203},
         {EHealthReason::RATE_OFF, 0, 0, 0, 0, -roNext.Real()},
         {}}};
    SStreamHealth oHealth;
    for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        oHealth.aoDomains[uiDomain] =
            MakeHealth(roNext, static_cast<EHealthStatus>((uiDomain + 2) % uiNbOfHealthStatuses), aoReasons[uiDomain]);
    }
    oHealth.oOverall = MakeHealth(roNext, EHealthStatus::UNHEALTHY, aoReasons[1]);
    return oHealth;
}

// Whole numbers, and three of seconds behind them.
SStreamCounters MakeCounters(CFigures& roNext)
{
    std::array<uint64_t, sizeof(SStreamCounters) / sizeof(uint64_t)> auiCounters;
    std::ranges::generate(auiCounters, [&] { return roNext.Whole(); });
    std::ranges::for_each(std::span(auiCounters).last(3),
                          [](uint64_t& rui) { rui = std::bit_cast<uint64_t>(static_cast<double>(rui) + 0.25); });
    return std::bit_cast<SStreamCounters>(auiCounters);
}

SStreamFigures MakeStream(CFigures& roNext, EStreamDirection eDirection)
{
    SStreamFigures ro;
    ro.oKey = {eDirection, 0};
    ro.eState = EStreamState::RUNNING;
    ro.iStateSinceUtcNs = roNext.Moment();
    ro.oDescription.uiNbOfBuffer = roNext.Small();
    ro.oDescription.eCaptureState = VtVideoIn_State_STOPPED;
    ro.oDescription.ePowerState = VtVideoOut_PowerState_BLANKED;
    ro.uiNominalNumerator = roNext.Whole();
    ro.uiNominalDenominator = roNext.Whole();
    ro.flNominalRateHz = roNext.Real();
    ro.flLineSeconds = roNext.Real();
    ro.oCounters = MakeCounters(roNext);
    for (auto* paoEstimates : {&ro.aoRateHz, &ro.aoRatePpm})
    {
        std::ranges::generate(*paoEstimates, [&] { return roNext.Estimate(); });
    }
    ro.flJitterRmsSeconds = roNext.Real();
    ro.flJitterPeakSeconds = roNext.Real();
    std::ranges::generate(ro.aoTdevSeconds, [&] { return roNext.Estimate(); });
    ro.oIntervals.flBinSeconds = roNext.Real();
    std::ranges::generate(ro.oIntervals.auiCounts, [&] { return roNext.Small(); });
    std::ranges::generate(ro.oWakes.auiCounts, [&] { return roNext.Whole(); });
    ro.oWakes.flSumSeconds = roNext.Real();
    for (const uint32_t uiBin : {0U, 1U, 2U, 30U, 50U, 51U, 52U, 53U, 90U, 101U, 102U})
    {
        ro.oPacing.auiCounts[uiBin] = roNext.Whole();
    }
    ro.oPacing.flSumSeconds = roNext.Real();
    ro.oPacing.flWorstSeconds = -roNext.Real();
    ro.oPacing.iWorstUtcNs = roNext.Moment();
    for (SQueueWindow& roWindow : ro.oQueue.aoWindows)
    {
        roWindow = {&roWindow != &ro.oQueue.aoWindows[1], roNext.Level(), roNext.Level(), roNext.Level()};
    }
    ro.oQueue.flHeldSeconds = roNext.Real();
    ro.oQueue.bIsHeldKnown = true;
    ro.oQueue.bIsConsumerStalled = true;
    ro.oQueue.iConsumerStalledSinceUtcNs = roNext.Moment();
    ro.oFeed = {true, true, {{3, 2}, 2}, roNext.Moment(), true, roNext.Moment()};
    ro.oFieldOrder = {true, true, roNext.Moment()};
    ro.oGridSeconds = roNext.Estimate();
    ro.flPeriodSeconds = roNext.Real();
    ro.oPhaseSeconds = roNext.Estimate();
    ro.oDriftRatio = roNext.Estimate();
    ro.eLock = ELockState::PASSING;
    ro.flPhaseLineSeconds = roNext.Real();
    ro.oSecondsToThreshold = roNext.Estimate();
    ro.oSecondsToSlip = roNext.Estimate();
    ro.oTaiPhaseSeconds = roNext.Estimate();
    ro.flTaiUncertaintySeconds = roNext.Real();
    ro.oLastEvent = {roNext.Whole(), EWatchEventKind::PHASE_STEPPED, roNext.Moment()};
    return ro;
}

void FillDirection(CFigures& roNext, EStreamDirection eDirection, SWatchPublication& roPublication)
{
    SDirectionFigures& ro = roPublication.oSnapshot.aoDirections[static_cast<size_t>(eDirection)];
    ro.bHasReference = true;
    ro.aoStreams = {MakeStream(roNext, eDirection), {}}; // of the second one nothing is known
    ro.aoStreams[1].oKey = {eDirection, 1};
    SPairFigures oPair;
    oPair.uiSecond = 1;
    oPair.oOffsetSeconds = roNext.Estimate();
    oPair.flLineSeconds = roNext.Real();
    oPair.flOffsetLines = roNext.Real();
    oPair.oDriftRatio = roNext.Estimate();
    oPair.eLock = ELockState::FREE;
    oPair.oSecondsToThreshold = roNext.Estimate();
    oPair.oSecondsToSlip = roNext.Estimate();
    ro.aoPairs = {oPair};
    ro.aoGroups = {{roNext.Small(), 0b11, roNext.Moment()}};
    roPublication.aaoTexts[static_cast<size_t>(eDirection)] = {{"", "A \"name\"", "a standard", "a format", "a setup"},
                                                               {"", "B", "", "", ""}};
    roPublication.oJudgement.aoStreams[static_cast<size_t>(eDirection)] = {MakeStreamHealth(roNext), {}};
}

SIncident MakeIncident(CFigures& roNext, uint32_t uiIndex)
{
    SIncident ro;
    ro.uiNumber = roNext.Whole();
    ro.iBeginUtcNs = roNext.Moment();
    ro.iEndUtcNs = uiIndex % 2 == 0 ? 0 : roNext.Moment();
    ro.eDomain = static_cast<EHealthDomain>(uiIndex % uiNbOfHealthDomains);
    ro.oFirstStream = {uiIndex % 2 == 0 ? EStreamDirection::INPUT : EStreamDirection::OUTPUT, uiIndex};
    ro.oFirst = {static_cast<EHealthReason>(uiIndex % static_cast<uint32_t>(EHealthReason::COUNT)),
                 roNext.Whole(),
                 uiIndex,
                 0x0203,
                 0x0101,
                 roNext.Real()};
    ro.auiStreams = {uiIndex % 3 == 0 ? 0U : 0b101U, uiIndex % 3 == 1 ? 0U : 0b11000U};
    ro.eShared = static_cast<EIncidentShare>(uiIndex < 20 ? 0 : 1 + uiIndex % 3);
    ro.bIsWhole = uiIndex % 2 == 0;
    ro.bIsTogether = uiIndex % 4 < 2;
    ro.flSpreadSeconds = roNext.Real() * 1e-3;
    ro.flStoodSeconds = roNext.Real();
    ro.uiLost = roNext.Whole();
    ro.uiFirstEvent = uiIndex == 0 ? 0 : roNext.Whole();
    return ro;
}

SWatchPublication Make()
{
    CFigures oNext;
    SWatchPublication ro;
    ro.oSnapshot.uiNumber = oNext.Whole();
    ro.oSnapshot.uiTickFrequencyHz = oNext.Small();
    ro.oSnapshot.oThreshold.flLines = oNext.Real();
    ro.oSnapshot.oClock = {gc_iUtcNs, oNext.Whole(), oNext.Whole(), oNext.Real(), true, 37, true, oNext.Real()};
    FillDirection(oNext, EStreamDirection::INPUT, ro);
    FillDirection(oNext, EStreamDirection::OUTPUT, ro);
    ro.oCosts = {oNext.Whole(), oNext.Whole(), oNext.Whole(), oNext.Whole(), true,         oNext.Whole(),
                 oNext.Whole(), false,         oNext.Whole(), oNext.Real(),  oNext.Real(), oNext.Whole()};
    ro.oJudgement.oOverall = MakeHealth(oNext, EHealthStatus::PARTIALLY_HEALTHY, {});
    ro.oJudgement.uiIncidentsOpen = oNext.Small();
    ro.oJudgement.uiIncidents = oNext.Whole();
    ro.szHost = "a host";
    ro.szBoard = "a board";
    ro.uiBoardVersion = 0x0001000200030004;
    ro.bIsSimulated = true;
    ro.iStartUtcNs = oNext.Moment();
    return ro;
}

// A line per event of every kind, and one with nothing in it.
std::string PrintEvents()
{
    CFigures oNext;
    std::string szText;
    for (uint32_t uiKind = 0; uiKind < static_cast<uint32_t>(EWatchEventKind::COUNT); ++uiKind)
    {
        SWatchEvent oEvent = {oNext.Whole(),
                              oNext.Moment(),
                              oNext.Whole() % 2 == 0 ? 0 : oNext.Whole(),
                              static_cast<EWatchEventKind>(uiKind),
                              {static_cast<EStreamDirection>(uiKind % 2), uiKind},
                              oNext.Whole(),
                              uiKind % 3,
                              1 + uiKind % 2,
                              oNext.Real(),
                              oNext.Real(),
                              oNext.Real(),
                              uiKind % 5,
                              0b1001};
        szText += WatchJson_Print(EventJson_FromEvent(oEvent)) + " ";
    }
    return szText;
}

std::string PrintIncidents()
{
    CFigures oNext;
    std::string szText;
    for (uint32_t uiIndex = 0; uiIndex < 32; ++uiIndex)
    {
        const SIncident oIncident = MakeIncident(oNext, uiIndex);
        szText +=
            WatchJson_Print(HealthJson_FromIncident(oIncident)) + " " + HealthTexts_GetIncidentTitle(oIncident) + " ";
    }
    return szText;
}

// Without what explains them and what is of this process, a family on a line.
std::string PrintMetrics()
{
    SServingCosts oServing;
    oServing.uiListeners = 1001;
    oServing.uiScrapes = 1002;
    oServing.flScrapeSeconds = 1003.5;
    std::istringstream oLines(WatchMetrics_Print(std::make_shared<const SWatchPublication>(Make()), oServing,
                                                 EMetricFormat::PROMETHEUS, EMetricDetail::FULL));
    std::string szText;
    for (std::string szLine; std::getline(oLines, szLine);)
    {
        const bool bIsHelp = szLine.starts_with("# HELP ");
        const bool bIsOwn = std::ranges::any_of(
            std::array{"build_info", "_open_fds", "_max_fds", "_virtual_memory_bytes", "_process_threads"},
            [&](const char* szName) { return szLine.find(szName) != std::string::npos; });
        szText += bIsOwn || szLine.empty() ? "" : bIsHelp ? "\n" : szLine + " ";
    }
    return szText;
}

TEST(EveryFigure, StandsInItsPlaceInEveryDocument)
{
    const SWatchPublication oPublication = Make();
    const std::string szAll = "streams " + WatchJson_Print(WatchJson_FromStreams(oPublication)) + "\npairs " +
                              WatchJson_Print(WatchJson_FromPairs(oPublication)) + "\nlive " +
                              WatchJson_Print(LiveJson_FromPublication(oPublication)) + "\nevents " + PrintEvents() +
                              "\nincidents " + PrintIncidents() + "\nmetrics" + PrintMetrics() + "\n";
    std::ifstream oFile(VT_EVERY_FIGURE);
    std::istringstream oMade(szAll);
    std::string szMade, szExpected;
    while (std::getline(oMade, szMade))
    {
        EXPECT_TRUE(std::getline(oFile, szExpected));
        EXPECT_EQ(szMade, szExpected);
    }
    EXPECT_FALSE(std::getline(oFile, szExpected)) << szExpected;
}

} // namespace
