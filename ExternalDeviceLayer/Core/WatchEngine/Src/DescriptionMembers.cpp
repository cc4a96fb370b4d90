// See DescriptionMembers.h.
#include "DescriptionMembers.h"

#include <array>

namespace
{

template <auto poMember> uint64_t GetTiming(const SStreamDescription& roDescription)
{
    return roDescription.oTimings.*poMember;
}

template <auto poMember> uint64_t Get(const SStreamDescription& roDescription)
{
    return roDescription.*poMember;
}

using Param = VtVideo_VidParam;
using Description = SStreamDescription;

constexpr std::array<SDescriptionMember, static_cast<size_t>(EDescriptionMember::COUNT)> aoMembers = {{
    {"h_active", GetTiming<&Param::uiHActive>, true},
    {"v_active", GetTiming<&Param::uiVActive>, true},
    {"v_rate", GetTiming<&Param::uiVRate_Hz>, true},
    {"h_rate", GetTiming<&Param::uiHRate_kHz>, true},
    {"pixel_clock", GetTiming<&Param::uiPixelClock_kHz>, true},
    {"h_front_porch", GetTiming<&Param::uiHFPorch>, true},
    {"h_sync", GetTiming<&Param::uiHSync>, true},
    {"h_back_porch", GetTiming<&Param::uiHBPorch>, true},
    {"v_front_porch", GetTiming<&Param::uiVFPorch>, true},
    {"v_sync", GetTiming<&Param::uiVSync>, true},
    {"v_back_porch", GetTiming<&Param::uiVBPorch>, true},
    {"interlaced", [](const Description& roIs) -> uint64_t { return roIs.oTimings.bInterlaced; }, true},
    {"bottom_field_first", [](const Description& roIs) -> uint64_t { return roIs.oTimings.bBottomFieldFirst; }, true},
    {"h_sync_positive", [](const Description& roIs) -> uint64_t { return roIs.oTimings.bHorizontalSyncPositive; },
     true},
    {"v_sync_positive", [](const Description& roIs) -> uint64_t { return roIs.oTimings.bVerticalSyncPositive; }, true},
    {"yuv", [](const Description& roIs) -> uint64_t { return roIs.oTimings.bIsYuv; }, true},
    {"colour_space", [](const Description& roIs) -> uint64_t { return roIs.oTimings.fColorSpace; }, true},
    {"chroma_subsampling", [](const Description& roIs) -> uint64_t { return roIs.oTimings.fChromaSubSampling; }, true},
    {"colour_depth", [](const Description& roIs) -> uint64_t { return roIs.oTimings.fColorDepth; }, true},
    {"level_b", [](const Description& roIs) -> uint64_t { return roIs.oTimings.fIs3GLevelB; }, true},
    {"pixel_format", Get<&Description::ePixelFormat>, false},
    {"buffer_width", Get<&Description::uiWidth>, false},
    {"buffer_height", Get<&Description::uiHeight>, false},
    {"buffers", Get<&Description::uiNbOfBuffer>, false},
}};
static_assert(aoMembers.back().szName != nullptr, "every member has a row");

} // namespace

std::span<const SDescriptionMember> DescriptionMembers_Get()
{
    return aoMembers;
}
