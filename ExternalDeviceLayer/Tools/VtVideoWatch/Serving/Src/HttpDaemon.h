/*
 * What is common to all ways in, and a daemon of the HTTP library, which serves the connections that it is given.
 */
#ifndef HTTP_DAEMON_H
#define HTTP_DAEMON_H

#include <array>
#include <atomic>
#include <functional>
#include <string>

#include "HttpConnections.h"
#include "HttpJobs.h"
#include "HttpServer.h"

struct MHD_Daemon;

// Outlives every daemon. The functions are set before one starts.
struct SHttpService
{
    explicit SHttpService(size_t uiMostConnections) : oConnections(uiMostConnections) {}

    std::function<SHttpAnswer(const SHttpRequest& roRequest)> oAnswer;
    std::function<bool(const SHttpRequest& roRequest)> oIsSlow;
    CHttpConnections oConnections;
    CHttpJobs oJobs;
    std::atomic<bool> bIsEnding = false;
    std::array<std::atomic<uint64_t>, aiHttpStatuses.size()> auiCounts = {};
};

class CHttpDaemon
{
public:
    explicit CHttpDaemon(SHttpService& roService) : m_roService(roService) {}
    ~CHttpDaemon();
    CHttpDaemon(const CHttpDaemon&) = delete;
    CHttpDaemon& operator=(const CHttpDaemon&) = delete;

    /* False when it cannot be had. */
    bool Start(unsigned uiMostConnections);

    // Takes over a connection that has its place.
    void Add(int iSocket);

private:
    SHttpService& m_roService;
    MHD_Daemon* m_poDaemon = nullptr;
};

#endif
