#include "Threads.h"

#include <pthread.h>
#include <system_error>

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
