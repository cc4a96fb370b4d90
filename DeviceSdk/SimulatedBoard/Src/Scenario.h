/*
 * A scenario as plain data, ready to run: everything that a scenario text says, with names resolved, defaults filled in
 * and times turned into field numbers. Built by the scenario reader, then never changed.
 */
#ifndef SIMULATED_BOARD_SCENARIO_H
#define SIMULATED_BOARD_SCENARIO_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BufferFeed.h"
#include "Operations.h"
#include "ReplayTrack.h"
#include "Schedule.h"
#include "StreamDescription.h"
#include "TextFault.h"
#include "TickMath.h"
#include "Veltrano.h"
#include "VideoTiming.h"

enum class EDirection : uint8_t
{
    INPUT,
    OUTPUT
};

enum class ETimeMode : uint8_t
{
    REAL,    // the monotonic clock, scaled or not
    STEPPED, // a wait returns the next field at once
    GRANTED  // a wait returns the next field when a test grants it
};

enum class EEventKind : uint8_t
{
    SIGNAL_LOSS,
    FORMAT_CHANGE,
    MISSED_FIELD,
    DOUBLED_FIELD,
    COUNTER_JUMP,
    SKIPPED_BUFFERS,
    BUFFERS_RUN_OUT,
    PHASE_STEP,
    LOCK_LOST,
    POWER_STATE,
    HANG,
    DESCRIPTION_CHANGE,
    FIELD_ORDER_SWAP,
    CADENCE_CHANGE,
    SLOW_CONSUMER,
    COUNT
};

// One event of a stream. Which of the later members count depends on the kind.
struct SEvent
{
    EEventKind eKind = EEventKind::SIGNAL_LOSS;
    SSchedule oWhen;
    SVideoTiming oTiming;                                    // FORMAT_CHANGE
    int64_t iJump = 0;                                       // COUNTER_JUMP, counter units (16 per field)
    uint64_t uiCount = 0;                                    // SKIPPED_BUFFERS
    FixedTicks iStep = 0;                                    // PHASE_STEP
    int64_t iDriftPpt = 0;                                   // LOCK_LOST, parts in 10^12 faster than while locked
    uint32_t uiHangMs = 0;                                   // HANG
    VtVideoOut_PowerState ePower{VtVideoOut_PowerState_OFF}; // POWER_STATE
    std::vector<SMemberChange> aoChanges;                    // DESCRIPTION_CHANGE
    SBufferFeed oFeed;                                       // CADENCE_CHANGE
    uint32_t uiTakenPpm = 0;                                 // SLOW_CONSUMER, of the fields
    uint32_t uiLine = 0;                                     // where the scenario says when
    uint32_t uiValueLine = 0;                                // and how far
};

struct SStream
{
    // What every field start is made of stands together, for few cache lines.
    EDirection eDirection = EDirection::INPUT;
    VtVideoOut_PowerState ePowerState = VtVideoOut_PowerState_ON; // outputs
    uint32_t uiTickFreqHz = 0;                                    // of the chip
    uint32_t uiBuffers = 8;                                       // inputs
    FixedTicks iOrigin = 0;                                       // when field 0 starts, by the chip's counter
    uint64_t uiKey = 0;                                           // of the stream's own random draws
    double flJitterTicks = 0.0;                                   // sigma
    double flWanderTicks = 0.0;                                   // amplitude
    uint64_t uiFieldCounterStart = 0;
    uint64_t uiSetBufferStart = 0;
    SVideoTiming oTiming;
    SStreamDescription oDescription; // of its timings only the colour flags count; sizes 0: those of the signal
    int64_t iRatePpt = 0;            // parts in 10^12 above the nominal rate
    double flWanderPeriodS = 60.0;
    uint64_t uiWanderKey = 0; // streams with the same key wander together
    SBufferFeed oFeed;        // what the application sets
    std::vector<SEvent> aoEvents;

    uint32_t uiReady = 1;
    uint32_t uiReadySpread = 0;
    uint32_t uiLoan = 2;
    uint32_t uiLoanSpread = 0;
    uint64_t uiSkipCountStart = 0;
    uint64_t uiLuidStart = 0x1000;

    std::shared_ptr<const CReplayTrack> poReplay; // null: it is made up, by what stands above
};

// A failure on purpose: calls of an operation that return a status instead of doing their work.
struct SFaultRule
{
    EOperation eOperation = EOperation::COUNT;
    std::optional<uint32_t> uiChip;
    std::optional<uint32_t> uiIndex; // of the stream
    uint64_t uiFirstCall = 1;
    uint64_t uiTimes = 1;  // successive calls
    uint64_t uiPeriod = 0; // calls, 0: once
    VtStatus eStatus = VtStatus_FAIL;
};

struct SChip
{
    uint32_t uiTickFreqHz = 0;
    uint64_t uiTickStart = 0;
    double flClockPpm = 0.0;                // how much faster the counter is than its frequency says
    std::string szClock;                    // chips of one name tick on one clock; empty: on their own
    uint32_t uiClockId = 0;                 // the number of that name, from 1; 0: on their own
    std::optional<uint64_t> uiRemovalTicks; // counter value at which the device goes away
    std::vector<VtBoard_ConnectorInfo> aoConnectors;
    std::vector<SStream> aoInputs;
    std::vector<SStream> aoOutputs;
};

struct SScenario
{
    std::string szName;
    ETimeMode eTimeMode = ETimeMode::REAL;
    double flScale = 1.0; // board seconds per real second
    bool bHold = false;   // granted: a wait without a grant has no time-out
    std::string szTruthFile;
    bool bTruthDetail = false; // with what the queries say, and with the ends of events
    std::vector<SChip> aoChips;
    std::vector<SFaultRule> aoFaults;
};

// Why a scenario is refused.
using SScenarioFault = STextFault;

#endif
