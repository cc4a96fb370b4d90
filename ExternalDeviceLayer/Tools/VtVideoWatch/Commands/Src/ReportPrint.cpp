#include "ReportPrint.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numeric>

#include "HealthJson.h"
#include "HealthTexts.h"
#include "StreamId.h"
#include "TextFormat.h"
#include "WatchJson.h"
#include "WatchTexts.h"

namespace
{

// "2026-11-21 22:05:37"
std::string GetMoment(int64_t iUtcNs)
{
    std::string szMoment = WatchTexts_GetUtc(iUtcNs).substr(0, 19);
    szMoment[10] = ' ';
    return szMoment;
}

// "3 d 04:05:06", "04:05:06", "12.345 s"
std::string GetLength(double flSeconds)
{
    constexpr double flMinute = 60.0;
    if (flSeconds < flMinute)
    {
        return TextFormat_Print("%.3f s", flSeconds);
    }
    const auto uiSeconds = static_cast<uint64_t>(std::llround(flSeconds));
    const std::string szClock =
        TextFormat_Print("%02u:%02u:%02u", static_cast<unsigned>(uiSeconds / 3600 % 24),
                         static_cast<unsigned>(uiSeconds / 60 % 60), static_cast<unsigned>(uiSeconds % 60));
    return uiSeconds < 86400 ? szClock : TextFormat_Print("%u d ", static_cast<unsigned>(uiSeconds / 86400)) + szClock;
}

// Down to a ten thousandth, never rounded up to a whole hundred that was not reached; sums of seconds are not exact.
std::string GetAvailability(const SReportStream& roStream)
{
    if (roStream.flWatchedSeconds <= 0.0)
    {
        return "-";
    }
    constexpr double flSumError = 1e-8;
    const double flPart = std::min(roStream.flRunningSeconds / roStream.flWatchedSeconds + flSumError, 1.0);
    return TextFormat_Print("%.4f %%", std::floor(flPart * 1e6) / 1e4);
}

// A text in so many columns, its middle left out where it is too long: names that differ do so at either end.
std::string Fit(const std::string& rszText, size_t uiColumns)
{
    std::vector<std::string> aszSigns;
    for (const char cByte : rszText)
    {
        const bool bGoesOn = (static_cast<unsigned char>(cByte) & 0xC0U) == 0x80U && !aszSigns.empty();
        if (bGoesOn)
        {
            aszSigns.back().push_back(cByte);
        }
        else
        {
            aszSigns.emplace_back(1, cByte);
        }
    }
    std::string szFitted;
    const size_t uiEnd = (uiColumns - 2) / 2;
    for (size_t uiSign = 0; uiSign < std::max(aszSigns.size(), uiColumns); ++uiSign)
    {
        const bool bIsLong = aszSigns.size() > uiColumns;
        if (bIsLong && uiSign == uiColumns - 2 - uiEnd)
        {
            szFitted += "..";
            uiSign = aszSigns.size() - uiEnd;
        }
        szFitted += uiSign < aszSigns.size() ? aszSigns[uiSign] : " ";
    }
    return szFitted;
}

std::string GetName(const SReport& roReport, const SStreamKey& roKey)
{
    const auto itStream = std::ranges::find(roReport.aoStreams, roKey, &SReportStream::oKey);
    return itStream == roReport.aoStreams.end() ? "" : itStream->oTexts.szName;
}

// Against the rate of a standard that is meant, whole or by 1.001; a rate that is none has no deviation.
std::string GetPpm(const SEstimate& roRate)
{
    constexpr double flNtsc = 1.001;
    constexpr double flMostPpm = 490.0; // half way to the other one
    const double flRate = roRate.flValue;
    if (!roRate.bIsValid || flRate < 1.0)
    {
        return "-";
    }
    const double flWhole = (flRate / std::round(flRate) - 1.0) * 1e6;
    const double flOther = (flRate * flNtsc / std::round(flRate * flNtsc) - 1.0) * 1e6;
    const double flPpm = std::abs(flWhole) < std::abs(flOther) ? flWhole : flOther;
    return std::abs(flPpm) > flMostPpm ? "-" : TextFormat_Print("%+.3f", flPpm);
}

std::string GetPhase(const SReportStream& roStream)
{
    const double flUs = roStream.flWorstPhaseSeconds * 1e6;
    return !roStream.bHasPhase       ? "-"
           : std::abs(flUs) < 1000.0 ? TextFormat_Print("%+.3f us", flUs)
                                     : TextFormat_Print("%+.3f ms", flUs * 1e-3);
}

// The weightiest of many, in their order.
template <typename TRecord, typename TWeigh>
std::vector<TRecord> Choose(std::vector<TRecord> aoRecords, size_t uiMost, TWeigh fnWeigh, std::string& rszRest)
{
    rszRest.clear();
    if (aoRecords.size() > uiMost)
    {
        rszRest = "and " + std::to_string(aoRecords.size() - uiMost) + " lesser ones, which --json has\n";
        std::vector<size_t> auiOrder(aoRecords.size());
        std::iota(auiOrder.begin(), auiOrder.end(), size_t{0});
        std::ranges::stable_sort(auiOrder, std::ranges::greater(),
                                 [&](size_t uiRecord) { return fnWeigh(aoRecords[uiRecord]); });
        auiOrder.resize(uiMost);
        std::ranges::sort(auiOrder);
        std::vector<TRecord> aoChosen;
        aoChosen.reserve(uiMost);
        for (const size_t uiRecord : auiOrder)
        {
            aoChosen.push_back(aoRecords[uiRecord]);
        }
        return aoChosen;
    }
    return aoRecords;
}

double GetSeconds(int64_t iFromUtcNs, int64_t iToUtcNs)
{
    return static_cast<double>(iToUtcNs - iFromUtcNs) * 1e-9;
}

const char* GetEnd(ERunEnd eEnd)
{
    switch (eEnd)
    {
    case ERunEnd::OPEN:
        return ", where the watch broke off or still runs";
    case ERunEnd::CLOSED:
        break;
    case ERunEnd::BROKEN:
        return ", where the watch broke off";
    }
    return "";
}

std::string PrintHead(const SReport& roReport)
{
    std::string szText =
        "Video watch, " + GetMoment(roReport.iFromUtcNs) + " to " + GetMoment(roReport.iToUtcNs) + " UTC\n";
    constexpr size_t uiMost = 6;
    std::string szRest;
    for (const SStoreRun& roRun : Choose(
             roReport.aoRuns, uiMost, [](const SStoreRun& roRun) { return roRun.iEndUtcNs - roRun.iBeginUtcNs; },
             szRest))
    {
        szText += "Watched on " + roRun.szHost + " from " + GetMoment(roRun.iBeginUtcNs) + " to " +
                  GetMoment(roRun.iEndUtcNs) + GetEnd(roRun.eEnd) + "\n";
    }
    return szText + szRest + (roReport.aoRuns.empty() ? "Nothing was watched in this time.\n" : "");
}

std::string PrintOutages(const SReport& roReport)
{
    constexpr size_t uiMost = 20;
    std::string szRest;
    const std::vector<SReportOutage> aoOutages = Choose(
        roReport.aoOutages, uiMost,
        [](const SReportOutage& roOutage) { return roOutage.iToUtcNs - roOutage.iFromUtcNs; }, szRest);
    std::string szText =
        TextFormat_Print("\n%-7s %-18s %-19s %-19s %13s %s\n", "OUTAGE", "NAME", "BEGIN", "END", "LASTED", "WHAT");
    for (const SReportOutage& roOutage : aoOutages)
    {
        szText +=
            TextFormat_Print("%-7s %s %s %-19s %13s ", StreamId_Print(roOutage.oKey).c_str(),
                             Fit(GetName(roReport, roOutage.oKey), 18).c_str(), GetMoment(roOutage.iFromUtcNs).c_str(),
                             roOutage.bIsOpen ? "not yet" : GetMoment(roOutage.iToUtcNs).c_str(),
                             GetLength(GetSeconds(roOutage.iFromUtcNs, roOutage.iToUtcNs)).c_str());
        szText += roOutage.uiFields == 0 ? "signal lost\n" : TextFormat_Count(roOutage.uiFields, "field") + "\n";
    }
    return aoOutages.empty() ? "\nNo outages.\n" : szText + szRest;
}

// Those that were open when the time that is told of ended had lasted until then.
double GetLasted(const SReport& roReport, const SIncident& roIncident)
{
    return GetSeconds(roIncident.iBeginUtcNs,
                      roIncident.iEndUtcNs != 0 ? roIncident.iEndUtcNs : ReportData_GetEnd(roReport));
}

std::string PrintIncidents(const SReport& roReport)
{
    constexpr size_t uiMost = 16;
    constexpr double flUnhealthySeconds = 1e9; // outweighs any length
    std::string szRest;
    const std::vector<SIncident> aoIncidents = Choose(
        roReport.aoIncidents, uiMost,
        [&](const SIncident& roIncident)
        {
            return GetLasted(roReport, roIncident) +
                   (roIncident.eWorst == EHealthStatus::UNHEALTHY ? flUnhealthySeconds : 0.0);
        },
        szRest);
    std::string szText = TextFormat_Print("\n%-19s %13s %-16s %s\n", "INCIDENT", "LASTED", "STREAMS", "WHAT");
    for (const SIncident& roIncident : aoIncidents)
    {
        const bool bIsOpen = roIncident.iEndUtcNs == 0;
        const std::string szLost = HealthTexts_GetIncidentLost(roIncident);
        std::string szWhat = Fit(std::string(HealthTexts_GetDomain(roIncident.eDomain)) + ": " +
                                     HealthTexts_GetIncidentCause(roIncident) + (szLost.empty() ? "" : ", ") + szLost,
                                 49);
        szWhat.erase(szWhat.find_last_not_of(' ') + 1);
        szText += TextFormat_Print("%-19s %13s %s %s\n", GetMoment(roIncident.iBeginUtcNs).c_str(),
                                   bIsOpen ? "not over" : GetLength(GetLasted(roReport, roIncident)).c_str(),
                                   Fit(HealthTexts_GetIncidentStreams(roIncident), 16).c_str(), szWhat.c_str());
    }
    return aoIncidents.empty() ? "\nNo incidents.\n" : szText + szRest;
}

// Of a deviation, on nine columns.
std::string GetDeviation(double flSeconds)
{
    const double flUs = std::abs(flSeconds) * 1e6;
    return flUs < 1.0      ? "< 1 us"
           : flUs < 1000.0 ? TextFormat_Print("%.1f us", flUs)
                           : TextFormat_Print("%.1f ms", flUs * 1e-3);
}

// Streams whose fields are farthest off their grids.
std::string PrintPacing(const SReport& roReport)
{
    constexpr size_t uiMost = 8;
    std::vector<SReportStream> aoStreams;
    std::ranges::copy_if(roReport.aoStreams, std::back_inserter(aoStreams),
                         [](const SReportStream& roStream) { return Pacing_GetFigures(roStream.oPacing).uiCount > 0; });
    std::string szRest;
    std::string szText = TextFormat_Print("\n%-7s %-20s %9s %9s %9s %9s %9s  %s\n", "PACING", "NAME", "50 %", "95 %",
                                          "99 %", "99.9 %", "WORST", "WHICH CAME");
    aoStreams = Choose(
        std::move(aoStreams), uiMost,
        [](const SReportStream& roStream) { return Pacing_GetFigures(roStream.oPacing).flP999; }, szRest);
    for (const SReportStream& roStream : aoStreams)
    {
        const SPacingFigures oFigures = Pacing_GetFigures(roStream.oPacing);
        szText +=
            TextFormat_Print("%-7s %s", StreamId_Print(roStream.oKey).c_str(), Fit(roStream.oTexts.szName, 20).c_str());
        for (const double flSeconds :
             {oFigures.flP50, oFigures.flP95, oFigures.flP99, oFigures.flP999, roStream.oPacing.oWorst.flSeconds})
        {
            szText += TextFormat_Print(" %9s", GetDeviation(flSeconds).c_str());
        }
        szText += "  " + (roStream.oPacing.oWorst.iUtcNs == 0 ? "-" : GetMoment(roStream.oPacing.oWorst.iUtcNs)) + "\n";
    }
    return aoStreams.empty() ? "" : szText + szRest;
}

std::string PrintStreams(const SReport& roReport)
{
    std::string szText = TextFormat_Print("\n%-7s %-26s %10s %7s %13s %10s %11s %8s\n", "STREAM", "NAME", "AVAILABLE",
                                          "LOST", "WORST GAP", "PPM", "WORST PHASE", "IN LOCK");
    for (const SReportStream& roStream : roReport.aoStreams)
    {
        szText += TextFormat_Print(
            "%-7s %s %10s %7llu %13s ", StreamId_Print(roStream.oKey).c_str(), Fit(roStream.oTexts.szName, 26).c_str(),
            GetAvailability(roStream).c_str(), static_cast<unsigned long long>(roStream.uiLost),
            roStream.flWorstGapSeconds > 0.0 ? GetLength(roStream.flWorstGapSeconds).c_str() : "-");
        szText += TextFormat_Print("%10s %11s %8s\n", GetPpm(roStream.oRateHz).c_str(), GetPhase(roStream).c_str(),
                                   roStream.bHasPhase
                                       ? TextFormat_Print("%.1f %%", 100.0 * roStream.flLockedSeconds /
                                                                         std::max(roStream.flWatchedSeconds, 1.0))
                                             .c_str()
                                       : "-");
    }
    return szText;
}

std::string PrintHours(const SReport& roReport)
{
    std::string szText = TextFormat_Print("\n%-17s %8s %14s %12s %18s %12s\n", "EVENTS PER HOUR", "EVENTS",
                                          "SIGNAL LOSSES", "FIELDS LOST", "FIELDS UNOBSERVED", "LOCK CHANGES");
    constexpr size_t uiMost = 10;
    std::string szRest;
    for (const SReportHour& roHour : Choose(
             roReport.aoHours, uiMost, [](const SReportHour& roHour) { return roHour.uiEvents; }, szRest))
    {
        szText += TextFormat_Print(
            "%-17s %8llu %14llu %12llu %18llu %12llu\n", GetMoment(roHour.iUtcNs).substr(0, 16).c_str(),
            static_cast<unsigned long long>(roHour.uiEvents), static_cast<unsigned long long>(roHour.uiSignalLosses),
            static_cast<unsigned long long>(roHour.uiFieldsLost),
            static_cast<unsigned long long>(roHour.uiFieldsUnobserved),
            static_cast<unsigned long long>(roHour.uiLockChanges));
    }
    return roReport.aoHours.empty() ? "\nNo events.\n" : szText + szRest;
}

// Groups of the same members, summed up.
struct SLockSum
{
    SStreamKey oOf;
    uint32_t uiMembers = 0;
    uint64_t uiTimes = 0;
    double flSeconds = 0.0;
};

std::string PrintLocks(const SReport& roReport)
{
    constexpr size_t uiMost = 10;
    std::vector<SLockSum> aoSums;
    for (const SReportLock& roLock : roReport.aoLocks)
    {
        auto itSum = std::ranges::find_if(aoSums, [&](const SLockSum& roSum)
                                          { return roSum.oOf == roLock.oOf && roSum.uiMembers == roLock.uiMembers; });
        itSum = itSum != aoSums.end() ? itSum : aoSums.insert(itSum, {roLock.oOf, roLock.uiMembers, 0, 0.0});
        ++itSum->uiTimes;
        itSum->flSeconds += GetSeconds(roLock.iFromUtcNs, roLock.iToUtcNs);
    }
    std::string szRest;
    std::string szText = TextFormat_Print("\n%13s %8s %s\n", "IN LOCK FOR", "TIMES", "MEMBERS");
    for (const SLockSum& roSum : Choose(
             aoSums, uiMost, [](const SLockSum& roSum) { return roSum.flSeconds; }, szRest))
    {
        szText += TextFormat_Print("%13s %8llu %s\n", GetLength(roSum.flSeconds).c_str(),
                                   static_cast<unsigned long long>(roSum.uiTimes),
                                   StreamId_PrintRanges(roSum.oOf, roSum.uiMembers).c_str());
    }
    return aoSums.empty() ? "\nNo lock groups formed or ended.\n" : szText + szRest;
}

std::string QuoteCsv(const std::string& rszText)
{
    std::string szQuoted = "\"";
    for (const char cByte : rszText)
    {
        szQuoted += cByte == '"' ? "\"\"" : std::string(1, cByte);
    }
    return szQuoted + "\"";
}

CJson ToJson(const SReportStream& roStream)
{
    CJson oJson;
    oJson["stream"] = StreamId_Print(roStream.oKey);
    oJson["name"] = roStream.oTexts.szName;
    oJson["standard"] = roStream.oTexts.szStandard;
    oJson["format"] = roStream.oTexts.szFormat;
    oJson["watched_seconds"] = roStream.flWatchedSeconds;
    oJson["running_seconds"] = roStream.flRunningSeconds;
    oJson["fields"] = roStream.uiFields;
    oJson["fields_lost"] = roStream.uiLost;
    oJson["fields_unobserved"] = roStream.uiUnobserved;
    oJson["buffers_skipped"] = roStream.uiSkipped;
    oJson["signal_losses"] = roStream.uiSignalLosses;
    oJson["worst_gap_seconds"] = roStream.flWorstGapSeconds;
    oJson["rate"] = WatchJson_FromEstimate(roStream.oRateHz, "hz", "stderr_hz");
    oJson["drift_per_hour"] = WatchJson_FromEstimate(roStream.oDriftPerHour, "ratio", "stderr_ratio");
    oJson["pacing"] = HealthJson_FromPacing(roStream.oPacing);
    return oJson;
}

CJson ToJson(const SReportHour& roHour)
{
    CJson oJson;
    oJson["utc"] = WatchTexts_GetUtc(roHour.iUtcNs);
    oJson["events"] = roHour.uiEvents;
    oJson["signal_losses"] = roHour.uiSignalLosses;
    oJson["fields_lost"] = roHour.uiFieldsLost;
    oJson["fields_unobserved"] = roHour.uiFieldsUnobserved;
    oJson["lock_changes"] = roHour.uiLockChanges;
    return oJson;
}

CJson ToJson(const SReportOutage& roOutage)
{
    CJson oJson;
    oJson["stream"] = StreamId_Print(roOutage.oKey);
    oJson["from"] = WatchTexts_GetUtc(roOutage.iFromUtcNs);
    oJson["to"] = WatchTexts_GetUtc(roOutage.iToUtcNs);
    oJson["fields_lost"] = roOutage.uiFields;
    oJson["lasts"] = roOutage.bIsOpen;
    return oJson;
}

CJson ToJson(const SReportLock& roLock)
{
    CJson oJson;
    oJson["direction"] = StreamId_GetDirection(roLock.oOf.eDirection);
    oJson["members"] = StreamId_PrintMembers(roLock.oOf, roLock.uiMembers);
    oJson["from"] = WatchTexts_GetUtc(roLock.iFromUtcNs);
    oJson["to"] = WatchTexts_GetUtc(roLock.iToUtcNs);
    oJson["lasts"] = roLock.bIsOpen;
    return oJson;
}

CJson ToJson(const SStoreRun& roRun)
{
    CJson oJson;
    oJson["host"] = roRun.szHost;
    oJson["board"] = roRun.szBoard;
    oJson["from"] = WatchTexts_GetUtc(roRun.iBeginUtcNs);
    oJson["to"] = WatchTexts_GetUtc(roRun.iEndUtcNs);
    oJson["closed"] = roRun.eEnd == ERunEnd::CLOSED;
    return oJson;
}

CJson ToJson(const SIncident& roIncident)
{
    return HealthJson_FromIncident(roIncident);
}

template <typename TRecord> CJson ToArray(const std::vector<TRecord>& raoRecords)
{
    CJson oArray = CJson::array();
    for (const TRecord& roRecord : raoRecords)
    {
        oArray.push_back(ToJson(roRecord));
    }
    return oArray;
}

} // namespace

std::string ReportPrint_Table(const SReport& roReport)
{
    return PrintHead(roReport) + PrintIncidents(roReport) + PrintOutages(roReport) + PrintStreams(roReport) +
           PrintPacing(roReport) + PrintHours(roReport) + PrintLocks(roReport);
}

std::string ReportPrint_Csv(const SReport& roReport)
{
    std::string szText = "stream,name,watched_seconds,running_seconds,fields,fields_lost,fields_unobserved,"
                         "buffers_skipped,signal_losses,worst_gap_seconds,rate_hz,rate_stderr_hz,drift_per_hour,"
                         "drift_stderr_per_hour,pacing_p50_seconds,pacing_p95_seconds,pacing_p99_seconds,"
                         "pacing_p999_seconds,pacing_worst_seconds\r\n";
    for (const SReportStream& roStream : roReport.aoStreams)
    {
        szText +=
            StreamId_Print(roStream.oKey) + "," + QuoteCsv(roStream.oTexts.szName) +
            TextFormat_Print(",%.3f,%.3f,%llu,%llu,%llu,%llu,%llu,%.6f", roStream.flWatchedSeconds,
                             roStream.flRunningSeconds, static_cast<unsigned long long>(roStream.uiFields),
                             static_cast<unsigned long long>(roStream.uiLost),
                             static_cast<unsigned long long>(roStream.uiUnobserved),
                             static_cast<unsigned long long>(roStream.uiSkipped),
                             static_cast<unsigned long long>(roStream.uiSignalLosses), roStream.flWorstGapSeconds);
        for (const SEstimate* poEstimate : {&roStream.oRateHz, &roStream.oDriftPerHour})
        {
            szText += poEstimate->bIsValid ? TextFormat_Print(",%.12g,%.6g", poEstimate->flValue, poEstimate->flStdErr)
                                           : ",,";
        }
        const SPacingFigures oFigures = Pacing_GetFigures(roStream.oPacing);
        szText += oFigures.uiCount == 0
                      ? ",,,,,\r\n"
                      : TextFormat_Print(",%.4g,%.4g,%.4g,%.4g,%.4g\r\n", oFigures.flP50, oFigures.flP95,
                                         oFigures.flP99, oFigures.flP999, roStream.oPacing.oWorst.flSeconds);
    }
    return szText;
}

std::string ReportPrint_Json(const SReport& roReport)
{
    CJson oJson;
    oJson["from"] = WatchTexts_GetUtc(roReport.iFromUtcNs);
    oJson["to"] = WatchTexts_GetUtc(roReport.iToUtcNs);
    oJson["runs"] = ToArray(roReport.aoRuns);
    oJson["incidents"] = ToArray(roReport.aoIncidents);
    oJson["outages"] = ToArray(roReport.aoOutages);
    oJson["streams"] = ToArray(roReport.aoStreams);
    oJson["hours"] = ToArray(roReport.aoHours);
    oJson["locks"] = ToArray(roReport.aoLocks);
    return WatchJson_Print(oJson) + "\n";
}
