#include "HttpCall.h"

bool HttpCall_Sleep(SHttpCall& roCall, const std::atomic<bool>& rbIsEnding)
{
    const std::lock_guard oGuard(roCall.oMutex);
    if (roCall.bIsWoken || rbIsEnding)
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
    if (roCall.bIsAsleep && roCall.poConnection != nullptr)
    {
        roCall.bIsAsleep = false;
        MHD_resume_connection(roCall.poConnection);
        return;
    }
    roCall.bIsWoken = true;
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
