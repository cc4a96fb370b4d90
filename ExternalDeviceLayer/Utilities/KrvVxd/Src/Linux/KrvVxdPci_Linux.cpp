// The PCI bus through libpci: one access object, made at the first look-up and kept until the clean-up.
#include "KrvVxd.h"

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <pci/pci.h>
}

namespace
{

constinit pci_access* g_poKrvVxdPciLibAccess = nullptr;

// Where libpci's error report goes on. libpci asks that its report never returns, and its own one ends the process,
// as it would on any machine without PCI; the jump crosses frames of C alone.
std::jmp_buf g_oPciLibFailure;

[[gnu::noreturn]] void OnScanFailure(char*, ...)
{
    std::longjmp(g_oPciLibFailure, 1);
}

// For what callers do with a device after the scan, when there is nowhere to jump to any more.
[[gnu::noreturn, gnu::format(printf, 1, 2)]] void OnLaterFailure(char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    std::vfprintf(stderr, pszFormat, oArguments);
    std::abort();
}

// False if no bus can be reached or it could not be read to its end.
bool ScanBus(pci_access* poAccess)
{
    poAccess->error = OnScanFailure;
    if (setjmp(g_oPciLibFailure) != 0)
    {
        return false;
    }
    pci_init(poAccess);
    pci_scan_bus(poAccess);
    return true;
}

bool OpenAccess()
{
    pci_access* const poAccess = pci_alloc();
    if (poAccess == nullptr)
    {
        return false;
    }
    const bool bIsScanned = ScanBus(poAccess);
    poAccess->error = OnLaterFailure;
    if (!bIsScanned)
    {
        pci_cleanup(poAccess);
        return false;
    }
    g_poKrvVxdPciLibAccess = poAccess;
    return true;
}

} // namespace

pci_dev* KrvVxdPciLibConvertHandle(PCIHANDLE hDevice)
{
    if (g_poKrvVxdPciLibAccess == nullptr && !OpenAccess())
    {
        return nullptr; // the next call tries again
    }
    const uint32_t uiBus = (hDevice >> 8) & 0xFF;
    const uint32_t uiDevice = (hDevice >> 3) & 0x1F;
    const uint32_t uiFunction = hDevice & 0x7;
    for (pci_dev* poDevice = g_poKrvVxdPciLibAccess->devices; poDevice != nullptr; poDevice = poDevice->next)
    {
        if (poDevice->bus == uiBus && poDevice->dev == uiDevice && poDevice->func == uiFunction)
        {
            return poDevice;
        }
    }
    return nullptr;
}

void KrvVxdPciLibCleanUp()
{
    if (g_poKrvVxdPciLibAccess != nullptr)
    {
        pci_cleanup(g_poKrvVxdPciLibAccess);
        g_poKrvVxdPciLibAccess = nullptr;
    }
}
