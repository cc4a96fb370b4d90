#include "WatchRun.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

#include "Memory.h"
#include "ProcessCosts.h"
#include "StreamId.h"
#include "Threads.h"
#include "VideoTexts.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiDrainPeriodNs = 50'000'000;
constexpr uint64_t uiRealSleepNs = 1'000'000; // less is over before the timer is set
constexpr uint32_t uiTriesAtEnd = 5;
constexpr uint64_t uiStallNs = 2'000'000; // so late, this thread did not just wake up slowly

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

uint32_t CountStreams(const CBoardSession& roSession, EStreamDirection eDirection)
{
    return static_cast<uint32_t>(roSession.GetChannels()[static_cast<size_t>(eDirection)].size());
}

SWatchSettings AddBoard(SWatchSettings oSettings, const SBoardFacts& roFacts)
{
    oSettings.uiTickFrequencyHz = roFacts.uiTickFrequencyHz;
    oSettings.bTicksAreMonotonic = roFacts.bTicksAreMonotonic;
    oSettings.iTickOffsetNs = roFacts.iTickOffsetNs;
    oSettings.bSetsAreEstimated = roFacts.bSetsAreEstimated;
    return oSettings;
}

} // namespace

CWatchRun::CWatchRun(const CBoardSession& roSession, SWatchRunSetup oSetup)
    : m_roSession(roSession),
      m_oSetup(std::move(oSetup)),
      m_oEngine(AddBoard(m_oSetup.oSettings, roSession.GetFacts()), CountStreams(roSession, EStreamDirection::INPUT),
                CountStreams(roSession, EStreamDirection::OUTPUT)),
      m_oJudge(m_oSetup.oJudge),
      m_oHistory(m_oSetup.aoRunning),
      m_uiLastEvent(m_oSetup.oSettings.uiEventsBefore)
{
    const SBoardFacts& roFacts = roSession.GetFacts();
    if (m_oSetup.uiRecorderSeconds > 0)
    {
        m_oRecorder.emplace(CountStreams(roSession, EStreamDirection::INPUT),
                            CountStreams(roSession, EStreamDirection::OUTPUT), m_oSetup.uiRecorderSeconds);
    }
    m_oTemplate.szHost = GetHostName();
    m_oTemplate.szBoard = roFacts.szLibrary;
    m_oTemplate.uiBoardVersion = roFacts.uiVersion;
    m_oTemplate.bIsSimulated = roFacts.bIsSimulated;
    m_oTemplate.iStartUtcNs = m_oSetup.iStartUtcNs;
    for (const StreamChannels& raoStreams : roSession.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            const SStreamKey& roKey = rpoChannel->oKey;
            const auto itEarlier = std::ranges::find(m_oSetup.aoEarlier, roKey, &SEarlierStream::oKey);
            if (itEarlier != m_oSetup.aoEarlier.end())
            {
                m_oEngine.TellEarlier(roKey, itEarlier->oRun);
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
        const uint64_t uiDueNs = std::max(m_oEngine.GetDueNs(), uiNowNs);
        const uint64_t uiWakeNs = std::min(uiNowNs + uiDrainPeriodNs, uiDueNs);
        SleepUntil(uiWakeNs);
        if (uiWakeNs > uiNowNs + uiRealSleepNs)
        {
            TakeWake(uiWakeNs);
        }
        Drain();
        GiveCut();
        while (TryAnalyse(false))
        {
        }
    }
    Drain();
    TryAnalyse(true);
    GiveCut();
    m_oCuts.Close();
}

// False when nothing is due, or there is no memory for it: then there may be after a pause.
bool CWatchRun::TryAnalyse(bool bIsLast)
{
    for (uint32_t uiTry = 0; uiTry < uiTriesAtEnd; ++uiTry)
    {
        bool bIsDone = false;
        if (Memory_Do("the analysis", [&] { bIsDone = Analyse(bIsLast); }))
        {
            return bIsDone;
        }
        SleepUntil(ReadMonotonicNs() + uiDrainPeriodNs);
        if (!bIsLast)
        {
            return false;
        }
    }
    return false;
}

// What held up this thread held up those of the streams as well, and what never fails to hold it up does so too.
void CWatchRun::TakeWake(uint64_t uiDueNs)
{
    const uint64_t uiNowNs = ReadMonotonicNs();
    m_oLeastWake.Take(uiNowNs - uiDueNs);
    if (uiNowNs > uiDueNs + uiStallNs)
    {
        m_oEngine.TakeStall(uiDueNs, uiNowNs);
    }
}

void CWatchRun::Drain()
{
    for (const StreamChannels& raoStreams : m_roSession.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            const SStreamKey& roKey = rpoChannel->oKey;
            rpoChannel->oFields.Drain([&](const SFieldRecord& roRecord)
                                      { Memory_Do("a field", [&] { TakeField(roKey, roRecord); }); });
            rpoChannel->oDescriptions.Drain(
                [&](const SDescriptionRecord& roRecord)
                { Memory_Do("a stream's description", [&] { TakeDescription(roKey, roRecord); }); });
        }
    }
}

void CWatchRun::TakeField(const SStreamKey& roKey, const SFieldRecord& roRecord)
{
    m_oEngine.TakeRecord(roKey, roRecord);
    if (m_oRecorder)
    {
        m_oRecorder->Add(roKey, roRecord);
    }
}

void CWatchRun::GiveCut()
{
    if (m_oRecorder && m_oCuts.IsAskedFor())
    {
        Memory_Do("a recording", [this] { m_oCuts.Give(m_oRecorder->Copy(m_oCuts.GetSpan())); });
    }
}

void CWatchRun::TakeDescription(const SStreamKey& roKey, const SDescriptionRecord& roRecord)
{
    const SStreamDescription& roDescription = roRecord.oDescription;
    m_oEngine.TakeDescription(roKey, roDescription);
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
        m_oEngine.Number(oEvent);
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
    roCosts.uiMemoryFailures = Memory_GetFailures();
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
    if (!bIsLast && uiBeginNs < m_oEngine.GetDueNs())
    {
        return false;
    }
    auto poPublication = std::make_shared<SWatchPublication>(m_oTemplate);
    SClockReading oClock = ReadClocks();
    oClock.flLeastWakeSeconds = m_oLeastWake.GetSeconds();
    if (bIsLast)
    {
        m_oEngine.End();
    }
    if (!m_oEngine.Analyse(oClock, poPublication->oSnapshot))
    {
        return false;
    }
    const std::span<const SWatchEvent> aoEvents = m_oEngine.TakeEvents();
    // Behind those of a second that could not be handed on.
    m_aoEvents.insert(m_aoEvents.end(), aoEvents.begin(), aoEvents.end());
    m_uiLastEvent = aoEvents.empty() ? m_uiLastEvent : aoEvents.back().uiNumber;
    SJudgement& roJudgement = poPublication->oJudgement;
    TakeIncidents(m_oJudge.Take({poPublication->oSnapshot, m_oEngine.GetHappenings(), aoEvents}, roJudgement));
    if (bIsLast)
    {
        TakeIncidents(m_oJudge.End(poPublication->oSnapshot.oClock.iUtcNs, roJudgement));
        EndWatch(oClock);
    }
    m_oHistory.Take(poPublication->oSnapshot);
    m_flAnalysisSeconds = static_cast<double>(ReadMonotonicNs() - uiBeginNs) * 1e-9;
    FillCosts(poPublication->oCosts);
    m_oSetup.fnTake({std::move(poPublication), m_aoEvents, m_oHistory.GetSeconds(), m_oHistory.GetMinutes()});
    m_aoEvents.clear();
    m_uiProgress.fetch_add(1, std::memory_order_relaxed);
    return true;
}
