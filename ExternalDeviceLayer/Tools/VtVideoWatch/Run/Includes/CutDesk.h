/*
 * Where whoever wants a copy of the recorder asks for it, and the thread that owns the recorder hands it out when it
 * has the time. That thread is never made to wait.
 */
#ifndef CUT_DESK_H
#define CUT_DESK_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "FieldRecorder.h"

class CCutDesk
{
public:
    /*
     * Asks for a copy made from now on, and waits for it.
     *   roSpan       in  what is wanted of it
     *   uiTimeOutMs  in  longest wait, milliseconds
     * Nothing after the time-out and once the desk is closed. Any number of threads; one is served at a time.
     */
    std::optional<CRecorderCut> Await(const SRecorderSpan& roSpan, uint32_t uiTimeOutMs);

    // The owner of the recorder.
    bool IsAskedFor() const { return m_bIsAskedFor.load(std::memory_order_relaxed); }
    SRecorderSpan GetSpan();
    void Give(CRecorderCut oCut);
    void Close();

private:
    std::mutex m_oTurn;  // held by the one who is served
    std::mutex m_oMutex; // guards the rest
    std::condition_variable m_oGiven;
    SRecorderSpan m_oSpan;
    std::optional<CRecorderCut> m_oCut;
    bool m_bIsClosed = false;
    std::atomic<bool> m_bIsAskedFor{false};
};

#endif
