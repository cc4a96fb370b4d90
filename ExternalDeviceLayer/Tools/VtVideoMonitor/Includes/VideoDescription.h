/*
 * Names and descriptions of streams with the settings of the tool: the extended timings, and a line of the log for a
 * stream without a name. No state; called from all monitor threads at once.
 */
#ifndef VIDEO_DESCRIPTION_H
#define VIDEO_DESCRIPTION_H

#include <cstdint>

#include "KrvTypes.h"
#include "VideoTexts.h"
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

#endif
