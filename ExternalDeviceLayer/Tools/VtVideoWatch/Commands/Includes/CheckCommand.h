/*
 * The subcommand that watches for a while and ends with a verdict, as monitoring plug-ins do.
 */
#ifndef CHECK_COMMAND_H
#define CHECK_COMMAND_H

#include <string>

#include "WatchOptions.h"

/* Runs it; the main thread. The exit status. */
int CheckCommand_Run(const SCheckOptions& roOptions);

/* Says that the command line is wrong, where a monitoring system looks for it. The exit status. */
int CheckCommand_RefuseUsage(const std::string& rszText);

/* Says there that no board's library can be used. The exit status. */
int CheckCommand_RefuseBoard(const std::string& rszText);

/* Says there that there is no memory. The exit status. */
int CheckCommand_RefuseMemory();

#endif
