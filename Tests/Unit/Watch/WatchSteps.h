/*
 * Made-up seconds of a watch, for what keeps and shows them; a place for files; waiting for other threads.
 */
#ifndef WATCH_STEPS_H
#define WATCH_STEPS_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FieldRecord.h"
#include "WatchStep.h"

// A whole minute of UTC.
constexpr int64_t iStepsBeginUtcNs = 1'795'299'960 * iNsPerSecond;

// A second of a watch of one input that runs at 60 fields/s: one event, the running minute.
struct SMadeUpSecond
{
    std::shared_ptr<SWatchPublication> poPublication = std::make_shared<SWatchPublication>();
    std::vector<SWatchEvent> aoEvents;
    std::vector<SMinuteSummary> aoMinutes;

    SWatchStep GetStep() const { return {poPublication, aoEvents, {}, aoMinutes}; }
};

// The second that ends iSecond seconds after the begin; its event has number uiEvent.
inline SMadeUpSecond MakeSecond(int64_t iSecond, uint64_t uiEvent)
{
    SMadeUpSecond oSecond;
    SWatchSnapshot& roSnapshot = oSecond.poPublication->oSnapshot;
    roSnapshot.uiNumber = static_cast<uint64_t>(iSecond);
    roSnapshot.oClock.iUtcNs = iStepsBeginUtcNs + iSecond * iNsPerSecond;
    roSnapshot.oClock.uiMonotonicNs = static_cast<uint64_t>(iSecond * iNsPerSecond);
    SStreamFigures& roFigures = roSnapshot.aoDirections[0].aoStreams.emplace_back();
    roFigures.eState = EStreamState::RUNNING;
    roFigures.flPeriodSeconds = 1.0 / 60.0;
    roFigures.oCounters.uiFields = static_cast<uint64_t>(60 * iSecond);
    roFigures.oCounters.uiFieldsObserved = roFigures.oCounters.uiFields;
    roFigures.oCounters.flRunningSeconds = static_cast<double>(iSecond);
    roFigures.aoRateHz[0] = {60.0 + 1e-6 * static_cast<double>(iSecond), 1e-6, true};
    oSecond.poPublication->aaoTexts[0].push_back({"IN_00", "Camera \"A\"", "1080p60", "UYVY", "STARTED"});
    oSecond.poPublication->szHost = "wall";

    SWatchEvent oEvent = {};
    oEvent.uiNumber = uiEvent;
    oEvent.iUtcNs = roSnapshot.oClock.iUtcNs;
    oEvent.eKind = EWatchEventKind::FIELDS_LOST;
    oEvent.uiCount = uiEvent;
    oEvent.uiTick = UINT64_MAX - uiEvent;
    oSecond.aoEvents.push_back(oEvent);

    SMinuteSummary oMinute;
    oMinute.uiPoints = static_cast<uint32_t>(iSecond);
    oMinute.oPoint.iUtcNs = iStepsBeginUtcNs;
    oMinute.oPoint.eState = EStreamState::RUNNING;
    oMinute.oPoint.uiSeconds = 60;
    oMinute.oPoint.uiFields = static_cast<uint32_t>(60 * iSecond);
    oSecond.aoMinutes.push_back(oMinute);
    return oSecond;
}

/* Whether two records of fields agree in everything. */
inline bool AreSame(const SFieldRecord& roA, const SFieldRecord& roB)
{
    const auto Members = [](const SFieldRecord& ro)
    {
        return std::tuple(ro.uiWaitBeginNs, ro.uiArrivalNs, ro.uiTick, ro.uiFieldCounter, ro.uiSetBufferCounter,
                          ro.uiRunDelayNs, ro.eResult, ro.bIsTopField, ro.bHasBuffers, ro.bHasSkippedBuffers,
                          ro.uiReadyBuffers, ro.uiLoanedBuffers, ro.uiInternalBuffers, ro.uiSkippedBuffers);
    };
    return Members(roA) == Members(roB);
}

/* What a store, a journal or a keeper of recordings has come to. */
template <typename TKeeper> SWatchCosts GetCosts(TKeeper& roKeeper)
{
    SWatchCosts oCosts;
    roKeeper.AddCosts(oCosts);
    return oCosts;
}

// While it lives no file may be longer.
class CFullDisk
{
public:
    explicit CFullDisk(uint64_t uiBytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_oBefore);
        const rlimit oFull = {uiBytes, m_oBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &oFull);
    }
    ~CFullDisk() { setrlimit(RLIMIT_FSIZE, &m_oBefore); }
    CFullDisk(const CFullDisk&) = delete;
    CFullDisk& operator=(const CFullDisk&) = delete;

private:
    rlimit m_oBefore = {};
};

// A folder that goes with its test.
class CTestFolder
{
public:
    CTestFolder() : m_oPath(testing::TempDir() + "VtWatchXXXXXX")
    {
        std::string szPath = m_oPath;
        m_oPath = mkdtemp(szPath.data());
    }
    ~CTestFolder() { std::filesystem::remove_all(m_oPath); }
    CTestFolder(const CTestFolder&) = delete;
    CTestFolder& operator=(const CTestFolder&) = delete;
    std::string operator/(const char* szName) const { return m_oPath / szName; }

private:
    std::filesystem::path m_oPath;
};

// Waits for what another thread will do; the deadline is met only by a thread that hangs.
template <typename TReached> bool Await(TReached fnIsReached)
{
    constexpr std::chrono::seconds DEADLINE{30};
    const auto oDeadline = std::chrono::steady_clock::now() + DEADLINE;
    while (!fnIsReached())
    {
        if (std::chrono::steady_clock::now() > oDeadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
