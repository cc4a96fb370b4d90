#define _GNU_SOURCE
#include "TraceInstance.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <tracefs.h>
#include <unistd.h>

enum
{
    uiBufferKb = 64, /* for each processor: some hundred buffers, seconds of any input */
    uiNameSize = 128
};

/* libtracefs keeps what it has found in variables of its own and promises nothing for several threads. */
static pthread_mutex_t g_oMutex = PTHREAD_MUTEX_INITIALIZER;

const char* TraceInstance_Directory(void)
{
    const char* szDirectory = NULL;
    pthread_mutex_lock(&g_oMutex);
    const int iMounted = tracefs_tracing_dir_is_mounted(false, &szDirectory);
    pthread_mutex_unlock(&g_oMutex);
    return iMounted > 0 ? szDirectory : NULL;
}

static void Destroy(struct tracefs_instance* poInstance)
{
    if (poInstance == NULL)
        return;
    tracefs_event_disable(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT);
    tracefs_instance_destroy(poInstance);
    tracefs_instance_free(poInstance);
}

static struct tracefs_instance* Create(const char* szVideo, unsigned int uiMinor, int* piPipe)
{
    static unsigned int s_uiCount;
    char szName[uiNameSize];
    char szFilter[uiNameSize];
    snprintf(szName, sizeof(szName), TRACE_INSTANCE_PREFIX "%d-%s-%u", getpid(), szVideo, s_uiCount++);
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
    Destroy(poInstance);
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
    /* The process may live in a container that counts processes anew; then the kernel refuses, for it is in use. So
       nothing is switched off before. */
    struct tracefs_instance* poInstance = tracefs_instance_create(szName);
    if (poInstance == NULL)
        return 0;
    tracefs_instance_destroy(poInstance);
    tracefs_instance_free(poInstance);
    return 0;
}

struct tracefs_instance* TraceInstance_Create(const char* szVideo, unsigned int uiMinor, int* piPipe)
{
    pthread_mutex_lock(&g_oMutex);
    tracefs_instances_walk(RemoveIfAbandoned, NULL);
    struct tracefs_instance* poInstance = Create(szVideo, uiMinor, piPipe);
    pthread_mutex_unlock(&g_oMutex);
    return poInstance;
}

void TraceInstance_Destroy(struct tracefs_instance* poInstance)
{
    pthread_mutex_lock(&g_oMutex);
    Destroy(poInstance);
    pthread_mutex_unlock(&g_oMutex);
}
