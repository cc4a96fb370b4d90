/*
 * The absolute deadlines of all timed waits: of the wall clock, as the objects' default attributes want it.
 */
#ifndef DEAD_LINE_H
#define DEAD_LINE_H

#include <cstdint>
#include <ctime>

/* The moment uiTimeOutMs from now. A clock that cannot be read counts as 0. */
timespec DeadLine_FromTimeOut(uint32_t uiTimeOutMs);

/* Prints that a wait refused the deadline, and what the clock says now. */
void DeadLine_ReportInvalid(const char* szWaitName, const timespec& roDeadLine);

#endif
