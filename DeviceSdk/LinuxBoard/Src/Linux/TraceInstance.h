/*
 * A private instance of the kernel's trace that records the dequeued buffers of one video node. In C, because the
 * header of libtracefs is not C++ everywhere. Thread-safe; creating and destroying take a lock, reading takes none.
 */
#ifndef LINUX_BOARD_TRACE_INSTANCE_H
#define LINUX_BOARD_TRACE_INSTANCE_H

#include <stdbool.h>

#include "TraceLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TRACE_INSTANCE_PREFIX "vtvideomonitor-"
#define TRACE_INSTANCE_SYSTEM "v4l2"
#define TRACE_INSTANCE_EVENT "v4l2_dqbuf"

struct tracefs_instance;

/* The directory of the trace file system; null when it is not mounted, for mounting it is not ours to do. */
const char* TraceInstance_Directory(void);

/* Whether the kernel makes instances; tried once by making one, which takes as long. */
bool TraceInstance_CanCreate(void);

/*
 * Removes what processes that were killed have left behind, and creates "<prefix><process>-<szVideo>-<number>" for the
 * node with this minor number.
 *   uiBufferKb  in  size of its buffer for each processor, KiB
 * Null on failure, with nothing left behind.
 */
struct tracefs_instance* TraceInstance_Create(const char* szVideo, unsigned int uiMinor, unsigned int uiBufferKb);

/* The directory of an instance, to be freed with free(); null when there is no memory. */
char* TraceInstance_PathOf(const struct tracefs_instance* poInstance);

/* Removes the instance from the kernel; no file of it may be open. Null is allowed. */
void TraceInstance_Destroy(struct tracefs_instance* poInstance);

/*
 * Reads the kernel's description of the event.
 *   szInstance  in   directory of the instance whose copy of it is read
 * 0; -1 when it cannot be read, or the event has not the fields that are needed.
 */
int TraceInstance_ReadLayout(const char* szInstance, struct STraceLayout* poLayout);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
