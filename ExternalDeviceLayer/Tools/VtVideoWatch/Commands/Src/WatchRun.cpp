#include "WatchRun.h"

#include <climits>
#include <cstdio>
#include <pthread.h>
#include <unistd.h>
#include <utility>

#include "ProcessCosts.h"
#include "VideoTexts.h"
#include "WatchClocks.h"
#include "WatchDataWriter.h"
#include "WatchTexts.h"

namespace
{

constexpr uint64_t uiDrainPeriodNs = 50'000'000;
constexpr uint64_t uiStallNs = 2'000'000; // so late, this thread did not just wake up slowly
constexpr uint64_t uiAnalysisPeriodNs = 1'000'000'000;

std::string GetHostName()
{
    char szHost[HOST_NAME_MAX + 1] = {};
    return gethostname(szHost, HOST_NAME_MAX) == 0 ? szHost : "";
}

void SleepUntil(uint64_t uiMomentNs)
{
    const timespec oMoment = {static_cast<time_t>(uiMomentNs / iNsPerSecond),
                              static_cast<long>(uiMomentNs % iNsPerSecond)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &oMoment, nullptr);
}

} // namespace

CWatchRun::CWatchRun(const CBoardSession& roSession, SWatchData& roData, SWatchRunSetup oSetup)
    : m_roSession(roSession), m_roData(roData), m_oSetup(std::move(oSetup)), m_uiLastEvent(m_oSetup.uiEventsBefore)
{
    const SBoardFacts& roFacts = roSession.GetFacts();
    const std::array<StreamChannels, 2>& raoChannels = roSession.GetChannels();
    SWatchSettings& roSettings = m_oSetup.oSettings;
    roSettings.uiTickFrequencyHz = roFacts.uiTickFrequencyHz;
    roSettings.bTicksAreMonotonic = roFacts.bTicksAreMonotonic;
    roSettings.iTickOffsetNs = roFacts.iTickOffsetNs;
    m_poEngine = WatchEngine_Create(roSettings, static_cast<uint32_t>(raoChannels[0].size()),
                                    static_cast<uint32_t>(raoChannels[1].size()));
    m_oTemplate.szHost = GetHostName();
    m_oTemplate.szBoard = roFacts.szLibrary;
    m_oTemplate.uiBoardVersion = roFacts.uiVersion;
    m_oTemplate.bIsSimulated = roFacts.bIsSimulated;
    m_oTemplate.iStartUtcNs = m_oSetup.iStartUtcNs;
    for (const StreamChannels& raoStreams : raoChannels)
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            GetTexts(rpoChannel->eDirection).emplace_back().szId =
                WatchTexts_GetStreamId(rpoChannel->eDirection, rpoChannel->uiIndex);
        }
    }
}

std::vector<SStreamTexts>& CWatchRun::GetTexts(EStreamDirection eDirection)
{
    return eDirection == EStreamDirection::INPUT ? m_oTemplate.aoInputTexts : m_oTemplate.aoOutputTexts;
}

void CWatchRun::Start()
{
    m_oThread = std::thread([this] { Run(); });
}

void CWatchRun::Stop()
{
    m_bStop.store(true);
    if (m_oThread.joinable())
    {
        m_oThread.join();
    }
}

void CWatchRun::Run()
{
    pthread_setname_np(pthread_self(), "analysis");
    uint64_t uiNextAnalysisNs = ReadMonotonicNs() + uiAnalysisPeriodNs;
    while (!m_bStop.load(std::memory_order_relaxed))
    {
        const uint64_t uiNowNs = ReadMonotonicNs();
        const uint64_t uiWakeNs = std::min(uiNowNs + uiDrainPeriodNs, std::max(uiNextAnalysisNs, uiNowNs));
        SleepUntil(uiWakeNs);
        TellStall(uiWakeNs);
        Drain();
        if (ReadMonotonicNs() >= uiNextAnalysisNs)
        {
            Analyse(false);
            // After a stall the beat goes on from now: what was missed cannot be caught up with.
            uiNextAnalysisNs = std::max(uiNextAnalysisNs, ReadMonotonicNs() - uiAnalysisPeriodNs) + uiAnalysisPeriodNs;
        }
    }
    Drain();
    Analyse(true);
}

// What held up this thread held up those of the streams as well.
void CWatchRun::TellStall(uint64_t uiDueNs)
{
    const uint64_t uiNowNs = ReadMonotonicNs();
    if (uiNowNs > uiDueNs + uiStallNs)
    {
        WatchEngine_TakeStall(*m_poEngine, uiDueNs, uiNowNs);
    }
}

void CWatchRun::Drain()
{
    for (const StreamChannels& raoStreams : m_roSession.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            const EStreamDirection eDirection = rpoChannel->eDirection;
            const uint32_t uiIndex = rpoChannel->uiIndex;
            rpoChannel->oFields.Drain([&](const SFieldRecord& roRecord)
                                      { WatchEngine_TakeRecord(*m_poEngine, eDirection, uiIndex, roRecord); });
            rpoChannel->oDescriptions.Drain([&](const SDescriptionRecord& roRecord)
                                            { TakeDescription(eDirection, uiIndex, roRecord); });
        }
    }
}

void CWatchRun::TakeDescription(EStreamDirection eDirection, uint32_t uiIndex, const SDescriptionRecord& roRecord)
{
    const SStreamDescription& roDescription = roRecord.oDescription;
    WatchEngine_TakeDescription(*m_poEngine, eDirection, uiIndex, roDescription);
    SStreamTexts& roTexts = GetTexts(eDirection)[uiIndex];
    VTSTR256 szStandard = {};
    FormatVideoParam(&roDescription.oTimings, 0, szStandard);
    roTexts.szName = roRecord.szName;
    roTexts.szStandard = szStandard;
    roTexts.szFormat = roRecord.szFormat;
    roTexts.szCapture = eDirection == EStreamDirection::INPUT ? VtVideoInStateToString(roDescription.eCaptureState)
                                                              : PowerStateToString(roDescription.ePowerState);
}

void CWatchRun::AddEvents(std::span<const SWatchEvent> aoEvents)
{
    for (SWatchEvent oEvent : aoEvents)
    {
        oEvent.uiNumber += m_oSetup.uiEventsBefore;
        m_uiLastEvent = std::max(m_uiLastEvent, oEvent.uiNumber);
        m_aoEvents.push_back(oEvent);
    }
}

void CWatchRun::EndWatch(const SClockReading& roClock)
{
    for (const StreamChannels& raoStreams : m_roSession.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            SWatchEvent oEvent = {};
            oEvent.uiNumber = ++m_uiLastEvent;
            oEvent.iUtcNs = roClock.iUtcNs;
            oEvent.eKind = EWatchEventKind::WATCH_ENDED;
            oEvent.eDirection = rpoChannel->eDirection;
            oEvent.uiIndex = rpoChannel->uiIndex;
            m_aoEvents.push_back(oEvent);
        }
    }
}

void CWatchRun::FillCosts(SWatchCosts& roCosts)
{
    roCosts = {};
    for (const StreamChannels& raoStreams : m_roSession.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            roCosts.uiRingOverruns += rpoChannel->oFields.GetOverruns() + rpoChannel->oDescriptions.GetOverruns();
        }
    }
    roCosts.flAnalysisSeconds = m_flAnalysisSeconds;
    ProcessCosts_Fill(roCosts);
    if (m_oSetup.fnAddCosts)
    {
        m_oSetup.fnAddCosts(roCosts);
    }
}

void CWatchRun::Analyse(bool bIsLast)
{
    const uint64_t uiBeginNs = ReadMonotonicNs();
    auto poPublication = std::make_shared<SWatchPublication>(m_oTemplate);
    if (bIsLast)
    {
        WatchEngine_EndEpisodes(*m_poEngine);
    }
    const SClockReading oClock = ReadClocks();
    if (bIsLast)
    {
        WatchEngine_EndEpisodes(*m_poEngine);
    }
    WatchEngine_Analyse(*m_poEngine, oClock, poPublication->oSnapshot);
    m_aoEvents.clear();
    AddEvents(WatchEngine_TakeEvents(*m_poEngine));
    if (bIsLast)
    {
        EndWatch(oClock);
    }
    for (SDirectionFigures& roDirection : poPublication->oSnapshot.aoDirections)
    {
        for (SStreamFigures& roFigures : roDirection.aoStreams)
        {
            roFigures.uiLastEvent += roFigures.uiLastEvent == 0 ? 0 : m_oSetup.uiEventsBefore;
        }
    }
    m_flAnalysisSeconds = static_cast<double>(ReadMonotonicNs() - uiBeginNs) * 1e-9;
    FillCosts(poPublication->oCosts);
    const std::shared_ptr<const SWatchPublication> poPublished = std::move(poPublication);
    const std::span<const SMinuteSummary> aoMinutes = WatchData_Publish(m_roData, poPublished, m_aoEvents);
    if (m_oSetup.fnTake)
    {
        m_oSetup.fnTake({poPublished, m_aoEvents, aoMinutes});
    }
    m_uiProgress.fetch_add(1, std::memory_order_relaxed);
}
