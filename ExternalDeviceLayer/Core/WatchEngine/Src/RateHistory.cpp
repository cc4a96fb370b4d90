#include "RateHistory.h"

#include <algorithm>

SWindowTimes RateHistory_GetTimes(EBlockLength eLength, int64_t iEnd)
{
    SWindowTimes oTimes;
    const int64_t iLength = aiBlockSeconds[static_cast<size_t>(eLength)];
    const int64_t iLast = eLength == EBlockLength::SECOND ? iEnd - 1 : iEnd / iLength;
    for (uint32_t uiBlock = 0; uiBlock < uiBlocksPerWindow; ++uiBlock)
    {
        const int64_t iBlock = iLast - (uiBlocksPerWindow - 1) + uiBlock;
        const int64_t iBegin = iBlock * iLength;
        const int64_t iStop = std::min(iBegin + iLength, iEnd);
        oTimes.aiBlock[uiBlock] = iBlock;
        oTimes.aflCentre[uiBlock] = static_cast<double>(iBegin + iStop - 2 * iEnd) / 2.0;
    }
    oTimes.iSeconds = iEnd - oTimes.aiBlock[0] * iLength;
    return oTimes;
}

void CRateHistory::Begin(uint64_t uiTick, int64_t iPeriod)
{
    m_bIsRunning = true;
    m_uiTick = uiTick;
    m_iPeriod = iPeriod;
    m_iSecond = -1;
    m_uiEndOfSecond = 0;
    m_oOpen.Begin(0, 0);
    for (Ring& roRing : m_aoRings)
    {
        roRing.fill({});
    }
}

void CRateHistory::OpenSecond(int64_t iNumber, uint64_t uiTick)
{
    CloseSecond();
    const uint64_t uiSecond = uiTick / m_uiTickFrequencyHz;
    m_iSecond = static_cast<int64_t>(uiSecond);
    m_uiEndOfSecond = (uiSecond + 1) * m_uiTickFrequencyHz;
    m_oOpen.Begin(iNumber, GetPhase(iNumber, uiTick));
}

void CRateHistory::CloseSecond()
{
    if (m_oOpen.IsEmpty())
    {
        return;
    }
    const SFitSums oSums = m_oOpen.Close();
    m_oOpen.Begin(0, 0);
    m_uiEndOfSecond = 0; // a field that comes late for this second opens it again
    for (size_t uiLength = 0; uiLength < m_aoRings.size(); ++uiLength)
    {
        const int64_t iBlock = m_iSecond / aiBlockSeconds[uiLength];
        SBlock& roBlock = m_aoRings[uiLength][static_cast<size_t>(iBlock) % m_aoRings[uiLength].size()];
        if (roBlock.iBlock != iBlock)
        {
            roBlock = {iBlock, {}};
        }
        roBlock.oSums = FitSums_Combine(roBlock.oSums, oSums);
    }
}

void CRateHistory::CloseBefore(int64_t iEnd)
{
    if (m_bIsRunning && m_iSecond >= 0 && m_iSecond < iEnd)
    {
        CloseSecond();
    }
}

const SFitSums* CRateHistory::FindBlock(EBlockLength eLength, int64_t iBlock) const
{
    if (!m_bIsRunning || iBlock < 0)
    {
        return nullptr;
    }
    const Ring& roRing = m_aoRings[static_cast<size_t>(eLength)];
    const SBlock& roBlock = roRing[static_cast<size_t>(iBlock) % roRing.size()];
    return roBlock.iBlock == iBlock ? &roBlock.oSums : nullptr;
}
