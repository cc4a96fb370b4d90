/*
 * One request on its way to its answer: what was asked, what is answered, and whether the library has laid it aside
 * until something comes. The library's thread owns it, but for waking it up, which any thread may do at any time.
 */
#ifndef HTTP_CALL_H
#define HTTP_CALL_H

#include <memory>
#include <mutex>
#include <string>

#include <microhttpd.h>

#include "HttpConnections.h"
#include "HttpServer.h"

enum class EHttpStage : uint8_t
{
    NAMED,  // its first line has come
    HEADED, // its headers have
    AT_WORK // another thread makes its answer, or has
};

struct SHttpCall
{
    EHttpStage eStage = EHttpStage::NAMED;
    std::string szTarget;
    SHttpRequest oRequest;
    SHttpAnswer oAnswer;
    HttpConnectionPtr poPlace;

    // Of a stream: what has not been sent of the newest piece.
    HttpPiece poPiece;
    size_t uiSent = 0;

    std::mutex oMutex;                      // for what follows
    MHD_Connection* poConnection = nullptr; // null: over
    bool bIsAsleep = false;
    bool bIsWoken = false; // while it was awake
};
using HttpCallPtr = std::shared_ptr<SHttpCall>;

/*
 * Lays a call aside until it is woken up; by the library's thread, from within the library. False when it has been
 * woken up since the last time, or the daemon ends: then there is something to look at.
 */
bool HttpCall_Sleep(SHttpCall& roCall);

/* Thread-safe; nothing happens when the call is over. */
void HttpCall_Wake(SHttpCall& roCall);

/* The answer that another thread has made; wakes the call up. Thread-safe. */
void HttpCall_Finish(SHttpCall& roCall, SHttpAnswer oAnswer);

/* It is over: nothing wakes it up any more, and its answer goes. */
void HttpCall_End(SHttpCall& roCall);

#endif
