/*
 * Buffer layouts: the kernel's four-character codes and the interface's values, all from one table, and their names.
 * Entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_PIXEL_FORMAT_TABLE_H
#define LINUX_BOARD_PIXEL_FORMAT_TABLE_H

#include <cstdint>

#include "VtVideoTypes.h"

/* VtPixelFormat_UNKOWN for a code that the interface has no value for. */
VtPixelFormat PixelFormat_FromV4l2(uint32_t uiFourCc);
VtPixelFormat PixelFormat_FromDrm(uint32_t uiFourCc);

/* Luma and chroma, or RGB, of any code of V4L2, also one that the interface has no value for. */
bool PixelFormat_IsYuv(uint32_t uiV4l2FourCc);

/* Never null. */
const char* PixelFormat_Name(VtPixelFormat ePixelFormat);

#endif
