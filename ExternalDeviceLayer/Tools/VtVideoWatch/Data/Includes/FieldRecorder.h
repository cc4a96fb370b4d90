/*
 * The flight recorder: the last seconds of every stream, field by field, in memory that is taken once. It is always on;
 * who wants to keep what it holds takes a copy, and it goes on.
 *
 * One thread owns it, the one that analyses. Moments are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef FIELD_RECORDER_H
#define FIELD_RECORDER_H

#include <cstdint>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "FieldPacker.h"
#include "Recording.h"

// An hour, and the time that a copy takes.
constexpr uint32_t uiMostRecorderSeconds = 3605;

// Changes of a stream that are remembered; the oldest give way.
constexpr uint32_t uiMostDescriptions = 32;

// A page of memory with what stands before the records.
constexpr uint32_t uiRecorderBlockBytes = 4096 - 24;

// A run of records of one stream.
struct SRecorderBlock
{
    uint32_t uiStream = 0; // inputs first, then outputs
    uint32_t uiUsedBytes = 0;
    uint64_t uiFirstArrivalNs = 0;
    uint64_t uiLastArrivalNs = 0;
    uint8_t auiBytes[uiRecorderBlockBytes] = {};
};

// Arrivals from one moment to another, CLOCK_MONOTONIC.
struct SRecorderSpan
{
    uint64_t uiFromNs = 0;
    uint64_t uiToNs = UINT64_MAX;
};

// A copy of what a recorder held at one moment.
class CRecorderCut
{
public:
    CRecorderCut() = default;
    CRecorderCut(uint32_t uiNbOfInputs, std::vector<SRecorderBlock> aoBlocks,
                 std::vector<SRecordedDescription> aoDescriptions)
        : m_uiNbOfInputs(uiNbOfInputs), m_aoBlocks(std::move(aoBlocks)), m_aoDescriptions(std::move(aoDescriptions))
    {
    }

    using Take = std::function<void(const SStreamKey&, const SFieldRecord&)>;
    /*
     * Hands out the records that arrived from a moment on; those of one stream in their order.
     *   uiFromNs  in  CLOCK_MONOTONIC
     *   rfnTake   in  called for each
     */
    void ForEach(uint64_t uiFromNs, const Take& rfnTake) const;

    /* What the streams were: those of one stream in their order, the first one perhaps from before the oldest field. */
    const std::vector<SRecordedDescription>& GetDescriptions() const { return m_aoDescriptions; }

private:
    uint32_t m_uiNbOfInputs = 0;
    std::vector<SRecorderBlock> m_aoBlocks; // those of one stream in their order
    std::vector<SRecordedDescription> m_aoDescriptions;
};

class CFieldRecorder
{
public:
    /*
     *   uiNbOfInputs, uiNbOfOutputs  in  streams
     *   uiSeconds                    in  how far back it shall reach, 1 to uiMostRecorderSeconds
     * It reaches as far for streams of up to 120 fields/s; where all of them are faster the oldest give way.
     */
    CFieldRecorder(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs, uint32_t uiSeconds);

    /* Takes a record in. About ten nanoseconds; allocates nothing. */
    void Add(const SStreamKey& roStream, const SFieldRecord& roRecord)
    {
        const uint32_t uiStream = GetRow(roStream);
        SOpenBlock& roOpen = m_aoOpen[uiStream];
        if (roOpen.poBlock->uiUsedBytes + uiMostPackedBytes > uiRecorderBlockBytes)
        {
            Seal(uiStream, roRecord.uiArrivalNs);
        }
        SRecorderBlock& roBlock = *roOpen.poBlock;
        roBlock.uiFirstArrivalNs = roBlock.uiUsedBytes == 0 ? roRecord.uiArrivalNs : roBlock.uiFirstArrivalNs;
        roBlock.uiLastArrivalNs = roRecord.uiArrivalNs;
        roBlock.uiUsedBytes += FieldPacker_Pack(roOpen.oState, roRecord, roBlock.auiBytes + roBlock.uiUsedBytes);
    }

    /* Takes in what a stream is; kept only when it has changed. Allocates then. */
    void AddDescription(const SRecordedDescription& roDescription);

    /* A copy of what arrived in a span, and of some around it. Costs what copying the memory does. */
    CRecorderCut Copy(const SRecorderSpan& roSpan) const;

    /* Memory that it has taken. */
    uint64_t GetBytes() const { return m_aoBlocks.size() * sizeof(SRecorderBlock); }

private:
    struct SOpenBlock
    {
        SRecorderBlock* poBlock = nullptr;
        SPackedState oState;
    };

    uint32_t GetRow(const SStreamKey& roStream) const
    {
        return (roStream.eDirection == EStreamDirection::INPUT ? 0 : m_uiNbOfInputs) + roStream.uiIndex;
    }
    void Seal(uint32_t uiStream, uint64_t uiNowNs);
    SRecorderBlock& TakeBlock(uint64_t uiNowNs);

    const uint32_t m_uiNbOfInputs;
    const uint64_t m_uiReachNs;
    std::vector<SRecorderBlock> m_aoBlocks;
    std::vector<SOpenBlock> m_aoOpen; // by stream
    std::vector<SRecorderBlock*> m_apoFree;
    std::vector<SRecorderBlock*> m_apoSealed; // a ring, in the order in which they were sealed
    size_t m_uiOldest = 0;
    size_t m_uiSealed = 0;
    std::vector<std::deque<SRecordedDescription>> m_aaoDescriptions; // by stream, oldest first
};

#endif
