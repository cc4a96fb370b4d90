#include "MadeUpWatch.h"

#include <ctime>
#include <utility>

namespace
{

// The first stream is the reference, every fourth has no signal, the last one carries a hostile name.
SStreamFigures MakeStream(EStreamDirection eDirection, uint32_t i, int64_t iNowNs)
{
    SStreamFigures oStream;
    oStream.oKey = {eDirection, i};
    const bool bRuns = i % 4 != 3;
    oStream.eState = bRuns ? EStreamState::RUNNING : EStreamState::LOST;
    oStream.iStateSinceUtcNs = iNowNs - 3600 * iNsPerSecond;
    oStream.oDescription.eCaptureState = VtVideoIn_State_STARTED;
    oStream.oDescription.ePowerState = VtVideoOut_PowerState_ON;
    oStream.uiNominalNumerator = 60000;
    oStream.uiNominalDenominator = 1001;
    oStream.flNominalRateHz = 60000.0 / 1001.0;
    oStream.flLineSeconds = 1.0 / oStream.flNominalRateHz / 1125.0;
    oStream.flPhaseLineSeconds = oStream.flLineSeconds;
    oStream.flPeriodSeconds = 1.0 / oStream.flNominalRateHz;
    oStream.oCounters = {.uiFields = 1'000'000 + i, .uiFieldsObserved = 999'990, .uiFieldsLost = i, .uiLateWakes = 2};
    oStream.oCounters.flSignalLostSeconds = 1.0 / 3.0 + i;
    oStream.oCounters.flRunningSeconds = 16'683.35;
    oStream.oCounters.flWatchedSeconds = 16'700.0;
    oStream.oIntervals = {1e-7, {}};
    oStream.oWakes.auiCounts = {10, 20, 30, 40, 50, 60, 7, 8, 9, 1, 2};
    oStream.oWakes.flSumSeconds = 1.25;
    if (bRuns)
    {
        const double flIndex = i;
        for (size_t iWindow = 0; iWindow < 4; ++iWindow)
        {
            oStream.aoRateHz[iWindow] = {oStream.flNominalRateHz * (1.0 + flIndex * 1e-9 / 3.0), 1.234567e-7, true};
            oStream.aoRatePpm[iWindow] = {flIndex * 1e-3 / 3.0, 2.0597e-3, true};
        }
        oStream.aoTdevSeconds.fill({1.23456789e-7, 3.4567e-9, true});
        oStream.flJitterRmsSeconds = 1.0e-6 / 3.0;
        oStream.flJitterPeakSeconds = 5.0e-6 / 3.0;
        oStream.oPhaseSeconds = {flIndex * 1e-5 / 3.0, 1.0e-8 / 3.0, true};
        oStream.oDriftRatio = {flIndex * 1e-9 / 3.0, 1e-10 / 3.0, true};
        oStream.eLock = i < 4 ? ELockState::LOCKED : ELockState::FREE;
        oStream.oSecondsToThreshold = {1000.0 / (flIndex + 1e-9), 1.0 / 3.0, i != 0};
        oStream.oSecondsToSlip = {1e7 / (flIndex + 1e-9), 100.0 / 3.0, i != 0};
        oStream.oTaiPhaseSeconds = {1e-3 / 3.0 + flIndex * 1e-5 / 3.0, 1e-8, true};
        oStream.flTaiUncertaintySeconds = 1e-6 / 3.0;
    }
    return oStream;
}

SDirectionFigures MakeDirection(EStreamDirection eDirection, uint32_t uiStreams, int64_t iNowNs)
{
    SDirectionFigures oDirection;
    oDirection.bHasReference = uiStreams > 0;
    oDirection.oReference = {eDirection, 0};
    for (uint32_t i = 0; i < uiStreams; ++i)
    {
        oDirection.aoStreams.push_back(MakeStream(eDirection, i, iNowNs));
        for (uint32_t j = i + 1; j < uiStreams; ++j)
        {
            SPairFigures oPair;
            oPair.uiFirst = i;
            oPair.uiSecond = j;
            oPair.oOffsetSeconds = {1e-6 * (j - i), 1e-8, j % 4 != 3 && i % 4 != 3};
            oPair.eLock = oPair.oOffsetSeconds.bIsValid ? ELockState::FREE : ELockState::IDLE;
            oDirection.aoPairs.push_back(oPair);
        }
    }
    if (uiStreams > 1)
    {
        oDirection.aoGroups.push_back({7, 3, iNowNs});
    }
    return oDirection;
}

void AddAcross(uint32_t uiStreams, SWatchSnapshot& roSnapshot)
{
    for (uint32_t i = 0; i < uiStreams * uiStreams; ++i)
    {
        SAcrossFigures& roPair = roSnapshot.aoAcross.emplace_back();
        roPair.oFirst = {EStreamDirection::INPUT, i / uiStreams};
        roPair.oSecond = {EStreamDirection::OUTPUT, i % uiStreams};
        roPair.oPair.eLock = i == 0 ? ELockState::LOCKED : ELockState::FREE;
        roPair.oPair.oOffsetSeconds = {1e-3, 1e-8, true};
        roPair.oPair.oDriftRatio = {22e-6, 1e-9, true};
        roPair.oSlip = {{757.6, 0.03, i != 0}, {300.0, 0.02, i != 0}, 3};
    }
    if (uiStreams > 0)
    {
        roSnapshot.aoAcrossGroups.push_back({1, {1, 1}, roSnapshot.oClock.iUtcNs});
        roSnapshot.aoPaths.resize(2);
        roSnapshot.aoPaths[1].oOutput = {EStreamDirection::OUTPUT, 1};
        roSnapshot.aoPaths[0] = {{},
                                 {EStreamDirection::OUTPUT, 0},
                                 ELockState::FREE,
                                 true,
                                 0.02,
                                 0.03,
                                 0.04,
                                 1e-8,
                                 -0.016,
                                 {300.0, 0.02, true},
                                 3,
                                 -0.016,
                                 roSnapshot.oClock.iUtcNs};
    }
}

SStreamTexts MakeTexts(uint32_t i, uint32_t uiStreams)
{
    SStreamTexts oTexts;
    oTexts.szName = i + 1 == uiStreams ? "<img src=x onerror=alert(1)> \"\\" : "SDI " + std::to_string(i);
    oTexts.szStandard = "1920 x 1080p @ 59.94 Hz (YUV)";
    oTexts.szFormat = "VtPixelFormat_YUV422_UYVY";
    oTexts.szCapture = "started";
    return oTexts;
}

} // namespace

int64_t MadeUpWatch_GetUtcNs()
{
    return std::time(nullptr) * iNsPerSecond;
}

SWatchPublication MadeUpWatch_Make(uint64_t uiNumber, uint32_t uiStreams)
{
    SWatchPublication oPublication;
    SWatchSnapshot& roSnapshot = oPublication.oSnapshot;
    timespec oNow = {};
    clock_gettime(CLOCK_MONOTONIC, &oNow);
    roSnapshot.uiNumber = uiNumber;
    roSnapshot.uiTickFrequencyHz = 27'000'000;
    roSnapshot.oThreshold.flLines = 1.0;
    roSnapshot.oClock.iUtcNs = MadeUpWatch_GetUtcNs();
    roSnapshot.oClock.uiMonotonicNs =
        static_cast<uint64_t>(oNow.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(oNow.tv_nsec);
    roSnapshot.oClock.iTaiOffsetSeconds = 37;
    roSnapshot.aoDirections[0] = MakeDirection(EStreamDirection::INPUT, uiStreams, roSnapshot.oClock.iUtcNs);
    roSnapshot.aoDirections[1] = MakeDirection(EStreamDirection::OUTPUT, uiStreams, roSnapshot.oClock.iUtcNs);
    AddAcross(uiStreams, roSnapshot);
    for (uint32_t i = 0; i < uiStreams; ++i)
    {
        oPublication.aaoTexts[0].push_back(MakeTexts(i, uiStreams));
        oPublication.aaoTexts[1].push_back(MakeTexts(i, uiStreams));
    }
    oPublication.szHost = "made-up";
    oPublication.szBoard = "/nowhere/libVeltrano.so";
    oPublication.uiBoardVersion = 0x0004000100000092;
    oPublication.bIsSimulated = true;
    oPublication.oJudgement.aoIncidents.resize(2);
    SIncident& roOpen = oPublication.oJudgement.aoIncidents[0];
    roOpen.uiNumber = 2;
    roOpen.iBeginUtcNs = roSnapshot.oClock.iUtcNs - 5 * iNsPerSecond;
    roOpen.eDomain = EHealthDomain::FEED;
    roOpen.oFirst.eReason = EHealthReason::FEED_STALLED;
    roOpen.oFirstStream = {EStreamDirection::OUTPUT, 0};
    roOpen.auiStreams = {0, 1};
    SIncident& roEnded = oPublication.oJudgement.aoIncidents[1];
    roEnded = roOpen;
    roEnded.uiNumber = 1;
    roEnded.iEndUtcNs = roOpen.iBeginUtcNs;
    roEnded.uiFirstEvent = 1;
    oPublication.oJudgement.uiIncidentsOpen = 1;
    oPublication.iStartUtcNs = roSnapshot.oClock.iUtcNs - 3600 * iNsPerSecond;
    return oPublication;
}

void CMadeUpWatch::Publish(SWatchPublication oPublication)
{
    for (const SWatchEvent& roEvent : m_aoEvents)
    {
        auto& raoStreams = oPublication.oSnapshot.aoDirections[static_cast<size_t>(roEvent.oKey.eDirection)].aoStreams;
        raoStreams[roEvent.oKey.uiIndex].oLastEvent = {roEvent.uiNumber, roEvent.eKind, roEvent.iUtcNs};
    }
    Put({std::make_shared<const SWatchPublication>(std::move(oPublication)),
         std::span(m_aoEvents).subspan(std::exchange(m_uiToldEvents, m_aoEvents.size())),
         std::exchange(m_aoSeconds, {}), std::exchange(m_aoMinutes, {})});
}

void CMadeUpWatch::AddEvent(EWatchEventKind eKind, const SStreamKey& roKey)
{
    SWatchEvent& roEvent = m_aoEvents.emplace_back();
    roEvent.uiNumber = m_aoEvents.size();
    roEvent.iUtcNs = MadeUpWatch_GetUtcNs();
    roEvent.uiTick = roEvent.uiNumber * 1000;
    roEvent.eKind = eKind;
    roEvent.oKey = roKey;
    roEvent.uiCount = 3;
    roEvent.uiAfter = 1;
    roEvent.flSeconds = 0.25;
    roEvent.uiGroup = 7;
    roEvent.uiMembers = 3;
}

void CMadeUpWatch::AddPoints(const SStreamKey& roKey, int64_t iFromUtcNs, int64_t iToUtcNs)
{
    for (int64_t iUtcNs = iFromUtcNs; iUtcNs < iToUtcNs; iUtcNs += iNsPerSecond)
    {
        SHistoryPoint oPoint;
        oPoint.iUtcNs = iUtcNs;
        oPoint.uiSeconds = 1;
        oPoint.uiFields = 60;
        oPoint.oRateHz = {60.0 + 1.0 / 3.0, 1e-6 / 3.0, true};
        oPoint.oPhaseSeconds = {1e-6 / 3.0, 1e-9, iUtcNs / iNsPerSecond % 2 == 0};
        oPoint.flPhaseMinSeconds = 1e-7 / 3.0;
        oPoint.flPhaseMaxSeconds = 2e-6 / 3.0;
        m_aoSeconds.push_back({roKey, oPoint});
        if (iUtcNs % iNsPerMinute == 0)
        {
            oPoint.uiSeconds = 60;
            m_aoMinutes.emplace_back().oKey = roKey;
            m_aoMinutes.back().oPoint = oPoint;
            m_aoMinutes.back().uiPoints = 60;
            m_aoMinutes.back().bIsComplete = true;
        }
    }
}
