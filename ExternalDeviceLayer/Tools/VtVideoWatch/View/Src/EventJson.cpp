#include "WatchJson.h"

#include <array>

#include <nlohmann/json.hpp>

#include "KrvTypes.h"
#include "VideoTexts.h"
#include "WatchTexts.h"

namespace
{

// What the values before and after of an event are.
enum class EValueMeaning : uint8_t
{
    NONE,
    NUMBER,
    HERTZ,
    STATE,
    LOCK,
    FORMAT,
    CAPTURE,
    POWER,
    STREAM
};

// Which members an event of a kind has beyond those that all of them have.
struct SEventShape
{
    EWatchEventKind eKind;
    bool bHasCount;
    bool bHasSeconds;
    bool bHasGroup;
    EValueMeaning eValues;
};

constexpr std::array<SEventShape, 24> aoShapes = {{
    {EWatchEventKind::WATCH_BEGAN, false, false, false, EValueMeaning::NONE},
    {EWatchEventKind::WATCH_ENDED, false, false, false, EValueMeaning::NONE},
    {EWatchEventKind::STATE_CHANGED, false, false, false, EValueMeaning::STATE},
    {EWatchEventKind::SIGNAL_LOST, false, false, false, EValueMeaning::NONE},
    {EWatchEventKind::SIGNAL_BACK, false, true, false, EValueMeaning::NONE},
    {EWatchEventKind::FIELDS_LOST, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::FIELDS_UNOBSERVED, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::COUNTER_REPEATED, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::COUNTER_BACKWARD, false, false, false, EValueMeaning::NUMBER},
    {EWatchEventKind::FIELD_EARLY, true, true, false, EValueMeaning::NONE},
    {EWatchEventKind::FIELD_LATE, true, true, false, EValueMeaning::NONE},
    {EWatchEventKind::PHASE_STEPPED, false, true, false, EValueMeaning::NONE},
    {EWatchEventKind::TIMINGS_CHANGED, false, false, false, EValueMeaning::HERTZ},
    {EWatchEventKind::FORMAT_CHANGED, false, false, false, EValueMeaning::FORMAT},
    {EWatchEventKind::CAPTURE_CHANGED, false, false, false, EValueMeaning::CAPTURE},
    {EWatchEventKind::POWER_CHANGED, false, false, false, EValueMeaning::POWER},
    {EWatchEventKind::BUFFERS_SKIPPED, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::BUFFERS_REPEATED, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::BUFFERS_OVERWRITTEN, true, false, false, EValueMeaning::NONE},
    {EWatchEventKind::LOCK_CHANGED, false, false, false, EValueMeaning::LOCK},
    {EWatchEventKind::REFERENCE_CHANGED, false, false, false, EValueMeaning::STREAM},
    {EWatchEventKind::GROUP_FORMED, false, false, true, EValueMeaning::NONE},
    {EWatchEventKind::GROUP_CHANGED, false, false, true, EValueMeaning::NONE},
    {EWatchEventKind::GROUP_ENDED, false, true, true, EValueMeaning::NONE},
}};
static_assert(aoShapes.size() == static_cast<size_t>(EWatchEventKind::COUNT));

constexpr bool IsInOrder()
{
    for (size_t i = 0; i < aoShapes.size(); ++i)
    {
        if (static_cast<size_t>(aoShapes[i].eKind) != i)
        {
            return false;
        }
    }
    return true;
}
static_assert(IsInOrder());

CJson GetFormatName(uint64_t uiFormat)
{
    VTSTR64 szName = {};
    GetPixelFormatString(static_cast<VtPixelFormat>(uiFormat), szName);
    return szName;
}

CJson FromValue(const SWatchEvent& roEvent, EValueMeaning eMeaning, uint64_t uiValue, double flValue)
{
    switch (eMeaning)
    {
    case EValueMeaning::HERTZ:
        return flValue;
    case EValueMeaning::STATE:
        return WatchTexts_GetState(static_cast<EStreamState>(uiValue));
    case EValueMeaning::LOCK:
        return WatchTexts_GetLock(static_cast<ELockState>(uiValue));
    case EValueMeaning::FORMAT:
        return GetFormatName(uiValue);
    case EValueMeaning::CAPTURE:
        return WatchTexts_GetCaptureState(static_cast<VtVideoIn_State>(uiValue));
    case EValueMeaning::POWER:
        return WatchTexts_GetPowerState(static_cast<VtVideoOut_PowerState>(uiValue));
    case EValueMeaning::STREAM:
        return WatchTexts_GetStreamId(roEvent.eDirection, static_cast<uint32_t>(uiValue));
    case EValueMeaning::NUMBER:
    case EValueMeaning::NONE:
        break;
    }
    return uiValue;
}

CJson FromMembers(EStreamDirection eDirection, uint32_t uiMembers)
{
    CJson oMembers = CJson::array();
    for (uint32_t i = 0; i < uiMaxStreamsPerDirection; ++i)
    {
        if ((uiMembers >> i & 1U) != 0)
        {
            oMembers.push_back(WatchTexts_GetStreamId(eDirection, i));
        }
    }
    return oMembers;
}

void AddDetails(CJson& roJson, const SWatchEvent& roEvent, const SEventShape& roShape)
{
    // Kinds that happen singly are folded when they come in bursts.
    if (roShape.bHasCount || roEvent.uiCount > 1)
    {
        roJson["count"] = roEvent.uiCount;
    }
    if (roShape.bHasSeconds)
    {
        roJson["seconds"] = roEvent.flSeconds;
    }
    if (roShape.eValues != EValueMeaning::NONE)
    {
        roJson["before"] = FromValue(roEvent, roShape.eValues, roEvent.uiBefore, roEvent.flBefore);
        roJson["after"] = FromValue(roEvent, roShape.eValues, roEvent.uiAfter, roEvent.flAfter);
    }
    if (roShape.bHasGroup)
    {
        roJson["group"] = roEvent.uiGroup;
        roJson["members"] = FromMembers(roEvent.eDirection, roEvent.uiMembers);
    }
}

} // namespace

CJson WatchJson_FromEvent(const SWatchEvent& roEvent)
{
    CJson oJson = {{"number", roEvent.uiNumber},
                   {"utc", WatchTexts_GetUtc(roEvent.iUtcNs)},
                   {"tick", roEvent.uiTick == 0 ? CJson() : CJson(roEvent.uiTick)},
                   {"kind", WatchTexts_GetEventKind(roEvent.eKind)},
                   {"stream", WatchTexts_GetStreamId(roEvent.eDirection, roEvent.uiIndex)},
                   {"direction", WatchTexts_GetDirection(roEvent.eDirection)},
                   {"index", roEvent.uiIndex}};
    const auto uiKind = static_cast<size_t>(roEvent.eKind);
    if (uiKind < aoShapes.size())
    {
        AddDetails(oJson, roEvent, aoShapes[uiKind]);
    }
    return oJson;
}

CJson WatchJson_FromGroup(EStreamDirection eDirection, const SLockGroup& roGroup)
{
    return {{"group", roGroup.uiGroup},
            {"members", FromMembers(eDirection, roGroup.uiMembers)},
            {"since", WatchTexts_GetUtc(roGroup.iSinceUtcNs)}};
}
