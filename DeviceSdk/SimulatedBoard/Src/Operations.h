/*
 * The SDK's operations as an enumeration, for what counts them and what makes them fail.
 */
#ifndef SIMULATED_BOARD_OPERATIONS_H
#define SIMULATED_BOARD_OPERATIONS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

enum class EOperation : uint8_t
{
    LOAD,
    VERSION,
    GET_DEVICE,
    UNLOAD,
    DEBUG_WRITE,
    PIXEL_FORMAT_NAME,
    TICK_FREQUENCY,
    CONNECTOR_COUNT,
    CONNECTOR_INFO,
    CUSTOM_CALL,
    IN_COUNT,
    IN_OPEN,
    IN_RELEASE,
    IN_DETECTED,
    IN_WAIT,
    IN_CAPTURE_STATE,
    IN_BUFFERS,
    OUT_COUNT,
    OUT_OPEN,
    OUT_RELEASE,
    OUT_WAIT,
    OUT_PARAMETERS,
    OUT_BUFFERS,
    OUT_POWER,
    COUNT
};

inline constexpr size_t uiOperations = static_cast<size_t>(EOperation::COUNT);

// In the order of the enumeration.
inline constexpr std::array<std::string_view, uiOperations> aszOperations = {
    "Veltrano_LoadLite",
    "Veltrano_Version",
    "Veltrano_GetDevice",
    "Veltrano_UnLoad",
    "VtDebug_WriteMsg",
    "VtPixelFormat_GetName",
    "VtBoard_GetTickReferenceFrequency",
    "VtBoard_GetConnectorCount",
    "VtBoard_GetConnectorInfo",
    "VtBoard_CustomCall",
    "VtVideoIn_GetCount",
    "VtVideoIn_GetHandle",
    "VtVideoIn_ReleaseHandle",
    "VtVideoIn_GetDetectedVideoParameters",
    "VtVideoIn_WaitForFieldStart",
    "VtVideoIn_GetCaptureState",
    "VtVideoIn_GetBufferAttributes",
    "VtVideoOut_GetCount",
    "VtVideoOut_GetHandle",
    "VtVideoOut_ReleaseHandle",
    "VtVideoOut_WaitForFieldStart",
    "VtVideoOut_GetVideoParameters",
    "VtVideoOut_GetBufferAttributes",
    "VtVideoOut_GetPowerState",
};

// EOperation::COUNT for a name that is none.
constexpr EOperation Operation_Find(std::string_view szName)
{
    const auto itName = std::ranges::find(aszOperations, szName);
    return static_cast<EOperation>(itName - aszOperations.begin());
}

static_assert(Operation_Find("VtVideoOut_GetPowerState") == EOperation::OUT_POWER);

#endif
