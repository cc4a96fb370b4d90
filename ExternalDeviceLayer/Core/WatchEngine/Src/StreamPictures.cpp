#include "StreamPictures.h"

#include "FieldUnits.h"

namespace
{

constexpr uint64_t uiMostBuffersPerField = 1000; // beyond, the counter began anew

} // namespace

void CStreamPictures::TakeFirst(const SFieldRecord& roRecord)
{
    m_oFeed.Restart();
    m_oQueue.Restart();
    m_oOrder.Restart();
    static_cast<void>(m_oFeed.Take(1, 0, roRecord.uiTick));
    m_uiSetBufferCounter = roRecord.uiSetBufferCounter;
    m_uiFieldCounter = roRecord.uiFieldCounter;
    TakeBuffers(roRecord);
}

void CStreamPictures::TakeNext(const SFieldRecord& roRecord, int64_t iFields)
{
    if (m_roOutput.IsOutput())
    {
        TakeFeed(roRecord, iFields);
    }
    else
    {
        TakeBuffers(roRecord);
    }
    if (m_bInterlaced)
    {
        TakeOrder(roRecord);
    }
    m_uiFieldCounter = roRecord.uiFieldCounter;
}

void CStreamPictures::TakeFeed(const SFieldRecord& roRecord, int64_t iFields)
{
    const uint64_t uiSet = roRecord.uiSetBufferCounter - m_uiSetBufferCounter;
    m_uiSetBufferCounter = roRecord.uiSetBufferCounter;
    if (uiSet > uiMostBuffersPerField * static_cast<uint64_t>(iFields))
    {
        m_oFeed.Restart();
        return;
    }
    const SFeedResult oResult = m_oFeed.Take(iFields, uiSet, roRecord.uiTick);
    m_roOutput.GetCounters().uiRepeatedBeyond += oResult.uiBeyond;
    if (oResult.IsOfNote())
    {
        TellFeed(oResult, roRecord.uiArrivalNs);
    }
}

void CStreamPictures::TellFeed(const SFeedResult& roResult, uint64_t uiArrivalNs)
{
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    if (roResult.bCadenceChanged)
    {
        ++roCounters.uiCadenceChanges;
        SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::CADENCE_CHANGED, roResult.uiTick);
        oEvent.uiBefore = Cadence_Pack(roResult.oBefore);
        oEvent.uiAfter = Cadence_Pack(m_oFeed.GetCadence());
        m_roOutput.AddEvent(oEvent, uiArrivalNs);
    }
    if (roResult.bHasStalled)
    {
        ++roCounters.uiFeedStalls;
        m_roOutput.AddEvent(m_roOutput.MakeEvent(EWatchEventKind::FEED_STALLED, m_oFeed.GetStalledTick()), uiArrivalNs);
    }
    if (roResult.bHasResumed)
    {
        SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::FEED_RESUMED, roResult.uiTick);
        oEvent.flSeconds = static_cast<double>(roResult.uiStalledTicks) * m_roOutput.GetSecondsPerTick();
        m_roOutput.AddEvent(oEvent, uiArrivalNs);
    }
}

void CStreamPictures::TakeBuffers(const SFieldRecord& roRecord)
{
    if (roRecord.bHasBuffers)
    {
        m_oQueue.Take(roRecord);
    }
    if (!roRecord.bHasSkippedBuffers)
    {
        return;
    }
    // A count that is smaller than before began anew at 0.
    const uint64_t uiBefore = roRecord.uiSkippedBuffers < m_uiSkipped ? 0 : m_uiSkipped;
    const uint64_t uiSkipped = m_bHasSkipped ? roRecord.uiSkippedBuffers - uiBefore : 0;
    m_uiSkipped = roRecord.uiSkippedBuffers;
    m_bHasSkipped = true;
    if (uiSkipped > 0)
    {
        m_roOutput.GetCounters().uiBuffersSkipped += uiSkipped;
        SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::BUFFERS_SKIPPED, roRecord.uiTick, uiSkipped);
        oEvent.flSeconds = static_cast<double>(m_oQueue.GetFillTicks(roRecord.uiTick)) * m_roOutput.GetSecondsPerTick();
        m_roOutput.AddEvent(oEvent, roRecord.uiArrivalNs);
    }
}

void CStreamPictures::TakeOrder(const SFieldRecord& roRecord)
{
    const bool bFollows = roRecord.uiFieldCounter - m_uiFieldCounter == uiCountsPerField;
    if (m_oOrder.Take(roRecord.uiFieldCounter, roRecord.bIsTopField, bFollows, roRecord.uiTick))
    {
        ++m_roOutput.GetCounters().uiFieldOrderSwaps;
        m_roOutput.AddEvent(m_roOutput.MakeEvent(EWatchEventKind::FIELD_ORDER_SWAPPED, m_oOrder.GetSwapTick()),
                            roRecord.uiArrivalNs);
    }
}

void CStreamPictures::Describe(const SStreamDescription& roDescription)
{
    if (roDescription.oTimings.uiHActive != 0)
    {
        m_bInterlaced = roDescription.oTimings.bInterlaced != 0;
        m_oOrder.Describe(roDescription.oTimings.bBottomFieldFirst != 0);
    }
}

int64_t CStreamPictures::GetUtcNs(uint64_t uiTick, const SClockReading& roClock) const
{
    const CTickClock& roTicks = m_roOutput.GetContext().oClock;
    const uint64_t uiNs = roTicks.IsKnown() ? roTicks.ToMonotonicNs(uiTick) : roClock.uiMonotonicNs;
    return roClock.GetUtcNs(uiNs);
}

void CStreamPictures::Analyse(const SClockReading& roClock)
{
    SStreamFigures& roFigures = m_roOutput.GetFigures();
    if (m_roOutput.IsOutput())
    {
        SFeedFigures& roFeed = roFigures.oFeed;
        roFeed.bIsEstimated = m_roOutput.GetContext().bSetsAreEstimated;
        roFeed.bHasFed = m_oFeed.HasFed();
        roFeed.oCadence = m_oFeed.GetCadence();
        roFeed.iCadenceSinceUtcNs = roFeed.oCadence.IsKnown() ? GetUtcNs(m_oFeed.GetCadenceTick(), roClock) : 0;
        roFeed.bIsStalled = m_oFeed.IsStalled();
        roFeed.iStalledSinceUtcNs = roFeed.bIsStalled ? GetUtcNs(m_oFeed.GetStalledTick(), roClock) : 0;
    }
    else
    {
        // Both fields of an interlaced frame are one picture.
        const double flPictures = m_bInterlaced ? roFigures.flNominalRateHz / 2.0 : roFigures.flNominalRateHz;
        SQueueFigures& roQueue = roFigures.oQueue;
        m_oQueue.Fill(roClock.uiMonotonicNs, flPictures, roQueue);
        roQueue.bIsConsumerStalled = m_oQueue.GetStalledTick() != 0;
        roQueue.iConsumerTookUtcNs = m_oQueue.GetTakenTick() != 0 ? GetUtcNs(m_oQueue.GetTakenTick(), roClock) : 0;
        roQueue.iConsumerStalledSinceUtcNs =
            roQueue.bIsConsumerStalled ? GetUtcNs(m_oQueue.GetStalledTick(), roClock) : 0;
    }
    SFieldOrderFigures& roOrder = roFigures.oFieldOrder;
    roOrder.bIsKnown = m_bInterlaced && m_oOrder.IsKnown();
    roOrder.bIsSwapped = roOrder.bIsKnown && m_oOrder.IsSwapped();
    roOrder.iSwappedUtcNs = roOrder.bIsSwapped ? GetUtcNs(m_oOrder.GetSwapTick(), roClock) : 0;
}
