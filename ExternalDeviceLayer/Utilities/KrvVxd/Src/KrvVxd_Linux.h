/*
 * The platform's own half of KrvVxd. Same threads and units as there.
 */
#ifndef KRV_VXD_LINUX_H
#define KRV_VXD_LINUX_H

#include "KrvVxd.h"

void* KrvVxdMapMemoryLinux(uint32_t uiAddressLow, uint32_t uiAddressHigh, uint32_t uiLength, uint32_t uiFlags);
Bool32 KrvVxdUnmapMemoryLinux(void* pvMemory);

Bool32 KrvVxdPrivateLinuxTimer_Delay(uint32_t ui32DelayMicroSeconds);
Bool32 KrvVxdPrivateLinuxTimer_Counter(uint64_t* puiCounterUs);
Bool32 KrvVxdPrivateLinuxTimer_Frequency(uint64_t* puiCounterFreqHz);

#endif
