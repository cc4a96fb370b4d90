/*
 * What became of every field that a stream's counter tells of: observed, unobserved because the watcher was late, or
 * lost although it was waiting. In doubt the watcher was late: a healthy signal must never look sick.
 *
 * A gap in the counter is judged field by field, once the arrivals of all streams for that time are in. A missing field
 * is unobserved when, with its start moved to CLOCK_MONOTONIC by the tick clock,
 *  - it began while the thread was outside a wait;
 *  - the kernel says that the thread may have stood ready without a processor from its begin until the wait returned;
 *  - this or another stream's wait, or the analysis, was held up meanwhile: it returned notably late, and the kernel's
 *    account either says for how long, or does not explain it and the machine itself stood still.
 * Otherwise it is lost. A wait that returns late gets the newest field, so that a late wake looks like a gap.
 */
#ifndef FIELD_ACCOUNTING_H
#define FIELD_ACCOUNTING_H

#include <array>
#include <cstdint>
#include <span>

#include "FieldRecord.h"
#include "StreamTrackers.h"
#include "TickClock.h"

// A stretch of CLOCK_MONOTONIC.
struct SStretch
{
    uint64_t uiBeginNs;
    uint64_t uiEndNs;
};

// A stretch in which waits were due and did not return, and who says so. Streams are bits: inputs from 0, outputs
// from 32.
struct SStall
{
    SStretch oStretch;
    uint64_t uiReady = 0;    // by the kernel, they stood ready without a processor
    uint64_t uiHeld = 0;     // they were held up, and nobody says by what
    bool bIsMachine = false; // the analysis itself was due and did not run
};

// How a field's counter follows the one before.
enum class ECounterStep : uint8_t
{
    FIRST,
    FORWARD,
    REPEATED,
    JUMPED // back, or forward without the time for it
};

struct SCounterStep
{
    ECounterStep eStep = ECounterStep::FIRST;
    int64_t iFields = 1; // fields from the one before to this one
};

/*
 * Compares a field with the one before it.
 *   flPeriod  in  ticks, 0: not known
 */
SCounterStep CounterStep_Get(const SFieldRecord& roBefore, const SFieldRecord& roField, double flPeriod);

// Fields that are missing before one that came.
struct SFieldGap
{
    uint64_t uiTick = 0; // of the field that came
    uint64_t uiArrivalNs = 0;
    uint64_t uiLastWaitNs = 0; // when the wait that brought it began
    uint64_t uiRunDelayNs = 0;
    int64_t iMissing = 0;
    int64_t iLater = 0;    // so many of the newest are left for another time
    double flPeriod = 0.0; // ticks
    // When the thread was outside its waits, oldest first.
    std::array<SStretch, 8> aoOutside = {};
    uint32_t uiNbOfOutside = 0;
};

struct SGapVerdict
{
    uint64_t uiLost = 0;
    uint64_t uiUnobserved = 0;
    uint64_t uiFirstLostTick = 0;
    uint64_t uiFirstUnobservedTick = 0;
    std::array<uint64_t, uiNbOfUnobservedCauses> auiCauses = {}; // of the unobserved ones
};

struct SStallLength
{
    double flNs = 0.0;
    bool bIsExplained = false; // by the kernel's account
};

/* Whether a wait that returned so late was held up; flUsualLateNs: how late this stream's waits return on average. */
bool FieldGap_IsNotablyLate(double flLateNs, double flUsualLateNs, double flPeriodNs);

/*
 * How long before its arrival a wait that was notably late was held up, in nanoseconds. As long as the thread
 * stood ready if the kernel's account explains the lateness, otherwise back to the first field that it missed.
 *   iFields   in  from the field before to this one
 *   flLateNs  in  how late the wait returned, notably
 */
SStallLength FieldGap_GetStall(const SFieldRecord& roField, int64_t iFields, double flLateNs, double flPeriodNs);

/*
 * Judges a gap.
 *   aoStalls  in  when waits of any stream, this one too, were held up
 *   uiSelf    in  this stream's bit
 */
SGapVerdict FieldGap_Judge(const SFieldGap& roGap, const CTickClock& roClock, std::span<const SStall> aoStalls,
                           uint64_t uiSelf);

// Where the thread was since the last field.
class CWaitTrace
{
public:
    /* Takes in the end of a wait that brought no field, or the one that did. */
    void Take(const SFieldRecord& roRecord, double flPeriodNs);
    /* The next field's trace begins here. */
    void Begin(const SFieldRecord& roField);
    void FillGap(SFieldGap& roGap) const;
    /* The longest time outside since then. */
    double GetLongestOutsideNs() const;

private:
    uint64_t m_uiOutsideSinceNs = 0; // 0: nothing has come yet
    uint64_t m_uiRunDelayNs = 0;
    std::array<SStretch, 8> m_aoOutside = {};
    uint32_t m_uiNbOfOutside = 0;
};

#endif
