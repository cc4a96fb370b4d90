#include "GenLockDisplay.h"

#include <span>

#include "ConsoleLog.h"
#include "TimeUnits.h"

namespace
{

constexpr uint32_t uiMaxGroupStreams = 32;

struct SThreshold
{
    uint32_t uiLines;
    const char* szPlural;
};

// One row per threshold mode.
constexpr SThreshold aoThresholds[] = {{1, ""}, {5, "S"}, {30, "S"}, {90, "S"}};
static_assert(std::size(aoThresholds) == GENLOCK_THRESHOLD_COUNT);

// One measurement and how it is to be shown.
struct SReport
{
    std::span<const SFrameLockVideoData> aoVideo;
    std::span<const SFrameLockPairData> aoPair;
    const char* szPrefix;
    uint32_t uiThresholdLines;
};

// A misalignment in the units that are shown; but for the ticks, 0 when the line is not known.
struct SDistance
{
    uint32_t uiTicks;
    uint32_t uiLine100th;
    uint64_t uiTimeNs;
};

// Streams found in step, as bits.
struct SGroup
{
    uint32_t uiGroupMembers;
    Bool32 bFound;
    SDistance oWorst;
};

uint32_t StreamBit(uint32_t uiVideo)
{
    return uiVideo < uiMaxGroupStreams ? 1U << uiVideo : 0;
}

uint64_t TicksToNs(uint32_t uiTicks, uint32_t uiTickFreqHz)
{
    return uiTickFreqHz == 0 ? 0 : uiTicks * uint64_t{iNsPerSecond} / uiTickFreqHz;
}

// Signed nanoseconds, truncated toward zero, of which the low 32 bits are kept.
int32_t DeltaToNs(int32_t iTicks, uint32_t uiTickFreqHz)
{
    const int64_t iTimeNs = int64_t{iTicks} * iNsPerSecond / int64_t{uiTickFreqHz};
    return LowInt(static_cast<uint64_t>(iTimeNs));
}

SDistance MeasureDistance(uint32_t uiTicks, const SFrameLockVideoData& roVideo)
{
    const uint32_t uiTickPerLine = TicksPerLine(roVideo);
    if (uiTickPerLine * 10 == 0)
    {
        return {uiTicks, 0, 0};
    }
    // Wraps above 4294967 ticks: locked differences are far smaller.
    return {uiTicks, (uiTicks * 1000 + 5) / (uiTickPerLine * 10), TicksToNs(uiTicks, roVideo.uiTickFreqHz)};
}

// Walks the pairs once, on purpose: a pair that links two streams before either has joined is not looked at again.
SGroup CollectGroup(const SReport& roReport, uint32_t uiVideo, uint32_t uiGroupDone, uint32_t uiThresholdTicks)
{
    SGroup oGroup = {StreamBit(uiVideo), 0, {}};
    for (const SFrameLockPairData& roPair : roReport.aoPair)
    {
        const uint32_t uiGroupMaskA = StreamBit(roPair.uiVideoIndexA) & ~uiGroupDone;
        const uint32_t uiGroupMaskB = StreamBit(roPair.uiVideoIndexB) & ~uiGroupDone;
        if (((uiGroupMaskA | uiGroupMaskB) & oGroup.uiGroupMembers) == 0 || roPair.uiDeltaAbs >= uiThresholdTicks)
        {
            continue;
        }
        oGroup.uiGroupMembers |= uiGroupMaskA | uiGroupMaskB;
        oGroup.bFound = 1;
        if (roPair.uiDeltaAbs > oGroup.oWorst.uiTicks)
        {
            oGroup.oWorst = MeasureDistance(roPair.uiDeltaAbs, roReport.aoVideo[uiVideo]);
        }
    }
    return oGroup;
}

void DisplayLockedGroup(const SReport& roReport, const SGroup& roGroup, uint64_t uiThresholdTimeNs)
{
    Log("    [");
    Bool32 bDashChar = 0;
    for (uint32_t uiVideo = 0; uiVideo < roReport.aoVideo.size(); ++uiVideo)
    {
        if ((StreamBit(uiVideo) & roGroup.uiGroupMembers) != 0)
        {
            Log("%s%s_%02d", bDashChar ? ", " : "", roReport.szPrefix, LowInt(uiVideo));
            bDashChar = 1;
        }
    }
    const uint32_t uiLine100th = roGroup.oWorst.uiLine100th;
    const int64_t iTimeNs = static_cast<int64_t>(roGroup.oWorst.uiTimeNs);
    const int64_t iThresholdTimeNs = static_cast<int64_t>(uiThresholdTimeNs);
    Log("] Locked : %d.%02d line%s = %lu %s (threshold %lu %s)", LowInt(uiLine100th / 100), LowInt(uiLine100th % 100),
        uiLine100th >= 200 ? "s" : "", static_cast<uint64_t>(TimeConvertValue(iTimeNs)), TimeConvertUnit(iTimeNs),
        static_cast<uint64_t>(TimeConvertValue(iThresholdTimeNs)), TimeConvertUnit(iThresholdTimeNs));
}

// Logs the line of a stream that no earlier line has shown. Returns the streams that the line shows.
uint32_t DisplayStream(const SReport& roReport, uint32_t uiVideo, uint32_t uiGroupDone)
{
    const SFrameLockVideoData& roVideo = roReport.aoVideo[uiVideo];
    if (!roVideo.bActive)
    {
        Log("    [%s_%02d] Idle", roReport.szPrefix, LowInt(uiVideo));
        return StreamBit(uiVideo);
    }
    // Without a known line length the threshold is 0 ticks, below which nothing is: the stream counts as unlocked.
    const uint32_t uiThresholdTicks = roReport.uiThresholdLines * TicksPerLine(roVideo);
    const SGroup oGroup = CollectGroup(roReport, uiVideo, uiGroupDone, uiThresholdTicks);
    if (oGroup.bFound)
    {
        DisplayLockedGroup(roReport, oGroup, TicksToNs(uiThresholdTicks, roVideo.uiTickFreqHz));
    }
    else
    {
        Log("    [%s_%02d] Unlocked", roReport.szPrefix, LowInt(uiVideo));
    }
    return oGroup.uiGroupMembers;
}

// Always takes as many lines as there are streams, and an empty one, so that the screen does not jump.
void DisplaySummary(const SReport& roReport)
{
    uint32_t uiGroupDone = 0;
    uint32_t uiGroupSkipped = 0;
    for (uint32_t uiVideo = 0; uiVideo < roReport.aoVideo.size(); ++uiVideo)
    {
        if ((uiGroupDone & StreamBit(uiVideo)) != 0)
        {
            ++uiGroupSkipped;
            continue;
        }
        const uint32_t uiShown = DisplayStream(roReport, uiVideo, uiGroupDone);
        Log("\n");
        uiGroupDone |= uiShown;
    }
    for (uint32_t uiLine = 0; uiLine <= uiGroupSkipped; ++uiLine)
    {
        Log("\n");
    }
}

void DisplayPair(const SReport& roReport, const SFrameLockPairData& roPair)
{
    const SFrameLockVideoData& roVideo = roReport.aoVideo[roPair.uiVideoIndexA];
    const SDistance oDistance = MeasureDistance(roPair.uiDeltaAbs, roVideo);
    const bool bIsLineKnown = TicksPerLine(roVideo) != 0;
    const int32_t iTimeMinNs = bIsLineKnown ? DeltaToNs(roPair.iDeltaMin, roVideo.uiTickFreqHz) : 0;
    const int32_t iTimeMaxNs = bIsLineKnown ? DeltaToNs(roPair.iDeltaMax, roVideo.uiTickFreqHz) : 0;
    const int64_t iTimeNs = static_cast<int64_t>(oDistance.uiTimeNs);
    // The blank for the plural keeps the columns aligned; the summary has none.
    Log("    [%s_%02d, %s_%02d] %3d samples [%6d %s, %6d %s] : %4d.%02d line%s = %5d %s\n", roReport.szPrefix,
        LowInt(roPair.uiVideoIndexA), roReport.szPrefix, LowInt(roPair.uiVideoIndexB), LowInt(roPair.uiSampleCount),
        static_cast<int32_t>(TimeConvertValue(iTimeMinNs)), TimeConvertUnit(iTimeMinNs),
        static_cast<int32_t>(TimeConvertValue(iTimeMaxNs)), TimeConvertUnit(iTimeMaxNs),
        LowInt(oDistance.uiLine100th / 100), LowInt(oDistance.uiLine100th % 100),
        oDistance.uiLine100th >= 200 ? "s" : " ", static_cast<int32_t>(TimeConvertValue(iTimeNs)),
        TimeConvertUnit(iTimeNs));
}

void DisplayDetails(const SReport& roReport)
{
    Log("FRAMELOCK DETAILS:\n");
    if (roReport.aoPair.empty())
    {
        Log("   No detailed information to display\n");
    }
    for (const SFrameLockPairData& roPair : roReport.aoPair)
    {
        DisplayPair(roReport, roPair);
    }
    const uint32_t uiMaxNbOfPairs = NCR(static_cast<uint32_t>(roReport.aoVideo.size()), 2);
    for (size_t uiPair = roReport.aoPair.size(); uiPair < uiMaxNbOfPairs; ++uiPair)
    {
        Log("\n");
    }
}

} // namespace

void DisplayGenLock(uint32_t uiNbOfVideo, Bool32 bIsVideoIn, uint32_t uiDisplayMode, uint32_t uiThresholdMode,
                    const SMonitorUserData* paoVideoMonitorData, uint64_t* pauiVideoLastTimeStamp)
{
    CFrameLockVideoArray daoFrameLockVideoData;
    CFrameLockPairArray daoFrameLockPairData;
    if (!ProcessGenLock(uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp, daoFrameLockVideoData,
                        daoFrameLockPairData))
    {
        return;
    }
    const SThreshold& roThreshold =
        aoThresholds[uiThresholdMode < GENLOCK_THRESHOLD_COUNT ? uiThresholdMode : uint32_t{GENLOCK_THRESHOLD_1}];
    const SReport oReport = {
        {daoFrameLockVideoData.GetData(), static_cast<size_t>(daoFrameLockVideoData.GetSize())},
        {daoFrameLockPairData.GetData(), static_cast<size_t>(daoFrameLockPairData.GetSize())},
        bIsVideoIn ? "IN" : "OUT",
        roThreshold.uiLines,
    };
    Log("FRAMELOCK SUMMARY (THRESHOLD %d LINE%s):\n", LowInt(roThreshold.uiLines), roThreshold.szPlural);
    DisplaySummary(oReport);
    if (uiDisplayMode == GENLOCK_DISPLAY_DETAILED)
    {
        DisplayDetails(oReport);
    }
    Log("\n");
}

int64_t TimeConvertValue(int64_t iTimeNs)
{
    if (iTimeNs > -100000 && iTimeNs < 100000)
    {
        return iTimeNs;
    }
    return iTimeNs > -100000000 && iTimeNs < 100000000 ? iTimeNs / 1000 : iTimeNs / 1000000;
}

const char* TimeConvertUnit(int64_t iTimeNs)
{
    if (iTimeNs > -100000 && iTimeNs < 100000)
    {
        return "ns";
    }
    return iTimeNs > -100000000 && iTimeNs < 100000000 ? "us" : "ms";
}
