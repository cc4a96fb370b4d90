/*
 * The subcommand record: watches the board for a while and keeps every field in a file.
 */
#ifndef RECORD_COMMAND_H
#define RECORD_COMMAND_H

#include "WatchOptions.h"

/* iExitOk, or iExitFailure with one line on standard error. INT and TERM end the watching early; what came is kept. */
int RecordCommand_Run(const SRecordOptions& roOptions);

#endif
