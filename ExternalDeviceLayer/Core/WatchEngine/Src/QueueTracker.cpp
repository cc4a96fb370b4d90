// See QueueTracker.h.
#include "QueueTracker.h"

SQueueWindow CQueueTracker::GetWindow(uint64_t uiEnd, uint32_t uiSeconds) const
{
    uint32_t uiFields = 0;
    std::array<SLevel, 3> aoLevels = {};
    for (const SSecond& roSecond : m_aoSeconds)
    {
        if (roSecond.uiFields == 0 || roSecond.uiSecond >= uiEnd || roSecond.uiSecond + uiSeconds < uiEnd)
        {
            continue;
        }
        uiFields += roSecond.uiFields;
        for (size_t uiLevel = 0; uiLevel < aoLevels.size(); ++uiLevel)
        {
            const SLevel& roLevel = roSecond.aoLevels[uiLevel];
            aoLevels[uiLevel] = {aoLevels[uiLevel].uiSum + roLevel.uiSum,
                                 std::min(aoLevels[uiLevel].uiLeast, roLevel.uiLeast),
                                 std::max(aoLevels[uiLevel].uiMost, roLevel.uiMost)};
        }
    }
    if (uiFields == 0)
    {
        return {};
    }
    const auto Get = [uiFields](const SLevel& roLevel) {
        return SQueueLevel{static_cast<double>(roLevel.uiSum) / uiFields, roLevel.uiLeast, roLevel.uiMost};
    };
    return {true, Get(aoLevels[0]), Get(aoLevels[1]), Get(aoLevels[2])};
}

void CQueueTracker::Fill(uint64_t uiNowNs, double flPicturesPerSecond, SQueueFigures& roFigures) const
{
    const uint64_t uiEnd = uiNowNs / iNsPerSecond;
    for (size_t uiWindow = 0; uiWindow < roFigures.aoWindows.size(); ++uiWindow)
    {
        roFigures.aoWindows[uiWindow] = GetWindow(uiEnd, auiQueueWindowSeconds[uiWindow]);
    }
    const SQueueWindow& roTen = roFigures.aoWindows[static_cast<size_t>(EQueueWindow::SECONDS_10)];
    roFigures.bIsHeldKnown = roTen.bIsKnown && flPicturesPerSecond > 0.0;
    roFigures.flHeldSeconds =
        roFigures.bIsHeldKnown ? (roTen.oReady.flMean + roTen.oLoaned.flMean) / flPicturesPerSecond : 0.0;
}
