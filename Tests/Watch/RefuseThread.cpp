// Before a program: the system refuses its thread number VT_REFUSED_THREAD, counted from 1.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

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
