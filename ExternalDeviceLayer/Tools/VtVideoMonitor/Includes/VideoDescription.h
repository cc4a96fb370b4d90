/*
 * The texts that name and describe streams. No state; called from all monitor threads at once.
 */
#ifndef VIDEO_DESCRIPTION_H
#define VIDEO_DESCRIPTION_H

#include <cstdint>

#include "KrvTypes.h"
#include "VtTypes.h"
#include "VtVideoTypes.h"

/*
 * Describes signal timings, such as "1920 x 1080p @ 60 Hz (RGB)"; with g_bExtendVidTimingDetails also pixel clock,
 * porches and syncs.
 *   poVideoParam  in   the timings; null gives "Invalid timings"
 *   szVideoParam  out  the text, cleared first
 */
void GetVideoParamString(const VtVideo_VidParam* poVideoParam, VTSTR256& szVideoParam);

/*
 * Finds the name of the connector that carries a stream.
 *   hDev           in   the board
 *   uiVideoIndex   in   index of the input or output
 *   bIsVideoInput  in   1 for an input, 0 for an output
 *   szVideoName    out  the name, cleared first, always terminated
 * VtStatus_OK; VtStatus_FAIL when the board has no connectors or cannot count them; the status of a failing connector
 * query. A stream without a connector is logged and still gives success, with an empty name.
 */
VtStatus GetVideoNameString(VtDevice_Handle hDev, uint32_t uiVideoIndex, Bool32 bIsVideoInput, VTSTR64& szVideoName);

/* Name of a status code; "Unknown" for one without a text of its own. */
const char* VtStatusToString(VtStatus eStatus);

/* Name of a capture state; "Unknown VtVideoIn_State" for an unknown one. */
const char* VtVideoInStateToString(VtVideoIn_State eState);

/* Name of a power state, without its family prefix; "Unknown" for an unknown one. */
const char* PowerStateToString(VtVideoOut_PowerState eStatus);

/*
 * Asks the board for the name of a pixel format.
 *   szPixelFormat  in/out  the name, always terminated; unchanged when the board writes none
 */
void GetPixelFormatString(VtPixelFormat ePixelFormat, VTSTR64& szPixelFormat);

#endif
