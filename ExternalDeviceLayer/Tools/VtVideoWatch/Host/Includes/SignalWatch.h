/*
 * The signals of the process: INT and TERM end it, HUP lets log files be opened anew, PIPE and XFSZ are errors of the
 * write that met them.
 *
 * A thread of its own waits for them, so that they are obeyed whatever the main thread is in the middle of; a board
 * whose call never returns must not hang the end either, so that thread ends the process itself when the main one has
 * not done so in time.
 */
#ifndef SIGNAL_WATCH_H
#define SIGNAL_WATCH_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

#include "Fault.h"

class CSignalWatch
{
public:
    CSignalWatch() = default;
    ~CSignalWatch();
    CSignalWatch(const CSignalWatch&) = delete;
    CSignalWatch& operator=(const CSignalWatch&) = delete;

    /*
     * The first thing of the program: what would end it before Start() waits until then (HUP), or is an error of the
     * write that met it (PIPE, XFSZ). LetHangUp() for a program that will not start this.
     */
    static void HoldEarly();
    static void LetHangUp();

    /*
     * Blocks the signals in the calling thread and all that it will start, and starts to wait for them. Before any
     * other thread.
     *   uiEndMs      in  how long after INT or TERM the process may live
     *   iEndStatus   in  exit status when that time is over
     *   fnOnHangUp   in  called for each HUP, by the waiting thread; may be empty
     */
    CFault Start(uint32_t uiEndMs, int iEndStatus, std::function<void()> fnOnHangUp);

    /*
     * Waits until the end is asked for.
     *   uiTimeOutMs  in  longest wait
     * True when it is.
     */
    bool AwaitEnd(uint32_t uiTimeOutMs);

private:
    void Run();
    [[noreturn]] void EndProcess() const;

    std::function<void()> m_fnOnHangUp;
    uint32_t m_uiEndMs = 0;
    int m_iEndStatus = 0;
    int m_iSignals = -1; // signalfd
    int m_iEnd = -1;     // eventfd: readable once the end is asked for
    int m_iOver = -1;    // eventfd: nobody needs the thread any more
    std::atomic<bool> m_bIsOver{false};
    std::thread m_oThread;
};

#endif
