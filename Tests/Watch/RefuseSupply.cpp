// Before a program: the system refuses its thread number VT_REFUSED_THREAD, counted from 1, and what the file
// VT_REFUSED_MEMORY tells of its allocations.
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

extern "C" void* __libc_malloc(size_t uiBytes);
extern "C" void* __libc_calloc(size_t uiCount, size_t uiBytes);
extern "C" void* __libc_realloc(void* pvBlock, size_t uiBytes);
extern "C" void* __libc_memalign(size_t uiAlignment, size_t uiBytes);

namespace
{

// The file, which a test changes while the program runs.
struct SRefusal
{
    std::atomic<uint64_t> uiCount; // allocations so far
    std::atomic<uint64_t> uiFrom;  // the first that is refused, from 1; 0: none is
    std::atomic<uint64_t> uiTo;    // the first behind these
    char szThread[16];             // whose alone are counted and refused; empty: all
};

SRefusal oNone;

// Called before there is any other thread, by the first allocation.
SRefusal* Map()
{
    const char* szFile = std::getenv("VT_REFUSED_MEMORY");
    const int iFile = szFile == nullptr ? -1 : open(szFile, O_RDWR | O_CLOEXEC);
    void* pvFile =
        iFile < 0 ? MAP_FAILED : mmap(nullptr, sizeof(SRefusal), PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0);
    close(iFile);
    return pvFile == MAP_FAILED ? &oNone : static_cast<SRefusal*>(pvFile);
}

bool IsRefused()
{
    static std::atomic<SRefusal*> poMapped{nullptr};
    if (poMapped.load() == nullptr)
    {
        poMapped.store(Map());
    }
    SRefusal& roRefusal = *poMapped.load();
    char szThread[16] = {};
    if (roRefusal.szThread[0] != '\0' &&
        (prctl(PR_GET_NAME, szThread) != 0 || std::strncmp(szThread, roRefusal.szThread, sizeof(szThread)) != 0))
    {
        return false;
    }
    const uint64_t uiNumber = ++roRefusal.uiCount;
    const bool bIsRefused = uiNumber >= roRefusal.uiFrom && uiNumber < roRefusal.uiTo;
    errno = bIsRefused ? ENOMEM : errno;
    return bIsRefused;
}

} // namespace

extern "C" void* malloc(size_t uiBytes)
{
    return IsRefused() ? nullptr : __libc_malloc(uiBytes);
}

extern "C" void* calloc(size_t uiCount, size_t uiBytes)
{
    return IsRefused() ? nullptr : __libc_calloc(uiCount, uiBytes);
}

extern "C" void* realloc(void* pvBlock, size_t uiBytes)
{
    return IsRefused() ? nullptr : __libc_realloc(pvBlock, uiBytes);
}

extern "C" void* aligned_alloc(size_t uiAlignment, size_t uiBytes)
{
    return IsRefused() ? nullptr : __libc_memalign(uiAlignment, uiBytes);
}

extern "C" int pthread_create(pthread_t* poThread, const pthread_attr_t* poAttributes, void* (*oStart)(void*),
                              void* pvArgument)
{
    static std::atomic<int> iThread{0};
    const char* szRefused = std::getenv("VT_REFUSED_THREAD");
    if (szRefused != nullptr && ++iThread == std::atoi(szRefused))
    {
        return EAGAIN;
    }
    static const auto oReal = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return oReal(poThread, poAttributes, oStart, pvArgument);
}
