#include "ReportPrint.h"

#include <cmath>
#include <nlohmann/json.hpp>

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

std::string GetDrift(const SEstimate& roDrift)
{
    return roDrift.bIsValid ? TextFormat_Print("%+.2f +/- %.2f", roDrift.flValue * 1e9, roDrift.flStdErr * 1e9) : "-";
}

std::string GetMembers(const SReportLock& roLock)
{
    std::string szMembers;
    for (const std::string& rszMember : StreamId_PrintMembers(roLock.eDirection, roLock.uiMembers))
    {
        szMembers += (szMembers.empty() ? "" : ", ") + rszMember;
    }
    return szMembers;
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
    for (const SStoreRun& roRun : roReport.aoRuns)
    {
        szText += "Watched on " + roRun.szHost + " from " + GetMoment(roRun.iBeginUtcNs) + " to " +
                  GetMoment(roRun.iEndUtcNs) + GetEnd(roRun.eEnd) + "\n";
    }
    return szText + (roReport.aoRuns.empty() ? "Nothing was watched in this time.\n" : "");
}

std::string PrintStreams(const SReport& roReport)
{
    std::string szText = TextFormat_Print("\n%-7s %-18s %13s %12s %8s %13s %13s %18s\n", "STREAM", "NAME", "WATCHED",
                                          "AVAILABLE", "LOST", "WORST GAP", "RATE Hz", "DRIFT ppb per h");
    for (const SReportStream& roStream : roReport.aoStreams)
    {
        szText +=
            TextFormat_Print("%-7s %-18.18s %13s %12s %8llu %13s ", StreamId_Print(roStream.oKey).c_str(),
                             roStream.oTexts.szName.c_str(), GetLength(roStream.flWatchedSeconds).c_str(),
                             GetAvailability(roStream).c_str(), static_cast<unsigned long long>(roStream.uiLost),
                             roStream.flWorstGapSeconds > 0.0 ? GetLength(roStream.flWorstGapSeconds).c_str() : "-");
        szText += TextFormat_Print(
            "%13s %18s\n", roStream.oRateHz.bIsValid ? TextFormat_Print("%.6f", roStream.oRateHz.flValue).c_str() : "-",
            GetDrift(roStream.oDriftPerHour).c_str());
    }
    return szText;
}

std::string PrintHours(const SReport& roReport)
{
    std::string szText = TextFormat_Print("\n%-17s %8s %14s %12s %18s %12s\n", "EVENTS PER HOUR", "EVENTS",
                                          "SIGNAL LOSSES", "FIELDS LOST", "FIELDS UNOBSERVED", "LOCK CHANGES");
    for (const SReportHour& roHour : roReport.aoHours)
    {
        szText += TextFormat_Print(
            "%-17s %8llu %14llu %12llu %18llu %12llu\n", GetMoment(roHour.iUtcNs).substr(0, 16).c_str(),
            static_cast<unsigned long long>(roHour.uiEvents), static_cast<unsigned long long>(roHour.uiSignalLosses),
            static_cast<unsigned long long>(roHour.uiFieldsLost),
            static_cast<unsigned long long>(roHour.uiFieldsUnobserved),
            static_cast<unsigned long long>(roHour.uiLockChanges));
    }
    return roReport.aoHours.empty() ? "\nNo events.\n" : szText;
}

std::string PrintLocks(const SReport& roReport)
{
    std::string szText = "\nLOCK GROUPS\n";
    for (const SReportLock& roLock : roReport.aoLocks)
    {
        szText += GetMoment(roLock.iFromUtcNs) + "  for " +
                  TextFormat_Print("%13s",
                                   GetLength(static_cast<double>(roLock.iToUtcNs - roLock.iFromUtcNs) * 1e-9).c_str()) +
                  (roLock.bIsOpen ? " (to the end)  " : "  ") + GetMembers(roLock) + "\n";
    }
    return roReport.aoLocks.empty() ? "\nNo lock groups formed or ended.\n" : szText;
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

CJson ToJson(const SReportLock& roLock)
{
    CJson oJson;
    oJson["direction"] = WatchTexts_GetDirection(roLock.eDirection);
    oJson["members"] = StreamId_PrintMembers(roLock.eDirection, roLock.uiMembers);
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
    return PrintHead(roReport) + PrintStreams(roReport) + PrintHours(roReport) + PrintLocks(roReport);
}

std::string ReportPrint_Csv(const SReport& roReport)
{
    std::string szText = "stream,name,watched_seconds,running_seconds,fields,fields_lost,fields_unobserved,"
                         "buffers_skipped,signal_losses,worst_gap_seconds,rate_hz,rate_stderr_hz,drift_per_hour,"
                         "drift_stderr_per_hour\r\n";
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
        szText += "\r\n";
    }
    return szText;
}

std::string ReportPrint_Json(const SReport& roReport)
{
    CJson oJson;
    oJson["from"] = WatchTexts_GetUtc(roReport.iFromUtcNs);
    oJson["to"] = WatchTexts_GetUtc(roReport.iToUtcNs);
    oJson["runs"] = ToArray(roReport.aoRuns);
    oJson["streams"] = ToArray(roReport.aoStreams);
    oJson["hours"] = ToArray(roReport.aoHours);
    oJson["locks"] = ToArray(roReport.aoLocks);
    return WatchJson_Print(oJson) + "\n";
}
