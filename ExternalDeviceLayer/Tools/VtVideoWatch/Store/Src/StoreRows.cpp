#include "StoreRows.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <type_traits>

namespace
{

template <typename TRow> struct SColumn
{
    const char* szName;
    const char* szType;
    void (*oBind)(CStoreStatement& roStatement, const TRow& roRow);
    void (*oRead)(CStoreStatement& roStatement, TRow& roRow);
    int64_t iSince = 1; // the first layout that has it; in older ones it reads as NULL
};

template <typename TValue> void BindValue(CStoreStatement& roStatement, TValue oValue)
{
    if constexpr (std::is_enum_v<TValue>)
    {
        roStatement.Bind(static_cast<int64_t>(oValue));
    }
    else if constexpr (std::is_floating_point_v<TValue>)
    {
        roStatement.Bind(static_cast<double>(oValue));
    }
    else if constexpr (std::is_same_v<TValue, bool> || std::is_same_v<TValue, uint16_t>)
    {
        roStatement.Bind(int64_t{oValue});
    }
    else
    {
        roStatement.Bind(oValue);
    }
}

template <typename TValue> void ReadValue(CStoreStatement& roStatement, TValue& roValue)
{
    if constexpr (std::is_same_v<TValue, EStreamDirection>)
    {
        roValue = roStatement.GetInt() == 0 ? EStreamDirection::INPUT : EStreamDirection::OUTPUT;
    }
    else if constexpr (std::is_enum_v<TValue>)
    {
        // A value that a damaged or foreign row may carry must not leave the enumeration.
        const int64_t iValue = roStatement.GetInt();
        const bool bIsKnown = iValue >= 0 && iValue < static_cast<int64_t>(TValue::COUNT);
        roValue = bIsKnown ? static_cast<TValue>(iValue) : TValue{};
    }
    else if constexpr (std::is_floating_point_v<TValue>)
    {
        roValue = static_cast<TValue>(roStatement.GetDouble());
    }
    else
    {
        roValue = static_cast<TValue>(roStatement.GetInt());
    }
}

// A member of a record; fnGet has no state and gives a reference to it.
template <typename TRow, typename TGet> constexpr SColumn<TRow> Of(const char* szName, TGet /*fnGet*/)
{
    using Value = std::remove_cvref_t<decltype(TGet{}(std::declval<TRow&>()))>;
    return {szName, std::is_floating_point_v<Value> ? "REAL" : "INTEGER NOT NULL",
            [](CStoreStatement& roStatement, const TRow& roRow) { BindValue<Value>(roStatement, TGet{}(roRow)); },
            [](CStoreStatement& roStatement, TRow& roRow) { ReadValue<Value>(roStatement, TGet{}(roRow)); }};
}

// The value of an estimate: NULL when it is not known, as a number that is none becomes.
template <typename TRow, typename TGet> constexpr SColumn<TRow> ValueOf(const char* szName, TGet /*fnGet*/)
{
    return {szName, "REAL",
            [](CStoreStatement& roStatement, const TRow& roRow)
            {
                const SEstimate& roEstimate = TGet{}(roRow);
                roStatement.Bind(roEstimate.bIsValid ? roEstimate.flValue : std::numeric_limits<double>::quiet_NaN());
            },
            [](CStoreStatement& roStatement, TRow& roRow)
            {
                TGet{}(roRow).bIsValid = !roStatement.IsNextNull();
                TGet{}(roRow).flValue = roStatement.GetDouble();
            }};
}

// Its standard error, likewise.
template <typename TRow, typename TGet> constexpr SColumn<TRow> ErrorOf(const char* szName, TGet /*fnGet*/)
{
    return {szName, "REAL",
            [](CStoreStatement& roStatement, const TRow& roRow)
            {
                const SEstimate& roEstimate = TGet{}(roRow);
                roStatement.Bind(roEstimate.bIsValid ? roEstimate.flStdErr : std::numeric_limits<double>::quiet_NaN());
            },
            [](CStoreStatement& roStatement, TRow& roRow) { TGet{}(roRow).flStdErr = roStatement.GetDouble(); }};
}

// A column that older layouts lack: their rows have the default.
template <typename TRow> constexpr SColumn<TRow> Later(SColumn<TRow> oColumn, int64_t iSince = 4)
{
    oColumn.szType =
        std::string_view(oColumn.szType) == "INTEGER NOT NULL" ? "INTEGER NOT NULL DEFAULT 0" : oColumn.szType;
    oColumn.iSince = iSince;
    return oColumn;
}

// A figure that is negative where it is not known: NULL then.
template <typename TRow, typename TGet> constexpr SColumn<TRow> KnownOf(const char* szName, TGet /*fnGet*/)
{
    return {szName, "REAL",
            [](CStoreStatement& roStatement, const TRow& roRow)
            {
                const auto flValue = static_cast<double>(TGet{}(roRow));
                roStatement.Bind(flValue < 0.0 ? std::numeric_limits<double>::quiet_NaN() : flValue);
            },
            [](CStoreStatement& roStatement, TRow& roRow)
            {
                const bool bIsKnown = !roStatement.IsNextNull();
                const double flValue = roStatement.GetDouble();
                TGet{}(roRow) = static_cast<float>(bIsKnown ? flValue : -1.0);
            }};
}

// The bins of a histogram that hold something: the bin's number in a byte, its count in bytes of seven bits, the lowest
// first, all but the last with the highest bit set.
std::vector<uint8_t> PackBins(const SPacingHistogram& roPacing)
{
    std::vector<uint8_t> auiBytes;
    for (uint32_t uiBin = 0; uiBin < uiPacingBins; ++uiBin)
    {
        uint64_t uiCount = roPacing.auiCounts[uiBin];
        if (uiCount == 0)
        {
            continue;
        }
        auiBytes.push_back(static_cast<uint8_t>(uiBin));
        for (; uiCount > 0x7F; uiCount >>= 7)
        {
            auiBytes.push_back(static_cast<uint8_t>(uiCount | 0x80U));
        }
        auiBytes.push_back(static_cast<uint8_t>(uiCount));
    }
    return auiBytes;
}

// Of a damaged row what can be read.
void UnpackBins(std::span<const uint8_t> auiBytes, SPacingHistogram& roPacing)
{
    for (size_t uiByte = 0; uiByte + 1 < auiBytes.size();)
    {
        const uint8_t uiBin = auiBytes[uiByte++];
        uint64_t uiCount = 0;
        uint32_t uiShift = 0;
        bool bGoesOn = true;
        while (bGoesOn && uiByte < auiBytes.size() && uiShift < 63)
        {
            bGoesOn = (auiBytes[uiByte] & 0x80U) != 0;
            uiCount |= uint64_t{auiBytes[uiByte++] & 0x7FU} << uiShift;
            uiShift += 7;
        }
        if (uiBin < uiPacingBins)
        {
            roPacing.auiCounts[uiBin] = uiCount;
        }
    }
}

// The streams of several chips: of each direction that has some its place in the row, and their bits in four bytes, the
// lowest first. Those of one chip have columns of their own.
std::vector<uint8_t> PackOthers(const StreamBits& rauiStreams)
{
    std::vector<uint8_t> auiBytes;
    for (size_t uiSlot = 2; uiSlot < rauiStreams.size(); ++uiSlot)
    {
        if (rauiStreams[uiSlot] != 0)
        {
            auiBytes.push_back(static_cast<uint8_t>(uiSlot));
            for (uint32_t uiByte = 0; uiByte < 4; ++uiByte)
            {
                auiBytes.push_back(static_cast<uint8_t>(rauiStreams[uiSlot] >> 8 * uiByte));
            }
        }
    }
    return auiBytes;
}

void UnpackOthers(std::span<const uint8_t> auiBytes, StreamBits& rauiStreams)
{
    for (size_t uiByte = 0; uiByte + 5 <= auiBytes.size(); uiByte += 5)
    {
        for (uint32_t uiPart = 0; uiPart < 4 && auiBytes[uiByte] < rauiStreams.size(); ++uiPart)
        {
            rauiStreams[auiBytes[uiByte]] |= uint32_t{auiBytes[uiByte + 1 + uiPart]} << 8 * uiPart;
        }
    }
}

using E = SWatchEvent;
using M = SMinuteSummary;

// The column of a stream: its index, and what chip it is of.
uint32_t GetStreamNumber(const SStreamKey& roKey)
{
    return roKey.uiChip * uiMaxStreamsPerDirection + roKey.uiIndex;
}

void SetStreamNumber(SStreamKey& roKey, uint32_t uiNumber)
{
    roKey.uiChip = std::min(uiNumber / uiMaxStreamsPerDirection, uiMaxChips);
    roKey.uiIndex = uiNumber % uiMaxStreamsPerDirection;
}

// fnGet gives the key of the stream.
template <typename TRow, typename TGet> constexpr SColumn<TRow> StreamOf(TGet /*fnGet*/)
{
    return {"stream", "INTEGER NOT NULL",
            [](CStoreStatement& roStatement, const TRow& roRow) { roStatement.Bind(GetStreamNumber(TGet{}(roRow))); },
            [](CStoreStatement& roStatement, TRow& roRow) { SetStreamNumber(TGet{}(roRow), roStatement.GetUint32()); }};
}

template <typename TRow> constexpr std::array<SColumn<TRow>, 0> aoColumns = {};

template <>
constexpr std::array aoColumns<E> = {
    Of<E>(
        "number", [](auto& roEvent) -> auto& { return roEvent.uiNumber; }),
    Of<E>(
        "utc_ns", [](auto& roEvent) -> auto& { return roEvent.iUtcNs; }),
    Of<E>(
        "tick", [](auto& roEvent) -> auto& { return roEvent.uiTick; }),
    Of<E>(
        "kind", [](auto& roEvent) -> auto& { return roEvent.eKind; }),
    Of<E>(
        "direction", [](auto& roEvent) -> auto& { return roEvent.oKey.eDirection; }),
    StreamOf<E>([](auto& roEvent) -> auto& { return roEvent.oKey; }),
    Of<E>(
        "count", [](auto& roEvent) -> auto& { return roEvent.uiCount; }),
    Of<E>(
        "value_before", [](auto& roEvent) -> auto& { return roEvent.uiBefore; }),
    Of<E>(
        "value_after", [](auto& roEvent) -> auto& { return roEvent.uiAfter; }),
    Of<E>(
        "real_before", [](auto& roEvent) -> auto& { return roEvent.flBefore; }),
    Of<E>(
        "real_after", [](auto& roEvent) -> auto& { return roEvent.flAfter; }),
    Of<E>(
        "seconds", [](auto& roEvent) -> auto& { return roEvent.flSeconds; }),
    Of<E>(
        "lock_group", [](auto& roEvent) -> auto& { return roEvent.uiGroup; }),
    Of<E>(
        "members", [](auto& roEvent) -> auto& { return roEvent.uiMembers; }),
};

template <>
constexpr std::array aoColumns<M> = {
    Of<M>(
        "direction", [](auto& roMinute) -> auto& { return roMinute.oKey.eDirection; }),
    StreamOf<M>([](auto& roMinute) -> auto& { return roMinute.oKey; }),
    Of<M>(
        "utc_ns", [](auto& roMinute) -> auto& { return roMinute.oPoint.iUtcNs; }),
    Of<M>(
        "points", [](auto& roMinute) -> auto& { return roMinute.uiPoints; }),
    Of<M>(
        "rate_points", [](auto& roMinute) -> auto& { return roMinute.uiRatePoints; }),
    Of<M>(
        "phase_points", [](auto& roMinute) -> auto& { return roMinute.uiPhasePoints; }),
    Of<M>(
        "fields", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiFields; }),
    Of<M>(
        "observed", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiObserved; }),
    Of<M>(
        "lost", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiLost; }),
    Of<M>(
        "unobserved", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiUnobserved; }),
    Of<M>(
        "skipped", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiSkipped; }),
    Of<M>(
        "watched_s", [](auto& roMinute) -> auto& { return roMinute.flWatchedSeconds; }),
    Of<M>(
        "running_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.flRunningSeconds; }),
    ValueOf<M>(
        "rate_hz", [](auto& roMinute) -> auto& { return roMinute.oPoint.oRateHz; }),
    ErrorOf<M>(
        "rate_stderr_hz", [](auto& roMinute) -> auto& { return roMinute.oPoint.oRateHz; }),
    ValueOf<M>(
        "phase_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.oPhaseSeconds; }),
    ErrorOf<M>(
        "phase_stderr_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.oPhaseSeconds; }),
    Of<M>(
        "phase_min_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.flPhaseMinSeconds; }),
    Of<M>(
        "phase_max_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.flPhaseMaxSeconds; }),
    ValueOf<M>(
        "drift", [](auto& roMinute) -> auto& { return roMinute.oPoint.oDriftRatio; }),
    ErrorOf<M>(
        "drift_stderr", [](auto& roMinute) -> auto& { return roMinute.oPoint.oDriftRatio; }),
    Of<M>(
        "jitter_rms_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.flJitterRmsSeconds; }),
    Of<M>(
        "lock", [](auto& roMinute) -> auto& { return roMinute.oPoint.eLock; }),
    Of<M>(
        "state", [](auto& roMinute) -> auto& { return roMinute.oPoint.eState; }),
    Later(Of<M>(
        "repeated", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiRepeated; })),
    Later(Of<M>(
        "cadence", [](auto& roMinute) -> auto& { return roMinute.oPoint.uiCadence; })),
    Later(Of<M>(
        "queue_points", [](auto& roMinute) -> auto& { return roMinute.uiQueuePoints; })),
    Later(KnownOf<M>(
        "ready", [](auto& roMinute) -> auto& { return roMinute.oPoint.oReady.flMean; })),
    Later(Of<M>(
        "ready_least", [](auto& roMinute) -> auto& { return roMinute.oPoint.oReady.uiLeast; })),
    Later(Of<M>(
        "ready_most", [](auto& roMinute) -> auto& { return roMinute.oPoint.oReady.uiMost; })),
    Later(KnownOf<M>(
        "loaned", [](auto& roMinute) -> auto& { return roMinute.oPoint.oLoaned.flMean; })),
    Later(Of<M>(
        "loaned_least", [](auto& roMinute) -> auto& { return roMinute.oPoint.oLoaned.uiLeast; })),
    Later(Of<M>(
        "loaned_most", [](auto& roMinute) -> auto& { return roMinute.oPoint.oLoaned.uiMost; })),
    Later(KnownOf<M>(
        "internal", [](auto& roMinute) -> auto& { return roMinute.oPoint.oInternal.flMean; })),
    Later(Of<M>(
        "internal_least", [](auto& roMinute) -> auto& { return roMinute.oPoint.oInternal.uiLeast; })),
    Later(Of<M>(
        "internal_most", [](auto& roMinute) -> auto& { return roMinute.oPoint.oInternal.uiMost; })),
    Later(Of<M>(
        "held_points", [](auto& roMinute) -> auto& { return roMinute.uiHeldPoints; })),
    Later(KnownOf<M>(
        "held_s", [](auto& roMinute) -> auto& { return roMinute.oPoint.flHeldSeconds; })),
    Later(SColumn<M>{"pacing", "BLOB",
                     [](CStoreStatement& roStatement, const M& roMinute)
                     { roStatement.Bind(std::span<const uint8_t>(PackBins(roMinute.oPacing))); },
                     [](CStoreStatement& roStatement, M& roMinute)
                     { UnpackBins(roStatement.GetBytes(), roMinute.oPacing); }}),
    Later(Of<M>(
        "pacing_worst_s", [](auto& roMinute) -> auto& { return roMinute.oPacing.oWorst.flSeconds; })),
    Later(Of<M>(
        "pacing_worst_ns", [](auto& roMinute) -> auto& { return roMinute.oPacing.oWorst.iUtcNs; })),
};

using I = SIncident;

template <>
constexpr std::array aoColumns<I> = {
    Of<I>(
        "number", [](auto& roIs) -> auto& { return roIs.uiNumber; }),
    Of<I>(
        "begin_ns", [](auto& roIs) -> auto& { return roIs.iBeginUtcNs; }),
    Of<I>(
        "end_ns", [](auto& roIs) -> auto& { return roIs.iEndUtcNs; }),
    Of<I>(
        "domain", [](auto& roIs) -> auto& { return roIs.eDomain; }),
    Of<I>(
        "status", [](auto& roIs) -> auto& { return roIs.eWorst; }),
    Of<I>(
        "direction", [](auto& roIs) -> auto& { return roIs.oFirstStream.eDirection; }),
    StreamOf<I>([](auto& roIs) -> auto& { return roIs.oFirstStream; }),
    Of<I>(
        "inputs", [](auto& roIs) -> auto& { return roIs.auiStreams[0]; }),
    Of<I>(
        "outputs", [](auto& roIs) -> auto& { return roIs.auiStreams[1]; }),
    Of<I>(
        "shared", [](auto& roIs) -> auto& { return roIs.eShared; }),
    Of<I>(
        "is_whole", [](auto& roIs) -> auto& { return roIs.bIsWhole; }),
    Of<I>(
        "is_together", [](auto& roIs) -> auto& { return roIs.bIsTogether; }),
    Of<I>(
        "spread_s", [](auto& roIs) -> auto& { return roIs.flSpreadSeconds; }),
    Of<I>(
        "stood_s", [](auto& roIs) -> auto& { return roIs.flStoodSeconds; }),
    Of<I>(
        "lost", [](auto& roIs) -> auto& { return roIs.uiLost; }),
    Of<I>(
        "first_event", [](auto& roIs) -> auto& { return roIs.uiFirstEvent; }),
    Of<I>(
        "reason", [](auto& roIs) -> auto& { return roIs.oFirst.eReason; }),
    Of<I>(
        "reason_count", [](auto& roIs) -> auto& { return roIs.oFirst.uiCount; }),
    Of<I>(
        "reason_member", [](auto& roIs) -> auto& { return roIs.oFirst.uiMember; }),
    Of<I>(
        "reason_before", [](auto& roIs) -> auto& { return roIs.oFirst.uiBefore; }),
    Of<I>(
        "reason_after", [](auto& roIs) -> auto& { return roIs.oFirst.uiAfter; }),
    Of<I>(
        "reason_value", [](auto& roIs) -> auto& { return roIs.oFirst.flValue; }),
    Later(SColumn<I>{"others", "BLOB",
                     [](CStoreStatement& roStatement, const I& roIs)
                     { roStatement.Bind(std::span<const uint8_t>(PackOthers(roIs.auiStreams))); },
                     [](CStoreStatement& roStatement, I& roIs)
                     { UnpackOthers(roStatement.GetBytes(), roIs.auiStreams); }},
          5),
};

// What every column is said by, with commas between.
template <typename TRow, typename TSay> std::string Join(TSay fnSay)
{
    std::string szText;
    for (const SColumn<TRow>& roColumn : aoColumns<TRow>)
    {
        szText += (szText.empty() ? "" : ", ") + fnSay(roColumn);
    }
    return szText;
}

} // namespace

template <typename TRow> std::string StoreRows_GetNames()
{
    return StoreRows_GetNames<TRow>(iStoreVersion);
}

template <typename TRow> std::string StoreRows_GetNames(int64_t iVersion)
{
    return Join<TRow>([iVersion](const SColumn<TRow>& roColumn)
                      { return (roColumn.iSince > iVersion ? "NULL AS " : "") + std::string(roColumn.szName); });
}

template <typename TRow> std::vector<std::string> StoreRows_GetLaterColumns(int64_t iVersion)
{
    std::vector<std::string> aszColumns;
    for (const SColumn<TRow>& roColumn : aoColumns<TRow>)
    {
        if (roColumn.iSince > iVersion)
        {
            aszColumns.push_back(std::string(roColumn.szName) + " " + roColumn.szType);
        }
    }
    return aszColumns;
}

template <typename TRow> std::string StoreRows_GetColumns()
{
    return Join<TRow>([](const SColumn<TRow>& roColumn)
                      { return std::string(roColumn.szName) + " " + roColumn.szType; });
}

template <typename TRow> CStoreStatement StoreRows_Insert(sqlite3* poFile, const char* szTable)
{
    const std::string szPlaces = Join<TRow>([](const SColumn<TRow>& /*roColumn*/) { return std::string("?"); });
    const std::string szSql = std::string("INSERT OR REPLACE INTO ") + szTable + "(" + StoreRows_GetNames<TRow>() +
                              ") VALUES (" + szPlaces + ")";
    return {poFile, szSql.c_str()};
}

template <typename TRow> CStoreStatement& StoreRows_Bind(CStoreStatement& roStatement, const TRow& roRow)
{
    for (const SColumn<TRow>& roColumn : aoColumns<TRow>)
    {
        roColumn.oBind(roStatement, roRow);
    }
    return roStatement;
}

template <typename TRow> TRow StoreRows_Read(CStoreStatement& roStatement)
{
    TRow oRow = {};
    if constexpr (std::is_same_v<TRow, SMinuteSummary>)
    {
        oRow.oPoint.uiSeconds = 60;
    }
    for (const SColumn<TRow>& roColumn : aoColumns<TRow>)
    {
        roColumn.oRead(roStatement, oRow);
    }
    if constexpr (std::is_same_v<TRow, SMinuteSummary>)
    {
        oRow.oPoint.oPacing = HistoryPoint_GetPacing(oRow.oPacing);
    }
    return oRow;
}

SStreamKey StoreRows_ReadKey(CStoreStatement& roStatement)
{
    SStreamKey oKey;
    ReadValue(roStatement, oKey.eDirection);
    SetStreamNumber(oKey, roStatement.GetUint32());
    return oKey;
}

CStoreStatement& StoreRows_BindKey(CStoreStatement& roStatement, const SStreamKey& roKey)
{
    return roStatement.Bind(static_cast<int64_t>(roKey.eDirection)).Bind(GetStreamNumber(roKey));
}

template std::string StoreRows_GetNames<SWatchEvent>();
template std::string StoreRows_GetNames<SMinuteSummary>();
template std::string StoreRows_GetNames<SIncident>();
template std::string StoreRows_GetNames<SMinuteSummary>(int64_t);
template std::string StoreRows_GetNames<SIncident>(int64_t);
template std::vector<std::string> StoreRows_GetLaterColumns<SMinuteSummary>(int64_t);
template std::vector<std::string> StoreRows_GetLaterColumns<SIncident>(int64_t);
template std::string StoreRows_GetColumns<SWatchEvent>();
template std::string StoreRows_GetColumns<SMinuteSummary>();
template std::string StoreRows_GetColumns<SIncident>();
template CStoreStatement StoreRows_Insert<SWatchEvent>(sqlite3*, const char*);
template CStoreStatement StoreRows_Insert<SMinuteSummary>(sqlite3*, const char*);
template CStoreStatement StoreRows_Insert<SIncident>(sqlite3*, const char*);
template CStoreStatement& StoreRows_Bind(CStoreStatement&, const SWatchEvent&);
template CStoreStatement& StoreRows_Bind(CStoreStatement&, const SMinuteSummary&);
template CStoreStatement& StoreRows_Bind(CStoreStatement&, const SIncident&);
template SWatchEvent StoreRows_Read(CStoreStatement&);
template SMinuteSummary StoreRows_Read(CStoreStatement&);
template SIncident StoreRows_Read(CStoreStatement&);
