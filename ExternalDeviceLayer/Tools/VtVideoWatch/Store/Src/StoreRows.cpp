#include "StoreRows.h"

#include <limits>

namespace
{

// A value that a damaged or foreign row may carry must not leave the enumeration.
template <typename TEnum> TEnum ReadEnum(CStoreStatement& roStatement)
{
    const int64_t iValue = roStatement.GetInt();
    return iValue >= 0 && iValue < static_cast<int64_t>(TEnum::COUNT) ? static_cast<TEnum>(iValue) : TEnum{};
}

void BindEstimate(CStoreStatement& roStatement, const SEstimate& roEstimate)
{
    // A number that is none becomes NULL, and so does what is not known.
    constexpr double flNone = std::numeric_limits<double>::quiet_NaN();
    roStatement.Bind(roEstimate.bIsValid ? roEstimate.flValue : flNone);
    roStatement.Bind(roEstimate.bIsValid ? roEstimate.flStdErr : flNone);
}

SEstimate ReadEstimate(CStoreStatement& roStatement)
{
    SEstimate oEstimate;
    oEstimate.bIsValid = !roStatement.IsNextNull();
    oEstimate.flValue = roStatement.GetDouble();
    oEstimate.flStdErr = roStatement.GetDouble();
    return oEstimate;
}

template <typename TEnum> int64_t ToNumber(TEnum eValue)
{
    return static_cast<int64_t>(eValue);
}

} // namespace

std::string StoreRows_GetPlaces(int iColumns)
{
    std::string szPlaces = "(?";
    for (int iColumn = 1; iColumn < iColumns; ++iColumn)
    {
        szPlaces += ", ?";
    }
    return szPlaces + ")";
}

SStreamKey StoreRows_ReadKey(CStoreStatement& roStatement)
{
    const bool bIsInput = roStatement.GetInt() == 0;
    return {bIsInput ? EStreamDirection::INPUT : EStreamDirection::OUTPUT, roStatement.GetUint32()};
}

void StoreRows_Bind(CStoreStatement& roStatement, const SWatchEvent& roEvent)
{
    roStatement.Bind(roEvent.uiNumber).Bind(roEvent.iUtcNs).Bind(roEvent.uiTick).Bind(ToNumber(roEvent.eKind));
    roStatement.Bind(ToNumber(roEvent.oKey.eDirection)).Bind(roEvent.oKey.uiIndex).Bind(roEvent.uiCount);
    roStatement.Bind(roEvent.uiBefore).Bind(roEvent.uiAfter).Bind(roEvent.flBefore).Bind(roEvent.flAfter);
    roStatement.Bind(roEvent.flSeconds).Bind(roEvent.uiGroup).Bind(roEvent.uiMembers);
}

SWatchEvent StoreRows_ReadEvent(CStoreStatement& roStatement)
{
    SWatchEvent oEvent = {};
    oEvent.uiNumber = roStatement.GetUint();
    oEvent.iUtcNs = roStatement.GetInt();
    oEvent.uiTick = roStatement.GetUint();
    oEvent.eKind = ReadEnum<EWatchEventKind>(roStatement);
    oEvent.oKey = StoreRows_ReadKey(roStatement);
    oEvent.uiCount = roStatement.GetUint();
    oEvent.uiBefore = roStatement.GetUint();
    oEvent.uiAfter = roStatement.GetUint();
    oEvent.flBefore = roStatement.GetDouble();
    oEvent.flAfter = roStatement.GetDouble();
    oEvent.flSeconds = roStatement.GetDouble();
    oEvent.uiGroup = roStatement.GetUint32();
    oEvent.uiMembers = roStatement.GetUint32();
    return oEvent;
}

void StoreRows_Bind(CStoreStatement& roStatement, const SMinuteSummary& roSummary)
{
    const SHistoryPoint& roPoint = roSummary.oPoint;
    roStatement.Bind(ToNumber(roSummary.oKey.eDirection)).Bind(roSummary.oKey.uiIndex).Bind(roPoint.iUtcNs);
    roStatement.Bind(roSummary.uiPoints).Bind(roSummary.uiRatePoints).Bind(roSummary.uiPhasePoints);
    roStatement.Bind(roPoint.uiFields).Bind(roPoint.uiObserved).Bind(roPoint.uiLost).Bind(roPoint.uiUnobserved);
    roStatement.Bind(roPoint.uiSkipped)
        .Bind(roSummary.flWatchedSeconds)
        .Bind(static_cast<double>(roPoint.flRunningSeconds));
    BindEstimate(roStatement, roPoint.oRateHz);
    BindEstimate(roStatement, roPoint.oPhaseSeconds);
    roStatement.Bind(roPoint.flPhaseMinSeconds).Bind(roPoint.flPhaseMaxSeconds);
    BindEstimate(roStatement, roPoint.oDriftRatio);
    roStatement.Bind(roPoint.flJitterRmsSeconds).Bind(ToNumber(roPoint.eLock)).Bind(ToNumber(roPoint.eState));
}

SMinuteSummary StoreRows_ReadMinute(CStoreStatement& roStatement)
{
    SMinuteSummary oSummary;
    SHistoryPoint& roPoint = oSummary.oPoint;
    oSummary.oKey = StoreRows_ReadKey(roStatement);
    roPoint.iUtcNs = roStatement.GetInt();
    roPoint.uiSeconds = 60;
    oSummary.uiPoints = roStatement.GetUint32();
    oSummary.uiRatePoints = roStatement.GetUint32();
    oSummary.uiPhasePoints = roStatement.GetUint32();
    roPoint.uiFields = roStatement.GetUint32();
    roPoint.uiObserved = roStatement.GetUint32();
    roPoint.uiLost = roStatement.GetUint32();
    roPoint.uiUnobserved = roStatement.GetUint32();
    roPoint.uiSkipped = roStatement.GetUint32();
    oSummary.flWatchedSeconds = roStatement.GetDouble();
    roPoint.flRunningSeconds = static_cast<float>(roStatement.GetDouble());
    roPoint.oRateHz = ReadEstimate(roStatement);
    roPoint.oPhaseSeconds = ReadEstimate(roStatement);
    roPoint.flPhaseMinSeconds = roStatement.GetDouble();
    roPoint.flPhaseMaxSeconds = roStatement.GetDouble();
    roPoint.oDriftRatio = ReadEstimate(roStatement);
    roPoint.flJitterRmsSeconds = roStatement.GetDouble();
    roPoint.eLock = ReadEnum<ELockState>(roStatement);
    roPoint.eState = ReadEnum<EStreamState>(roStatement);
    return oSummary;
}
