/*
 * Control of the simulated board, for tests: which scenario runs, when time goes on, what truly happened.
 *
 * Plain C beside the SDK's own interface; only the simulated libVeltrano.so has it. Every operation is thread-safe.
 * Operations that name a stream answer VtStatus_INVALID_PARAM when it does not exist or nothing is loaded.
 *
 * How a stream's time goes on
 * ---------------------------
 * Real and scaled time: by the monotonic clock, counted from Veltrano_LoadLite.
 *
 * Stepped time ([time] mode = "stepped" or "granted"): each stream has a position, the number of its next field, 0
 * after loading. The streams' positions are independent of each other and of every clock. What a query reports
 * (timings, capture state, buffers, power) is the state at the last field before the position; at position 0, at field
 * 0.
 *   1. A wait whose handle has seen every field before the position takes the field at the position: VtStatus_OK, or
 *      VtStatus_CANCELED when that field is lost (no signal; output without power). One wait, one field, position + 1.
 *      A loss of N fields therefore is N cancelled waits.
 *   2. Missed fields at the position are passed over first: the wait returns the field behind them. A wait that passes
 *      over missed fields for as long as its time-out returns VtStatus_TIMEOUT there instead.
 *   3. A field with a hang of t ms: the wait returns that field (at once) and the position moves on by the fields that
 *      start within t ms, which nobody has seen.
 *   4. VtSim_StepOver moves the position on by fields that nobody has seen.
 *   5. A wait whose handle is behind the position (3, 4, or another handle of the same stream moved it) returns the
 *      newest field before the position, VtStatus_OK or VtStatus_CANCELED, and does not move it. This is a late caller.
 *   6. A wait that a scenario's fault fails returns at once and moves nothing.
 * A handle starts at the position that its stream has when it is opened.
 *
 * mode = "stepped": every wait returns at once.
 * mode = "granted": a wait returns by rules 1 to 5 only by using up one grant of its stream. Without a grant it really
 * waits: until a grant comes, or until its time-out has passed on the monotonic clock (VtStatus_TIMEOUT, no grant used,
 * nothing moves; with [time] hold = true there is no such end). A granted time-out (VtSim_GrantTimeOuts) ends a wait
 * with VtStatus_TIMEOUT at once, before any granted field is used, and moves nothing.
 *
 * A test that drives threads: start them, VtSim_AwaitAllIdle (each is in its first wait), VtSim_GrantAll(n),
 * VtSim_AwaitAllIdle (each has had its n fields, has done its work for the last one and is waiting again).
 */
#ifndef VT_SIMULATED_BOARD_H
#define VT_SIMULATED_BOARD_H

#include "Veltrano.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum VtSim_Direction VT_AS_UINT32
{
    VtSim_Direction_INPUT = 0,
    VtSim_Direction_OUTPUT = 1,
    VtSim_Direction_FORCE32 = 0x7FFFFFFF
} VtSim_Direction;

/* Names one stream of the loaded scenario. */
typedef struct VtSim_Stream
{
    uint32_t uiChip; /* chip index */
    VtSim_Direction eDirection;
    uint32_t uiIndex; /* index of the input or output */
} VtSim_Stream;

/* What becomes of a field. */
typedef enum VtSim_Fate VT_AS_UINT32
{
    VtSim_Fate_STARTED = 0, /* a wait delivers it */
    VtSim_Fate_LOST = 1,    /* no signal: a wait is cancelled */
    VtSim_Fate_MISSED = 2,  /* the board never reports it */
    /* Of a replay, whose fields are the waits of its recording: a wait ends as that one did. */
    VtSim_Fate_TIMED_OUT = 3,
    VtSim_Fate_FAILED = 4,
    VtSim_Fate_FORCE32 = 0x7FFFFFFF
} VtSim_Fate;

/* The truth about one field. */
typedef struct VtSim_Field
{
    uint64_t uiField;            /* number, from 0 */
    uint64_t uiExactTicks;       /* when it starts without jitter: whole ticks, rounded down */
    uint64_t uiExactFraction;    /* and the rest, in ticks / 2^64 */
    uint64_t uiTickRefCounter;   /* the stamp: exact time and jitter, rounded to whole ticks */
    uint64_t uiFieldCounter;     /* 16 per field */
    uint64_t uiSetBufferCounter; /* outputs; 0 for inputs */
    uint64_t uiSkipBufferCount;  /* inputs; 0 for outputs */
    VtSim_Fate eFate;
    VtBool bIsTopField;
} VtSim_Field;

/* Waits of all handles of one stream since loading. Entered - (sum of the others) waits are in progress. */
typedef struct VtSim_WaitCounts
{
    uint64_t uiEntered;
    uint64_t uiOk;
    uint64_t uiCanceled;
    uint64_t uiTimedOut;
    uint64_t uiOther;
} VtSim_WaitCounts;

/* ---- Scenario ---- */

/*
 * Gives the scenario that the next Veltrano_LoadLite runs, instead of the environment's.
 *   szText       in   TOML; null: back to the environment
 *   szFault      out  "scenario text:<line>: <fault>" when the text is refused; may be null
 *   uiFaultSize  in   size of szFault, bytes
 * VtStatus_OK; VtStatus_FAIL for a text that is refused (the next load then has no devices). What is loaded now
 * goes on.
 */
VtStatus VtSim_SetScenario(const char* szText, char* szFault, uint32_t uiFaultSize);

/* ---- Stepped time ---- */

/* Adds uiFields grants to one stream. VtStatus_OK; VtStatus_UNSUPPORTED when the mode is not "granted". */
VtStatus VtSim_Grant(VtSim_Stream oStream, uint64_t uiFields);
/* The same for every stream of every chip. */
VtStatus VtSim_GrantAll(uint64_t uiFields);

/* Lets uiTimeOuts waits of one stream return VtStatus_TIMEOUT at once. Statuses as VtSim_Grant. */
VtStatus VtSim_GrantTimeOuts(VtSim_Stream oStream, uint64_t uiTimeOuts);
/* The same for every stream that has an open handle. */
VtStatus VtSim_GrantTimeOutsAll(uint64_t uiTimeOuts);

/*
 * Waits until one stream has used up all its grants (fields and time-outs) and a caller is waiting on it again.
 *   uiTimeOutMs  in  longest wait, real milliseconds; what a test gives up after, never what it measures
 * VtStatus_OK; VtStatus_TIMEOUT; VtStatus_UNSUPPORTED when the mode is not "granted". Blocks.
 */
VtStatus VtSim_AwaitIdle(VtSim_Stream oStream, uint32_t uiTimeOutMs);
/* The same for every stream that has an open handle; streams without one are passed over. */
VtStatus VtSim_AwaitAllIdle(uint32_t uiTimeOutMs);

/*
 * Waits until uiEntered waits have been entered on the stream since loading (VtSim_WaitCounts.uiEntered). A
 * caller's work after its k-th wait is done when wait k + 1 has been entered. A request made while a caller is
 * somewhere in its loop has surely been seen when the count has grown by 2. Statuses as VtSim_AwaitIdle. Blocks.
 */
VtStatus VtSim_AwaitEntered(VtSim_Stream oStream, uint64_t uiEntered, uint32_t uiTimeOutMs);

/* Moves a stream on by uiFields that nobody sees (rule 4). VtStatus_UNSUPPORTED in real and scaled time. */
VtStatus VtSim_StepOver(VtSim_Stream oStream, uint64_t uiFields);

/* Takes the device away: every later call on the chip fails, waits in progress end. VtStatus_OK. */
VtStatus VtSim_RemoveDevice(uint32_t uiChip);

/* ---- Truth ---- */

/* Number of the stream's next field, in any time mode. */
VtStatus VtSim_GetPosition(VtSim_Stream oStream, uint64_t* puiField);
/* The truth about any field, past or future. VtStatus_INVALID_PARAM also beyond 2^40 fields. */
VtStatus VtSim_GetField(VtSim_Stream oStream, uint64_t uiField, VtSim_Field* poField);
/* Waits so far. */
VtStatus VtSim_GetWaitCounts(VtSim_Stream oStream, VtSim_WaitCounts* poCounts);

/* ---- Calls; these live on after Veltrano_UnLoad, until the next Veltrano_LoadLite ---- */

/* Calls of one SDK operation, by its name, whatever they returned. 0 for a name that is none. */
uint64_t VtSim_GetCallCount(const char* szOperation);
/* Texts given to VtDebug_WriteMsg, at most the last 1024. */
uint32_t VtSim_GetDebugMsgCount(void);
/* One of them, 0 the oldest, cut to uiSize - 1 characters. VtStatus_OK; VtStatus_INVALID_PARAM. */
VtStatus VtSim_GetDebugMsg(uint32_t uiIndex, char* szMsg, uint32_t uiSize);
/* Stream handles open now. */
uint32_t VtSim_GetOpenHandleCount(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
