/*
 * How the lock tests speak: every text goes to the SDK's debug channel, so that it shows up in the driver's trace, and
 * through Log.
 */
#ifndef LOCK_REPORT_H
#define LOCK_REPORT_H

#include "ConsoleLog.h"
#include "KrvMFCTypes.h"
#include "Veltrano.h"

/* Reports a text without a line end; Log adds one. */
inline void ReportLockText(VtDevice_Handle hDev, CMString& roLogMsg)
{
    static_cast<void>(VtDebug_WriteMsg(hDev, roLogMsg.GetString()));
    roLogMsg.AppendFormat("\n");
    Log("%s", roLogMsg.GetString());
}

#endif
