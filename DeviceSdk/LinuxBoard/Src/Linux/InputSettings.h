/*
 * Reads the settings of a capture node, and sets them again. Entered by any thread; allocates and locks nothing, for
 * the guardian comes here too.
 */
#ifndef LINUX_BOARD_INPUT_SETTINGS_H
#define LINUX_BOARD_INPUT_SETTINGS_H

#include "GiveBackNote.h"

/* 0, or a negative errno when there is no format to be kept. */
int InputSettings_Read(int iFd, uint32_t uiBufferType, SInputSettings& roSettings);

/* Sets what differs. 0; -EBUSY when somebody has buffers of the node; another negative errno. */
int InputSettings_Write(int iFd, const SInputSettings& roSettings);

/* The frame interval alone, which changes with the format; likewise. */
int InputSettings_WriteFrameTime(int iFd, const SInputSettings& roSettings);

/* Whether two formats are one for whoever uses them. */
bool InputSettings_IsSameFormat(const v4l2_format& roOne, const v4l2_format& roOther);

#endif
