#include "StreamThread.h"

#include <pthread.h>
#include <sched.h>
#include <system_error>
#include <thread>
#include <utility>

#include "StreamId.h"
#include "StreamLoop.h"

namespace
{

constexpr int iRealTimePriority = 1; // the lowest: above all ordinary work, below everything that is urgent

void NameThread(const SStreamChannel& roChannel)
{
    pthread_setname_np(pthread_self(), StreamId_Print(roChannel.oKey).c_str());
}

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
    NameThread(*rpoChannel);
    AskForRealTime(*rpoSetup);
    {
        CStreamLoop oLoop(*rpoSetup, *rpoChannel);
        oLoop.Run();
    }
    rpoSetup->uiRunning.fetch_sub(1);
}

} // namespace

bool StreamThread_Start(std::shared_ptr<SStreamSetup> poSetup, std::shared_ptr<SStreamChannel> poChannel)
{
    poSetup->uiRunning.fetch_add(1);
    try
    {
        std::thread(ThreadBody, poSetup, std::move(poChannel)).detach();
    }
    catch (const std::system_error&)
    {
        poSetup->uiRunning.fetch_sub(1);
        return false;
    }
    return true;
}
