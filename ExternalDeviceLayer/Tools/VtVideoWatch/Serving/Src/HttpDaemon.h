/*
 * A daemon of the HTTP library, which serves the connections that it is given: one for those in plain text, one for
 * TLS. What the library calls back comes from its one thread, and is passed on to who decides and who sends.
 */
#ifndef HTTP_DAEMON_H
#define HTTP_DAEMON_H

#include <memory>

#include "HttpConnections.h"
#include "HttpFiles.h"
#include "HttpService.h"

struct MHD_Daemon;

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
