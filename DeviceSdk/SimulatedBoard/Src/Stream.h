/*
 * One running input or output: the model's fields meet time and callers.
 *
 * Any number of threads wait at once, each on a reader of its own (one reader per handle). In real, scaled and freely
 * stepped time streams and readers share no lock but the truth file's; granted time takes the stream's mutex. All times
 * are ticks of the chip's counter unless named otherwise.
 */
#ifndef SIMULATED_BOARD_STREAM_H
#define SIMULATED_BOARD_STREAM_H

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "BoardClock.h"
#include "Faults.h"
#include "Operations.h"
#include "StreamModel.h"
#include "Truth.h"

// What a handle knows of its stream.
struct SReader
{
    std::atomic<uint64_t> uiNext{0}; // first field that the handle has not seen
    CSleeper oSleeper;               // interrupted when the handle is closed
};

struct SStreamSetup
{
    CBoardClock oClock;
    ETimeMode eTimeMode = ETimeMode::REAL;
    bool bHold = false;
    uint32_t uiChip = 0;
    uint32_t uiIndex = 0;
    CFaults* pFaults = nullptr; // null: no call fails on purpose
    CTruthFile* pTruth = nullptr;
    uint64_t uiRemovalTicks = uiForEver; // when the device goes away
};

struct SWaitCounts
{
    uint64_t uiEntered = 0;
    uint64_t uiOk = 0;
    uint64_t uiCanceled = 0;
    uint64_t uiTimedOut = 0;
    uint64_t uiOther = 0;
};

class CStream
{
public:
    CStream(const SStream& roStream, const SStreamSetup& roSetup);

    /* Next field start that the reader has not seen; roField is written only with VtStatus_OK. */
    VtStatus Wait(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField);
    /* Where a reader that is opened now begins. */
    uint64_t GetOpeningField() const;
    /* The field that has started last, which queries speak of; uiHint is a field known to have started, or 0. */
    uint64_t GetCurrentField(uint64_t uiHint) const;
    /* The same for a caller without a reader. */
    uint64_t GetLatestField() const;
    bool IsGone() const;
    /* The device is gone from now on; wakes nobody. */
    void Remove() { m_uiRemovalTicks.store(0, std::memory_order_release); }
    /* Wakes every wait, so that it looks at its reader and at the device again. */
    void Wake();

    const CStreamModel& GetModel() const { return m_oModel; }
    uint32_t GetChip() const { return m_oSetup.uiChip; }
    uint32_t GetIndex() const { return m_oSetup.uiIndex; }
    void CountCall(EOperation eOperation)
    {
        m_auiCalls[static_cast<size_t>(eOperation)].fetch_add(1, std::memory_order_relaxed);
    }
    /* The status with which a call fails on purpose. */
    std::optional<VtStatus> CountFault(EOperation eOperation)
    {
        return m_oSetup.pFaults == nullptr ? std::nullopt
                                           : m_oSetup.pFaults->Count(eOperation, m_oSetup.uiChip, m_oSetup.uiIndex);
    }
    uint64_t GetCalls(size_t uiOperation) const { return m_auiCalls[uiOperation].load(std::memory_order_relaxed); }
    /* Handles open, and those of them that may write. */
    std::atomic<uint32_t>& GetOpenCount() { return m_uiOpen; }
    std::atomic<uint32_t>& GetWriterCount() { return m_uiWriters; }

    // ---- For tests ----
    void Grant(uint64_t uiFields, uint64_t uiTimeOuts);
    /* True when no grant is left and a caller waits; false when the deadline (monotonic, ns) passed before. */
    bool AwaitIdle(int64_t iDeadlineNs);
    bool AwaitEntered(uint64_t uiEntered, int64_t iDeadlineNs);
    void StepOver(uint64_t uiFields);
    /* Waits that were failed on purpose never reach Wait, but were entered all the same. */
    void CountFailedWait();
    SWaitCounts GetWaitCounts() const;

private:
    VtStatus WaitReal(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField);
    VtStatus WaitGranted(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField);
    VtStatus Step(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField);
    VtStatus SleepThenDeliver(SReader& roReader, uint64_t uiUnseen, const SFieldStart& roComing, int64_t iDeadlineNs,
                              SFieldStart& roField);
    void Pass(SReader& roReader, uint64_t uiUnseen, uint64_t uiReported, uint64_t uiNext);
    void Hang(SReader& roReader, uint64_t uiField, int64_t iFromNs) const;
    VtStatus SleepInVain(SReader& roReader, int64_t iDeadlineNs);
    static VtStatus Deliver(const SFieldStart& roReported, SFieldStart& roField);
    uint64_t GetFieldAfterHang(uint64_t uiField) const;
    void CountEntered();
    void CountReturned(VtStatus eStatus);
    uint64_t GetRemovalTicks() const { return m_uiRemovalTicks.load(std::memory_order_acquire); }

    const CStreamModel m_oModel;
    const SStreamSetup m_oSetup;
    std::atomic<uint64_t> m_uiRemovalTicks;
    std::atomic<uint64_t> m_uiPosition{0}; // stepped: the next field. Real: the field after the last delivered one
    std::atomic<uint32_t> m_uiOpen{0};
    std::atomic<uint32_t> m_uiWriters{0};
    std::array<std::atomic<uint64_t>, uiOperations> m_auiCalls{};
    std::atomic<uint64_t> m_uiEntered{0};
    std::atomic<uint64_t> m_uiOk{0};
    std::atomic<uint64_t> m_uiCanceled{0};
    std::atomic<uint64_t> m_uiTimedOut{0};
    std::atomic<uint64_t> m_uiOther{0};
    CTruthRows m_oTruth;

    // Granted time only.
    std::mutex m_oMutex;
    std::condition_variable m_oGranted; // callers wait for grants
    std::condition_variable m_oIdle;    // tests wait for callers
    uint64_t m_uiGrants = 0;            // guarded by m_oMutex, as the following
    uint64_t m_uiTimeOutGrants = 0;
    uint32_t m_uiWaiting = 0;
};

#endif
