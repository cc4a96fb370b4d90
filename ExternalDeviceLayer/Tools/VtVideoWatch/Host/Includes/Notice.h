/*
 * What the program has to say to whoever runs it: one line each on standard error. Thread-safe; a line is one write.
 */
#ifndef NOTICE_H
#define NOTICE_H

#include <string>

/* "VtVideoWatch: <text>" and a line end. */
void Notice_Say(const std::string& rszText);

#endif
