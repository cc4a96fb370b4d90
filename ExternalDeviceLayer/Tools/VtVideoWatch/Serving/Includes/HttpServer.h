/*
 * The HTTP server that carries the watch's answers: GET and HEAD alone, with bounds on the size of a request, on the
 * time that one may take, and on connections. A thread takes connections in, one per daemon of the library moves their
 * bytes, and two make the answers that take longer; all of them run at a lower priority than the watching. A client
 * that is slow, silent or hostile holds a place among connections for a few seconds, and loses it to whoever needs it.
 */
#ifndef HTTP_SERVER_H
#define HTTP_SERVER_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Fault.h"
#include "HttpAnswer.h"

// Requests answered so far, by status.
constexpr std::array<int, 10> aiHttpStatuses = {200, 304, 400, 401, 403, 404, 405, 500, 503, 0}; // 0: any other one

struct SHttpCounts
{
    std::array<uint64_t, aiHttpStatuses.size()> auiAnswers = {};
    uint64_t uiOpen = 0;    // connections now
    uint64_t uiDropped = 0; // connections that were ended because they took too long, or for the sake of others
};

class CHttpServer;
struct SHttpServerParts;
using HttpHandler = std::function<SHttpAnswer(const CHttpServer& roServer, const SHttpRequest& roRequest)>;

// Who may use unix sockets.
struct SHttpSocketFile
{
    uint32_t uiMode = 0660;
    std::string szGroup; // empty: as it comes
};

// Files that say how to serve; empty: none. Not for unix sockets, whose rights say who may use them.
struct SHttpFiles
{
    std::string szCertificate; // PEM, with those between it and its authority
    std::string szKey;
    std::string szClientCa; // clients must have a certificate of one of these authorities
    std::string szUsers;    // lines of htpasswd -B
};

struct SHttpSetup
{
    std::vector<std::string> aszListen; // see ListenAddress_Read
    SHttpSocketFile oSocketFile;
    SHttpFiles oFiles;
    HttpHandler oHandler; // answers a request; called by several threads at once
    // Whether that may take longer than some milliseconds: then it has a thread of its own, and delays no other answer.
    std::function<bool(const SHttpRequest& roRequest)> oIsSlow;
};

// Thread-safe once it is started. Its end closes every connection and waits for its threads: well below a second.
// Streams must have been told before.
class CHttpServer
{
public:
    CHttpServer();
    ~CHttpServer();
    CHttpServer(const CHttpServer&) = delete;
    CHttpServer& operator=(const CHttpServer&) = delete;

    /*
     * Starts to serve on all addresses of a setup, and on the sockets that the service manager hands over; without
     * either, on szDefaultListen. Once.
     *   oSetup  in  the handler may be called before this returns
     * At a loopback address, requests for any other host are refused with 403: a page from elsewhere cannot have its
     * name point here.
     */
    CFault Start(SHttpSetup oSetup);

    /* The addresses in use, "127.0.0.1:80", with the ports that were taken for 0. */
    const std::vector<std::string>& GetAddresses() const;

    /* The same as who asks writes them, "https://127.0.0.1:80/". */
    std::vector<std::string> GetUrls() const;

    /* One line for whoever leaves an address open to everybody on the network; mostly empty. */
    std::string GetWarning() const;

    /*
     * Reads the files of the setup again. Connections under another certificate are ended when it has changed. After a
     * fault everything stays as it is.
     */
    CFault Reload();

    SHttpCounts GetCounts() const;

private:
    const std::unique_ptr<SHttpServerParts> m_poParts;
};

#endif
