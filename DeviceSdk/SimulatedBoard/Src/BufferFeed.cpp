// See BufferFeed.h.
#include "BufferFeed.h"

#include "Noise.h"

CBufferFeed::CBufferFeed(const SBufferFeed& roFeed) : m_oFeed(roFeed)
{
    uint64_t uiCount = 0;
    for (const uint32_t uiBuffers : roFeed.auiPattern)
    {
        m_auiCounts.push_back(uiCount);
        uiCount += uiBuffers;
    }
    m_auiCounts.push_back(uiCount);
    const bool bSimple = roFeed.auiPattern.size() == 1 && roFeed.iBuffersAField == 0;
    m_uiStep = bSimple ? uiCount : 0;
}

uint64_t CBufferFeed::CountIn(uint64_t uiFields) const
{
    if (m_uiStep != 0)
    {
        return uiFields * m_uiStep;
    }
    if (m_oFeed.iBuffersAField != 0)
    {
        return CountByRate(uiFields);
    }
    const size_t uiLength = m_auiCounts.size() - 1;
    return uiFields / uiLength * m_auiCounts.back() + m_auiCounts[uiFields % uiLength];
}

// Buffer i comes at i to i + 1 times the time between two, so only the last one needs a look.
uint64_t CBufferFeed::CountByRate(uint64_t uiFields) const
{
    const FixedTicks iDue = m_oFeed.iBuffersAField * static_cast<int64_t>(uiFields);
    const auto uiWhole = static_cast<uint64_t>(iDue >> 64);
    const auto uiRest = static_cast<uint64_t>(iDue);
    const uint64_t uiDrawn = Noise_Hash(m_oFeed.uiKey, uiWhole);
    const auto uiLate = static_cast<uint64_t>(UInt128{uiDrawn} * m_oFeed.uiIrregularPpm / 1'000'000);
    return uiWhole + (uiRest > uiLate ? 1U : 0U);
}
