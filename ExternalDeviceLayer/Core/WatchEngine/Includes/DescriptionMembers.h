/*
 * The members of a stream's description one by one, so that a change can be told by its name.
 */
#ifndef DESCRIPTION_MEMBERS_H
#define DESCRIPTION_MEMBERS_H

#include <cstdint>
#include <span>

#include "FieldRecord.h"

enum class EDescriptionMember : uint8_t
{
    H_ACTIVE,
    V_ACTIVE,
    V_RATE,
    H_RATE,
    PIXEL_CLOCK,
    H_FRONT_PORCH,
    H_SYNC,
    H_BACK_PORCH,
    V_FRONT_PORCH,
    V_SYNC,
    V_BACK_PORCH,
    INTERLACED,
    BOTTOM_FIELD_FIRST,
    H_SYNC_POSITIVE,
    V_SYNC_POSITIVE,
    YUV,
    COLOUR_SPACE,
    CHROMA_SUBSAMPLING,
    COLOUR_DEPTH,
    LEVEL_B,
    PIXEL_FORMAT,
    BUFFER_WIDTH,
    BUFFER_HEIGHT,
    BUFFERS,
    COUNT
};

struct SDescriptionMember
{
    const char* szName; // as the JSON has it
    uint64_t (*fnGet)(const SStreamDescription&);
    bool bIsOfSignal; // told by the timings: of no meaning without a signal
};

/* All members, by EDescriptionMember. */
std::span<const SDescriptionMember> DescriptionMembers_Get();

#endif
