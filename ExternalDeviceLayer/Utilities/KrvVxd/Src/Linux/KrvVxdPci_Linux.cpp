// The PCI bus through libpci: one access object, made at the first look-up and kept until the clean-up.
#include "KrvVxd.h"

#include <csetjmp>

extern "C"
{
#include <pci/pci.h>
}

namespace
{

constinit pci_access* g_poKrvVxdPciLibAccess = nullptr;

// Where libpci's error report goes on. libpci asks that its report never returns, and its own one ends the process,
// as it would on any machine without PCI; the jump crosses frames of C alone.
std::jmp_buf g_oPciLibFailure;

[[gnu::noreturn]] void OnPciLibFailure(char*, ...)
{
    std::longjmp(g_oPciLibFailure, 1);
}

// 0 if no bus can be reached or it could not be read to its end.
Bool32 ScanBus(pci_access* poAccess)
{
    poAccess->error = OnPciLibFailure;
    if (setjmp(g_oPciLibFailure) != 0)
    {
        return 0;
    }
    pci_init(poAccess);
    pci_scan_bus(poAccess);
    return 1;
}

bool OpenAccess()
{
    pci_access* const poAccess = pci_alloc();
    if (poAccess == nullptr)
    {
        return false;
    }
    if (!ScanBus(poAccess))
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
