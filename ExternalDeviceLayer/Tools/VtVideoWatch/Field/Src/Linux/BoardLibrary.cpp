// Which library the loader has chosen: the only thing that the interface itself cannot tell.
#include "BoardLibrary.h"

#include <dlfcn.h>

#include "Veltrano.h"

std::string BoardLibrary_GetFile()
{
    Dl_info oInfo = {};
    // The address is not that of a symbol in the program, for the library is linked at run time.
    void* pvAddress = dlsym(RTLD_DEFAULT, "Veltrano_LoadLite");
    if (pvAddress == nullptr || dladdr(pvAddress, &oInfo) == 0 || oInfo.dli_fname == nullptr)
    {
        return {};
    }
    return oInfo.dli_fname;
}

bool BoardLibrary_IsSimulated()
{
    return dlsym(RTLD_DEFAULT, "VtSim_GetCallCount") != nullptr;
}
