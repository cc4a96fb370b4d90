/*
 * What a provider offers that stands in for the operating system behind an OsServices object. Called on the threads
 * that call the object.
 */
#ifndef I_OS_SERVICES_H
#define I_OS_SERVICES_H

#include "OsServicesClient.h"

class IOsServices
{
public:
    /* The interrupt level that spin locks are made with; the low 8 bits count. Asked once, at construction. */
    virtual uint32_t GetIrql() = 0;

    /*
     * Results as the operations of OsServices. Waiting and destruction stay with OsServices, so a handle made here must
     * be one that they can work on: an array of bytes from new[] that OsServices_Event_Create (or Signal) has set up.
     */
    virtual Bool32 Event_Create(HEvent& rhEvent) = 0;
    virtual Bool32 Event_Trigger(HEvent hEvent) = 0;
    virtual Bool32 Signal_Create(HSignal& rhSignal) = 0;
    virtual Bool32 Signal_Trigger(HSignal hSignal) = 0;

protected:
    ~IOsServices() = default; // never deleted through this interface
};

#endif
