/*
 * An application that sets buffers on an output: how many it has set after so many fields.
 *
 * By a pattern of successive fields, or at a rate of its own, steady or with every buffer late by a random part of the
 * time between two. Every question is answered in closed form. Immutable after construction.
 */
#ifndef SIMULATED_BOARD_BUFFER_FEED_H
#define SIMULATED_BOARD_BUFFER_FEED_H

#include <cstdint>
#include <vector>

#include "TickMath.h"

struct SBufferFeed
{
    std::vector<uint32_t> auiPattern{1}; // buffers set in successive fields, repeated
    FixedTicks iBuffersAField = 0;       // not 0: a rate instead of the pattern, 2^64 for a buffer each field
    uint32_t uiIrregularPpm = 0;         // of the time between two buffers, 0 to 10^6
    uint64_t uiKey = 0;                  // of the random part
};

class CBufferFeed
{
public:
    explicit CBufferFeed(const SBufferFeed& roFeed);

    /* Buffers set in the first uiFields fields. */
    uint64_t CountIn(uint64_t uiFields) const;

private:
    uint64_t CountByRate(uint64_t uiFields) const;

    SBufferFeed m_oFeed;
    uint64_t m_uiStep = 0;             // set in every field, when the pattern is that simple, else 0
    std::vector<uint64_t> m_auiCounts; // set in the first k fields of the pattern
};

#endif
