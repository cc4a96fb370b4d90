#include "ScenarioChanges.h"

#include "ScenarioKeys.h"
#include "ScenarioNames.h"

namespace
{

struct SMember
{
    std::string_view szKey;
    uint32_t uiMin;
    uint32_t uiMax;
    void (*fnSet)(SStreamDescription& roDescription, uint32_t uiValue);
};

struct SFlag
{
    std::string_view szKey;
    void (*fnSet)(SStreamDescription& roDescription, uint32_t uiValue);
};

// clang-format off
constexpr std::array aoMembers = {
    SMember{"h_active", 1, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiHActive = ui; }},
    SMember{"v_active", 1, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiVActive = ui; }},
    SMember{"v_rate_hz", 0, UINT32_MAX, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiVRate_Hz = ui; }},
    SMember{"h_rate_khz", 0, UINT32_MAX, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiHRate_kHz = ui; }},
    SMember{"pixel_clock_khz", 0, UINT32_MAX, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiPixelClock_kHz = ui; }},
    SMember{"h_front_porch", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiHFPorch = ui; }},
    SMember{"h_sync", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiHSync = ui; }},
    SMember{"h_back_porch", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiHBPorch = ui; }},
    SMember{"v_front_porch", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiVFPorch = ui; }},
    SMember{"v_sync", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiVSync = ui; }},
    SMember{"v_back_porch", 0, 16384, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.uiVBPorch = ui; }},
    SMember{"color_space", 0, 15, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.fColorSpace = ui & 15U; }},
    SMember{"chroma_subsampling", 0, 3, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.fChromaSubSampling = ui & 3U; }},
    SMember{"color_depth", 0, 3, [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.fColorDepth = ui & 3U; }},
    SMember{"width", 1, 65536, [](SStreamDescription& ro, uint32_t ui) { ro.uiWidth = ui; }},
    SMember{"height", 1, 65536, [](SStreamDescription& ro, uint32_t ui) { ro.uiHeight = ui; }},
};

constexpr std::array aoFlags = {
    SFlag{"interlaced", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.bInterlaced = ui & 1U; }},
    SFlag{"bottom_field_first", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.bBottomFieldFirst = ui & 1U; }},
    SFlag{"h_sync_positive", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.bHorizontalSyncPositive = ui & 1U; }},
    SFlag{"v_sync_positive", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.bVerticalSyncPositive = ui & 1U; }},
    SFlag{"yuv", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.bIsYuv = ui & 1U; }},
    SFlag{"level_b", [](SStreamDescription& ro, uint32_t ui) { ro.oVidParam.fIs3GLevelB = ui & 1U; }},
};
// clang-format on

void SetPixelFormat(SStreamDescription& roDescription, uint32_t uiValue)
{
    roDescription.ePixelFormat = static_cast<VtPixelFormat>(uiValue);
}

void SetCaptureState(SStreamDescription& roDescription, uint32_t uiValue)
{
    roDescription.eCaptureState = static_cast<VtVideoIn_State>(uiValue);
}

} // namespace

void ScenarioChanges_Read(CScenarioSection& roSection, EDirection eDirection, std::vector<SMemberChange>& raoChanges)
{
    for (const SMember& roMember : aoMembers)
    {
        uint32_t uiValue = 0;
        if (roSection.Read(roMember.szKey, roMember.uiMin, roMember.uiMax, uiValue))
        {
            raoChanges.push_back({roMember.fnSet, uiValue});
        }
    }
    for (const SFlag& roFlag : aoFlags)
    {
        bool bValue = false;
        if (roSection.ReadBoolean(roFlag.szKey, bValue))
        {
            raoChanges.push_back({roFlag.fnSet, bValue ? 1U : 0U});
        }
    }
    VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
    if (ScenarioPixelFormat_Read(roSection, eFormat))
    {
        raoChanges.push_back({SetPixelFormat, eFormat});
    }
    VtVideoIn_State eState = VtVideoIn_State_INVALID;
    if (eDirection == EDirection::INPUT &&
        roSection.ReadName<VtVideoIn_State>("capture_state", aoCaptureStates, eState))
    {
        raoChanges.push_back({SetCaptureState, eState});
    }
    if (raoChanges.empty())
    {
        roSection.Finish(); // a key that nobody knows says more
        roSection.Refuse("kind", "changes nothing");
    }
}
