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
#include "HttpFiles.h"
#include "HttpJobs.h"
#include "HttpServer.h"
#include "HttpUsers.h"

struct MHD_Daemon;

// Outlives every daemon. The functions are set before one starts.
struct SHttpService
{
    explicit SHttpService(size_t uiMostConnections) : oConnections(uiMostConnections) {}

    std::function<SHttpAnswer(const SHttpRequest& roRequest)> oAnswer;
    std::function<bool(const SHttpRequest& roRequest)> oIsSlow;
    CHttpConnections oConnections;
    CHttpUsers oUsers;
    CHttpJobs oJobs{2, 32};   // long answers
    CHttpJobs oChecks{1, 16}; // passwords: who guesses holds up nobody who is known
    std::array<std::atomic<uint64_t>, aiHttpStatuses.size()> auiCounts = {};
};

class CHttpDaemon
{
public:
    explicit CHttpDaemon(SHttpService& roService) : m_roService(roService) {}
    ~CHttpDaemon();
    CHttpDaemon(const CHttpDaemon&) = delete;
    CHttpDaemon& operator=(const CHttpDaemon&) = delete;

    /*
     *   poKeys  in  for TLS; null: plain
     * False when it cannot be had.
     */
    bool Start(unsigned uiMostConnections, const SHttpKeys* poKeys);

    const std::shared_ptr<SHttpDaemonState>& GetState() const { return m_poState; }

    // Takes over a connection that has its place.
    void Add(int iSocket);

private:
    SHttpService& m_roService;
    const std::shared_ptr<SHttpDaemonState> m_poState = std::make_shared<SHttpDaemonState>();
    MHD_Daemon* m_poDaemon = nullptr;
};

#endif
