// What a set-buffer counter says of the fields of an output. Repeated is judged over observed fields only: of those
// between, nobody knows which showed what, nor whether a counter out of looks was looked at meanwhile.
#ifndef BUFFER_VERDICT_H
#define BUFFER_VERDICT_H

#include <algorithm>
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

/*
 * Repeated fields by a counter that is an estimate: told by whole seconds, for a buffer may be seen a field late, and
 * only where they are more than such a counter itself may miss.
 */
class CEstimatedRepeats
{
public:
    explicit CEstimatedRepeats(uint32_t uiTickFrequencyHz) : m_uiSecond(uiTickFrequencyHz) {}

    /* A field and what was set since the one before, iFields before it: the repeated fields of a second that is over.
     */
    uint64_t Take(int64_t iFields, uint64_t uiGrowth, uint64_t uiTick)
    {
        m_uiFields += iFields == 1 ? 1 : 0;
        m_uiSet += iFields == 1 ? BufferVerdict_Get(uiGrowth, iFields).uiSet : 0;
        if (uiTick - m_uiBegin < m_uiSecond)
        {
            return 0;
        }
        const uint64_t uiRepeated = m_uiFields - std::min(m_uiFields, m_uiSet);
        const bool bIsTold = uiRepeated > msc_uiMissed && uiRepeated * msc_uiShare > m_uiFields;
        m_uiBegin = uiTick;
        m_uiFields = 0;
        m_uiSet = 0;
        return bIsTold ? uiRepeated : 0;
    }

private:
    static constexpr uint64_t msc_uiMissed = 3;
    static constexpr uint64_t msc_uiShare = 16; // of the fields

    uint64_t m_uiSecond;
    uint64_t m_uiBegin = 0; // ticks
    uint64_t m_uiFields = 0;
    uint64_t m_uiSet = 0;
};

#endif
