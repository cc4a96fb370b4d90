/*
 * Access to the machine: physical memory through /dev/mem, the monotonic clock, and the PCI bus through libpci.
 * Owns the list of live mappings and the libpci access object; both are unguarded, so mapping, unmapping and PCI
 * look-ups belong to one thread at a time. The timer functions are thread-safe. Addresses and sizes are in bytes.
 */
#ifndef KRV_VXD_H
#define KRV_VXD_H

#include "KrvTypes.h"

struct pci_dev;

// The address that a mapping is used through; null if it failed.
using MEMHANDLE = void*;

// A PCI function: bus number in bits 8 to 15, device number in bits 3 to 7, function number in bits 0 to 2.
using PCIHANDLE = uint32_t;

/* Start and stop of the library. Both return 1; the stop releases the PCI access. */
Bool32 InitKRVLibrary();
Bool32 ReleaseKRVLibrary();

/*
 * Maps uiSize bytes of physical memory for reading and writing. All mappings are of the same kind: the caching type
 * is accepted and not used. Needs the right to open /dev/mem. Null on failure.
 */
MEMHANDLE memMap64(uint64_t ullPhysical, uint32_t uiSize, uint32_t uiCachingType);
MEMHANDLE memMapEx(uint32_t uiPhysical, uint32_t uiSize, uint32_t uiCachingType);
/* Tries the caching types 0, 1 and 6 in turn. */
MEMHANDLE memMap(uint32_t uiPhysical, uint32_t uiSize);
/* Ends a mapping. 1, or 0 if there is none at this address. */
uint32_t memUnmap(MEMHANDLE hMemory);

/* Timer in microseconds of the monotonic clock. */
uint32_t tmInit();                                // always 1
uint32_t tmDelay(uint32_t uiDelayUs);             // busy wait that keeps a processor for the whole delay; always 1
uint32_t tmCounter(uint64_t* puiCounterUs);       // out: the clock; 1, or 0 (output untouched) if it cannot be read
uint32_t tmFrequency(uint64_t* puiCounterFreqHz); // out: ticks of the counter per second; always 1

/*
 * The device at this place of the bus, whatever its domain, or null if there is none or no access to the bus.
 * The device belongs to the library and lives until KrvVxdPciLibCleanUp.
 */
pci_dev* KrvVxdPciLibConvertHandle(PCIHANDLE hDevice);
void KrvVxdPciLibCleanUp();

#endif
