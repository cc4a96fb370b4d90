#include "StreamThread.h"

#include <pthread.h>
#include <sched.h>
#include <thread>
#include <utility>

#include "StreamId.h"
#include "StreamLoop.h"
#include "Threads.h"

namespace
{

constexpr int iRealTimePriority = 1; // the lowest: above all ordinary work, below everything that is urgent

void AskForRealTime(SStreamSetup& roSetup)
{
    if (roSetup.eRealTime.load() != ERealTime::WANTED)
    {
        return;
    }
    const sched_param oParameters = {iRealTimePriority};
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &oParameters) != 0)
    {
        roSetup.eRealTime.store(ERealTime::REFUSED);
    }
}

void ThreadBody(const std::shared_ptr<SStreamSetup>& rpoSetup, const std::shared_ptr<SStreamChannel>& rpoChannel)
{
    AskForRealTime(*rpoSetup);
    {
        CStreamLoop oLoop(*rpoSetup, *rpoChannel);
        oLoop.Run();
    }
    rpoSetup->uiRunning.fetch_sub(1);
}

} // namespace

CFault StreamThread_Start(const std::shared_ptr<SStreamSetup>& rpoSetup,
                          const std::shared_ptr<SStreamChannel>& rpoChannel)
{
    rpoSetup->uiRunning.fetch_add(1);
    std::thread oThread;
    CFault oFault = Thread_Start(oThread, StreamId_Print(rpoChannel->oKey),
                                 [poSetup = rpoSetup, poChannel = rpoChannel] { ThreadBody(poSetup, poChannel); });
    if (oFault)
    {
        rpoSetup->uiRunning.fetch_sub(1);
        return oFault;
    }
    oThread.detach();
    return oFault;
}
