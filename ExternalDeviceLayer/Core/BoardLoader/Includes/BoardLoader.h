/*
 * Which libVeltrano.so a program runs on. Its own folders come last: first what LD_LIBRARY_PATH names, then what the
 * system's loader finds, then the simulated board beside the program. A library that is found but cannot be used ends
 * the program: figures of a simulation must not stand in for those of a broken installation.
 *
 * A program that the linker has given its board (VELTRANO_LIBRARY, or VT_BOARD_FALLBACK=OFF) has it at start.
 */
#ifndef BOARD_LOADER_H
#define BOARD_LOADER_H

#include "KrvTypes.h"

/*
 * Makes the operations of the interface callable. To be called once, before the first of them. Main thread only.
 *   szError  out  on failure, one line without its end that says which file does not do and why
 * 1, or 0 when there is no library that can be used; no operation may be called then.
 */
Bool32 BoardLoader_Load(VTSTR4096& szError);

#endif
