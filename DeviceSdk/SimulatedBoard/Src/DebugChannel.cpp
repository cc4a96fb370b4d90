// See DebugChannel.h.
#include "DebugChannel.h"

#include <deque>
#include <mutex>

namespace
{

constexpr size_t uiTextLimit = 1024;

struct SDebugChannel
{
    std::mutex oMutex;
    std::deque<std::string> aszTexts; // guarded by oMutex
};

SDebugChannel& GetChannel()
{
    static SDebugChannel& roChannel = *new SDebugChannel; // never destroyed: threads may still write at exit
    return roChannel;
}

} // namespace

void DebugChannel_Clear()
{
    SDebugChannel& roChannel = GetChannel();
    const std::lock_guard oGuard(roChannel.oMutex);
    roChannel.aszTexts.clear();
}

void DebugChannel_Add(std::string szText)
{
    SDebugChannel& roChannel = GetChannel();
    const std::lock_guard oGuard(roChannel.oMutex);
    roChannel.aszTexts.push_back(std::move(szText));
    if (roChannel.aszTexts.size() > uiTextLimit)
    {
        roChannel.aszTexts.pop_front();
    }
}

uint32_t DebugChannel_GetCount()
{
    SDebugChannel& roChannel = GetChannel();
    const std::lock_guard oGuard(roChannel.oMutex);
    return static_cast<uint32_t>(roChannel.aszTexts.size());
}

std::optional<std::string> DebugChannel_Get(uint32_t uiIndex)
{
    SDebugChannel& roChannel = GetChannel();
    const std::lock_guard oGuard(roChannel.oMutex);
    return uiIndex < roChannel.aszTexts.size() ? std::optional(roChannel.aszTexts[uiIndex]) : std::nullopt;
}
