/*
 * The texts that describe streams: timings, states, statuses, pixel formats. No state; any thread.
 */
#ifndef VIDEO_TEXTS_H
#define VIDEO_TEXTS_H

#include "KrvTypes.h"
#include "VtTypes.h"
#include "VtVideoTypes.h"

/*
 * Describes signal timings, such as "1920 x 1080p @ 60 Hz (RGB)".
 *   poVideoParam  in   the timings; null gives "Invalid timings"
 *   bExtended     in   1: with pixel clock, porches and syncs
 *   szVideoParam  out  the text, cleared first
 */
void FormatVideoParam(const VtVideo_VidParam* poVideoParam, Bool32 bExtended, VTSTR256& szVideoParam);

/* Name of a status code; "Unknown" for one without a text of its own. */
const char* VtStatusToString(VtStatus eStatus);

/* Name of a capture state; "Unknown VtVideoIn_State" for an unknown one. */
const char* VtVideoInStateToString(VtVideoIn_State eState);

/* Name of a power state, without its family prefix; "Unknown" for an unknown one. */
const char* PowerStateToString(VtVideoOut_PowerState eStatus);

/*
 * Asks the board for the name of a pixel format.
 *   ePixelFormat   in      any value
 *   szPixelFormat  in/out  the name, printable, always terminated; unchanged when the board writes none
 */
void GetPixelFormatString(VtPixelFormat ePixelFormat, VTSTR64& szPixelFormat);

#endif
