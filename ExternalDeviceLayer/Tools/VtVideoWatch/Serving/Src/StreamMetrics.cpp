#include "StreamMetrics.h"

#include <cmath>
#include <utility>

#include "StreamId.h"
#include "WatchJson.h"
#include "WatchTexts.h"

namespace
{

using prometheus::MetricType;

// Significant digits of a figure, of a rate, and of an uncertainty: what lies beyond is noise that costs bytes.
constexpr int iDigits = 7;
constexpr int iRateDigits = 12;
constexpr int iErrorDigits = 3;

enum class EOnly : uint8_t
{
    BOTH,
    INPUTS,
    OUTPUTS
};

struct SCounterMetric
{
    const char* szName;
    const char* szHelp;
    uint64_t (*oGet)(const SStreamCounters& roCounters);
    EOnly eOnly;
    ETold eTold;
};

using Counters = const SStreamCounters&;

constexpr SCounterMetric aoCounters[] = {
    {"vt_video_fields_total", "Fields that the signal had while watched: observed, lost and unobserved ones.",
     [](Counters roCounters) { return roCounters.uiFields; }, EOnly::BOTH, ETold::ALWAYS},
    {"vt_video_fields_observed_total", "Fields delivered to the watch.",
     [](Counters roCounters) { return roCounters.uiFieldsObserved; }, EOnly::BOTH, ETold::ALWAYS},
    {"vt_video_fields_lost_total", "Fields that the board did not deliver although the watch waited for them.",
     [](Counters roCounters) { return roCounters.uiFieldsLost; }, EOnly::BOTH, ETold::ALWAYS},
    {"vt_video_fields_unobserved_total",
     "Fields that passed while the watch was late: nothing is wrong with the signal.",
     [](Counters roCounters) { return roCounters.uiFieldsUnobserved; }, EOnly::BOTH, ETold::ALWAYS},
    {"vt_video_fields_repeated_total", "Fields whose counter did not move.",
     [](Counters roCounters) { return roCounters.uiFieldsRepeated; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_fields_backward_total", "Times that the field counter went back.",
     [](Counters roCounters) { return roCounters.uiCounterBackward; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_fields_forward_total", "Times that the field counter went ahead of the time.",
     [](Counters roCounters) { return roCounters.uiCounterForward; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_fields_early_total", "Fields that started early against the grid.",
     [](Counters roCounters) { return roCounters.uiFieldsEarly; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_fields_late_total", "Fields that started late against the grid.",
     [](Counters roCounters) { return roCounters.uiFieldsLate; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_phase_steps_total", "Times that the grid itself moved and stayed there.",
     [](Counters roCounters) { return roCounters.uiPhaseSteps; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_signal_losses_total", "Times that the signal went away.",
     [](Counters roCounters) { return roCounters.uiSignalLosses; }, EOnly::BOTH, ETold::MOVED},
    {"vt_video_slips_total",
     "Pictures too many or too few against the reference: times that the phase has drifted by a period.",
     [](Counters roCounters) { return roCounters.uiSlips; }, EOnly::BOTH, ETold::BEYOND},
    {"vt_video_stream_changes_total",
     "Changes of timings, of the buffers' pixel format, and of the capture or power state; the events tell which.",
     [](Counters roCounters)
     { return roCounters.uiTimingChanges + roCounters.uiFormatChanges + roCounters.uiStateChanges; },
     EOnly::BOTH, ETold::MOVED},
    {"vt_video_buffers_skipped_total", "Buffers that the board skipped by its own count.",
     [](Counters roCounters) { return roCounters.uiBuffersSkipped; }, EOnly::INPUTS, ETold::MOVED},
    {"vt_video_buffers_set_total", "Buffers that applications handed to the output.",
     [](Counters roCounters) { return roCounters.uiBuffersSet; }, EOnly::OUTPUTS, ETold::MOVED},
    {"vt_video_buffers_repeated_total", "Fields that showed a buffer once more.",
     [](Counters roCounters) { return roCounters.uiBuffersRepeated; }, EOnly::OUTPUTS, ETold::MOVED},
    {"vt_video_buffers_overwritten_total", "Buffers that were replaced before they were shown.",
     [](Counters roCounters) { return roCounters.uiBuffersOverwritten; }, EOnly::OUTPUTS, ETold::MOVED},
};

bool IsMeant(EOnly eOnly, EStreamDirection eDirection)
{
    return eOnly == EOnly::BOTH || (eOnly == EOnly::INPUTS) == (eDirection == EStreamDirection::INPUT);
}

void CollectCounters(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    for (const SCounterMetric& roCounter : aoCounters)
    {
        CFamily oFamily(raoFamilies, roCounter.szName, roCounter.szHelp, MetricType::Counter);
        WatchPublication_ForEachStream(roSnapshot,
                                       [&](const SStreamFigures& roStream)
                                       {
                                           const auto flCount = static_cast<double>(roCounter.oGet(roStream.oCounters));
                                           oFamily.AddKnown(MetricLabels_Get(roStream),
                                                            IsMeant(roCounter.eOnly, roStream.oKey.eDirection) &&
                                                                MetricDetail_Tells(eDetail, roCounter.eTold, flCount),
                                                            flCount);
                                       });
    }
}

struct SFigureMetric
{
    const char* szName;
    const char* szHelp;
    MetricType eType;
    ETold eTold;
    int iDigits;
    double (*oGet)(const SStreamFigures& roStream);
    bool (*oIsKnown)(const SStreamFigures& roStream);
};

using Stream = const SStreamFigures&;

constexpr SFigureMetric aoFigures[] = {
    {"vt_video_signal_lost_seconds_total", "Time for which the signal was away, over all losses.", MetricType::Counter,
     ETold::MOVED, 12, [](Stream roStream) { return roStream.oCounters.flSignalLostSeconds; },
     [](Stream) { return true; }},
    {"vt_video_running_seconds_total", "Time for which fields came.", MetricType::Counter, ETold::FULL, 12,
     [](Stream roStream) { return roStream.oCounters.flRunningSeconds; }, [](Stream) { return true; }},
    {"vt_video_nominal_rate_hertz", "Field rate that the timings stand for, the 1000/1001 rates exact.",
     MetricType::Gauge, ETold::ALWAYS, 15, [](Stream roStream) { return roStream.flNominalRateHz; },
     [](Stream roStream) { return roStream.uiNominalNumerator != 0; }},
    {"vt_video_jitter_rms_seconds", "Deviation of the field starts from their fit over 10 s, RMS.", MetricType::Gauge,
     ETold::ALWAYS, iErrorDigits + 1, [](Stream roStream) { return roStream.flJitterRmsSeconds; },
     [](Stream roStream) { return roStream.eState == EStreamState::RUNNING; }},
    {"vt_video_jitter_peak_seconds", "The same, from peak to peak.", MetricType::Gauge, ETold::FULL, iErrorDigits + 1,
     [](Stream roStream) { return roStream.flJitterPeakSeconds; },
     [](Stream roStream) { return roStream.eState == EStreamState::RUNNING; }},
    {"vt_video_phase_seconds",
     "Field start against the direction's reference stream, within half a period; positive: later.", MetricType::Gauge,
     ETold::ALWAYS, iDigits, [](Stream roStream) { return roStream.oPhaseSeconds.flValue; },
     [](Stream roStream) { return roStream.oPhaseSeconds.bIsValid; }},
    {"vt_video_phase_stderr_seconds", "Standard error of the phase.", MetricType::Gauge, ETold::ALWAYS, iErrorDigits,
     [](Stream roStream) { return roStream.oPhaseSeconds.flStdErr; },
     [](Stream roStream) { return roStream.oPhaseSeconds.bIsValid; }},
    {"vt_video_drift_ratio", "Growth of the phase against the reference, seconds per second.", MetricType::Gauge,
     ETold::ALWAYS, iDigits, [](Stream roStream) { return roStream.oDriftRatio.flValue; },
     [](Stream roStream) { return roStream.oDriftRatio.bIsValid; }},
    {"vt_video_drift_stderr_ratio", "Standard error of the drift.", MetricType::Gauge, ETold::ALWAYS, iErrorDigits,
     [](Stream roStream) { return roStream.oDriftRatio.flStdErr; },
     [](Stream roStream) { return roStream.oDriftRatio.bIsValid; }},
    {"vt_video_threshold_crossing_seconds", "Time until the lock's threshold is crossed at this drift.",
     MetricType::Gauge, ETold::FULL, iErrorDigits + 1,
     [](Stream roStream) { return roStream.oSecondsToThreshold.flValue; },
     [](Stream roStream) { return roStream.oSecondsToThreshold.bIsValid; }},
    {"vt_video_threshold_crossing_stderr_seconds", "Standard error of that time.", MetricType::Gauge, ETold::FULL,
     iErrorDigits, [](Stream roStream) { return roStream.oSecondsToThreshold.flStdErr; },
     [](Stream roStream) { return roStream.oSecondsToThreshold.bIsValid; }},
    {"vt_video_slip_seconds", "Time until a whole field has slipped at this drift: to the next crossing of zero.",
     MetricType::Gauge, ETold::ALWAYS, iErrorDigits + 1,
     [](Stream roStream) { return roStream.oSecondsToSlip.flValue; },
     [](Stream roStream) { return roStream.oSecondsToSlip.bIsValid; }},
    {"vt_video_slip_stderr_seconds", "Standard error of that time.", MetricType::Gauge, ETold::FULL, iErrorDigits,
     [](Stream roStream) { return roStream.oSecondsToSlip.flStdErr; },
     [](Stream roStream) { return roStream.oSecondsToSlip.bIsValid; }},
    {"vt_video_stamps_foreign",
     "1: the ticks of this stream are not of the board's clock; only its fields are counted.", MetricType::Gauge,
     ETold::MOVED, iDigits, [](Stream roStream) { return roStream.bStampsAreForeign ? 1.0 : 0.0; },
     [](Stream) { return true; }},
    {"vt_video_tai_phase_seconds",
     "Field start against the grid that starts at 1970-01-01T00:00:00 TAI, within half a period.", MetricType::Gauge,
     ETold::ALWAYS, iDigits, [](Stream roStream) { return roStream.oTaiPhaseSeconds.flValue; },
     [](Stream roStream) { return roStream.oTaiPhaseSeconds.bIsValid; }},
    {"vt_video_tai_uncertainty_seconds",
     "How closely that phase is known: what the clocks may be off, and its own standard error.", MetricType::Gauge,
     ETold::ALWAYS, iErrorDigits,
     [](Stream roStream) { return std::hypot(roStream.flTaiUncertaintySeconds, roStream.oTaiPhaseSeconds.flStdErr); },
     [](Stream roStream) { return roStream.oTaiPhaseSeconds.bIsValid; }},
};

void CollectFigures(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    for (const SFigureMetric& roFigure : aoFigures)
    {
        CFamily oFamily(raoFamilies, roFigure.szName, roFigure.szHelp, roFigure.eType);
        WatchPublication_ForEachStream(roSnapshot,
                                       [&](const SStreamFigures& roStream)
                                       {
                                           const double flValue = roFigure.oGet(roStream);
                                           oFamily.AddKnown(MetricLabels_Get(roStream),
                                                            roFigure.oIsKnown(roStream) &&
                                                                MetricDetail_Tells(eDetail, roFigure.eTold, flValue),
                                                            WatchJson_Round(flValue, roFigure.iDigits));
                                       });
    }
}

// Two families: an estimate that a stream has one of for each window, and its standard error.
class CWindowFamilies
{
public:
    CWindowFamilies(CFamilies& raoFamilies, std::pair<const char*, const char*> oValue,
                    std::pair<const char*, const char*> oError, int iKept)
        : m_oValue(Reserve(raoFamilies), oValue.first, oValue.second, MetricType::Gauge),
          m_oError(raoFamilies, oError.first, oError.second, MetricType::Gauge),
          m_iKept(iKept)
    {
    }

    // The windows of rates and of time deviations have the same names.
    void Add(const SStreamFigures& roStream, const SEstimate& roEstimate, size_t uiWindow, bool bWithError)
    {
        const char* szWindow = WatchTexts_GetRateWindow(static_cast<ERateWindow>(uiWindow));
        m_oValue.AddKnown(MetricLabels_Get(roStream, "window", szWindow), roEstimate.bIsValid,
                          WatchJson_Round(roEstimate.flValue, m_iKept));
        m_oError.AddKnown(MetricLabels_Get(roStream, "window", szWindow), roEstimate.bIsValid && bWithError,
                          WatchJson_Round(roEstimate.flStdErr, iErrorDigits));
    }

private:
    // The families stay in their places: two are added, and there is room.
    static CFamilies& Reserve(CFamilies& raoFamilies)
    {
        raoFamilies.reserve(raoFamilies.size() + 2);
        return raoFamilies;
    }

    CFamily m_oValue;
    CFamily m_oError;
    int m_iKept;
};

// One window is enough for a graph: the rate over 10 s, which has its error beside it.
void CollectRates(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CWindowFamilies oFamilies(raoFamilies, {"vt_video_rate_hertz", "Fields per second as the wait delivers them."},
                              {"vt_video_rate_stderr_hertz", "Standard error of the rate."}, iRateDigits);
    WatchPublication_ForEachStream(roSnapshot,
                                   [&](const SStreamFigures& roStream)
                                   {
                                       for (size_t i = 0; i < roStream.aoRateHz.size(); ++i)
                                       {
                                           if (eDetail == EMetricDetail::FULL || auiRateWindowSeconds[i] == 10)
                                           {
                                               oFamilies.Add(roStream, roStream.aoRateHz[i], i, true);
                                           }
                                       }
                                   });
}

// The deviation over 1 s; its error follows from how many seconds there were.
void CollectDeviations(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    const bool bAll = eDetail == EMetricDetail::FULL;
    CWindowFamilies oFamilies(raoFamilies, {"vt_video_tdev_seconds", "Time deviation of the field starts."},
                              {"vt_video_tdev_stderr_seconds", "Standard error of the time deviation."}, iErrorDigits);
    WatchPublication_ForEachStream(roSnapshot,
                                   [&](const SStreamFigures& roStream)
                                   {
                                       for (size_t i = 0; i < (bAll ? roStream.aoTdevSeconds.size() : 1); ++i)
                                       {
                                           oFamilies.Add(roStream, roStream.aoTdevSeconds[i], i, bAll);
                                       }
                                   });
}

void CollectInfo(const SWatchPublication& roPublication, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_stream_info", "Names and formats of a stream; always 1.", MetricType::Gauge);
    WatchPublication_ForEachStream(
        roPublication.oSnapshot,
        [&](const SStreamFigures& roStream)
        {
            const SStreamTexts& roTexts = WatchPublication_GetTexts(roPublication, roStream.oKey);
            CLabels oLabels = MetricLabels_Get(roStream, "name", "");
            oLabels.back().value = StreamId_Print(roStream.oKey);
            oLabels.push_back({"connector", roTexts.szName});
            oLabels.push_back({"format", roTexts.szFormat});
            oLabels.push_back({"standard", roTexts.szStandard});
            const SStreamDescription& roSetup = roStream.oDescription;
            oLabels.push_back({"setup", roStream.oKey.eDirection == EStreamDirection::INPUT
                                            ? WatchTexts_GetCaptureState(roSetup.eCaptureState)
                                            : WatchTexts_GetPowerState(roSetup.ePowerState)});
            oFamily.Add(std::move(oLabels), 1.0);
        });
}

void CollectStates(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_stream_state", "1 for the state that the stream is in.", MetricType::Gauge);
    WatchPublication_ForEachStream(roSnapshot, [&](const SStreamFigures& roStream)
                                   { oFamily.AddStates(roStream, roStream.eState, WatchTexts_GetState, eDetail); });
}

} // namespace

void StreamMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CollectInfo(roPublication, raoFamilies);
    CollectStates(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectCounters(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectFigures(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectRates(roPublication.oSnapshot, eDetail, raoFamilies);
    CollectDeviations(roPublication.oSnapshot, eDetail, raoFamilies);
}
