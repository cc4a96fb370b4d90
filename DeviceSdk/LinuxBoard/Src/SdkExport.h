/*
 * Makes the operations of the interface, and nothing else, visible outside the library.
 */
#ifndef LINUX_BOARD_SDK_EXPORT_H
#define LINUX_BOARD_SDK_EXPORT_H

#pragma GCC visibility push(default)
#include "Veltrano.h"

#pragma GCC visibility pop

#endif
