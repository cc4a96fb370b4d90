/*
 * What a person must know and no figure shows: said on standard error, and, because the tool's screen soon overwrites
 * that, kept in the system's log. Entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_REMARK_H
#define LINUX_BOARD_REMARK_H

#include <string>

/* Begins with the name of the board. */
void Remark_Say(const std::string& szText);
/* As it stands. */
void Remark_SayPlain(const std::string& szText);

#endif
