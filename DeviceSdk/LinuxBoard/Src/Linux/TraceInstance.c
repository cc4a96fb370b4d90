#define _GNU_SOURCE
#include "TraceInstance.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <tracefs.h>
#include <unistd.h>

enum
{
    uiBufferKb = 64, /* for each processor: some hundred buffers, seconds of any input */
    uiNameSize = 128
};

const char* TraceInstance_Directory(void)
{
    const char* szDirectory = NULL;
    return tracefs_tracing_dir_is_mounted(false, &szDirectory) > 0 ? szDirectory : NULL;
}

void TraceInstance_Destroy(struct tracefs_instance* poInstance)
{
    if (poInstance == NULL)
        return;
    tracefs_event_disable(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT);
    tracefs_instance_destroy(poInstance);
    tracefs_instance_free(poInstance);
}

struct tracefs_instance* TraceInstance_Create(const char* szVideo, unsigned int uiMinor, int* piPipe)
{
    static atomic_uint s_uiCount;
    char szName[uiNameSize];
    char szFilter[uiNameSize];
    snprintf(szName, sizeof(szName), TRACE_INSTANCE_PREFIX "%d-%s-%u", getpid(), szVideo,
             atomic_fetch_add(&s_uiCount, 1U));
    snprintf(szFilter, sizeof(szFilter), "minor == %u", uiMinor);
    struct tracefs_instance* poInstance = tracefs_instance_create(szName);
    if (poInstance == NULL)
        return NULL;
    /* A kernel that knows one of these three not gives more than is needed, or later; the reader copes. */
    tracefs_instance_set_buffer_size(poInstance, uiBufferKb, -1);
    tracefs_instance_file_write(poInstance, "buffer_percent", "0");
    tracefs_event_file_write(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT, "filter", szFilter);
    /* The pipe as text: one descriptor to sleep on, in the order of time over all processors. */
    *piPipe = tracefs_instance_file_open(poInstance, "trace_pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (*piPipe >= 0 && tracefs_event_enable(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT) == 0)
        return poInstance;
    if (*piPipe >= 0)
        close(*piPipe);
    *piPipe = -1;
    TraceInstance_Destroy(poInstance);
    return NULL;
}

static int RemoveIfAbandoned(const char* szName, void* pvContext)
{
    int iPid = 0;
    char cAfter = 0;
    (void)pvContext;
    if (sscanf(szName, TRACE_INSTANCE_PREFIX "%d%c", &iPid, &cAfter) != 2 || cAfter != '-' || iPid <= 0)
        return 0;
    if (kill(iPid, 0) == 0 || errno != ESRCH)
        return 0;
    /* The process may live in a container that counts processes anew; then the kernel refuses, for it is in use. */
    TraceInstance_Destroy(tracefs_instance_create(szName));
    return 0;
}

void TraceInstance_RemoveAbandoned(void)
{
    tracefs_instances_walk(RemoveIfAbandoned, NULL);
}
