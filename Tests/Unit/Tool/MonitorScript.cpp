#include "MonitorScript.h"

#include <cstddef>
#include <unistd.h>

uint64_t g_uiAllocations = 0;
uint64_t g_uiPausedUs = 0;

// Linked with --wrap=usleep.
extern "C" int WrappedPause(useconds_t uiUs) asm("__wrap_usleep");
int WrappedPause(useconds_t uiUs)
{
    g_uiPausedUs += uiUs;
    return 0;
}

// The sanitizers have a malloc of their own, and nothing is counted with them.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(size_t uiSize);
extern "C" void* malloc(size_t uiSize) noexcept
{
    ++g_uiAllocations;
    return __libc_malloc(uiSize);
}
#endif
