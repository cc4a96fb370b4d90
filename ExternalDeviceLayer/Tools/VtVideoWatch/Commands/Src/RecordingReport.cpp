#include "RecordingReport.h"

#include <algorithm>
#include <map>

#include "HistoryMaker.h"
#include "VideoTexts.h"
#include "WatchEngine.h"

namespace
{

// When an analysis comes behind the second that it is about: by then everything about it had been handed in.
constexpr uint64_t uiHandedInNs = 160'000'000;

// A stream, and how far it has been handed in.
struct SPlayed
{
    SStreamKey oKey;
    std::vector<SFieldRecord> aoFields;
    std::vector<SStreamDescription> aoDescriptions;
    size_t uiFields = 0;
    size_t uiDescriptions = 0;
    SReportStream oReported;
    std::map<int64_t, SMinuteSummary> oMinutes; // by begin
};

CFault ReadStreams(CRecordingReader& roReader, std::vector<SPlayed>& raoPlayed)
{
    uint64_t uiLeft = uiMostReportedWaits;
    for (const SRecordedStream& roStream : roReader.GetStreams())
    {
        SPlayed& roPlayed = raoPlayed.emplace_back();
        roPlayed.oKey = roPlayed.oReported.oKey = roStream.oKey;
        CFault oFault = roReader.ForEachField(roStream,
                                              [&](const SFieldRecord& roField)
                                              {
                                                  if (uiLeft > 0)
                                                  {
                                                      --uiLeft;
                                                      roPlayed.aoFields.push_back(roField);
                                                  }
                                              });
        if (oFault || uiLeft == 0)
        {
            return oFault ? oFault : CFault("the recording has too many waits for a report");
        }
        for (const SRecordedDescription& roDescription : roReader.GetDescriptions())
        {
            if (roDescription.oStream == roStream.oKey)
            {
                VTSTR256 szStandard = {};
                FormatVideoParam(&roDescription.oDescription.oTimings, 0, szStandard);
                roPlayed.aoDescriptions.push_back(roDescription.oDescription);
                roPlayed.oReported.oTexts = {{}, roDescription.szName, szStandard, roDescription.szFormat, {}};
            }
        }
    }
    return {};
}

void HandIn(CWatchEngine& roEngine, SPlayed& roPlayed, uint64_t uiUntilNs)
{
    while (roPlayed.uiFields < roPlayed.aoFields.size() &&
           roPlayed.aoFields[roPlayed.uiFields].uiArrivalNs <= uiUntilNs)
    {
        roEngine.TakeRecord(roPlayed.oKey, roPlayed.aoFields[roPlayed.uiFields++]);
    }
    // What it was before the first field is as good as the first description.
    while (roPlayed.uiDescriptions < roPlayed.aoDescriptions.size() &&
           (roPlayed.uiDescriptions == 0 || roPlayed.aoDescriptions[roPlayed.uiDescriptions].uiMomentNs <= uiUntilNs))
    {
        roEngine.TakeDescription(roPlayed.oKey, roPlayed.aoDescriptions[roPlayed.uiDescriptions++]);
    }
}

// From the first wait's begin to the last one's end.
bool FindReach(const std::vector<SPlayed>& raoPlayed, uint64_t& ruiBeginNs, uint64_t& ruiEndNs)
{
    ruiBeginNs = UINT64_MAX;
    ruiEndNs = 0;
    for (const SPlayed& roPlayed : raoPlayed)
    {
        for (const SFieldRecord& roField : roPlayed.aoFields)
        {
            ruiBeginNs = std::min(ruiBeginNs, roField.uiArrivalNs);
            ruiEndNs = std::max(ruiEndNs, roField.uiArrivalNs);
        }
    }
    return ruiBeginNs <= ruiEndNs && ruiEndNs - ruiBeginNs <= 86400 * static_cast<uint64_t>(iNsPerSecond);
}

SClockReading MakeClock(const SRecordedClock& roRecorded, uint64_t uiNowNs)
{
    SClockReading oClock;
    oClock.uiMonotonicNs = roRecorded.uiMonotonicNs;
    oClock.iUtcNs = roRecorded.iUtcNs;
    oClock.iUtcNs = oClock.GetUtcNs(uiNowNs);
    oClock.uiMonotonicNs = uiNowNs;
    oClock.iTaiOffsetSeconds = roRecorded.iTaiOffsetSeconds;
    return oClock;
}

void TakeMinutes(std::vector<SPlayed>& raoPlayed, std::span<const SMinuteSummary> aoMinutes)
{
    for (const SMinuteSummary& roMinute : aoMinutes)
    {
        const auto itPlayed = std::ranges::find(raoPlayed, roMinute.oKey, &SPlayed::oKey);
        itPlayed->oMinutes[roMinute.oPoint.iUtcNs] = roMinute;
    }
}

CWatchEngine MakeEngine(const CRecordingReader& roReader)
{
    SWatchSettings oSettings;
    oSettings.uiTickFrequencyHz = roReader.GetAbout().uiTickFrequencyHz;
    std::array<uint32_t, 2> auiCounts = {};
    for (const SRecordedStream& roStream : roReader.GetStreams())
    {
        uint32_t& ruiCount = auiCounts[static_cast<size_t>(roStream.oKey.eDirection)];
        ruiCount = std::max(ruiCount, roStream.oKey.uiIndex + 1);
    }
    return {oSettings, auiCounts[0], auiCounts[1]};
}

// The whole watch once more, second by second. The events that it told.
std::vector<SWatchEvent> Play(const CRecordingReader& roReader, std::vector<SPlayed>& raoPlayed, uint64_t uiBeginNs,
                              uint64_t uiEndNs)
{
    CWatchEngine oEngine = MakeEngine(roReader);
    CHistoryMaker oHistory({});
    SWatchSnapshot oSnapshot;
    std::vector<SWatchEvent> aoEvents;
    const auto fnAnalyse = [&](uint64_t uiNowNs)
    {
        while (oEngine.Analyse(MakeClock(roReader.GetClocks().back(), uiNowNs), oSnapshot))
        {
            const auto aoNew = oEngine.TakeEvents();
            aoEvents.insert(aoEvents.end(), aoNew.begin(), aoNew.end());
            oHistory.Take(oSnapshot);
            TakeMinutes(raoPlayed, oHistory.GetMinutes());
        }
    };
    for (uint64_t uiNowNs = uiBeginNs; uiNowNs < uiEndNs; uiNowNs += static_cast<uint64_t>(iNsPerSecond) / 4)
    {
        for (SPlayed& roPlayed : raoPlayed)
        {
            HandIn(oEngine, roPlayed, uiNowNs);
        }
        fnAnalyse(uiNowNs);
    }
    for (SPlayed& roPlayed : raoPlayed)
    {
        HandIn(oEngine, roPlayed, uiEndNs);
    }
    oEngine.End();
    fnAnalyse(uiEndNs + uiHandedInNs);
    return aoEvents;
}

} // namespace

CFault RecordingReport_Collect(CRecordingReader& roReader, SReport& roReport)
{
    std::vector<SPlayed> aoPlayed;
    uint64_t uiBeginNs = 0;
    uint64_t uiEndNs = 0;
    if (CFault oFault = ReadStreams(roReader, aoPlayed))
    {
        return oFault;
    }
    if (!FindReach(aoPlayed, uiBeginNs, uiEndNs))
    {
        return CFault("the recording holds nothing, or more than a day");
    }
    const std::vector<SWatchEvent> aoEvents = Play(roReader, aoPlayed, uiBeginNs, uiEndNs);
    roReport.iFromUtcNs = MakeClock(roReader.GetClocks().back(), uiBeginNs).iUtcNs;
    roReport.iToUtcNs = MakeClock(roReader.GetClocks().back(), uiEndNs).iUtcNs;
    SStoreRun& roRun = roReport.aoRuns.emplace_back();
    roRun.iBeginUtcNs = roReport.iFromUtcNs;
    roRun.iEndUtcNs = roReport.iToUtcNs;
    roRun.szHost = roReader.GetAbout().szHost;
    roRun.szBoard = roReader.GetAbout().szBoard;
    roRun.eEnd = ERunEnd::CLOSED;
    for (const SPlayed& roPlayed : aoPlayed)
    {
        roReport.aoStreams.push_back(roPlayed.oReported);
    }
    for (size_t uiStream = 0; uiStream < aoPlayed.size(); ++uiStream)
    {
        std::vector<SMinuteSummary> aoMinutes;
        for (const auto& [iBegin, oMinute] : aoPlayed[uiStream].oMinutes)
        {
            aoMinutes.push_back(oMinute);
        }
        ReportData_AddMinutes(roReport, roReport.aoStreams[uiStream], aoMinutes);
    }
    ReportData_AddEvents(roReport, aoEvents);
    return {};
}
