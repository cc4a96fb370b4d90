// See WatchEngine.h.
#include "WatchEngine.h"

#include <array>
#include <vector>

namespace
{

constexpr uint64_t uiCounterPerField = 16;
constexpr uint64_t uiLostAfterNs = 500'000'000;

struct SStream
{
    SStreamFigures oFigures;
    SFieldRecord oFirst{}; // of the running second
    SFieldRecord oLast{};
    bool bHasLast = false;
};

} // namespace

struct SWatchEngine
{
    SWatchSettings oSettings;
    std::array<std::vector<SStream>, 2> aoStreams;
    uint64_t uiSnapshots = 0;
};

namespace
{

SStream& GetStream(SWatchEngine& roEngine, EStreamDirection eDirection, uint32_t uiIndex)
{
    return roEngine.aoStreams[static_cast<size_t>(eDirection)][uiIndex];
}

void AnalyseStream(const SWatchEngine& roEngine, const SClockReading& roClock, SStream& roStream)
{
    SStreamFigures& roFigures = roStream.oFigures;
    SEstimate& roRate = roFigures.aoRateHz[0];
    roRate = {};
    const uint64_t uiFields = (roStream.oLast.uiFieldCounter - roStream.oFirst.uiFieldCounter) / uiCounterPerField;
    const uint64_t uiTicks = roStream.oLast.uiTick - roStream.oFirst.uiTick;
    if (roStream.bHasLast && uiTicks > 0)
    {
        roRate.flValue =
            static_cast<double>(uiFields) * roEngine.oSettings.uiTickFrequencyHz / static_cast<double>(uiTicks);
        roRate.bIsValid = true;
    }
    if (roFigures.eState == EStreamState::RUNNING && roStream.oLast.uiArrivalNs + uiLostAfterNs < roClock.uiMonotonicNs)
    {
        roFigures.eState = EStreamState::LOST;
    }
    roStream.oFirst = roStream.oLast;
}

} // namespace

void WatchEngine_Destroy(SWatchEngine* poEngine)
{
    delete poEngine;
}

WatchEnginePtr WatchEngine_Create(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
{
    if (roSettings.uiTickFrequencyHz == 0 || uiNbOfInputs > uiMaxStreamsPerDirection ||
        uiNbOfOutputs > uiMaxStreamsPerDirection)
    {
        return nullptr;
    }
    WatchEnginePtr poEngine(new SWatchEngine{roSettings, {}, 0});
    poEngine->aoStreams[0].resize(uiNbOfInputs);
    poEngine->aoStreams[1].resize(uiNbOfOutputs);
    for (size_t uiDirection = 0; uiDirection < poEngine->aoStreams.size(); ++uiDirection)
    {
        uint32_t uiIndex = 0;
        for (SStream& roStream : poEngine->aoStreams[uiDirection])
        {
            roStream.oFigures.eDirection = static_cast<EStreamDirection>(uiDirection);
            roStream.oFigures.uiIndex = uiIndex++;
        }
    }
    return poEngine;
}

void WatchEngine_TakeRecord(SWatchEngine& roEngine, EStreamDirection eDirection, uint32_t uiIndex,
                            const SFieldRecord& roRecord)
{
    SStream& roStream = GetStream(roEngine, eDirection, uiIndex);
    SStreamCounters& roCounters = roStream.oFigures.oCounters;
    switch (roRecord.eResult)
    {
    case EWaitResult::FIELD:
        ++roCounters.uiFields;
        ++roCounters.uiFieldsObserved;
        roStream.oFigures.eState = EStreamState::RUNNING;
        if (!roStream.bHasLast)
        {
            roStream.oFirst = roRecord;
            roStream.bHasLast = true;
        }
        roStream.oLast = roRecord;
        break;
    case EWaitResult::TIMED_OUT:
        ++roCounters.uiWaitTimeOuts;
        break;
    case EWaitResult::CANCELED:
        roStream.oFigures.eState = EStreamState::LOST;
        break;
    case EWaitResult::GONE:
        roStream.oFigures.eState = EStreamState::GONE;
        break;
    }
}

void WatchEngine_TakeDescription(SWatchEngine& roEngine, EStreamDirection eDirection, uint32_t uiIndex,
                                 const SStreamDescription& roDescription)
{
    GetStream(roEngine, eDirection, uiIndex).oFigures.oDescription = roDescription;
}

void WatchEngine_Analyse(SWatchEngine& roEngine, const SClockReading& roClock, SWatchSnapshot& roSnapshot)
{
    roSnapshot.uiNumber = ++roEngine.uiSnapshots;
    roSnapshot.uiTickFrequencyHz = roEngine.oSettings.uiTickFrequencyHz;
    roSnapshot.flThresholdSeconds = roEngine.oSettings.flThresholdSeconds;
    roSnapshot.flThresholdLines = roEngine.oSettings.flThresholdLines;
    roSnapshot.oClock.iUtcNs = roClock.iUtcNs;
    roSnapshot.oClock.uiMonotonicNs = roClock.uiMonotonicNs;
    for (size_t uiDirection = 0; uiDirection < roEngine.aoStreams.size(); ++uiDirection)
    {
        std::vector<SStream>& raoStreams = roEngine.aoStreams[uiDirection];
        std::vector<SStreamFigures>& raoFigures = roSnapshot.aoDirections[uiDirection].aoStreams;
        raoFigures.resize(raoStreams.size());
        for (size_t uiStream = 0; uiStream < raoStreams.size(); ++uiStream)
        {
            AnalyseStream(roEngine, roClock, raoStreams[uiStream]);
            raoFigures[uiStream] = raoStreams[uiStream].oFigures;
        }
    }
}

std::span<const SWatchEvent> WatchEngine_TakeEvents(SWatchEngine& /*roEngine*/)
{
    return {};
}
