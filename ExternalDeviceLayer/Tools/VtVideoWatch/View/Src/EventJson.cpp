#include "EventJson.h"

#include <nlohmann/json.hpp>

#include "DescriptionMembers.h"
#include "EventKinds.h"
#include "HealthTexts.h"
#include "KrvTypes.h"
#include "StreamId.h"
#include "VideoTexts.h"
#include "WatchTexts.h"

namespace
{

CJson GetFormatName(uint64_t uiFormat)
{
    VTSTR64 szName = {};
    GetPixelFormatString(static_cast<VtPixelFormat>(uiFormat), szName);
    return szName;
}

CJson FromMember(uint32_t uiMember, uint64_t uiValue)
{
    const std::string szValue = HealthTexts_GetMemberValue(uiMember, uiValue);
    if (szValue == "true" || szValue == "false")
    {
        return uiValue != 0;
    }
    return static_cast<EDescriptionMember>(uiMember) == EDescriptionMember::PIXEL_FORMAT ? CJson(szValue)
                                                                                         : CJson(uiValue);
}

CJson FromValue(const SWatchEvent& roEvent, EEventValues eMeaning, uint64_t uiValue, double flValue)
{
    switch (eMeaning)
    {
    case EEventValues::HERTZ:
        return flValue;
    case EEventValues::STATE:
        return WatchTexts_GetState(static_cast<EStreamState>(uiValue));
    case EEventValues::LOCK:
        return WatchTexts_GetLock(static_cast<ELockState>(uiValue));
    case EEventValues::FORMAT:
        return GetFormatName(uiValue);
    case EEventValues::CAPTURE:
        return WatchTexts_GetCaptureState(static_cast<VtVideoIn_State>(uiValue));
    case EEventValues::POWER:
        return WatchTexts_GetPowerState(static_cast<VtVideoOut_PowerState>(uiValue));
    case EEventValues::STREAM:
        return StreamId_Print(StreamKey_GetNeighbour(roEvent.oKey, static_cast<uint32_t>(uiValue)));
    case EEventValues::CADENCE:
        return uiValue == 0 ? CJson() : CJson(HealthTexts_GetCadence(Cadence_Unpack(uiValue)));
    case EEventValues::MEMBER:
        return FromMember(roEvent.uiGroup, uiValue);
    case EEventValues::NUMBER:
    case EEventValues::NONE:
        break;
    }
    return uiValue;
}

void AddDetails(CJson& roJson, const SWatchEvent& roEvent, const SEventKind& roKind)
{
    // Kinds that happen singly are folded when they come in bursts.
    if (roKind.bHasCount || roEvent.uiCount > 1)
    {
        roJson["count"] = roEvent.uiCount;
    }
    if (roKind.bHasSeconds)
    {
        roJson["seconds"] = roEvent.flSeconds;
    }
    if (roKind.eValues == EEventValues::MEMBER)
    {
        const auto aoMembers = DescriptionMembers_Get();
        roJson["member"] = roEvent.uiGroup < aoMembers.size() ? aoMembers[roEvent.uiGroup].szName : "unknown";
    }
    if (roKind.bIsOfIncident)
    {
        roJson["incident"] = roEvent.uiGroup;
        roJson["domain"] = HealthTexts_GetDomain(static_cast<EHealthDomain>(roEvent.uiBefore));
    }
    if (roKind.bIsOfPair)
    {
        roJson["against"] = StreamId_Print(EventStream_Unpack(roEvent.uiBefore, roEvent.oKey.uiChip));
        roJson["picture"] = WatchTexts_GetSlip(static_cast<ESlip>(roEvent.uiAfter));
    }
    if (roKind.eValues != EEventValues::NONE)
    {
        roJson["before"] = FromValue(roEvent, roKind.eValues, roEvent.uiBefore, roEvent.flBefore);
        roJson["after"] = FromValue(roEvent, roKind.eValues, roEvent.uiAfter, roEvent.flAfter);
    }
    if (roKind.bIsOfGroup)
    {
        roJson["group"] = roEvent.uiGroup;
        roJson["members"] = StreamId_PrintMembers(roEvent.oKey, roEvent.uiMembers);
    }
}

} // namespace

CJson EventJson_FromEvent(const SWatchEvent& roEvent)
{
    const SEventKind oKind = EventKind_Get(roEvent.eKind);
    CJson oJson = {{"number", roEvent.uiNumber},
                   {"utc", WatchTexts_GetUtc(roEvent.iUtcNs)},
                   {"tick", roEvent.uiTick == 0 ? CJson() : CJson(roEvent.uiTick)},
                   {"kind", oKind.szName},
                   {"stream", StreamId_Print(roEvent.oKey)},
                   {"direction", StreamId_GetDirection(roEvent.oKey.eDirection)},
                   {"index", roEvent.oKey.uiIndex}};
    AddDetails(oJson, roEvent, oKind);
    return oJson;
}

CJson EventJson_FromGroup(const SStreamKey& roOf, const SLockGroup& roGroup)
{
    return {{"group", roGroup.uiGroup},
            {"members", StreamId_PrintMembers(roOf, roGroup.uiMembers)},
            {"since", WatchTexts_GetUtc(roGroup.iSinceUtcNs)}};
}

CJson EventJson_FromGroups(EStreamDirection eDirection, const SWatchSnapshot& roSnapshot)
{
    CJson oGroups = CJson::array();
    WatchPublication_ForEachChip(roSnapshot, eDirection,
                                 [&oGroups](const SStreamKey& roOf, const SDirectionFigures& roFigures)
                                 {
                                     for (const SLockGroup& roGroup : roFigures.aoGroups)
                                     {
                                         oGroups.push_back(EventJson_FromGroup(roOf, roGroup));
                                     }
                                 });
    return oGroups;
}
