/*
 * Queries of the board as a whole: reference counter, connectors, custom calls.
 */
#ifndef VT_BOARD_H
#define VT_BOARD_H

#include "VtTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Kind of a connector. */
typedef enum VtBoard_ConnectorType VT_AS_UINT32
{
    VtBoard_ConnectorType_UNKNOWN = 0,
    VtBoard_ConnectorType_SDI = 1,
    VtBoard_ConnectorType_HDMI = 2,
    VtBoard_ConnectorType_DISPLAYPORT = 3,
    VtBoard_ConnectorType_DVI = 4,
    VtBoard_ConnectorType_VGA = 5,
    VtBoard_ConnectorType_FORCE32 = 0x7FFFFFFF
} VtBoard_ConnectorType;

/* One physical connector, 100 bytes. An index counts only when the flag of its kind is set. */
typedef struct VtBoard_ConnectorInfo
{
    uint32_t uiSize; /* set by the caller to sizeof(VtBoard_ConnectorInfo) */
    VtBoard_ConnectorType eType;
    char szName[VtTextSize_CONNECTOR_NAME]; /* always terminated */
    uint32_t bVideoInput : 1;
    uint32_t bVideoOutput : 1;
    uint32_t bAudioInput : 1;
    uint32_t bAudioOutput : 1;
    uint32_t uiReserved1 : 28;
    uint32_t bDdc : 1;
    uint32_t bHpd : 1;
    uint32_t bEdid1024Support : 1;
    uint32_t uiReserved2 : 29;
    uint32_t uiVideoInIndex;
    uint32_t uiVideoOutIndex;
    uint32_t uiAudioInIndex;
    uint32_t uiAudioOutIndex;
    uint32_t uiFpgaPortIndex;
} VtBoard_ConnectorInfo;

/* Numbers that VtBoard_CustomCall takes. */
typedef enum VtBoard_CustomCallId VT_AS_UINT32
{
    VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT = 9,
    VtBoard_CustomCallId_GET_TICK_CLOCK = 0x4C580001, /* far from the makers' own numbers, which count from 0 */
    VtBoard_CustomCallId_GET_SHARED_CLOCK = 0x4C580002,
    VtBoard_CustomCallId_GET_SET_BUFFER_KIND = 0x4C580003,
    VtBoard_CustomCallId_FORCE32 = 0x7FFFFFFF
} VtBoard_CustomCallId;

/* Input block of GET_CAPTURE_SKIP_BUFFER_COUNT, 4 bytes. */
typedef struct VtBoard_CaptureSkipBufferCountIn
{
    uint32_t uiCaptureIndex; /* index of the video input */
} VtBoard_CaptureSkipBufferCountIn;

/* Output block of GET_CAPTURE_SKIP_BUFFER_COUNT, 16 bytes. */
typedef struct VtBoard_CaptureSkipBufferCountOut
{
    uint64_t uiSkipBuffCnt; /* fields captured into no buffer since the capture began */
    uint64_t uiBuffCnt;     /* buffers filled since the capture began */
} VtBoard_CaptureSkipBufferCountOut;

/* Clocks of the machine that a board's reference counter can follow; the numbers are those of the kernel. */
enum VtBoard_ClockId
{
    VtBoard_ClockId_MONOTONIC = 1 /* CLOCK_MONOTONIC */
};

/*
 * Output block of GET_TICK_CLOCK, 16 bytes; there is no input block. Only a board whose reference counter follows a
 * clock of the machine for good, without drift, knows this call. At every tick t of the counter that clock shows
 * t x 10^9 / frequency + iOffsetNs nanoseconds (VtBoard_GetTickReferenceFrequency). The answer is the same at every
 * call.
 */
typedef struct VtBoard_TickClockOut
{
    uint32_t uiClockId;  /* a VtBoard_ClockId */
    uint32_t uiReserved; /* 0 */
    int64_t iOffsetNs;   /* what the clock showed at tick 0, ns */
} VtBoard_TickClockOut;

/*
 * Output block of GET_SHARED_CLOCK, 16 bytes; there is no input block. Only a board whose chips' counters may tick on
 * one oscillator knows this call. Chips that answer the same uiClockId do, for good: when their counters stand at ticks
 * t, t x 10^9 / frequency + iOffsetNs (VtBoard_GetTickReferenceFrequency) is one moment for all of them, to the
 * nanosecond. The answer is the same at every call; VtStatus_UNSUPPORTED for a chip that shares its clock with no
 * other.
 */
typedef struct VtBoard_SharedClockOut
{
    uint32_t uiClockId;  /* the board's own number, from 1 */
    uint32_t uiReserved; /* 0 */
    int64_t iOffsetNs;   /* what the shared clock showed at tick 0, ns; where that clock begins is the board's matter */
} VtBoard_SharedClockOut;

/* How a board comes to its set-buffer counters. */
enum VtBoard_SetBufferKind
{
    VtBoard_SetBufferKind_COUNTED = 0,  /* each buffer that is set is counted */
    VtBoard_SetBufferKind_ESTIMATED = 1 /* from looks at what is shown: some buffers may be missed */
};

/*
 * Output block of GET_SET_BUFFER_KIND, 8 bytes; there is no input block. A board that does not know this call counts.
 * The answer is the same at every call, for all outputs.
 */
typedef struct VtBoard_SetBufferKindOut
{
    uint32_t uiKind;     /* a VtBoard_SetBufferKind */
    uint32_t uiReserved; /* 0 */
} VtBoard_SetBufferKindOut;

/*
 * Reads the frequency of the reference counter behind every timestamp of the chip.
 *   hDev        in   the chip
 *   puiFreqHz   out  ticks per second, 1 000 000 or more
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Thread-safe, does not block.
 */
VtStatus VtBoard_GetTickReferenceFrequency(VtDevice_Handle hDev, uint32_t* puiFreqHz);

/*
 * Counts the connectors.
 *   hDev      in   the chip
 *   puiCount  out  number of connectors
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Thread-safe, does not block.
 */
VtStatus VtBoard_GetConnectorCount(VtDevice_Handle hDev, uint32_t* puiCount);

/*
 * Describes one connector.
 *   hDev              in      the chip
 *   uiConnectorIndex  in      0 to the count - 1
 *   poConnectorInfo   in/out  the caller sets uiSize; the rest is filled
 * VtStatus_OK; VtStatus_INVALID_PARAM for an index that does not exist or a wrong uiSize; VtStatus_FAIL.
 * Thread-safe, does not block.
 */
VtStatus VtBoard_GetConnectorInfo(VtDevice_Handle hDev, uint32_t uiConnectorIndex,
                                  VtBoard_ConnectorInfo* poConnectorInfo);

/*
 * Board-specific requests by number, with an input and an output block.
 *   hDev         in   the chip
 *   uiCall       in   a VtBoard_CustomCallId
 *   pvIn         in   input block, null for a call that has none
 *   uiInSize     in   its size, bytes, 0 without one
 *   pvOut        out  output block
 *   uiOutSize    in   its size, bytes
 * VtStatus_OK; VtStatus_UNSUPPORTED for a number that the board does not know; VtStatus_INVALID_PARAM for a null
 * block, a wrong size or an index that does not exist; VtStatus_FAIL. Thread-safe, does not block.
 */
VtStatus VtBoard_CustomCall(VtDevice_Handle hDev, uint32_t uiCall, const void* pvIn, uint32_t uiInSize, void* pvOut,
                            uint32_t uiOutSize);

#ifdef __cplusplus
} /* extern "C" */
static_assert(sizeof(VtBoard_ConnectorInfo) == 100, "the connector record is 100 bytes");
static_assert(sizeof(VtBoard_CaptureSkipBufferCountIn) == 4 && sizeof(VtBoard_CaptureSkipBufferCountOut) == 16,
              "the blocks of the skip count are 4 and 16 bytes");
static_assert(sizeof(VtBoard_TickClockOut) == 16 && sizeof(VtBoard_SharedClockOut) == 16,
              "the blocks of the clocks are 16 bytes");
static_assert(sizeof(VtBoard_SetBufferKindOut) == 8, "the block of the set-buffer kind is 8 bytes");
#else
_Static_assert(sizeof(VtBoard_ConnectorInfo) == 100, "the connector record is 100 bytes");
_Static_assert(sizeof(VtBoard_CaptureSkipBufferCountIn) == 4 && sizeof(VtBoard_CaptureSkipBufferCountOut) == 16,
               "the blocks of the skip count are 4 and 16 bytes");
_Static_assert(sizeof(VtBoard_TickClockOut) == 16 && sizeof(VtBoard_SharedClockOut) == 16,
               "the blocks of the clocks are 16 bytes");
_Static_assert(sizeof(VtBoard_SetBufferKindOut) == 8, "the block of the set-buffer kind is 8 bytes");
#endif

#endif
