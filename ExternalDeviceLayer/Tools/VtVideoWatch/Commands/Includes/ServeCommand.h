/*
 * The subcommand that watches until it is ended: puts the parts together and takes them apart again.
 */
#ifndef SERVE_COMMAND_H
#define SERVE_COMMAND_H

#include "WatchOptions.h"

/* Runs it; the main thread. The exit status. */
int ServeCommand_Run(const SServeOptions& roOptions);

#endif
