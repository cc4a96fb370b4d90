#include "CostMetrics.h"

#include <limits>

#include "StreamId.h"
#include "WatchTexts.h"

namespace
{

using prometheus::MetricType;

struct SCostMetric
{
    const char* szName;
    const char* szHelp;
    MetricType eType;
    double (*oGet)(const SWatchPublication& roPublication);
};

using Publication = const SWatchPublication&;

double ToDouble(uint64_t uiValue)
{
    return static_cast<double>(uiValue);
}

constexpr SCostMetric aoCosts[] = {
    {"vt_video_snapshot_timestamp_seconds", "The instant of these figures, UTC.", MetricType::Gauge,
     [](Publication roPublication) { return static_cast<double>(roPublication.oSnapshot.oClock.iUtcNs) * 1e-9; }},
    {"vt_video_snapshots_total", "Snapshots since the watch began: one per second.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oSnapshot.uiNumber); }},
    {"vt_video_analysis_seconds", "Duration of the last analysis of all streams.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oCosts.flAnalysisSeconds; }},
    {"vt_video_ring_overruns_total", "Records of fields that found no room on their way to the analysis.",
     MetricType::Counter, [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiRingOverruns); }},
    {"vt_video_store_write_failures_total", "Writes that the store refused.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiStoreWriteFailures); }},
    {"vt_video_store_rows_waiting", "Rows that wait for the store.", MetricType::Gauge,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiStoreRowsWaiting); }},
    {"vt_video_store_rows_dropped_total", "Rows that the store will never have.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiStoreRowsDropped); }},
    {"vt_video_store_failing", "1 while the store cannot be written.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oCosts.bStoreIsFailing ? 1.0 : 0.0; }},
    {"vt_video_journal_write_failures_total", "Writes that the journal refused.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiJournalWriteFailures); }},
    {"vt_video_journal_lines_dropped_total", "Lines that the journal will never have.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiJournalLinesDropped); }},
    {"vt_video_journal_failing", "1 while the journal cannot be written.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oCosts.bJournalIsFailing ? 1.0 : 0.0; }},
    {"vt_video_recordings_total", "Recordings of incidents that were written.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiRecordings); }},
    {"vt_video_recording_failures_total", "Recordings of incidents that could not be written.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiRecordingFailures); }},
    {"vt_video_recording_failing", "1 since a recording could not be written, until one could.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oCosts.bRecordingIsFailing ? 1.0 : 0.0; }},
    {"vt_video_memory_failures_total", "Pieces of work that found no memory and were dropped.", MetricType::Counter,
     [](Publication roPublication) { return ToDouble(roPublication.oCosts.uiMemoryFailures); }},
    {"vt_video_clock_synchronised", "1 if the kernel says that the machine's clock is synchronised.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oSnapshot.oClock.bIsSynchronised ? 1.0 : 0.0; }},
    {"vt_video_clock_estimated_error_seconds", "The kernel's estimate of that clock's error.", MetricType::Gauge,
     [](Publication roPublication) { return roPublication.oSnapshot.oClock.flEstimatedErrorSeconds; }},
    // Here and below, 0 is what is said where nothing is known: by a kernel that was never told, or without a file to
    // read.
    {"vt_video_clock_tai_offset_seconds", "TAI minus UTC by the kernel.", MetricType::Gauge,
     [](Publication roPublication)
     {
         const int64_t iOffset = roPublication.oSnapshot.oClock.iTaiOffsetSeconds;
         return iOffset == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(iOffset);
     }},
    {"process_cpu_seconds_total", "Processor time of the watch.", MetricType::Counter,
     [](Publication roPublication) { return roPublication.oCosts.flCpuSeconds; }},
    {"process_resident_memory_bytes", "Resident memory of the watch.", MetricType::Gauge,
     [](Publication roPublication)
     {
         const uint64_t uiBytes = roPublication.oCosts.uiResidentBytes;
         return uiBytes == 0 ? std::numeric_limits<double>::quiet_NaN() : ToDouble(uiBytes);
     }},
    {"process_start_time_seconds", "When the watch began, UTC.", MetricType::Gauge,
     [](Publication roPublication) { return static_cast<double>(roPublication.iStartUtcNs) * 1e-9; }},
};

// Over all streams of a direction of a chip: which stream's thread is late says nothing about the stream.
void CollectWakes(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    prometheus::MetricFamily& roFamily = raoFamilies.emplace_back();
    roFamily.name = "vt_video_wake_latency_seconds";
    roFamily.help = "How long after a field's start the watch had it in hand.";
    roFamily.type = MetricType::Histogram;
    for (size_t uiSlot = 0; uiSlot < roSnapshot.aoDirections.size(); ++uiSlot)
    {
        const auto& raoStreams = roSnapshot.aoDirections[uiSlot].aoStreams;
        if (raoStreams.empty())
        {
            continue;
        }
        const EStreamDirection eDirection = raoStreams.front().oKey.eDirection;
        prometheus::ClientMetric& roMetric = roFamily.metric.emplace_back();
        roMetric.label.push_back({"chip", std::to_string(raoStreams.front().uiChip)});
        roMetric.label.push_back({"direction", StreamId_GetDirection(eDirection)});
        auto& roHistogram = roMetric.histogram;
        for (size_t i = 0; i <= aflWakeBoundsSeconds.size(); ++i)
        {
            for (const SStreamFigures& roStream : raoStreams)
            {
                roHistogram.sample_count += roStream.oWakes.auiCounts[i];
            }
            const double flBound =
                i < aflWakeBoundsSeconds.size() ? aflWakeBoundsSeconds[i] : std::numeric_limits<double>::infinity();
            roHistogram.bucket.push_back({roHistogram.sample_count, flBound});
        }
        for (const SStreamFigures& roStream : raoStreams)
        {
            roHistogram.sample_sum += roStream.oWakes.flSumSeconds;
        }
    }
}

void CollectTicks(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    raoFamilies.reserve(raoFamilies.size() + 2);
    CFamily oFamily(raoFamilies, "vt_video_tick_uncertainty_seconds",
                    "How closely the chip's ticks are known by the machine's clock.", MetricType::Gauge);
    CFamily oAnswers(raoFamilies, "vt_video_chip_answers", "0: the chip has not answered since the watch began.",
                     MetricType::Gauge);
    for (const SChipFigures& roChip : roSnapshot.aoChips)
    {
        oAnswers.Add({{"chip", std::to_string(roChip.uiNumber)}}, roChip.uiInstants != 0 ? 1.0 : 0.0);
        oFamily.AddKnown({{"chip", std::to_string(roChip.uiNumber)}}, roChip.uiInstants != 0,
                         roChip.oClock.flTickUncertaintySeconds);
    }
}

void CollectInfo(const SWatchPublication& roPublication, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_watch_info", "What is watched, and by whom; always 1.", MetricType::Gauge);
    oFamily.Add({{"host", roPublication.szHost},
                 {"board", roPublication.szBoard},
                 {"simulated", roPublication.bIsSimulated ? "1" : "0"}},
                1.0);
}

} // namespace

void CostMetrics_Collect(const SWatchPublication& roPublication, CFamilies& raoFamilies)
{
    CollectInfo(roPublication, raoFamilies);
    for (const SCostMetric& roCost : aoCosts)
    {
        CFamily oFamily(raoFamilies, roCost.szName, roCost.szHelp, roCost.eType);
        oFamily.AddKnown({}, true, roCost.oGet(roPublication));
    }
    CollectTicks(roPublication.oSnapshot, raoFamilies);
    CollectWakes(roPublication.oSnapshot, raoFamilies);
}
