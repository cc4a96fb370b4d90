#include "ServiceNotice.h"

#include <systemd/sd-daemon.h>

#include "WatchClocks.h"

CServiceNotice::CServiceNotice()
{
    uint64_t uiWatchdogUs = 0;
    if (sd_watchdog_enabled(0, &uiWatchdogUs) > 0)
    {
        m_uiWatchdogNs = uiWatchdogUs * 1000;
    }
}

void CServiceNotice::SayReady(const std::string& rszStatus)
{
    m_szStatus = rszStatus;
    sd_notify(0, ("READY=1\nSTATUS=" + rszStatus).c_str());
}

void CServiceNotice::SayStatus(const std::string& rszStatus)
{
    if (rszStatus != m_szStatus)
    {
        m_szStatus = rszStatus;
        sd_notify(0, ("STATUS=" + rszStatus).c_str());
    }
}

void CServiceNotice::SayAlive(uint64_t uiProgress)
{
    const uint64_t uiNowNs = ReadMonotonicNs();
    if (m_uiWatchdogNs == 0 || uiProgress == m_uiProgress || uiNowNs - m_uiLastAliveNs < m_uiWatchdogNs / 4)
    {
        return;
    }
    m_uiProgress = uiProgress;
    m_uiLastAliveNs = uiNowNs;
    sd_notify(0, "WATCHDOG=1");
}

void CServiceNotice::SayStopping()
{
    sd_notify(0, "STOPPING=1\nSTATUS=ending");
}
