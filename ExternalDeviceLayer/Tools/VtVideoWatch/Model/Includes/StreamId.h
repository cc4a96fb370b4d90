/*
 * What a stream and its direction are called in every answer, line and thread's name: "IN_00", "OUT_31"; "0:IN_00"
 * where several chips are watched. No state; any thread.
 */
#ifndef STREAM_ID_H
#define STREAM_ID_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "StreamKey.h"

std::string StreamId_Print(const SStreamKey& roKey);

/* "input" or "output". */
const char* StreamId_GetDirection(EStreamDirection eDirection);

/* The stream that a text names; nothing unless it is spelt exactly so and below uiMaxStreamsPerDirection. */
std::optional<SStreamKey> StreamId_Find(std::string_view szId);

/* Members of a lock group, by index. uiMembers: bit i is stream i of the direction that roOf is of. */
std::vector<std::string> StreamId_PrintMembers(const SStreamKey& roOf, uint32_t uiMembers);

/* The same on one line, for people: "IN_00, 02, 04-07". */
std::string StreamId_PrintRanges(const SStreamKey& roOf, uint32_t uiMembers);

#endif
