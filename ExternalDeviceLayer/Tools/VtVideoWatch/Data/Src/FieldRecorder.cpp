#include "FieldRecorder.h"

#include <cstring>
#include <utility>

#include "TimeUnits.h"

namespace
{

constexpr uint64_t uiMostFieldsPerSecond = 120;
constexpr uint64_t uiBytesPerField =
    16; // on average, at most: stamps and arrivals that jitter by microseconds take ten

// The open block of every stream comes on top, and one that the next sealing takes.
size_t CountBlocks(uint32_t uiNbOfStreams, uint32_t uiSeconds)
{
    const uint64_t uiBytes = uint64_t{uiNbOfStreams} * uiSeconds * uiMostFieldsPerSecond * uiBytesPerField;
    return uiBytes / uiRecorderBlockBytes + uiNbOfStreams + 1;
}

// Whether both describe the same stream at work; how full its queue is and when it was asked does not matter.
bool IsSameDescription(const SRecordedDescription& roA, const SRecordedDescription& roB)
{
    const SStreamDescription& roOne = roA.oDescription;
    const SStreamDescription& roOther = roB.oDescription;
    return std::memcmp(&roOne.oTimings, &roOther.oTimings, sizeof(roOne.oTimings)) == 0 &&
           roOne.ePixelFormat == roOther.ePixelFormat && roOne.uiWidth == roOther.uiWidth &&
           roOne.uiHeight == roOther.uiHeight && roOne.uiNbOfBuffer == roOther.uiNbOfBuffer &&
           roOne.eCaptureState == roOther.eCaptureState && roOne.ePowerState == roOther.ePowerState &&
           roA.szName == roB.szName && roA.szFormat == roB.szFormat;
}

} // namespace

void CRecorderCut::ForEach(uint64_t uiFromNs, const Take& rfnTake) const
{
    for (const SRecorderBlock& roBlock : m_aoBlocks)
    {
        const bool bIsInput = roBlock.uiStream < m_uiNbOfInputs;
        const SStreamKey oStream = {bIsInput ? EStreamDirection::INPUT : EStreamDirection::OUTPUT,
                                    bIsInput ? roBlock.uiStream : roBlock.uiStream - m_uiNbOfInputs};
        SPackedState oState;
        SFieldRecord oRecord;
        std::span<const uint8_t> aoRest(roBlock.auiBytes, roBlock.uiUsedBytes);
        while (roBlock.uiLastArrivalNs >= uiFromNs && FieldPacker_Unpack(oState, aoRest, oRecord))
        {
            if (oRecord.uiArrivalNs >= uiFromNs)
            {
                rfnTake(oStream, oRecord);
            }
        }
    }
}

CFieldRecorder::CFieldRecorder(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs, uint32_t uiSeconds)
    : m_uiNbOfInputs(uiNbOfInputs),
      m_uiReachNs(uiSeconds * static_cast<uint64_t>(iNsPerSecond)),
      m_aoBlocks(CountBlocks(uiNbOfInputs + uiNbOfOutputs, uiSeconds)),
      m_aoOpen(uiNbOfInputs + uiNbOfOutputs),
      m_apoSealed(m_aoBlocks.size()),
      m_aaoDescriptions(m_aoOpen.size())
{
    m_apoFree.reserve(m_aoBlocks.size());
    for (SRecorderBlock& roBlock : m_aoBlocks)
    {
        m_apoFree.push_back(&roBlock);
    }
    for (uint32_t uiStream = 0; uiStream < m_aoOpen.size(); ++uiStream)
    {
        m_aoOpen[uiStream].poBlock = &TakeBlock(0);
        m_aoOpen[uiStream].poBlock->uiStream = uiStream;
    }
}

void CFieldRecorder::Seal(uint32_t uiStream, uint64_t uiNowNs)
{
    SOpenBlock& roOpen = m_aoOpen[uiStream];
    m_apoSealed[(m_uiOldest + m_uiSealed++) % m_apoSealed.size()] = roOpen.poBlock;
    roOpen.poBlock = &TakeBlock(uiNowNs);
    roOpen.poBlock->uiStream = uiStream;
    roOpen.oState = {};
}

// A block that nothing is written in: one that is too old to be kept, one that was never used, or else the oldest.
SRecorderBlock& CFieldRecorder::TakeBlock(uint64_t uiNowNs)
{
    const auto fnPopOldest = [this]
    {
        SRecorderBlock* poOldest = m_apoSealed[m_uiOldest];
        m_uiOldest = (m_uiOldest + 1) % m_apoSealed.size();
        --m_uiSealed;
        return poOldest;
    };
    while (m_uiSealed > 0 && m_apoSealed[m_uiOldest]->uiLastArrivalNs + m_uiReachNs < uiNowNs)
    {
        m_apoFree.push_back(fnPopOldest());
    }
    SRecorderBlock* poBlock = nullptr;
    if (m_apoFree.empty())
    {
        poBlock = fnPopOldest();
    }
    else
    {
        poBlock = m_apoFree.back();
        m_apoFree.pop_back();
    }
    poBlock->uiUsedBytes = 0;
    return *poBlock;
}

void CFieldRecorder::AddDescription(const SRecordedDescription& roDescription)
{
    std::deque<SRecordedDescription>& raoOfStream = m_aaoDescriptions[GetRow(roDescription.oStream)];
    if (!raoOfStream.empty() && IsSameDescription(raoOfStream.back(), roDescription))
    {
        return;
    }
    raoOfStream.push_back(roDescription);
    if (raoOfStream.size() > uiMostDescriptions)
    {
        raoOfStream.pop_front();
    }
}

CRecorderCut CFieldRecorder::Copy(const SRecorderSpan& roSpan) const
{
    std::vector<const SRecorderBlock*> apoBlocks;
    const auto fnTake = [&](const SRecorderBlock* poBlock)
    {
        if (poBlock->uiUsedBytes > 0 && poBlock->uiLastArrivalNs >= roSpan.uiFromNs &&
            poBlock->uiFirstArrivalNs <= roSpan.uiToNs)
        {
            apoBlocks.push_back(poBlock);
        }
    };
    for (size_t uiBlock = 0; uiBlock < m_uiSealed; ++uiBlock)
    {
        fnTake(m_apoSealed[(m_uiOldest + uiBlock) % m_apoSealed.size()]);
    }
    for (const SOpenBlock& roOpen : m_aoOpen)
    {
        fnTake(roOpen.poBlock);
    }
    std::vector<SRecorderBlock> aoBlocks;
    aoBlocks.reserve(apoBlocks.size());
    for (const SRecorderBlock* poBlock : apoBlocks)
    {
        aoBlocks.push_back(*poBlock);
    }
    std::vector<SRecordedDescription> aoDescriptions;
    for (const std::deque<SRecordedDescription>& raoOfStream : m_aaoDescriptions)
    {
        aoDescriptions.insert(aoDescriptions.end(), raoOfStream.begin(), raoOfStream.end());
    }
    return {m_uiNbOfInputs, std::move(aoBlocks), std::move(aoDescriptions)};
}
