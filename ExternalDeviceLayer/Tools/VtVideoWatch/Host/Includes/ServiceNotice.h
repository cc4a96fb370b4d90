/*
 * What the service manager is told, through the socket that it names; nothing happens without one. One thread.
 */
#ifndef SERVICE_NOTICE_H
#define SERVICE_NOTICE_H

#include <cstdint>
#include <string>

class CServiceNotice
{
public:
    CServiceNotice();

    /* The watch runs: said once. */
    void SayReady(const std::string& rszStatus);
    /* One line for who asks after the service; sent when it has changed. */
    void SayStatus(const std::string& rszStatus);
    /*
     * The watch is alive: sent at least twice per time that the manager allows, and only while the analysis goes on.
     *   uiProgress  in  a number that grows as long as it does
     */
    void SayAlive(uint64_t uiProgress);
    void SayStopping();

private:
    std::string m_szStatus;
    uint64_t m_uiWatchdogNs = 0; // 0: none wanted
    uint64_t m_uiProgress = 0;
    uint64_t m_uiLastAliveNs = 0;
};

#endif
