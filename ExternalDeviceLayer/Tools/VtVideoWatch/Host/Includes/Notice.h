/*
 * What the program has to say to whoever runs it: one line each on standard error. Thread-safe; a line is one write.
 */
#ifndef NOTICE_H
#define NOTICE_H

#include <string>

/* A text on one line: what a terminal would obey, a line end among it, becomes "?". */
std::string Notice_MakeLine(std::string szText);

/* "VtVideoWatch: <text>", made a line, and a line end. */
void Notice_Say(const std::string& rszText);

#endif
