#include "PathDelay.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double flCloseSigmas = 3.0; // of the offset and of both jitters: so close, fields fall on either side

// Pictures that wait for the application, in the last second; a board that does not tell has none that is known.
SQueueLevel GetWaiting(const SStreamFigures& roInput)
{
    const SQueueWindow& roWindow = roInput.oQueue.aoWindows[static_cast<size_t>(EQueueWindow::SECONDS_1)];
    return roWindow.bIsKnown ? roWindow.oReady : SQueueLevel{};
}

} // namespace

void PathDelay_Fill(const SStreamFigures& roInput, const SStreamFigures& roOutput, const SPairFigures& roPair,
                    SPathFigures& roPath)
{
    roPath.eLock = roPair.eLock;
    roPath.bIsKnown = roPair.oOffsetSeconds.bIsValid;
    roPath.flStepSeconds = 0.0;
    roPath.oNextStepSeconds = {};
    if (!roPath.bIsKnown)
    {
        return;
    }
    const double flInput = roInput.flPeriodSeconds;
    const double flShort = std::min(flInput, roOutput.flPeriodSeconds);
    const double flSpread = std::round(std::max(roOutput.flPeriodSeconds / flInput - 1.0, 0.0)) * flInput;
    const double flOffset = roPair.oOffsetSeconds.flValue;
    const double flWait = flOffset < 0.0 ? flOffset + flShort : flOffset;
    const double flClose = flCloseSigmas * std::hypot(roPair.oOffsetSeconds.flStdErr, roInput.flJitterRmsSeconds,
                                                      roOutput.flJitterRmsSeconds);
    const bool bIsClose = flWait < flClose || flWait > flShort - flClose;
    const SQueueLevel oWaiting = GetWaiting(roInput);
    roPath.flLeastSeconds = flInput * (1.0 + oWaiting.uiLeast) + (bIsClose ? 0.0 : flWait);
    roPath.flMeanSeconds = flInput * (1.0 + oWaiting.flMean) + (bIsClose ? flShort / 2.0 : flWait) + flSpread / 2.0;
    roPath.flMostSeconds = flInput * (1.0 + oWaiting.uiMost) + (bIsClose ? flShort : flWait) + flSpread;
    roPath.flStdErrSeconds = roPair.oOffsetSeconds.flStdErr;
    if (roPair.eLock != ELockState::LOCKED && roPair.oSecondsToSlip.bIsValid)
    {
        // An output that falls behind comes to show a later picture.
        roPath.flStepSeconds = roPair.oDriftRatio.flValue > 0.0 ? -flShort : flShort;
        roPath.oNextStepSeconds = roPair.oSecondsToSlip;
    }
}
