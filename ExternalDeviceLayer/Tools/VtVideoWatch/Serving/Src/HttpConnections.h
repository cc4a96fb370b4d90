/*
 * The places for connections: who holds one, since when, and who has to give his up. Knows sockets alone. Thread-safe:
 * the thread that takes connections in, and those that serve them.
 */
#ifndef HTTP_CONNECTIONS_H
#define HTTP_CONNECTIONS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "HttpSockets.h"

struct SHttpCall;

// What a connection is at, and so how long it may be.
enum class EHttpPhase : uint8_t
{
    EXPECTED,  // has said nothing yet, or is in the middle of its handshake
    KEPT,      // has been answered, and may ask again
    READING,   // has begun a request
    ANSWERING, // is given its answer, or a piece of one
    WAITING,   // has all that there is of a stream
    ENDED      // its socket is shut down; whoever serves it will find out
};

// What connections know of who serves them.
struct SHttpDaemonState
{
    std::atomic<bool> bIsEnding = false;
    bool bAsksForCertificates = false;
};

struct SHttpConnection
{
    int iSocket = -1;
    const SHttpListener* poListener = nullptr;
    std::shared_ptr<SHttpDaemonState> poDaemon;
    bool bIsCertified = false; // its client's certificate has been found good
    EHttpPhase ePhase = EHttpPhase::EXPECTED;
    std::chrono::steady_clock::time_point oSince;
    std::shared_ptr<SHttpCall> poCall; // the newest one
};
using HttpConnectionPtr = std::shared_ptr<SHttpConnection>;

class CHttpConnections
{
public:
    explicit CHttpConnections(size_t uiMost) : m_uiMost(uiMost) {}

    /*
     * Whether there is a place for one more. When all are taken, the one that has been idle for longest loses its own:
     * first of those that have never asked for anything, but none before it had time to. False when there is nobody:
     * who comes has to wait outside for a moment.
     */
    bool MakeRoom();

    // A new connection takes the place that there is.
    void Enter(int iSocket, const SHttpListener& roListener, std::shared_ptr<SHttpDaemonState> poDaemon);

    // Ends one that is idle, as if a place were needed; false when there is none.
    bool EndIdle();

    /* The one that holds a socket; null if there is none. */
    HttpConnectionPtr Find(int iSocket) const;

    void SetPhase(SHttpConnection& roConnection, EHttpPhase ePhase);
    void SetCall(SHttpConnection& roConnection, std::shared_ptr<SHttpCall> poCall);

    // Its socket is about to be closed.
    void Leave(int iSocket);

    /* Shuts down those whose time is over. Gives the milliseconds until it should be done again; -1: there are none. */
    int EndOverdue();

    std::vector<std::shared_ptr<SHttpCall>> GetCalls(const SHttpDaemonState& roDaemon) const;
    size_t GetOpen() const;
    uint64_t GetDropped() const;

private:
    bool EndIdleLocked();
    void End(SHttpConnection& roConnection);

    const size_t m_uiMost;
    mutable std::mutex m_oMutex;
    std::map<int, HttpConnectionPtr> m_oConnections; // by socket
    size_t m_uiEnded = 0;                            // of these
    uint64_t m_uiDropped = 0;
};

#endif
