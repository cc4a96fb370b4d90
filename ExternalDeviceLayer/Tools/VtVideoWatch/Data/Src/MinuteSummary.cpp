#include "MinuteSummary.h"

#include <algorithm>
#include <cmath>

#include "TimeUnits.h"

namespace
{

// Mean of uiCount values out of the mean of one less and a new one.
void AddToMean(SEstimate& roMean, uint32_t uiCount, double flValue, double flStdErr)
{
    const double flCount = uiCount;
    roMean.flValue += (flValue - roMean.flValue) / flCount;
    roMean.flStdErr = std::hypot(roMean.flStdErr * (flCount - 1.0), flStdErr) / flCount;
    roMean.bIsValid = true;
}

void AddPhase(SMinuteSummary& roSummary, const SEstimate& roPhase, double flPeriodSeconds)
{
    SHistoryPoint& roMinute = roSummary.oPoint;
    double flPhase = roPhase.flValue;
    if (roSummary.uiPhasePoints > 0 && flPeriodSeconds > 0.0)
    {
        flPhase -= flPeriodSeconds * std::round((flPhase - roMinute.oPhaseSeconds.flValue) / flPeriodSeconds);
    }
    AddToMean(roMinute.oPhaseSeconds, ++roSummary.uiPhasePoints, flPhase, roPhase.flStdErr);
    const bool bIsFirst = roSummary.uiPhasePoints == 1;
    roMinute.flPhaseMinSeconds = bIsFirst ? flPhase : std::min(roMinute.flPhaseMinSeconds, flPhase);
    roMinute.flPhaseMaxSeconds = bIsFirst ? flPhase : std::max(roMinute.flPhaseMaxSeconds, flPhase);
}

void AddToMean(float& rflMean, uint32_t uiCount, float flValue)
{
    rflMean = uiCount == 1 ? flValue : rflMean + (flValue - rflMean) / static_cast<float>(uiCount);
}

void AddLevel(SBufferLevel& roMinute, uint32_t uiCount, const SBufferLevel& roSecond)
{
    AddToMean(roMinute.flMean, uiCount, roSecond.flMean);
    roMinute.uiLeast = uiCount == 1 ? roSecond.uiLeast : std::min(roMinute.uiLeast, roSecond.uiLeast);
    roMinute.uiMost = std::max(roMinute.uiMost, roSecond.uiMost);
}

void AddQueue(SMinuteSummary& roSummary, const SHistoryPoint& roSecond)
{
    SHistoryPoint& roMinute = roSummary.oPoint;
    if (roSecond.oReady.IsKnown())
    {
        ++roSummary.uiQueuePoints;
        AddLevel(roMinute.oReady, roSummary.uiQueuePoints, roSecond.oReady);
        AddLevel(roMinute.oLoaned, roSummary.uiQueuePoints, roSecond.oLoaned);
        AddLevel(roMinute.oInternal, roSummary.uiQueuePoints, roSecond.oInternal);
    }
    if (roSecond.flHeldSeconds >= 0.0F)
    {
        AddToMean(roMinute.flHeldSeconds, ++roSummary.uiHeldPoints, roSecond.flHeldSeconds);
    }
}

} // namespace

int64_t MinuteSummary_GetMinute(const SHistoryPoint& roSecond)
{
    // By its middle: begins are known to microseconds, and those of a chip that counts whole seconds of UTC would fall
    // to either side of a minute by chance.
    return HistoryPoint_GetMinute(roSecond.iUtcNs + iNsPerSecond / 2);
}

void MinuteSummary_Add(SMinuteSummary& roSummary, const SHistoryPoint& roSecond, double flSeconds,
                       double flPeriodSeconds)
{
    SHistoryPoint& roMinute = roSummary.oPoint;
    roMinute.iUtcNs = MinuteSummary_GetMinute(roSecond);
    roMinute.uiSeconds = 60;
    ++roSummary.uiPoints;
    roSummary.flWatchedSeconds += flSeconds;
    roMinute.uiRepeated += roSecond.uiRepeated;
    AddQueue(roSummary, roSecond);
    roMinute.uiCadence = roSecond.uiCadence;
    roMinute.uiFields += roSecond.uiFields;
    roMinute.uiObserved += roSecond.uiObserved;
    roMinute.uiLost += roSecond.uiLost;
    roMinute.uiUnobserved += roSecond.uiUnobserved;
    roMinute.uiSkipped += roSecond.uiSkipped;
    roMinute.flRunningSeconds += roSecond.flRunningSeconds;
    if (roSecond.oRateHz.bIsValid)
    {
        AddToMean(roMinute.oRateHz, ++roSummary.uiRatePoints, roSecond.oRateHz.flValue, roSecond.oRateHz.flStdErr);
    }
    if (roSecond.oPhaseSeconds.bIsValid)
    {
        AddPhase(roSummary, roSecond.oPhaseSeconds, flPeriodSeconds);
    }
    roMinute.oDriftRatio = roSecond.oDriftRatio;
    roMinute.flJitterRmsSeconds = std::max(roMinute.flJitterRmsSeconds, roSecond.flJitterRmsSeconds);
    roMinute.eLock = roSecond.eLock;
    roMinute.eState = roSecond.eState;
}
