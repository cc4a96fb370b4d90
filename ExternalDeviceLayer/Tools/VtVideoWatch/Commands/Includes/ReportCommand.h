/*
 * The subcommand that sums up what a store holds.
 */
#ifndef REPORT_COMMAND_H
#define REPORT_COMMAND_H

#include "WatchOptions.h"

/* Runs it; the exit status. */
int ReportCommand_Run(const SReportOptions& roOptions);

#endif
