#include "WatchRun.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

#include "ProcessCosts.h"
#include "StreamId.h"
#include "Threads.h"
#include "VideoTexts.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiDrainPeriodNs = 50'000'000;
constexpr uint64_t uiRealSleepNs = 1'000'000; // less is over before the timer is set
constexpr uint64_t uiStallNs = 2'000'000;     // so late, this thread did not just wake up slowly

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

CWatchRun::CWatchRun(const CBoardSession& roSession, SWatchRunSetup oSetup)
    : m_roSession(roSession),
      m_oSetup(std::move(oSetup)),
      m_oHistory(m_oSetup.aoRunning),
      m_uiLastEvent(m_oSetup.oSettings.uiEventsBefore)
{
    const SBoardFacts& roFacts = roSession.GetFacts();
    const std::array<StreamChannels, 2>& raoChannels = roSession.GetChannels();
    SWatchSettings& roSettings = m_oSetup.oSettings;
    roSettings.uiTickFrequencyHz = roFacts.uiTickFrequencyHz;
    roSettings.bTicksAreMonotonic = roFacts.bTicksAreMonotonic;
    roSettings.iTickOffsetNs = roFacts.iTickOffsetNs;
    m_poEngine = WatchEngine_Create(roSettings, static_cast<uint32_t>(raoChannels[0].size()),
                                    static_cast<uint32_t>(raoChannels[1].size()));
    if (m_oSetup.uiRecorderSeconds > 0)
    {
        m_oRecorder.emplace(static_cast<uint32_t>(raoChannels[0].size()), static_cast<uint32_t>(raoChannels[1].size()),
                            m_oSetup.uiRecorderSeconds);
    }
    m_poJudge = WatchJudge_Create(m_oSetup.oJudge);
    m_oTemplate.szHost = GetHostName();
    m_oTemplate.szBoard = roFacts.szLibrary;
    m_oTemplate.uiBoardVersion = roFacts.uiVersion;
    m_oTemplate.bIsSimulated = roFacts.bIsSimulated;
    m_oTemplate.iStartUtcNs = m_oSetup.iStartUtcNs;
    for (const StreamChannels& raoStreams : raoChannels)
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            const SStreamKey& roKey = rpoChannel->oKey;
            const auto itEarlier = std::ranges::find(m_oSetup.aoEarlier, roKey, &SEarlierStream::oKey);
            if (itEarlier != m_oSetup.aoEarlier.end())
            {
                WatchEngine_TellEarlier(*m_poEngine, roKey, itEarlier->oRun);
            }
            m_oTemplate.aaoTexts[static_cast<size_t>(roKey.eDirection)].emplace_back().szId = StreamId_Print(roKey);
        }
    }
}

CFault CWatchRun::Start()
{
    return Thread_Start(m_oThread, "analysis", [this] { Run(); });
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
    // A timer that may fire 50 us late, as they do unless told otherwise, says nothing about how late fields are.
    prctl(PR_SET_TIMERSLACK, 1);
    while (!m_bStop.load(std::memory_order_relaxed))
    {
        const uint64_t uiNowNs = ReadMonotonicNs();
        const uint64_t uiDueNs = std::max(WatchEngine_GetDueNs(*m_poEngine), uiNowNs);
        const uint64_t uiWakeNs = std::min(uiNowNs + uiDrainPeriodNs, uiDueNs);
        SleepUntil(uiWakeNs);
        if (uiWakeNs > uiNowNs + uiRealSleepNs)
        {
            TakeWake(uiWakeNs);
        }
        Drain();
        GiveCut();
        while (Analyse(false))
        {
        }
    }
    Drain();
    WatchEngine_End(*m_poEngine);
    Analyse(true);
    GiveCut();
    m_oCuts.Close();
}

// What held up this thread held up those of the streams as well, and what never fails to hold it up does so too.
void CWatchRun::TakeWake(uint64_t uiDueNs)
{
    const uint64_t uiNowNs = ReadMonotonicNs();
    m_oLeastWake.Take(uiNowNs - uiDueNs);
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
            const SStreamKey& roKey = rpoChannel->oKey;
            rpoChannel->oFields.Drain([&](const SFieldRecord& roRecord) { TakeField(roKey, roRecord); });
            rpoChannel->oDescriptions.Drain([&](const SDescriptionRecord& roRecord)
                                            { TakeDescription(roKey, roRecord); });
        }
    }
}

void CWatchRun::TakeField(const SStreamKey& roKey, const SFieldRecord& roRecord)
{
    WatchEngine_TakeRecord(*m_poEngine, roKey, roRecord);
    if (m_oRecorder)
    {
        m_oRecorder->Add(roKey, roRecord);
    }
}

void CWatchRun::GiveCut()
{
    if (m_oRecorder && m_oCuts.IsAskedFor())
    {
        m_oCuts.Give(m_oRecorder->Copy());
    }
}

void CWatchRun::TakeDescription(const SStreamKey& roKey, const SDescriptionRecord& roRecord)
{
    const SStreamDescription& roDescription = roRecord.oDescription;
    WatchEngine_TakeDescription(*m_poEngine, roKey, roDescription);
    SStreamTexts& roTexts = m_oTemplate.aaoTexts[static_cast<size_t>(roKey.eDirection)][roKey.uiIndex];
    VTSTR256 szStandard = {};
    FormatVideoParam(&roDescription.oTimings, 0, szStandard);
    roTexts.szName = roRecord.szName;
    roTexts.szStandard = szStandard;
    roTexts.szFormat = roRecord.szFormat;
    roTexts.szCapture = roKey.eDirection == EStreamDirection::INPUT
                            ? VtVideoInStateToString(roDescription.eCaptureState)
                            : PowerStateToString(roDescription.ePowerState);
    if (m_oRecorder)
    {
        m_oRecorder->AddDescription({roKey, roDescription, roTexts.szName, roTexts.szFormat});
    }
}

void CWatchRun::TakeIncidents(std::span<const SWatchEvent> aoIncidents)
{
    for (SWatchEvent oEvent : aoIncidents)
    {
        WatchEngine_Number(*m_poEngine, oEvent);
        m_uiLastEvent = oEvent.uiNumber;
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
            oEvent.oKey = rpoChannel->oKey;
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
    const SProcessCosts oProcess = ProcessCosts_Read();
    roCosts.flCpuSeconds = oProcess.flCpuSeconds;
    roCosts.uiResidentBytes = oProcess.uiResidentBytes;
    if (m_oSetup.fnAddCosts)
    {
        m_oSetup.fnAddCosts(roCosts);
    }
}

bool CWatchRun::Analyse(bool bIsLast)
{
    const uint64_t uiBeginNs = ReadMonotonicNs();
    if (!bIsLast && uiBeginNs < WatchEngine_GetDueNs(*m_poEngine))
    {
        return false;
    }
    auto poPublication = std::make_shared<SWatchPublication>(m_oTemplate);
    SClockReading oClock = ReadClocks();
    oClock.flLeastWakeSeconds = m_oLeastWake.GetSeconds();
    if (!WatchEngine_Analyse(*m_poEngine, oClock, poPublication->oSnapshot))
    {
        return false;
    }
    const std::span<const SWatchEvent> aoEvents = WatchEngine_TakeEvents(*m_poEngine);
    m_aoEvents.assign(aoEvents.begin(), aoEvents.end());
    m_uiLastEvent = aoEvents.empty() ? m_uiLastEvent : aoEvents.back().uiNumber;
    SJudgement& roJudgement = poPublication->oJudgement;
    TakeIncidents(WatchJudge_Take(
        *m_poJudge, {poPublication->oSnapshot, WatchEngine_GetHappenings(*m_poEngine), aoEvents}, roJudgement));
    if (bIsLast)
    {
        TakeIncidents(WatchJudge_End(*m_poJudge, poPublication->oSnapshot.oClock.iUtcNs, roJudgement));
        EndWatch(oClock);
    }
    m_oHistory.Take(poPublication->oSnapshot);
    m_flAnalysisSeconds = static_cast<double>(ReadMonotonicNs() - uiBeginNs) * 1e-9;
    FillCosts(poPublication->oCosts);
    m_oSetup.fnTake({std::move(poPublication), m_aoEvents, m_oHistory.GetSeconds(), m_oHistory.GetMinutes()});
    m_uiProgress.fetch_add(1, std::memory_order_relaxed);
    return true;
}
