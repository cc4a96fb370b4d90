#include "HistoryJson.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "HealthTexts.h"
#include "TimeUnits.h"
#include "WatchTexts.h"

namespace
{

// Digits that stay of a rate, whose ppm need many, and of everything else.
constexpr int iRateDigits = 12;
constexpr int iDigits = 7;

CJson FromValue(const SEstimate& roEstimate, int iKept)
{
    return roEstimate.bIsValid ? CJson(WatchJson_Round(roEstimate.flValue, iKept)) : CJson();
}

CJson FromStdErr(const SEstimate& roEstimate)
{
    return roEstimate.bIsValid ? CJson(WatchJson_Round(roEstimate.flStdErr, 3)) : CJson();
}

CJson FromKnown(bool bIsKnown, double flValue)
{
    return bIsKnown ? CJson(WatchJson_Round(flValue, 4)) : CJson();
}

CJson FromMean(const SBufferLevel& roLevel)
{
    return FromKnown(roLevel.IsKnown(), static_cast<double>(roLevel.flMean));
}

CJson FromBound(const SBufferLevel& roLevel, uint16_t uiBound)
{
    return roLevel.IsKnown() ? CJson(uiBound) : CJson();
}

CJson FromCadence(uint64_t uiCadence)
{
    return uiCadence == 0 ? CJson() : CJson(HealthTexts_GetCadence(Cadence_Unpack(uiCadence)));
}

using Point = const SHistoryPoint&;

CJson FromPacing(Point roPoint, float flSeconds)
{
    return FromKnown(roPoint.oPacing.uiFields > 0, static_cast<double>(flSeconds));
}

constexpr SHistoryColumn aoColumns[] = {
    {"seconds", [](Point roPoint) -> CJson { return roPoint.uiSeconds; }, nullptr},
    {"fields", [](Point roPoint) -> CJson { return roPoint.uiFields; }, nullptr},
    {"observed", [](Point roPoint) -> CJson { return roPoint.uiObserved; }, nullptr},
    {"lost", [](Point roPoint) -> CJson { return roPoint.uiLost; }, nullptr},
    {"unobserved", [](Point roPoint) -> CJson { return roPoint.uiUnobserved; }, nullptr},
    {"skipped", [](Point roPoint) -> CJson { return roPoint.uiSkipped; }, nullptr},
    {"repeated_beyond_cadence", [](Point roPoint) -> CJson { return roPoint.uiRepeated; }, nullptr},
    {"ready", [](Point roPoint) { return FromMean(roPoint.oReady); }, nullptr},
    {"ready_least", [](Point roPoint) { return FromBound(roPoint.oReady, roPoint.oReady.uiLeast); }, nullptr},
    {"ready_most", [](Point roPoint) { return FromBound(roPoint.oReady, roPoint.oReady.uiMost); }, nullptr},
    {"loaned", [](Point roPoint) { return FromMean(roPoint.oLoaned); }, nullptr},
    {"loaned_least", [](Point roPoint) { return FromBound(roPoint.oLoaned, roPoint.oLoaned.uiLeast); }, nullptr},
    {"loaned_most", [](Point roPoint) { return FromBound(roPoint.oLoaned, roPoint.oLoaned.uiMost); }, nullptr},
    {"internal", [](Point roPoint) { return FromMean(roPoint.oInternal); }, nullptr},
    {"internal_least", [](Point roPoint) { return FromBound(roPoint.oInternal, roPoint.oInternal.uiLeast); }, nullptr},
    {"internal_most", [](Point roPoint) { return FromBound(roPoint.oInternal, roPoint.oInternal.uiMost); }, nullptr},
    {"held",
     [](Point roPoint) { return FromKnown(roPoint.flHeldSeconds >= 0.0F, static_cast<double>(roPoint.flHeldSeconds)); },
     nullptr},
    {"cadence", [](Point roPoint) { return FromCadence(roPoint.uiCadence); }, nullptr},
    {"pacing_p50", [](Point roPoint) { return FromPacing(roPoint, roPoint.oPacing.flP50); }, nullptr},
    {"pacing_p95", [](Point roPoint) { return FromPacing(roPoint, roPoint.oPacing.flP95); }, nullptr},
    {"pacing_p99", [](Point roPoint) { return FromPacing(roPoint, roPoint.oPacing.flP99); }, nullptr},
    {"pacing_p999", [](Point roPoint) { return FromPacing(roPoint, roPoint.oPacing.flP999); }, nullptr},
    {"pacing_worst", [](Point roPoint) { return FromPacing(roPoint, roPoint.oPacing.flWorst); }, nullptr},
    {"running", [](Point roPoint) -> CJson { return WatchJson_Round(roPoint.flRunningSeconds, iDigits); }, nullptr},
    {"rate", [](Point roPoint) { return FromValue(roPoint.oRateHz, iRateDigits); }, "rate_stderr"},
    {"rate_stderr", [](Point roPoint) { return FromStdErr(roPoint.oRateHz); }, nullptr},
    {"phase", [](Point roPoint) { return FromValue(roPoint.oPhaseSeconds, iDigits); }, "phase_stderr"},
    {"phase_stderr", [](Point roPoint) { return FromStdErr(roPoint.oPhaseSeconds); }, nullptr},
    {"phase_min",
     [](Point roPoint)
     { return roPoint.oPhaseSeconds.bIsValid ? CJson(WatchJson_Round(roPoint.flPhaseMinSeconds, iDigits)) : CJson(); },
     nullptr},
    {"phase_max",
     [](Point roPoint)
     { return roPoint.oPhaseSeconds.bIsValid ? CJson(WatchJson_Round(roPoint.flPhaseMaxSeconds, iDigits)) : CJson(); },
     nullptr},
    {"drift", [](Point roPoint) { return FromValue(roPoint.oDriftRatio, iDigits); }, "drift_stderr"},
    {"drift_stderr", [](Point roPoint) { return FromStdErr(roPoint.oDriftRatio); }, nullptr},
    {"jitter", [](Point roPoint) -> CJson { return WatchJson_Round(roPoint.flJitterRmsSeconds, 4); }, nullptr},
    {"lock", [](Point roPoint) -> CJson { return WatchTexts_GetLock(roPoint.eLock); }, nullptr},
    {"state", [](Point roPoint) -> CJson { return WatchTexts_GetState(roPoint.eState); }, nullptr},
};

const SHistoryColumn* FindColumn(std::string_view szName)
{
    const auto* poColumn =
        std::ranges::find_if(aoColumns, [&](const SHistoryColumn& roColumn) { return szName == roColumn.szName; });
    return poColumn == std::end(aoColumns) ? nullptr : poColumn;
}

} // namespace

std::vector<const SHistoryColumn*> HistoryJson_FindColumns(CApiQuery& roQuery)
{
    std::vector<const SHistoryColumn*> apoColumns;
    const auto Add = [&](const SHistoryColumn* poColumn)
    {
        if (std::ranges::find(apoColumns, poColumn) == apoColumns.end())
        {
            apoColumns.push_back(poColumn);
        }
    };
    for (const std::string& rszName : roQuery.GetList("fields"))
    {
        const SHistoryColumn* poColumn = FindColumn(rszName);
        if (poColumn == nullptr)
        {
            roQuery.SetProblem("parameter fields: there is no field \"" + rszName + "\"");
            return {};
        }
        Add(poColumn);
        if (poColumn->szWith != nullptr)
        {
            Add(FindColumn(poColumn->szWith));
        }
    }
    if (!roQuery.Has("fields"))
    {
        for (const SHistoryColumn& roColumn : aoColumns)
        {
            apoColumns.push_back(&roColumn);
        }
    }
    return apoColumns;
}

void HistoryJson_AddColumns(CJson& roJson, std::span<const SHistoryPoint> aoPoints,
                            std::span<const SHistoryColumn* const> apoColumns)
{
    CJson oMoments = CJson::array();
    for (const SHistoryPoint& roPoint : aoPoints)
    {
        oMoments.push_back(roPoint.iUtcNs / iNsPerMillisecond);
    }
    roJson["t"] = std::move(oMoments);
    for (const SHistoryColumn* poColumn : apoColumns)
    {
        CJson oValues = CJson::array();
        for (const SHistoryPoint& roPoint : aoPoints)
        {
            oValues.push_back(poColumn->oGet(roPoint));
        }
        roJson[poColumn->szName] = std::move(oValues);
    }
}
