#include "Threads.h"

#include <pthread.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

CFault Thread_Start(std::thread& roThread, const std::string& rszName, std::function<void()> fnBody)
{
    try
    {
        roThread = std::thread(
            [rszName, fnBody = std::move(fnBody)]
            {
                pthread_setname_np(pthread_self(), rszName.c_str());
                fnBody();
            });
    }
    catch (const std::system_error&)
    {
        return CFault("the system gives no more threads");
    }
    return {};
}

void Thread_LowerPriority()
{
    constexpr int iNice = 10;
    // On Linux a nice value belongs to a thread.
    static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), iNice));
}
