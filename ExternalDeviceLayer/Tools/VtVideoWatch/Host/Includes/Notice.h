/*
 * What the program has to say to whoever runs it: one line each on standard error. Thread-safe; a line is one write.
 */
#ifndef NOTICE_H
#define NOTICE_H

#include <cstdint>
#include <string>

#include "Fault.h"

/* A text on one line: what a terminal would obey, a line end among it, becomes "?". */
std::string Notice_MakeLine(std::string szText);

/* "VtVideoWatch: <text>", made a line, and a line end. */
void Notice_Say(const std::string& rszText);

/*
 * Says that a file cannot be written, or is written again. Left unsaid where there is no memory for it.
 *   szWhat     in  what the file is: "store"
 *   szUnit     in  what waits for it meanwhile: "rows"
 *   roFault    in  none: it is written again
 *   uiDropped  in  how much of that has been lost so far
 */
void Notice_SayWriting(const char* szWhat, const std::string& rszFile, const char* szUnit, const CFault& roFault,
                       uint64_t uiDropped);

#endif
