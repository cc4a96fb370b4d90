/*
 * What the HTTP server needs of the platform's sockets and threads. No state; any thread.
 */
#ifndef HTTP_SOCKETS_H
#define HTTP_SOCKETS_H

#include <cstdint>
#include <string>

struct SListenAddress
{
    std::string szHost; // "127.0.0.1"
    uint16_t uiPort = 0;
    bool bIsLoopback = false;
};

/*
 * Reads ADDRESS:PORT.
 *   roAddress   out  the parts
 *   rszProblem  out  one line that says what is wrong
 */
bool HttpSockets_ReadAddress(const std::string& szListen, SListenAddress& roAddress, std::string& rszProblem);

/* Whether an address can be listened on: the server says no more than that it could not start, rszProblem says why. */
bool HttpSockets_TryListening(const SListenAddress& roAddress, std::string& rszProblem);

/* Shuts down every socket of this process that is bound to an address, so that whoever waits for one returns. */
void HttpSockets_ShutDown(const SListenAddress& roAddress);

/* Gives the calling thread less of a loaded processor than threads of ordinary priority get. */
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
    struct SMask;
    SMask* m_poMask;
};

#endif
