/*
 * What the keys do while the command loop runs. Main thread only; the flags and totals of the records are written with
 * plain stores, without a lock.
 */
#ifndef KEY_COMMANDS_H
#define KEY_COMMANDS_H

#include "KrvTypes.h"
#include "MonitorRun.h"

/* 1 when the key is "q" or "Q". */
Bool32 IsQuitKey(char cCommand);

/* Does what the key stands for; letters count in either case, an unknown key does nothing. */
void DispatchKey(char cCommand, SMonitorRun& roRun);

#endif
