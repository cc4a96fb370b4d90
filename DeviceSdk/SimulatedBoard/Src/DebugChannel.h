/*
 * The texts that went into the SDK's debug channel, the last ones, for tests to read. Thread-safe.
 */
#ifndef SIMULATED_BOARD_DEBUG_CHANNEL_H
#define SIMULATED_BOARD_DEBUG_CHANNEL_H

#include <cstdint>
#include <optional>
#include <string>

void DebugChannel_Clear();
void DebugChannel_Add(std::string szText);
uint32_t DebugChannel_GetCount();
std::optional<std::string> DebugChannel_Get(uint32_t uiIndex);

#endif
