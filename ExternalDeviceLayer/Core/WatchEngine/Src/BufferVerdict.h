// What a set-buffer counter says of the fields of an output. Repeated is judged over observed fields only: of those
// between, nobody knows which showed what, nor whether a counter out of looks was looked at meanwhile.
#ifndef BUFFER_VERDICT_H
#define BUFFER_VERDICT_H

#include <cstdint>

struct SBufferVerdict
{
    uint64_t uiSet;
    uint64_t uiRepeated;    // fields that showed a buffer once more
    uint64_t uiOverwritten; // buffers that were never shown
};

// uiGrowth: of the counter, over iFields fields, of which the last is observed.
constexpr SBufferVerdict BufferVerdict_Get(uint64_t uiGrowth, int64_t iFields)
{
    constexpr uint64_t uiMostBuffersPerField = 1000; // beyond, the counter began anew
    const auto uiFields = static_cast<uint64_t>(iFields);
    if (uiGrowth > uiMostBuffersPerField * uiFields)
    {
        return {};
    }
    const uint64_t uiRepeated = iFields == 1 && uiGrowth == 0 ? 1 : 0;
    return {uiGrowth, uiRepeated, uiGrowth > uiFields ? uiGrowth - uiFields : 0};
}

#endif
