// The store beside plain lists of what was put into it: a process writes and is killed, another one reads and compares
// every member of every row, asks at random, and goes on where the first one ended.
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <tuple>

#include "StoreReader.h"
#include "StoreRecovery.h"
#include "StoreWriter.h"
#include "WatchSteps.h"

namespace
{

constexpr uint32_t gc_uiSteps = 40;
constexpr uint32_t gc_uiOpenSteps = 3; // that an incident lasts
constexpr SStreamKey gc_aoStreams[] = {
    {EStreamDirection::INPUT, 0}, {EStreamDirection::INPUT, 1}, {EStreamDirection::OUTPUT, 0}};

auto Members(const SWatchEvent& ro)
{
    return std::tuple(ro.uiNumber, ro.iUtcNs, ro.uiTick, ro.eKind, ro.oKey, ro.uiCount, ro.uiBefore, ro.uiAfter,
                      ro.flBefore, ro.flAfter, ro.flSeconds, ro.uiGroup, ro.uiMembers);
}

auto Members(const SEstimate& ro)
{
    return std::tuple(ro.bIsValid, ro.bIsValid ? ro.flValue : 0.0, ro.bIsValid ? ro.flStdErr : 0.0);
}

auto Members(const SBufferLevel& ro)
{
    return std::tuple(ro.flMean, ro.uiLeast, ro.uiMost);
}

auto Members(const SMinuteSummary& ro)
{
    const SHistoryPoint& roPoint = ro.oPoint;
    const SPacingPoint& roPacing = roPoint.oPacing;
    return std::tuple(ro.oKey, roPoint.iUtcNs, roPoint.uiSeconds, ro.uiPoints, ro.uiRatePoints, ro.uiPhasePoints,
                      ro.uiQueuePoints, ro.uiHeldPoints, roPoint.uiRepeated, roPoint.uiCadence, roPoint.flHeldSeconds,
                      Members(roPoint.oReady), Members(roPoint.oLoaned), Members(roPoint.oInternal),
                      ro.oPacing.auiCounts, ro.oPacing.oWorst.flSeconds, ro.oPacing.oWorst.iUtcNs, roPacing.uiFields,
                      roPacing.flP50, roPacing.flP95, roPacing.flP99, roPacing.flP999, roPacing.flWorst,
                      roPoint.uiFields, roPoint.uiObserved, roPoint.uiLost, roPoint.uiUnobserved, roPoint.uiSkipped,
                      ro.flWatchedSeconds, roPoint.flRunningSeconds, Members(roPoint.oRateHz),
                      Members(roPoint.oPhaseSeconds), roPoint.flPhaseMinSeconds, roPoint.flPhaseMaxSeconds,
                      Members(roPoint.oDriftRatio), roPoint.flJitterRmsSeconds, roPoint.eLock, roPoint.eState);
}

auto Members(const SIncident& ro)
{
    return std::tuple(ro.uiNumber, ro.iBeginUtcNs, ro.iEndUtcNs, ro.eDomain, ro.eWorst, ro.oFirstStream, ro.auiStreams,
                      ro.eShared, ro.bIsWhole, ro.bIsTogether, ro.flSpreadSeconds, ro.flStoodSeconds, ro.uiLost,
                      ro.uiFirstEvent, ro.oFirst.eReason, ro.oFirst.uiCount, ro.oFirst.uiMember, ro.oFirst.uiBefore,
                      ro.oFirst.uiAfter, ro.oFirst.flValue);
}

template <typename TRow> void ExpectSame(const std::vector<TRow>& raoFound, const std::vector<TRow>& raoExpected)
{
    ASSERT_EQ(raoFound.size(), raoExpected.size());
    for (size_t uiRow = 0; uiRow < raoFound.size(); ++uiRow)
    {
        EXPECT_EQ(Members(raoFound[uiRow]), Members(raoExpected[uiRow])) << "row " << uiRow;
    }
}

class StoreReference : public testing::TestWithParam<uint32_t>
{
protected:
    void Make();
    SWatchStep MakeStep(uint32_t uiStep);
    SIncident GetIncident(uint32_t uiIndex, uint32_t uiStep) const;
    void WriteAndDie();
    void CompareQueries();
    void CompareRemains();

    uint64_t Draw(uint64_t uiBelow) { return m_oRandom() % uiBelow; }
    double DrawReal() { return std::uniform_real_distribution(-1e3, 1e3)(m_oRandom); }
    SEstimate DrawEstimate() { return {DrawReal(), DrawReal(), Draw(4) != 0}; }
    float DrawKnown() { return Draw(4) != 0 ? static_cast<float>(Draw(1000)) / 7.0F : -1.0F; } // or not
    SBufferLevel DrawLevel()
    {
        return {DrawKnown(), static_cast<uint16_t>(Draw(9)), static_cast<uint16_t>(Draw(65536))};
    }
    template <typename TEnum> TEnum DrawOne() { return static_cast<TEnum>(Draw(static_cast<uint64_t>(TEnum::COUNT))); }
    SWatchEvent DrawEvent(uint32_t uiStep);
    SMinuteSummary DrawMinute(const SStreamKey& roKey, int64_t iUtcNs);

    const CTestFolder m_oFolder;
    const std::string m_szFile = m_oFolder / "store";
    std::mt19937_64 m_oRandom{GetParam()};
    const uint64_t m_uiDelivered = 1 + Draw(60);
    std::vector<SWatchEvent> m_aoEvents;                 // by number
    std::vector<size_t> m_auiEventsUntil;                // by step
    std::vector<SMinuteSummary> m_aoMinutes;             // by step and stream; those of the last step are running
    std::vector<std::array<SIncident, 2>> m_aoIncidents; // open and ended, by step
    std::vector<WatchPublicationPtr> m_apoPublications;
    std::vector<SWatchEvent> m_aoStepEvents;
    std::vector<SMinuteSummary> m_aoStepMinutes;
};

SWatchEvent StoreReference::DrawEvent(uint32_t uiStep)
{
    SWatchEvent oEvent = {};
    oEvent.uiNumber = m_aoEvents.size() + 1;
    oEvent.iUtcNs =
        iStepsBeginUtcNs + static_cast<int64_t>(uiStep) * iNsPerMinute + static_cast<int64_t>(Draw(90'000'000'000));
    oEvent.uiTick = m_oRandom();
    oEvent.eKind = Draw(2) == 0
                       ? DrawOne<EWatchEventKind>()
                       : static_cast<EWatchEventKind>(static_cast<size_t>(EWatchEventKind::INCIDENT_BEGAN) + Draw(2));
    oEvent.oKey = gc_aoStreams[Draw(std::size(gc_aoStreams))];
    oEvent.uiCount = m_oRandom();
    oEvent.uiBefore = m_oRandom();
    oEvent.uiAfter = m_oRandom();
    oEvent.flBefore = DrawReal();
    oEvent.flAfter = DrawReal();
    oEvent.flSeconds = DrawReal();
    oEvent.uiGroup = static_cast<uint32_t>(1 + Draw(gc_uiSteps + 5));
    oEvent.uiMembers = static_cast<uint32_t>(m_oRandom());
    return oEvent;
}

SMinuteSummary StoreReference::DrawMinute(const SStreamKey& roKey, int64_t iUtcNs)
{
    SMinuteSummary oMinute;
    SHistoryPoint& roPoint = oMinute.oPoint;
    oMinute.oKey = roKey;
    roPoint.iUtcNs = iUtcNs;
    roPoint.uiSeconds = 60;
    for (uint32_t* puiCount : {&oMinute.uiPoints, &oMinute.uiRatePoints, &oMinute.uiPhasePoints, &oMinute.uiQueuePoints,
                               &oMinute.uiHeldPoints, &roPoint.uiFields, &roPoint.uiObserved, &roPoint.uiLost,
                               &roPoint.uiUnobserved, &roPoint.uiSkipped, &roPoint.uiRepeated})
    {
        *puiCount = static_cast<uint32_t>(Draw(1U << 20U));
    }
    for (double* pflValue : {&oMinute.flWatchedSeconds, &roPoint.flRunningSeconds, &roPoint.flPhaseMinSeconds,
                             &roPoint.flPhaseMaxSeconds, &roPoint.flJitterRmsSeconds})
    {
        *pflValue = DrawReal();
    }
    for (SEstimate* poEstimate : {&roPoint.oRateHz, &roPoint.oPhaseSeconds, &roPoint.oDriftRatio})
    {
        *poEstimate = DrawEstimate();
    }
    roPoint.eLock = DrawOne<ELockState>();
    roPoint.eState = DrawOne<EStreamState>();
    roPoint.uiCadence = Cadence_Pack({{3, static_cast<uint8_t>(1 + Draw(255))}, 2});
    roPoint.flHeldSeconds = DrawKnown();
    roPoint.oReady = DrawLevel();
    roPoint.oLoaned = DrawLevel();
    roPoint.oInternal = DrawLevel();
    for (const uint64_t uiBits : {1U, 7U, 14U, 40U})
    {
        oMinute.oPacing.auiCounts[Draw(uiPacingBins)] = Draw(uint64_t{1} << uiBits);
    }
    oMinute.oPacing.oWorst = {DrawReal(), iUtcNs};
    roPoint.oPacing = HistoryPoint_GetPacing(oMinute.oPacing);
    return oMinute;
}

void StoreReference::Make()
{
    for (uint32_t uiStep = 0; uiStep < gc_uiSteps; ++uiStep)
    {
        const uint64_t uiEvents = Draw(4) + (uiStep + 1 == gc_uiSteps ? 1 : 0);
        for (uint64_t uiEvent = 0; uiEvent < uiEvents; ++uiEvent)
        {
            m_aoEvents.push_back(DrawEvent(uiStep));
        }
        m_auiEventsUntil.push_back(m_aoEvents.size());
        for (const SStreamKey& roKey : gc_aoStreams)
        {
            m_aoMinutes.push_back(DrawMinute(roKey, iStepsBeginUtcNs + uiStep * iNsPerMinute));
            m_aoMinutes.back().bIsComplete = uiStep + 1 < gc_uiSteps;
        }
        SIncident oIncident;
        oIncident.uiNumber = uiStep + 1;
        oIncident.iBeginUtcNs = iStepsBeginUtcNs + uiStep * iNsPerMinute;
        oIncident.eDomain = static_cast<EHealthDomain>(Draw(uiNbOfHealthDomains));
        oIncident.eWorst = static_cast<EHealthStatus>(Draw(uiNbOfHealthStatuses));
        oIncident.oFirstStream = gc_aoStreams[Draw(3)];
        oIncident.oFirst = {DrawOne<EHealthReason>(),
                            m_oRandom(),
                            static_cast<uint32_t>(m_oRandom()),
                            m_oRandom(),
                            m_oRandom(),
                            DrawReal()};
        oIncident.auiStreams = {static_cast<uint32_t>(m_oRandom()), static_cast<uint32_t>(m_oRandom())};
        oIncident.auiStreams[2 + Draw(uiMaxSlots - 2)] = static_cast<uint32_t>(m_oRandom());
        oIncident.eShared = static_cast<EIncidentShare>(Draw(4));
        oIncident.bIsWhole = Draw(2) == 0;
        oIncident.bIsTogether = Draw(2) == 0;
        oIncident.flSpreadSeconds = DrawReal();
        oIncident.flStoodSeconds = DrawReal();
        oIncident.uiFirstEvent = Draw(50);
        SIncident oEnded = oIncident;
        oEnded.iEndUtcNs = oIncident.iBeginUtcNs + static_cast<int64_t>(1 + Draw(100'000'000'000));
        oEnded.uiLost = m_oRandom();
        m_aoIncidents.push_back({oIncident, oEnded});
    }
}

SIncident StoreReference::GetIncident(uint32_t uiIndex, uint32_t uiStep) const
{
    return m_aoIncidents[uiIndex][uiIndex + gc_uiOpenSteps <= uiStep ? 1 : 0];
}

SWatchStep StoreReference::MakeStep(uint32_t uiStep)
{
    SMadeUpSecond oSecond = MakeSecond(static_cast<int64_t>(uiStep) * 60 + 59, 0);
    oSecond.poPublication->szBoard = "/lib/made-up";
    oSecond.poPublication->uiBoardVersion = 7;
    oSecond.poPublication->aaoTexts[0].push_back({"IN_01", uiStep < 20 ? "before" : "after", "1080i50", "RGB", ""});
    oSecond.poPublication->aaoTexts[1].push_back({"OUT_00", "out", "720p60", "NV12", ""});
    for (uint32_t uiBack = 0; uiBack <= std::min(uiStep, 6U); ++uiBack)
    {
        oSecond.poPublication->oJudgement.aoIncidents.push_back(GetIncident(uiStep - uiBack, uiStep));
    }
    const auto itFirst =
        m_aoEvents.begin() + static_cast<std::ptrdiff_t>(uiStep == 0 ? 0 : m_auiEventsUntil[uiStep - 1]);
    m_aoStepEvents.assign(itFirst, m_aoEvents.begin() + static_cast<std::ptrdiff_t>(m_auiEventsUntil[uiStep]));
    m_aoStepMinutes.assign(m_aoMinutes.begin() + uiStep * 3, m_aoMinutes.begin() + uiStep * 3 + 3);
    return {oSecond.poPublication, m_aoStepEvents, {}, m_aoStepMinutes};
}

void StoreReference::WriteAndDie()
{
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        CStoreWriter oWriter(m_szFile, 3500);
        SStoreRemains oRemains;
        const bool bIsOpen = !oWriter.Open(iStepsBeginUtcNs, oRemains) && !oWriter.Start();
        for (uint32_t uiStep = 0; bIsOpen && uiStep < gc_uiSteps; ++uiStep)
        {
            oWriter.KeepDelivered(m_uiDelivered);
            oWriter.Put(MakeStep(uiStep));
        }
        CStoreReader oReader(m_szFile);
        static_cast<void>(Await(
            [&]
            {
                std::vector<SWatchEvent> aoLast;
                oReader.FindEvents({.uiAfterNumber = m_aoEvents.size() - 1}, UINT64_MAX, aoLast);
                return !aoLast.empty();
            }));
        raise(SIGKILL);
    }
    waitpid(iChild, nullptr, 0);
}

// What is asked for, found by looking at everything.
void StoreReference::CompareQueries()
{
    CStoreReader oReader(m_szFile);
    for (int iQuery = 0; iQuery < 100; ++iQuery)
    {
        const int64_t iMiddleNs = iStepsBeginUtcNs + static_cast<int64_t>(Draw(gc_uiSteps)) * iNsPerMinute;
        const bool bByMoment = Draw(2) == 0;
        SEventQuery oQuery;
        oQuery.iFromUtcNs = bByMoment ? iMiddleNs - static_cast<int64_t>(Draw(10)) * iNsPerMinute : INT64_MIN;
        oQuery.iToUtcNs = bByMoment ? m_aoEvents[Draw(m_aoEvents.size())].iUtcNs : INT64_MAX;
        oQuery.uiAfterNumber = Draw(2) * Draw(m_aoEvents.size());
        oQuery.uiBeforeNumber = Draw(2) == 0 ? UINT64_MAX : Draw(m_aoEvents.size());
        oQuery.uiKinds = Draw(2) == 0 ? ~0ULL : m_oRandom();
        oQuery.auiStreams[1] = Draw(2) == 0 ? ~0U : 0;
        oQuery.uiMost = static_cast<uint32_t>(1 + Draw(60));
        const uint64_t uiBefore = Draw(2) == 0 ? UINT64_MAX : Draw(m_aoEvents.size());
        std::vector<SWatchEvent> aoExpected;
        for (const SWatchEvent& ro : m_aoEvents)
        {
            const bool bFits = ro.iUtcNs >= oQuery.iFromUtcNs && ro.iUtcNs < oQuery.iToUtcNs &&
                               ro.uiNumber > oQuery.uiAfterNumber &&
                               ro.uiNumber < std::min(oQuery.uiBeforeNumber, uiBefore) &&
                               (oQuery.uiKinds >> static_cast<unsigned>(ro.eKind) & 1U) != 0 &&
                               (ro.oKey.eDirection == EStreamDirection::INPUT || oQuery.auiStreams[1] != 0 ||
                                (ro.eKind == EWatchEventKind::SLIPPED && ro.uiBefore >> 32U == 0));
            aoExpected.insert(aoExpected.begin(), bFits ? 1 : 0, ro);
        }
        if (bByMoment)
        {
            std::ranges::stable_sort(aoExpected, std::ranges::greater{}, &SWatchEvent::iUtcNs);
        }
        aoExpected.resize(std::min<size_t>(aoExpected.size(), oQuery.uiMost));
        std::vector<SWatchEvent> aoFound;
        oReader.FindEvents(oQuery, uiBefore, aoFound);
        ExpectSame(aoFound, aoExpected);

        const SHistoryQuery oMinutes = {gc_aoStreams[Draw(3)], iMiddleNs,
                                        iMiddleNs + static_cast<int64_t>(Draw(20)) * iNsPerMinute, 60,
                                        static_cast<uint32_t>(1 + Draw(15))};
        std::vector<SMinuteSummary> aoMinutes = m_aoMinutes;
        std::erase_if(aoMinutes,
                      [&](const SMinuteSummary& ro)
                      {
                          return ro.oKey != oMinutes.oKey || ro.oPoint.iUtcNs < oMinutes.iFromUtcNs ||
                                 ro.oPoint.iUtcNs >= oMinutes.iToUtcNs;
                      });
        aoMinutes.erase(aoMinutes.begin(), aoMinutes.end() - static_cast<std::ptrdiff_t>(
                                                                 std::min<size_t>(aoMinutes.size(), oMinutes.uiMost)));
        std::vector<SMinuteSummary> aoFoundMinutes;
        oReader.FindMinutes(oMinutes, aoFoundMinutes);
        ExpectSame(aoFoundMinutes, aoMinutes);

        const uint64_t uiWhich = Draw(3);
        const SIncidentQuery oIncidents = {iMiddleNs, iMiddleNs + static_cast<int64_t>(Draw(30)) * iNsPerMinute,
                                           uiWhich == 1, uiWhich == 2, static_cast<uint32_t>(1 + Draw(9))};
        const uint64_t uiBeforeIncident = Draw(2) == 0 ? UINT64_MAX : 1 + Draw(gc_uiSteps);
        std::vector<SIncident> aoIncidents;
        for (uint32_t uiIndex = gc_uiSteps; uiIndex-- > 0;)
        {
            const SIncident oIncident = GetIncident(uiIndex, gc_uiSteps - 1);
            const bool bIsOpen = oIncident.iEndUtcNs == 0;
            const bool bFits = oIncident.uiNumber < uiBeforeIncident && oIncident.iBeginUtcNs < oIncidents.iToUtcNs &&
                               (bIsOpen ? uiWhich != 2 : uiWhich != 1 && oIncident.iEndUtcNs >= oIncidents.iFromUtcNs);
            aoIncidents.insert(aoIncidents.end(), bFits && aoIncidents.size() < oIncidents.uiMost ? 1 : 0, oIncident);
        }
        std::vector<SIncident> aoFoundIncidents;
        oReader.FindIncidents(oIncidents, uiBeforeIncident, aoFoundIncidents);
        ExpectSame(aoFoundIncidents, aoIncidents);
    }
    EXPECT_EQ(oReader.GetBegin(), iStepsBeginUtcNs);
    EXPECT_EQ(oReader.GetFault().GetText(), "");
}

// What the next run finds: the killed one's end, its open minutes and incidents, and what nobody was told of.
void StoreReference::CompareRemains()
{
    const int64_t iEndUtcNs = iStepsBeginUtcNs + (gc_uiSteps * 60 - 1) * iNsPerSecond;
    CStoreWriter oWriter(m_szFile, 3500);
    SStoreRemains oRemains;
    ASSERT_EQ(oWriter.Open(iEndUtcNs + iNsPerSecond / 2, oRemains).GetText(), "");
    std::vector<std::pair<SWatchEvent, SIncident>> aoUndelivered;
    size_t uiOpen = 0;
    for (const SWatchEvent& ro : m_aoEvents)
    {
        const bool bIsOfIncident =
            ro.eKind == EWatchEventKind::INCIDENT_BEGAN || ro.eKind == EWatchEventKind::INCIDENT_ENDED;
        if (ro.uiNumber > m_uiDelivered && bIsOfIncident && ro.uiGroup <= gc_uiSteps)
        {
            aoUndelivered.emplace_back(ro, GetIncident(ro.uiGroup - 1, gc_uiSteps - 1));
            SIncident& roIncident = aoUndelivered.back().second;
            roIncident.iEndUtcNs = roIncident.iEndUtcNs != 0 ? roIncident.iEndUtcNs : iEndUtcNs;
        }
    }
    for (uint32_t uiIndex = 0; uiIndex < gc_uiSteps; ++uiIndex)
    {
        const SIncident oIncident = GetIncident(uiIndex, gc_uiSteps - 1);
        if (oIncident.iEndUtcNs == 0)
        {
            aoUndelivered.push_back(oRemains.aoEnded.at(uiOpen));
            EXPECT_EQ(aoUndelivered.back().first.uiNumber, m_aoEvents.size() + std::size(gc_aoStreams) + ++uiOpen)
                << "behind the end of every stream";
            EXPECT_EQ(aoUndelivered.back().first.eKind, EWatchEventKind::INCIDENT_ENDED);
            EXPECT_EQ(aoUndelivered.back().first.uiGroup, oIncident.uiNumber);
            EXPECT_EQ(aoUndelivered.back().first.iUtcNs, iEndUtcNs);
            EXPECT_DOUBLE_EQ(aoUndelivered.back().first.flSeconds,
                             static_cast<double>(iEndUtcNs - oIncident.iBeginUtcNs) * 1e-9);
        }
    }
    ASSERT_EQ(oRemains.aoUndelivered.size(), aoUndelivered.size());
    for (size_t uiRow = 0; uiRow < aoUndelivered.size(); ++uiRow)
    {
        EXPECT_EQ(Members(oRemains.aoUndelivered[uiRow].first), Members(aoUndelivered[uiRow].first));
        EXPECT_EQ(Members(oRemains.aoUndelivered[uiRow].second), Members(aoUndelivered[uiRow].second));
    }
    EXPECT_TRUE(oRemains.bHasDelivered);
    EXPECT_EQ(oRemains.uiLastDelivered, m_uiDelivered);
    EXPECT_EQ(oRemains.uiLastEvent, m_aoEvents.size() + std::size(gc_aoStreams) + uiOpen);
    EXPECT_EQ(oRemains.uiLastIncident, gc_uiSteps);
    EXPECT_EQ(oRemains.iOwnRun, 0);
    const std::vector<SMinuteSummary> aoRunning(m_aoMinutes.end() - 3, m_aoMinutes.end());
    std::ranges::sort(oRemains.aoRunning, {}, &SMinuteSummary::oKey);
    ExpectSame(oRemains.aoRunning, aoRunning);
    size_t uiEarlier = 0;
    for (const SMinuteSummary& ro : aoRunning)
    {
        const EStreamState eState = ro.oPoint.eState;
        int64_t iSinceUtcNs = iEndUtcNs;
        for (const SWatchEvent& roEvent : m_aoEvents)
        {
            const bool bIsLoss = eState == EStreamState::LOST && roEvent.eKind == EWatchEventKind::SIGNAL_LOST &&
                                 roEvent.oKey == ro.oKey;
            iSinceUtcNs = bIsLoss ? roEvent.iUtcNs : iSinceUtcNs;
        }
        const auto itFound = std::ranges::find(oRemains.aoEarlier, ro.oKey, &SEarlierStream::oKey);
        const bool bIsTold = eState == EStreamState::RUNNING || eState == EStreamState::LOST;
        ASSERT_EQ(itFound != oRemains.aoEarlier.end(), bIsTold);
        uiEarlier += bIsTold ? 1 : 0;
        if (bIsTold)
        {
            EXPECT_EQ(itFound->oRun.eState,
                      eState == EStreamState::LOST ? EEarlierState::LOST : EEarlierState::RUNNING);
            EXPECT_EQ(itFound->oRun.iUtcNs, iSinceUtcNs);
        }
    }
    EXPECT_EQ(oRemains.aoEarlier.size(), uiEarlier);
    CStoreReader oReader(m_szFile);
    std::vector<SWatchEvent> aoEnds;
    oReader.FindEvents({.uiAfterNumber = m_aoEvents.size()}, UINT64_MAX, aoEnds);
    std::vector<SWatchEvent> aoExpected(3);
    for (size_t uiStream = 0; uiStream < 3; ++uiStream)
    {
        SWatchEvent& roEnd = aoExpected[2 - uiStream];
        roEnd.uiNumber = m_aoEvents.size() + uiStream + 1;
        roEnd.iUtcNs = iEndUtcNs;
        roEnd.eKind = EWatchEventKind::WATCH_ENDED;
        roEnd.oKey = gc_aoStreams[uiStream];
    }
    aoEnds.erase(aoEnds.begin(), aoEnds.begin() + static_cast<std::ptrdiff_t>(uiOpen)); // newest first
    ExpectSame(aoEnds, aoExpected);
    const std::vector<SStoreRun> aoRuns = oReader.FindRuns(iEndUtcNs, iEndUtcNs + 1);
    ASSERT_EQ(aoRuns.size(), 1U) << "one that reaches into the span";
    EXPECT_TRUE(oReader.FindRuns(iEndUtcNs + 1, INT64_MAX).empty() && oReader.FindRuns(0, iStepsBeginUtcNs).empty());
    EXPECT_EQ(
        std::tuple(aoRuns[0].iBeginUtcNs, aoRuns[0].iEndUtcNs, aoRuns[0].eEnd, aoRuns[0].szHost, aoRuns[0].szBoard),
        std::tuple(iStepsBeginUtcNs, iEndUtcNs, ERunEnd::BROKEN, "wall", "/lib/made-up"));
    std::string szStreams;
    for (const SStoreStream& ro : oReader.FindStreams())
    {
        szStreams += std::to_string(static_cast<int>(ro.oKey.eDirection)) + std::to_string(ro.oKey.uiIndex) +
                     ro.oTexts.szName + "," + ro.oTexts.szStandard + "," + ro.oTexts.szFormat + ";";
    }
    EXPECT_EQ(szStreams, "00Camera \"A\",1080p60,UYVY;01after,1080i50,RGB;10out,720p60,NV12;");
}

TEST_P(StoreReference, GivesBackWhatAKilledProcessWrote)
{
    Make();
    WriteAndDie();
    CompareQueries();
    CompareRemains();
}

INSTANTIATE_TEST_SUITE_P(Seeds, StoreReference, testing::Range(1U, 3U));

} // namespace
