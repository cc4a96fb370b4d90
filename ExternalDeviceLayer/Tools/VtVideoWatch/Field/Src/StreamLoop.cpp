#include "StreamLoop.h"

#include "FieldRates.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiNsPerMs = 1'000'000;
constexpr uint64_t uiDescriptionPeriodNs = 1000 * uiNsPerMs;
constexpr uint64_t uiReopenPeriodNs = 1000 * uiNsPerMs;
constexpr uint64_t uiSpinNs = uiNsPerMs; // a wait that ends without a field faster than this did not wait
constexpr double flLateNs = 500'000.0;   // an arrival so much later than its stamp tells is looked into
constexpr uint64_t uiStopCheckNs = 50 * uiNsPerMs;

void SleepNs(uint64_t uiNs)
{
    const timespec oTime = {static_cast<time_t>(uiNs / iNsPerSecond), static_cast<long>(uiNs % iNsPerSecond)};
    nanosleep(&oTime, nullptr);
}

} // namespace

CStreamLoop::CStreamLoop(SStreamSetup& roSetup, SStreamChannel& roChannel)
    : m_roSetup(roSetup),
      m_roChannel(roChannel),
      m_oPort(roSetup.hDev, roChannel.oKey),
      m_flNsPerTick(static_cast<double>(iNsPerSecond) / roSetup.uiTickFrequencyHz)
{
}

void CStreamLoop::Run()
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

// Whether this end of a wait may have to be explained: fields are missing, or it reached us late. The kernel's account
// is read for those and once a second, so that a field that is on time does not pay for it.
bool CStreamLoop::NeedsRunDelay(const SFieldRecord& roRecord) const
{
    if (roRecord.eResult != EWaitResult::FIELD || m_uiLastArrivalNs == 0)
    {
        return false;
    }
    // In floating point: a board whose stamps go back, against its word, makes this a huge number and no more.
    const double flIntervalNs = static_cast<double>(roRecord.uiTick - m_uiLastTick) * m_flNsPerTick;
    return roRecord.uiFieldCounter - m_uiLastCounter != uiCountsPerField ||
           static_cast<double>(roRecord.uiArrivalNs - m_uiLastArrivalNs) > flIntervalNs + flLateNs;
}

void CStreamLoop::TakeField()
{
    m_oPort.Wait(m_oRecord);
    const bool bDescribe = m_oRecord.uiArrivalNs >= m_uiNextDescriptionNs ||
                           (m_oRecord.eResult == EWaitResult::FIELD && m_oPort.HasOtherTimings());
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

// A board may hand out the stream and refuse its first wait: that is a try like any other.
void CStreamLoop::Reopen()
{
    m_uiLastArrivalNs = 0;
    while (ReadMonotonicNs() < m_uiNextOpenNs)
    {
        if (m_roSetup.bStop.load(std::memory_order_relaxed))
        {
            return;
        }
        SleepNs(uiStopCheckNs);
    }
    m_uiNextOpenNs = ReadMonotonicNs() + uiReopenPeriodNs;
    if (m_oPort.Open())
    {
        m_uiNextDescriptionNs = 0;
        return;
    }
    ReportGone();
}
