#include "StreamThread.h"

#include <algorithm>
#include <cstdio>
#include <pthread.h>
#include <sched.h>
#include <system_error>
#include <thread>
#include <utility>

#include "FieldRates.h"
#include "RunDelay.h"
#include "StreamPort.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiNsPerMs = 1'000'000;
constexpr uint64_t uiDescriptionPeriodNs = 1000 * uiNsPerMs;
constexpr uint64_t uiReopenPeriodNs = 1000 * uiNsPerMs;
constexpr uint64_t uiSpinNs = uiNsPerMs; // a wait that ends without a field faster than this did not wait
constexpr uint64_t uiLateNs = 500'000;   // an arrival so much later than its stamp tells is looked into
constexpr uint64_t uiStopCheckNs = 50 * uiNsPerMs;
constexpr int iRealTimePriority = 1; // the lowest: above all ordinary work, below everything that is urgent

void SleepNs(uint64_t uiNs)
{
    const timespec oTime = {static_cast<time_t>(uiNs / iNsPerSecond), static_cast<long>(uiNs % iNsPerSecond)};
    nanosleep(&oTime, nullptr);
}

class CStreamLoop
{
public:
    CStreamLoop(SStreamSetup& roSetup, SStreamChannel& roChannel)
        : m_roSetup(roSetup),
          m_roChannel(roChannel),
          m_oPort(roSetup.hDev, roChannel.eDirection, roChannel.uiIndex),
          m_flNsPerTick(static_cast<double>(iNsPerSecond) / roSetup.uiTickFrequencyHz)
    {
    }

    void Run()
    {
        while (!m_roSetup.bStop.load(std::memory_order_relaxed))
        {
            if (m_oPort.IsOpen())
            {
                TakeField();
            }
            else
            {
                Reopen();
            }
        }
    }

private:
    void TakeField();
    void Reopen();
    void ReportGone();
    bool NeedsRunDelay(const SFieldRecord& roRecord) const;
    void Describe();

    SStreamSetup& m_roSetup;
    SStreamChannel& m_roChannel;
    CStreamPort m_oPort;
    CRunDelay m_oRunDelay;
    const double m_flNsPerTick;
    SFieldRecord m_oRecord = {};
    uint64_t m_uiLastArrivalNs = 0; // of a field; 0: none since the stream was opened
    uint64_t m_uiLastTick = 0;
    uint64_t m_uiLastCounter = 0;
    uint64_t m_uiNextDescriptionNs = 0;
};

// Whether this end of a wait may have to be explained: fields are missing, or it reached us late. The kernel's account
// is read for those and once a second, so that a field that is on time does not pay for it.
bool CStreamLoop::NeedsRunDelay(const SFieldRecord& roRecord) const
{
    if (roRecord.eResult != EWaitResult::FIELD || m_uiLastArrivalNs == 0)
    {
        return false;
    }
    const auto uiIntervalNs =
        static_cast<uint64_t>(static_cast<double>(roRecord.uiTick - m_uiLastTick) * m_flNsPerTick);
    return roRecord.uiFieldCounter - m_uiLastCounter != uiCountsPerField ||
           roRecord.uiArrivalNs - m_uiLastArrivalNs > uiIntervalNs + uiLateNs;
}

void CStreamLoop::TakeField()
{
    m_oPort.Wait(m_oRecord);
    const bool bDescribe = m_oRecord.uiArrivalNs >= m_uiNextDescriptionNs;
    if (bDescribe || NeedsRunDelay(m_oRecord))
    {
        m_oRecord.uiRunDelayNs = m_oRunDelay.ReadGrowthNs();
    }
    m_roChannel.oFields.Push(m_oRecord);
    if (m_oRecord.eResult == EWaitResult::FIELD)
    {
        m_uiLastArrivalNs = m_oRecord.uiArrivalNs;
        m_uiLastTick = m_oRecord.uiTick;
        m_uiLastCounter = m_oRecord.uiFieldCounter;
    }
    else if (m_oRecord.eResult == EWaitResult::GONE)
    {
        m_oPort.Close();
        return;
    }
    else if (m_oRecord.uiArrivalNs - m_oRecord.uiWaitBeginNs < uiSpinNs)
    {
        SleepNs(uiLostSignalPauseMs * uiNsPerMs);
    }
    if (bDescribe)
    {
        Describe();
    }
}

void CStreamLoop::Describe()
{
    m_uiNextDescriptionNs = m_oRecord.uiArrivalNs + uiDescriptionPeriodNs;
    SDescriptionRecord oRecord;
    m_oPort.Describe(oRecord);
    m_roChannel.oDescriptions.Push(oRecord);
}

void CStreamLoop::ReportGone()
{
    m_oRecord = {};
    m_oRecord.uiWaitBeginNs = ReadMonotonicNs();
    m_oRecord.uiArrivalNs = m_oRecord.uiWaitBeginNs;
    m_oRecord.eResult = EWaitResult::GONE;
    m_roChannel.oFields.Push(m_oRecord);
}

void CStreamLoop::Reopen()
{
    m_uiLastArrivalNs = 0;
    if (m_oPort.Open())
    {
        m_uiNextDescriptionNs = 0;
        return;
    }
    ReportGone();
    const uint64_t uiUntilNs = ReadMonotonicNs() + uiReopenPeriodNs;
    while (!m_roSetup.bStop.load(std::memory_order_relaxed) && ReadMonotonicNs() < uiUntilNs)
    {
        SleepNs(uiStopCheckNs);
    }
}

void NameThread(const SStreamChannel& roChannel)
{
    char szName[16];
    std::snprintf(szName, sizeof(szName), "%s_%02u", roChannel.eDirection == EStreamDirection::INPUT ? "IN" : "OUT",
                  roChannel.uiIndex);
    pthread_setname_np(pthread_self(), szName);
}

void AskForRealTime(SStreamSetup& roSetup)
{
    if (roSetup.eRealTime.load() != ERealTime::WANTED)
    {
        return;
    }
    const sched_param oParameters = {iRealTimePriority};
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &oParameters) != 0)
    {
        roSetup.eRealTime.store(ERealTime::REFUSED);
    }
}

void ThreadBody(const std::shared_ptr<SStreamSetup>& rpoSetup, const std::shared_ptr<SStreamChannel>& rpoChannel)
{
    NameThread(*rpoChannel);
    AskForRealTime(*rpoSetup);
    {
        CStreamLoop oLoop(*rpoSetup, *rpoChannel);
        oLoop.Run();
    }
    rpoSetup->uiRunning.fetch_sub(1);
}

} // namespace

bool StreamThread_Start(std::shared_ptr<SStreamSetup> poSetup, std::shared_ptr<SStreamChannel> poChannel)
{
    poSetup->uiRunning.fetch_add(1);
    try
    {
        std::thread(ThreadBody, poSetup, std::move(poChannel)).detach();
    }
    catch (const std::system_error&)
    {
        poSetup->uiRunning.fetch_sub(1);
        return false;
    }
    return true;
}
