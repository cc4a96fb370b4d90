#define _GNU_SOURCE
#include "TraceInstance.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tracefs.h>
#include <unistd.h>

enum
{
    uiNameSize = 128,
    uiFormatSize = 8192 /* more than the description of an event has */
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
    {
        return;
    }
    tracefs_event_disable(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT);
    tracefs_instance_destroy(poInstance);
    tracefs_instance_free(poInstance);
}

static struct tracefs_instance* Create(const char* szVideo, unsigned int uiMinor, unsigned int uiBufferKb)
{
    static unsigned int s_uiCount;
    char szName[uiNameSize];
    char szFilter[uiNameSize];
    snprintf(szName, sizeof(szName), TRACE_INSTANCE_PREFIX "%d-%s-%u", getpid(), szVideo, s_uiCount++);
    snprintf(szFilter, sizeof(szFilter), "minor == %u", uiMinor);
    struct tracefs_instance* poInstance = tracefs_instance_create(szName);
    if (poInstance == NULL)
    {
        return NULL;
    }
    /* A kernel that knows one of these three not gives more than is needed, or later; the reader copes. */
    tracefs_instance_set_buffer_size(poInstance, uiBufferKb, -1);
    tracefs_instance_file_write(poInstance, "buffer_percent", "0");
    tracefs_event_file_write(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT, "filter", szFilter);
    if (tracefs_event_enable(poInstance, TRACE_INSTANCE_SYSTEM, TRACE_INSTANCE_EVENT) == 0)
    {
        return poInstance;
    }
    Destroy(poInstance);
    return NULL;
}

static int RemoveIfAbandoned(const char* szName, void* pvContext)
{
    int iPid = 0;
    char cAfter = 0;
    (void)pvContext;
    if (sscanf(szName, TRACE_INSTANCE_PREFIX "%d%c", &iPid, &cAfter) != 2 || cAfter != '-' || iPid <= 0)
    {
        return 0;
    }
    if (kill(iPid, 0) == 0 || errno != ESRCH)
    {
        return 0;
    }
    /* The process may live in a container that counts processes anew; then the kernel refuses, for it is in use. So
       nothing is switched off before. */
    struct tracefs_instance* poInstance = tracefs_instance_create(szName);
    if (poInstance == NULL)
    {
        return 0;
    }
    tracefs_instance_destroy(poInstance);
    tracefs_instance_free(poInstance);
    return 0;
}

struct tracefs_instance* TraceInstance_Create(const char* szVideo, unsigned int uiMinor, unsigned int uiBufferKb)
{
    pthread_mutex_lock(&g_oMutex);
    tracefs_instances_walk(RemoveIfAbandoned, NULL);
    struct tracefs_instance* poInstance = Create(szVideo, uiMinor, uiBufferKb);
    pthread_mutex_unlock(&g_oMutex);
    return poInstance;
}

bool TraceInstance_CanCreate(void)
{
    static bool s_bTried;
    static bool s_bCan;
    pthread_mutex_lock(&g_oMutex);
    if (!s_bTried)
    {
        char szName[uiNameSize];
        snprintf(szName, sizeof(szName), TRACE_INSTANCE_PREFIX "%d-trial", getpid());
        struct tracefs_instance* poInstance = tracefs_instance_create(szName);
        s_bTried = true;
        s_bCan = poInstance != NULL;
        Destroy(poInstance);
    }
    const bool bCan = s_bCan;
    pthread_mutex_unlock(&g_oMutex);
    return bCan;
}

char* TraceInstance_PathOf(const struct tracefs_instance* poInstance)
{
    const char* szDirectory = TraceInstance_Directory();
    char* szPath = NULL;
    /* The library promises not to change the instance, but does not say so. */
    const char* szName = tracefs_instance_get_name((struct tracefs_instance*)(uintptr_t)poInstance);
    if (szDirectory == NULL || asprintf(&szPath, "%s/instances/%s", szDirectory, szName) < 0)
    {
        return NULL;
    }
    return szPath;
}

static struct STraceField FieldOf(struct tep_event* poEvent, const char* szName)
{
    const struct tep_format_field* poField = tep_find_any_field(poEvent, szName);
    struct STraceField oField = {0, 0};
    if (poField != NULL && poField->offset >= 0 && poField->size > 0)
    {
        oField.uiOffset = (unsigned int)poField->offset;
        oField.uiSize = (unsigned int)poField->size;
    }
    return oField;
}

static int ReadDescription(const char* szInstance, char acText[uiFormatSize])
{
    char szPath[PATH_MAX];
    snprintf(szPath, sizeof(szPath), "%s/events/" TRACE_INSTANCE_SYSTEM "/" TRACE_INSTANCE_EVENT "/format", szInstance);
    FILE* poFile = fopen(szPath, "re");
    if (poFile == NULL)
    {
        return 0;
    }
    const size_t uiLength = fread(acText, 1, uiFormatSize - 1, poFile);
    fclose(poFile);
    acText[uiLength] = '\0';
    return (int)uiLength;
}

int TraceInstance_ReadLayout(const char* szInstance, struct STraceLayout* poLayout)
{
    char acText[uiFormatSize];
    const int iLength = ReadDescription(szInstance, acText);
    struct tep_handle* poTep = iLength > 0 ? tep_alloc() : NULL;
    struct tep_event* poEvent = NULL;
    if (poTep == NULL)
    {
        return -1;
    }
    if (tep_parse_format(poTep, &poEvent, acText, (unsigned long)iLength, TRACE_INSTANCE_SYSTEM) != 0)
    {
        poEvent = NULL;
    }
    if (poEvent != NULL)
    {
        poLayout->iEventId = poEvent->id;
        poLayout->oEventId = FieldOf(poEvent, "common_type");
        poLayout->oMinor = FieldOf(poEvent, "minor");
        poLayout->oType = FieldOf(poEvent, "type");
        poLayout->oFlags = FieldOf(poEvent, "flags");
        poLayout->oField = FieldOf(poEvent, "field");
        poLayout->oStamp = FieldOf(poEvent, "timestamp");
        poLayout->oSequence = FieldOf(poEvent, "sequence");
    }
    tep_free(poTep); /* and the event, which it has taken in */
    return poEvent != NULL && poLayout->oSequence.uiSize != 0 ? 0 : -1;
}

void TraceInstance_Destroy(struct tracefs_instance* poInstance)
{
    pthread_mutex_lock(&g_oMutex);
    Destroy(poInstance);
    pthread_mutex_unlock(&g_oMutex);
}
