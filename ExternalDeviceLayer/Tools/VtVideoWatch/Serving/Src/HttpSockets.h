/*
 * What the HTTP server needs of the platform's sockets and threads. No state; any thread.
 */
#ifndef HTTP_SOCKETS_H
#define HTTP_SOCKETS_H

#include <csignal>
#include <string>
#include <vector>

#include "Fault.h"
#include "HttpServer.h"
#include "ListenAddress.h"

// A socket that is listened on.
struct SHttpListener
{
    int iSocket = -1;
    SListenAddress oAddress; // with the port that was taken for 0
    bool bIsFile = false;    // a unix socket that was made here, and goes with its listener
};

/*
 * Listens on an address.
 *   roFile  in  who may use a unix socket; the others have no use for it
 * A unix socket that nobody listens on any more gives way.
 */
CFault HttpSockets_Listen(const SListenAddress& roAddress, const SHttpSocketFile& roFile, SHttpListener& roListener);

/*
 * Takes over the sockets that the service manager listens on for this process (LISTEN_FDS), once.
 *   raoListeners  in, out  they are added
 * One that is none to listen on is a fault.
 */
CFault HttpSockets_TakeGiven(std::vector<SHttpListener>& raoListeners);

void HttpSockets_Close(SHttpListener& roListener);

/* The next connection that waits, non-blocking; negative when none does, or none can be had (errno). */
int HttpSockets_Accept(const SHttpListener& roListener);

/* How many more files the process may open. */
size_t HttpSockets_CountFreeFiles();

/* Gives the calling thread, and those that it starts, less of a loaded processor than ordinary ones get. */
void HttpSockets_LowerThreadPriority();

// Keeps every signal from the threads that are started while it lives: they belong to the program's own threads.
class CSignalsBlocked
{
public:
    CSignalsBlocked();
    ~CSignalsBlocked();
    CSignalsBlocked(const CSignalsBlocked&) = delete;
    CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;

private:
    sigset_t m_oBefore = {};
};

#endif
