/*
 * Which libVeltrano.so the loader has chosen. No state; any thread.
 */
#ifndef BOARD_LIBRARY_H
#define BOARD_LIBRARY_H

#include <string>

/* The library's file; empty when the loader cannot tell. */
std::string BoardLibrary_GetFile();

/* Whether it simulates a board: only such a library lets a scenario be controlled. */
bool BoardLibrary_IsSimulated();

#endif
