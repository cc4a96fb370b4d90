/*
 * The columns of a recording that follow a record member by member: one list makes the table, binds and reads. No
 * state.
 */
#ifndef RECORDING_COLUMNS_H
#define RECORDING_COLUMNS_H

#include <array>
#include <cstdint>
#include <string>

#include "FieldRecord.h"

template <typename TRecord> struct SRecordingColumn
{
    const char* szName;
    uint64_t (*fnGet)(const TRecord&);
    void (*fnSet)(TRecord&, uint64_t);
    uint64_t uiMost; // a larger number is no value of it
};

// Of a wait that gave a field; null in the rows of other waits.
inline constexpr auto aoFieldColumns = std::to_array<SRecordingColumn<SFieldRecord>>({
    {"tick", [](const SFieldRecord& ro) { return ro.uiTick; }, [](SFieldRecord& ro, uint64_t ui) { ro.uiTick = ui; },
     UINT64_MAX},
    {"field_counter", [](const SFieldRecord& ro) { return ro.uiFieldCounter; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiFieldCounter = ui; }, UINT64_MAX},
    {"set_buffer_counter", [](const SFieldRecord& ro) { return ro.uiSetBufferCounter; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiSetBufferCounter = ui; }, UINT64_MAX},
    {"parity", [](const SFieldRecord& ro) { return uint64_t{ro.bIsTopField}; },
     [](SFieldRecord& ro, uint64_t ui) { ro.bIsTopField = ui != 0; }, 1},
});

// Of a field of an input whose board told them; null otherwise.
inline constexpr auto aoBufferColumns = std::to_array<SRecordingColumn<SFieldRecord>>({
    {"ready", [](const SFieldRecord& ro) { return uint64_t{ro.uiReadyBuffers}; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiReadyBuffers = static_cast<uint16_t>(ui); }, UINT16_MAX},
    {"loaned", [](const SFieldRecord& ro) { return uint64_t{ro.uiLoanedBuffers}; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiLoanedBuffers = static_cast<uint16_t>(ui); }, UINT16_MAX},
    {"internal", [](const SFieldRecord& ro) { return uint64_t{ro.uiInternalBuffers}; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiInternalBuffers = static_cast<uint16_t>(ui); }, UINT16_MAX},
});

// Of every wait.
inline constexpr auto aoWaitColumns = std::to_array<SRecordingColumn<SFieldRecord>>({
    {"wait_begin_ns", [](const SFieldRecord& ro) { return ro.uiWaitBeginNs; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiWaitBeginNs = ui; }, INT64_MAX},
    {"arrival_ns", [](const SFieldRecord& ro) { return ro.uiArrivalNs; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiArrivalNs = ui; }, INT64_MAX},
    {"result", [](const SFieldRecord& ro) { return static_cast<uint64_t>(ro.eResult); },
     [](SFieldRecord& ro, uint64_t ui) { ro.eResult = static_cast<EWaitResult>(ui); },
     static_cast<uint64_t>(EWaitResult::GONE)},
    {"run_delay_ns", [](const SFieldRecord& ro) { return ro.uiRunDelayNs; },
     [](SFieldRecord& ro, uint64_t ui) { ro.uiRunDelayNs = ui; }, INT64_MAX},
});

using SDescriptionColumn = SRecordingColumn<SStreamDescription>;
template <uint32_t VtVideo_VidParam::*Member> constexpr SDescriptionColumn MakeTimingColumn(const char* szName)
{
    return {szName, [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.*Member}; },
            [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.*Member = static_cast<uint32_t>(ui); }, UINT32_MAX};
}
template <uint32_t SStreamDescription::*Member> constexpr SDescriptionColumn MakeDescriptionColumn(const char* szName)
{
    return {szName, [](const SStreamDescription& ro) { return uint64_t{ro.*Member}; },
            [](SStreamDescription& ro, uint64_t ui) { ro.*Member = static_cast<uint32_t>(ui); }, UINT32_MAX};
}

// The flags of the timings have no address, so each has its two functions.
inline constexpr auto aoDescriptionColumns = std::to_array<SDescriptionColumn>({
    {"moment_ns", [](const SStreamDescription& ro) { return ro.uiMomentNs; },
     [](SStreamDescription& ro, uint64_t ui) { ro.uiMomentNs = ui; }, INT64_MAX},
    MakeTimingColumn<&VtVideo_VidParam::uiHActive>("h_active"),
    MakeTimingColumn<&VtVideo_VidParam::uiVActive>("v_active"),
    MakeTimingColumn<&VtVideo_VidParam::uiVRate_Hz>("v_rate_hz"),
    MakeTimingColumn<&VtVideo_VidParam::uiHRate_kHz>("h_rate_khz"),
    MakeTimingColumn<&VtVideo_VidParam::uiPixelClock_kHz>("pixel_clock_khz"),
    MakeTimingColumn<&VtVideo_VidParam::uiHFPorch>("h_front_porch"),
    MakeTimingColumn<&VtVideo_VidParam::uiHSync>("h_sync"),
    MakeTimingColumn<&VtVideo_VidParam::uiHBPorch>("h_back_porch"),
    MakeTimingColumn<&VtVideo_VidParam::uiVFPorch>("v_front_porch"),
    MakeTimingColumn<&VtVideo_VidParam::uiVSync>("v_sync"),
    MakeTimingColumn<&VtVideo_VidParam::uiVBPorch>("v_back_porch"),
    {"interlaced", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.bInterlaced}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.bInterlaced = ui & 1U; }, 1},
    {"bottom_field_first", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.bBottomFieldFirst}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.bBottomFieldFirst = ui & 1U; }, 1},
    {"h_sync_positive", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.bHorizontalSyncPositive}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.bHorizontalSyncPositive = ui & 1U; }, 1},
    {"v_sync_positive", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.bVerticalSyncPositive}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.bVerticalSyncPositive = ui & 1U; }, 1},
    {"yuv", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.bIsYuv}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.bIsYuv = ui & 1U; }, 1},
    {"color_space", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.fColorSpace}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.fColorSpace = ui & 15U; }, 15},
    {"chroma_subsampling", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.fChromaSubSampling}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.fChromaSubSampling = ui & 3U; }, 3},
    {"color_depth", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.fColorDepth}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.fColorDepth = ui & 3U; }, 3},
    {"is_3g_level_b", [](const SStreamDescription& ro) { return uint64_t{ro.oTimings.fIs3GLevelB}; },
     [](SStreamDescription& ro, uint64_t ui) { ro.oTimings.fIs3GLevelB = ui & 1U; }, 1},
    {"pixel_format", [](const SStreamDescription& ro) { return static_cast<uint64_t>(ro.ePixelFormat); },
     [](SStreamDescription& ro, uint64_t ui) { ro.ePixelFormat = static_cast<VtPixelFormat>(ui); }, UINT32_MAX},
    MakeDescriptionColumn<&SStreamDescription::uiWidth>("width"),
    MakeDescriptionColumn<&SStreamDescription::uiHeight>("height"),
    MakeDescriptionColumn<&SStreamDescription::uiNbOfBuffer>("buffers"),
    {"capture_state", [](const SStreamDescription& ro) { return static_cast<uint64_t>(ro.eCaptureState); },
     [](SStreamDescription& ro, uint64_t ui) { ro.eCaptureState = static_cast<VtVideoIn_State>(ui); }, UINT32_MAX},
    {"power_state", [](const SStreamDescription& ro) { return static_cast<uint64_t>(ro.ePowerState); },
     [](SStreamDescription& ro, uint64_t ui) { ro.ePowerState = static_cast<VtVideoOut_PowerState>(ui); }, UINT32_MAX},
});

/* "a, b, c" of any of the lists above; each behind a prefix and before a suffix. */
template <typename TColumns>
std::string RecordingColumns_Print(const TColumns& raoColumns, const char* szSuffix = "", const char* szPlace = nullptr)
{
    std::string szText;
    for (const auto& roColumn : raoColumns)
    {
        szText += (szText.empty() ? "" : ", ") + std::string(szPlace == nullptr ? roColumn.szName : szPlace) + szSuffix;
    }
    return szText;
}

#endif
