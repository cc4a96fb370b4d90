/*
 * Records and enumerations that describe video signals. Units are in the field names or beside the field.
 */
#ifndef VT_VIDEO_TYPES_H
#define VT_VIDEO_TYPES_H

#include "VtTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Timings of a video signal, 56 bytes. A record with uiHActive or uiVActive of 0 means that there is no signal. */
typedef struct VtVideo_VidParam
{
    uint32_t uiHActive;        /* active pixels per line */
    uint32_t uiVActive;        /* active lines per frame, both fields of an interlaced frame together */
    uint32_t uiVRate_Hz;       /* vertical rate: fields per second when interlaced, otherwise frames per second */
    uint32_t uiHRate_kHz;      /* line rate, kHz */
    uint32_t uiPixelClock_kHz; /* pixel clock, kHz */
    uint32_t uiHFPorch;        /* horizontal front porch, pixels */
    uint32_t uiHSync;          /* horizontal sync width, pixels */
    uint32_t uiHBPorch;        /* horizontal back porch, pixels */
    uint32_t uiVFPorch;        /* vertical front porch, lines (of one field when interlaced) */
    uint32_t uiVSync;          /* vertical sync width, lines (of one field when interlaced) */
    uint32_t uiVBPorch;        /* vertical back porch, lines (of one field when interlaced) */
    uint32_t bInterlaced : 1;
    uint32_t bBottomFieldFirst : 1;
    uint32_t bHorizontalSyncPositive : 1;
    uint32_t bVerticalSyncPositive : 1;
    uint32_t bIsYuv : 1; /* 1: luma and chroma, 0: RGB */
    uint32_t fColorSpace : 4;
    uint32_t fChromaSubSampling : 2;
    uint32_t fColorDepth : 2;
    uint32_t fIs3GLevelB : 1;
    uint32_t uiReserved1 : 18;
    uint64_t uiReserved2;
} VtVideo_VidParam;

/* Layout of a video buffer. The names are those that VtPixelFormat_GetName delivers. */
typedef enum VtPixelFormat VT_AS_UINT32
{
    VtPixelFormat_UNKOWN = 0, /* the misspelt name is the interface's own */
    VtPixelFormat_YUV422_YUYV = 1,
    VtPixelFormat_YUV422_UYVY = 2,
    VtPixelFormat_YUV422_V210 = 3,
    VtPixelFormat_YUV420_NV12 = 4,
    VtPixelFormat_RGB888 = 5,
    VtPixelFormat_BGR888 = 6,
    VtPixelFormat_XRGB8888 = 7,
    VtPixelFormat_ARGB8888 = 8,
    VtPixelFormat_XBGR8888 = 9,
    VtPixelFormat_RGB565 = 10,
    VtPixelFormat_XRGB2101010 = 11,
    VtPixelFormat_GREY8 = 12,
    VtPixelFormat_MJPEG = 13,
    VtPixelFormat_FORCE32 = 0x7FFFFFFF
} VtPixelFormat;

/* Capture state of a video input. */
typedef enum VtVideoIn_State VT_AS_UINT32
{
    VtVideoIn_State_INVALID = 0,
    VtVideoIn_State_NOT_INITIALIZED = 1,
    VtVideoIn_State_STARTED = 2,
    VtVideoIn_State_STOPPED = 4,
    VtVideoIn_State_FORCE32 = 0x7FFFFFFF
} VtVideoIn_State;

/* Power state of a video output. */
typedef enum VtVideoOut_PowerState VT_AS_UINT32
{
    VtVideoOut_PowerState_DISABLED = 0,
    VtVideoOut_PowerState_ON = 1,
    VtVideoOut_PowerState_BLANKED = 2,
    VtVideoOut_PowerState_STANDBY = 4,
    VtVideoOut_PowerState_SUSPEND = 8,
    VtVideoOut_PowerState_OFF = 16,
    VtVideoOut_PowerState_FORCE32 = 0x7FFFFFFF
} VtVideoOut_PowerState;

/*
 * Writes the name of ePixelFormat, such as "VtPixelFormat_XRGB8888", into szName.
 *   ePixelFormat  in   any value; one without a name gives "VtPixelFormat_UNKOWN"
 *   szName        out  VtTextSize_PIXEL_FORMAT_NAME characters, always terminated
 * VtStatus_OK; VtStatus_INVALID_PARAM when szName is null. Thread-safe, does not block.
 */
VtStatus VtPixelFormat_GetName(VtPixelFormat ePixelFormat, char* szName);

#ifdef __cplusplus
} /* extern "C" */
static_assert(sizeof(VtVideo_VidParam) == 56 && offsetof(VtVideo_VidParam, uiReserved2) == 48,
              "the timing record is 56 bytes");
#else
_Static_assert(sizeof(VtVideo_VidParam) == 56 && offsetof(VtVideo_VidParam, uiReserved2) == 48,
               "the timing record is 56 bytes");
_Static_assert(sizeof(VtPixelFormat) == 4 && sizeof(VtVideoIn_State) == 4 && sizeof(VtVideoOut_PowerState) == 4,
               "enumerations of the interface are 32 bits wide");
_Static_assert((VtPixelFormat)-1 > 0 && (VtVideoIn_State)-1 > 0 && (VtVideoOut_PowerState)-1 > 0,
               "and unsigned but for VtStatus");
#endif

#endif
