/*
 * Common types of the device SDK: handles, status codes, fixed texts.
 *
 * The whole interface is plain C (C11 and C++20). Words used in the comments of all its headers:
 *   thread-safe     any number of threads may call it at once, also on the same handle;
 *   per handle      thread-safe as long as one handle is used by one thread at a time;
 *   blocks          may put the caller to sleep, for no longer than its time-out says.
 * A negative status means failure. Unless an operation says otherwise, its outputs are then left untouched.
 * Every operation answers a null handle, a released handle or a null output with VtStatus_INVALID_PARAM.
 */
#ifndef VT_TYPES_H
#define VT_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The range of the interface's enumerations: whatever 32 bits a board delivers may be loaded and compared. C++ needs to
 * be told the type, or values beyond the listed ones are undefined; C takes the same type by itself.
 */
#ifdef __cplusplus
#define VT_AS_UINT32 : uint32_t
#define VT_AS_INT32 : int32_t
#else
#define VT_AS_UINT32
#define VT_AS_INT32
#endif

/* Booleans of the interface are 32 bits wide: 0 is false, 1 is true. */
typedef uint32_t VtBool;

/* Sizes, terminator included, of the text buffers that the interface fills or reads. */
enum VtTextSize
{
    VtTextSize_CONNECTOR_NAME = 64,    /* VtBoard_ConnectorInfo.szName */
    VtTextSize_PIXEL_FORMAT_NAME = 64, /* the caller's buffer of VtPixelFormat_GetName */
    VtTextSize_DEBUG_MSG = 4096        /* longest text that VtDebug_WriteMsg takes whole; longer text is cut */
};

/* A board chip. Comes from Veltrano_GetDevice, ends with Veltrano_UnLoad, is never released by itself. */
typedef struct VtDevice_Object* VtDevice_Handle;
/* One video input, from VtVideoIn_GetHandle until VtVideoIn_ReleaseHandle. */
typedef struct VtVideoIn_Object* VtVideoIn_Handle;
/* One video output, from VtVideoOut_GetHandle until VtVideoOut_ReleaseHandle. */
typedef struct VtVideoOut_Object* VtVideoOut_Handle;

/* Result of an operation, signed 32 bits. Negative is failure; positive is success with a remark. */
typedef enum VtStatus VT_AS_INT32
{
    VtStatus_SEIOVERSIZE = -108,
    VtStatus_SEQUENCE_RESET = -107,
    VtStatus_DISORDERED_RELEASE_COUNT = -106,
    VtStatus_CRITICAL_END_OF_STREAM = -105,
    VtStatus_STREAM_NOT_INITIALIZED = -104,
    VtStatus_INCOMPLETE_COMMAND = -103,
    VtStatus_REORDERED_SEQUENCE_PENDING = -102,
    VtStatus_END_OF_STREAM = -101,
    VtStatus_INFO_NOT_AVAILABLE = -100,
    VtStatus_TEMPORARY_LACK_OF_RESOURCES = -16,
    VtStatus_HARDWARE_MALFUNCTION = -15,
    VtStatus_CONNECTION_LOST = -14,
    VtStatus_COMMAND_PENDING = -13,
    VtStatus_CANCELED = -12,
    VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL = -11,
    VtStatus_UNSUPPORTED = -10,
    VtStatus_ACCESS_DENIED = -9,
    VtStatus_RESOURCES_BUSY = -8,
    VtStatus_OUT_OF_RESOURCES = -7,
    VtStatus_OUT_OF_MEMORY = -6,
    VtStatus_NO_DATA = -5,
    VtStatus_NO_MORE_DATA = -4,
    VtStatus_TIMEOUT = -3,
    VtStatus_INVALID_PARAM = -2,
    VtStatus_FAIL = -1,
    VtStatus_OK = 0,
    VtStatus_NOT_OPTIMAL = 1,
    VtStatus_NOTHING_DONE = 2,
    VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE = 102,
    VtStatus_OK_MISSING_FIRST_SPS = 103,
    VtStatus_OK_STREAM_NOT_LOWLATENCY = 104,
    VtStatus_FORCE32 = 0x7FFFFFFF
} VtStatus;

/* How a stream handle is opened. A reader may watch a stream that another process drives. */
typedef enum VtAccessMode VT_AS_UINT32
{
    VtAccessMode_READONLY = 1,
    VtAccessMode_READWRITE = 3,
    VtAccessMode_FORCE32 = 0x7FFFFFFF
} VtAccessMode;

#ifdef __cplusplus
} /* extern "C" */
#else
_Static_assert(sizeof(VtStatus) == 4 && (VtStatus)-1 < 0, "a status is signed, 32 bits wide");
_Static_assert(sizeof(VtAccessMode) == 4 && (VtAccessMode)-1 > 0, "an access mode is unsigned, 32 bits wide");
#endif

#endif
