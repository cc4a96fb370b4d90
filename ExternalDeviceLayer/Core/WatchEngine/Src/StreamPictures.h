/*
 * The pictures of one stream, field by field: which fields of an output show another one, where the buffers of an input
 * are, and in which order the fields of an interlaced signal come.
 */
#ifndef STREAM_PICTURES_H
#define STREAM_PICTURES_H

#include "FeedTracker.h"
#include "FieldOrder.h"
#include "QueueTracker.h"
#include "StreamOutput.h"

class CStreamPictures
{
public:
    explicit CStreamPictures(CStreamOutput& roOutput)
        : m_roOutput(roOutput),
          m_oFeed(roOutput.GetContext().uiTickFrequencyHz, roOutput.GetContext().bSetsAreEstimated),
          m_oQueue(roOutput.GetContext().uiTickFrequencyHz)
    {
    }

    /* A field with nothing before it that it could be compared with. */
    void TakeFirst(const SFieldRecord& roRecord);
    /* A field that comes iFields fields (at least 1) after the one before. */
    void TakeNext(const SFieldRecord& roRecord, int64_t iFields);
    void Describe(const SStreamDescription& roDescription);
    /* Brings the figures up to now. */
    void Analyse(const SClockReading& roClock);

    /* Whether fields tell the count of skipped buffers: a description's is older then. */
    bool TellsSkipped() const { return m_bHasSkipped; }

private:
    void TakeFeed(const SFieldRecord& roRecord, int64_t iFields);
    void TellFeed(const SFeedResult& roResult, uint64_t uiArrivalNs);
    void TakeBuffers(const SFieldRecord& roRecord);
    void TakeOrder(const SFieldRecord& roRecord);
    int64_t GetUtcNs(uint64_t uiTick, const SClockReading& roClock) const;

    CStreamOutput& m_roOutput;
    CFeedTracker m_oFeed;
    CQueueTracker m_oQueue;
    CFieldOrder m_oOrder;
    bool m_bInterlaced = false;
    bool m_bHasSkipped = false;
    uint64_t m_uiSkipped = 0;
    uint64_t m_uiFieldCounter = 0; // of the last field
    uint64_t m_uiSetBufferCounter = 0;
};

#endif
