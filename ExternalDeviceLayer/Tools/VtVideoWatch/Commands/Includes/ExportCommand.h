/*
 * The subcommand export: a recording in the form of another program.
 */
#ifndef EXPORT_COMMAND_H
#define EXPORT_COMMAND_H

#include "WatchOptions.h"

/* iExitOk, or iExitFailure with one line on standard error. */
int ExportCommand_Run(const SExportOptions& roOptions);

#endif
