#include "HttpCall.h"

namespace
{

// The mutex is held.
void Wake(SHttpCall& roCall)
{
    if (roCall.bIsAsleep && roCall.poConnection != nullptr)
    {
        roCall.bIsAsleep = false;
        MHD_resume_connection(roCall.poConnection);
        return;
    }
    roCall.bIsWoken = true;
}

} // namespace

bool HttpCall_Sleep(SHttpCall& roCall)
{
    const std::lock_guard oGuard(roCall.oMutex);
    if (roCall.bIsWoken || roCall.poPlace->poDaemon->bIsEnding)
    {
        roCall.bIsWoken = false;
        return false;
    }
    roCall.bIsAsleep = true;
    MHD_suspend_connection(roCall.poConnection);
    return true;
}

void HttpCall_Wake(SHttpCall& roCall)
{
    const std::lock_guard oGuard(roCall.oMutex);
    Wake(roCall);
}

void HttpCall_Finish(SHttpCall& roCall, SHttpAnswer oAnswer)
{
    const std::lock_guard oGuard(roCall.oMutex);
    if (roCall.poConnection != nullptr)
    {
        roCall.oAnswer = std::move(oAnswer);
        Wake(roCall);
    }
}

void HttpCall_End(SHttpCall& roCall)
{
    {
        const std::lock_guard oGuard(roCall.oMutex);
        roCall.poConnection = nullptr;
    }
    roCall.oAnswer = {};
    roCall.poPiece = nullptr;
}
