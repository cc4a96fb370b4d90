/*
 * Names that a scenario may give to the SDK's enumerated values. Constant tables, one row per value.
 */
#ifndef SIMULATED_BOARD_SCENARIO_NAMES_H
#define SIMULATED_BOARD_SCENARIO_NAMES_H

#include <array>

#include "PixelFormatNames.h"
#include "ScenarioSection.h"
#include "Veltrano.h"

inline constexpr std::array aoConnectorTypes = {
    SNamedValue<VtBoard_ConnectorType>{"UNKNOWN", VtBoard_ConnectorType_UNKNOWN},
    SNamedValue<VtBoard_ConnectorType>{"SDI", VtBoard_ConnectorType_SDI},
    SNamedValue<VtBoard_ConnectorType>{"HDMI", VtBoard_ConnectorType_HDMI},
    SNamedValue<VtBoard_ConnectorType>{"DISPLAYPORT", VtBoard_ConnectorType_DISPLAYPORT},
    SNamedValue<VtBoard_ConnectorType>{"DVI", VtBoard_ConnectorType_DVI},
    SNamedValue<VtBoard_ConnectorType>{"VGA", VtBoard_ConnectorType_VGA},
};

inline constexpr std::array aoCaptureStates = {
    SNamedValue<VtVideoIn_State>{"INVALID", VtVideoIn_State_INVALID},
    SNamedValue<VtVideoIn_State>{"NOT_INITIALIZED", VtVideoIn_State_NOT_INITIALIZED},
    SNamedValue<VtVideoIn_State>{"STARTED", VtVideoIn_State_STARTED},
    SNamedValue<VtVideoIn_State>{"STOPPED", VtVideoIn_State_STOPPED},
};

inline constexpr std::array aoPowerStates = {
    SNamedValue<VtVideoOut_PowerState>{"DISABLED", VtVideoOut_PowerState_DISABLED},
    SNamedValue<VtVideoOut_PowerState>{"ON", VtVideoOut_PowerState_ON},
    SNamedValue<VtVideoOut_PowerState>{"BLANKED", VtVideoOut_PowerState_BLANKED},
    SNamedValue<VtVideoOut_PowerState>{"STANDBY", VtVideoOut_PowerState_STANDBY},
    SNamedValue<VtVideoOut_PowerState>{"SUSPEND", VtVideoOut_PowerState_SUSPEND},
    SNamedValue<VtVideoOut_PowerState>{"OFF", VtVideoOut_PowerState_OFF},
};

inline constexpr std::array aoStatuses = {
    SNamedValue<VtStatus>{"VtStatus_SEIOVERSIZE", VtStatus_SEIOVERSIZE},
    SNamedValue<VtStatus>{"VtStatus_SEQUENCE_RESET", VtStatus_SEQUENCE_RESET},
    SNamedValue<VtStatus>{"VtStatus_DISORDERED_RELEASE_COUNT", VtStatus_DISORDERED_RELEASE_COUNT},
    SNamedValue<VtStatus>{"VtStatus_CRITICAL_END_OF_STREAM", VtStatus_CRITICAL_END_OF_STREAM},
    SNamedValue<VtStatus>{"VtStatus_STREAM_NOT_INITIALIZED", VtStatus_STREAM_NOT_INITIALIZED},
    SNamedValue<VtStatus>{"VtStatus_INCOMPLETE_COMMAND", VtStatus_INCOMPLETE_COMMAND},
    SNamedValue<VtStatus>{"VtStatus_REORDERED_SEQUENCE_PENDING", VtStatus_REORDERED_SEQUENCE_PENDING},
    SNamedValue<VtStatus>{"VtStatus_END_OF_STREAM", VtStatus_END_OF_STREAM},
    SNamedValue<VtStatus>{"VtStatus_INFO_NOT_AVAILABLE", VtStatus_INFO_NOT_AVAILABLE},
    SNamedValue<VtStatus>{"VtStatus_TEMPORARY_LACK_OF_RESOURCES", VtStatus_TEMPORARY_LACK_OF_RESOURCES},
    SNamedValue<VtStatus>{"VtStatus_HARDWARE_MALFUNCTION", VtStatus_HARDWARE_MALFUNCTION},
    SNamedValue<VtStatus>{"VtStatus_CONNECTION_LOST", VtStatus_CONNECTION_LOST},
    SNamedValue<VtStatus>{"VtStatus_COMMAND_PENDING", VtStatus_COMMAND_PENDING},
    SNamedValue<VtStatus>{"VtStatus_CANCELED", VtStatus_CANCELED},
    SNamedValue<VtStatus>{"VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL", VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL},
    SNamedValue<VtStatus>{"VtStatus_UNSUPPORTED", VtStatus_UNSUPPORTED},
    SNamedValue<VtStatus>{"VtStatus_ACCESS_DENIED", VtStatus_ACCESS_DENIED},
    SNamedValue<VtStatus>{"VtStatus_RESOURCES_BUSY", VtStatus_RESOURCES_BUSY},
    SNamedValue<VtStatus>{"VtStatus_OUT_OF_RESOURCES", VtStatus_OUT_OF_RESOURCES},
    SNamedValue<VtStatus>{"VtStatus_OUT_OF_MEMORY", VtStatus_OUT_OF_MEMORY},
    SNamedValue<VtStatus>{"VtStatus_NO_DATA", VtStatus_NO_DATA},
    SNamedValue<VtStatus>{"VtStatus_NO_MORE_DATA", VtStatus_NO_MORE_DATA},
    SNamedValue<VtStatus>{"VtStatus_TIMEOUT", VtStatus_TIMEOUT},
    SNamedValue<VtStatus>{"VtStatus_INVALID_PARAM", VtStatus_INVALID_PARAM},
    SNamedValue<VtStatus>{"VtStatus_FAIL", VtStatus_FAIL},
    SNamedValue<VtStatus>{"VtStatus_OK", VtStatus_OK},
    SNamedValue<VtStatus>{"VtStatus_NOT_OPTIMAL", VtStatus_NOT_OPTIMAL},
    SNamedValue<VtStatus>{"VtStatus_NOTHING_DONE", VtStatus_NOTHING_DONE},
    SNamedValue<VtStatus>{"VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE", VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE},
    SNamedValue<VtStatus>{"VtStatus_OK_MISSING_FIRST_SPS", VtStatus_OK_MISSING_FIRST_SPS},
    SNamedValue<VtStatus>{"VtStatus_OK_STREAM_NOT_LOWLATENCY", VtStatus_OK_STREAM_NOT_LOWLATENCY},
};

#endif
