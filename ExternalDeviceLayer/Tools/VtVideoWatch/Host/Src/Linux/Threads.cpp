#include "Threads.h"

#include <new>
#include <pthread.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

bool Thread_Make(std::thread& roThread, const std::function<void()>& rfnBody)
{
    try
    {
        roThread = std::thread(rfnBody);
        return true;
    }
    catch (const std::system_error&)
    {
        return false;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}

CFault Thread_Start(std::thread& roThread, const std::string& rszName, std::function<void()> fnBody)
{
    const auto fnNamed = [rszName, fnBody = std::move(fnBody)]
    {
        pthread_setname_np(pthread_self(), rszName.c_str());
        fnBody();
    };
    return Thread_Make(roThread, fnNamed) ? CFault() : CFault("the system gives no more threads");
}

void Thread_LowerPriority()
{
    constexpr int iNice = 10;
    // On Linux a nice value belongs to a thread.
    static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), iNice));
}
