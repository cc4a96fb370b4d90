/*
 * Another program, run once with a text on its standard input. Blocks; any thread.
 */
#ifndef CHILD_PROGRAM_H
#define CHILD_PROGRAM_H

#include <atomic>
#include <cstdint>
#include <string>

#include "Fault.h"

/*
 * Runs a program and waits for it.
 *   rszProgram   in   its path, or a name that the search path has
 *   rszInput     in   what it finds on its standard input
 *   uiTimeOutMs  in   after so long it is killed, with what it has started
 *   rbIsToEnd    in   once set, it is left to itself, which is no success
 * No fault when it ended with 0, which one that does not read its input may do as well.
 */
CFault ChildProgram_Run(const std::string& rszProgram, const std::string& rszInput, uint32_t uiTimeOutMs,
                        const std::atomic<bool>& rbIsToEnd);

#endif
