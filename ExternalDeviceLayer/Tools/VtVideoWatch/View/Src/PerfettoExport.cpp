#include "PerfettoExport.h"

#include <utility>

#include "EventKinds.h"
#include "FieldUnits.h"
#include "StreamId.h"

namespace
{

// A message is a run of members, each its number and kind, then its value.

constexpr uint64_t uiClockRealTime = 1;
constexpr uint64_t uiClockMonotonic = 3;
constexpr uint64_t uiSequence = 1;

enum class EEventType : uint8_t
{
    SLICE_BEGIN = 1,
    SLICE_END = 2,
    INSTANT = 3,
    COUNTER = 4
};

// The tracks of a stream; the first one is the parent of the others.
enum class ETrack : uint8_t
{
    STREAM,
    FIELDS,
    WAITS,
    EVENTS,
    LATENESS,
    READY,
    LOANED,
    SKIPPED,
    SET,
    COUNT
};

class CMessage
{
public:
    CMessage& Number(uint32_t uiMember, uint64_t uiValue)
    {
        PutVarint(uiMember << 3U);
        PutVarint(uiValue);
        return *this;
    }
    CMessage& Text(uint32_t uiMember, std::string_view szValue)
    {
        PutVarint(uiMember << 3U | 2U);
        PutVarint(szValue.size());
        m_szBytes += szValue;
        return *this;
    }
    CMessage& Inner(uint32_t uiMember, const CMessage& roInner) { return Text(uiMember, roInner.m_szBytes); }
    std::string_view Get() const { return m_szBytes; }

private:
    void PutVarint(uint64_t uiValue)
    {
        while (uiValue >= 0x80)
        {
            m_szBytes += static_cast<char>(uiValue | 0x80);
            uiValue >>= 7U;
        }
        m_szBytes += static_cast<char>(uiValue);
    }

    std::string m_szBytes;
};

class CPerfettoExport : public IRecordingExport
{
public:
    explicit CPerfettoExport(ExportSink fnSink) : m_fnSink(std::move(fnSink)) {}

    bool Begin(const SRecordingAbout& roAbout, const SRecordedClock& roClock) override;
    bool BeginStream(const SStreamKey& roStream, const std::string& rszName) override;
    bool AddField(const SFieldRecord& roField) override;
    bool AddEvent(const SWatchEvent& roEvent) override;
    bool EndStream() override { return EndField(m_uiLastFieldNs + m_uiPeriodNs); }

private:
    uint64_t GetTrack(ETrack eTrack) const
    {
        return (m_uiStream * static_cast<uint64_t>(ETrack::COUNT)) + static_cast<uint64_t>(eTrack) + 1;
    }
    bool Put(const CMessage& roPacket) { return m_fnSink(CMessage().Inner(1, roPacket).Get()); }
    bool PutTrack(ETrack eTrack, const std::string& rszName, bool bIsCounter, const char* szUnit = nullptr);
    bool PutEvent(uint64_t uiMomentNs, ETrack eTrack, EEventType eType, std::string_view szName);
    bool PutCounter(uint64_t uiMomentNs, ETrack eTrack, uint64_t uiValue);
    bool BeginField(const SFieldRecord& roField);
    bool EndField(uint64_t uiMomentNs);

    ExportSink m_fnSink;
    SRecordedClock m_oClock;
    uint32_t m_uiTickFrequencyHz = 1;
    uint64_t m_uiStream = 0; // 1 for the first one
    SFieldRecord m_oLast = {};
    uint64_t m_uiLastFieldNs = 0;
    uint64_t m_uiPeriodNs = 0; // of the last two fields that followed each other
    bool m_bIsInField = false;
};

bool CPerfettoExport::Begin(const SRecordingAbout& roAbout, const SRecordedClock& roClock)
{
    m_oClock = roClock;
    m_uiTickFrequencyHz = roAbout.uiTickFrequencyHz;
    const CMessage oMonotonic = CMessage().Number(1, uiClockMonotonic).Number(2, roClock.uiMonotonicNs);
    const CMessage oUtc =
        CMessage().Number(1, uiClockRealTime).Number(2, static_cast<uint64_t>(roClock.iUtcNs > 0 ? roClock.iUtcNs : 0));
    const CMessage oSnapshot = CMessage().Inner(1, oMonotonic).Inner(1, oUtc).Number(2, uiClockMonotonic);
    return Put(CMessage().Number(10, uiSequence).Number(13, 1).Inner(6, oSnapshot));
}

bool CPerfettoExport::PutTrack(ETrack eTrack, const std::string& rszName, bool bIsCounter, const char* szUnit)
{
    CMessage oTrack;
    oTrack.Number(1, GetTrack(eTrack)).Text(2, rszName);
    if (eTrack != ETrack::STREAM)
    {
        oTrack.Number(5, GetTrack(ETrack::STREAM));
    }
    if (bIsCounter)
    {
        oTrack.Inner(8, CMessage().Text(6, szUnit));
    }
    return Put(CMessage().Number(10, uiSequence).Inner(60, oTrack));
}

bool CPerfettoExport::BeginStream(const SStreamKey& roStream, const std::string& rszName)
{
    ++m_uiStream;
    m_oLast = {};
    m_uiPeriodNs = 0;
    m_bIsInField = false;
    const std::string szId = StreamId_Print(roStream);
    const bool bIsInput = roStream.eDirection == EStreamDirection::INPUT;
    bool bIsPut =
        PutTrack(ETrack::STREAM, rszName.empty() ? szId : szId + " " + rszName, false) &&
        PutTrack(ETrack::FIELDS, szId + " fields", false) && PutTrack(ETrack::WAITS, szId + " waits", false) &&
        PutTrack(ETrack::EVENTS, szId + " events", false) && PutTrack(ETrack::LATENESS, szId + " lateness", true, "ns");
    if (bIsInput)
    {
        bIsPut = bIsPut && PutTrack(ETrack::READY, szId + " ready buffers", true, "buffers") &&
                 PutTrack(ETrack::LOANED, szId + " loaned buffers", true, "buffers") &&
                 PutTrack(ETrack::SKIPPED, szId + " skipped pictures", true, "pictures");
    }
    else
    {
        bIsPut = bIsPut && PutTrack(ETrack::SET, szId + " set buffers", true, "buffers");
    }
    return bIsPut;
}

bool CPerfettoExport::PutEvent(uint64_t uiMomentNs, ETrack eTrack, EEventType eType, std::string_view szName)
{
    CMessage oEvent;
    oEvent.Number(9, static_cast<uint64_t>(eType)).Number(11, GetTrack(eTrack));
    if (!szName.empty())
    {
        oEvent.Text(23, szName);
    }
    return Put(CMessage().Number(8, uiMomentNs).Number(58, uiClockMonotonic).Number(10, uiSequence).Inner(11, oEvent));
}

bool CPerfettoExport::PutCounter(uint64_t uiMomentNs, ETrack eTrack, uint64_t uiValue)
{
    const CMessage oEvent = CMessage()
                                .Number(9, static_cast<uint64_t>(EEventType::COUNTER))
                                .Number(11, GetTrack(eTrack))
                                .Number(30, uiValue);
    return Put(CMessage().Number(8, uiMomentNs).Number(58, uiClockMonotonic).Number(10, uiSequence).Inner(11, oEvent));
}

bool CPerfettoExport::EndField(uint64_t uiMomentNs)
{
    const bool bWasInField = std::exchange(m_bIsInField, false);
    return !bWasInField || PutEvent(uiMomentNs, ETrack::FIELDS, EEventType::SLICE_END, {});
}

bool CPerfettoExport::BeginField(const SFieldRecord& roField)
{
    const uint64_t uiMomentNs = RecordingExport_GetMonotonicNs(roField.uiTick, m_oClock, m_uiTickFrequencyHz);
    bool bIsPut = true;
    if (m_bIsInField)
    {
        const uint64_t uiIntervalNs = uiMomentNs - m_uiLastFieldNs;
        const bool bFollows = roField.uiFieldCounter - m_oLast.uiFieldCounter == uiCountsPerField;
        m_uiPeriodNs = bFollows ? uiIntervalNs : m_uiPeriodNs;
        bIsPut = EndField(m_uiLastFieldNs + std::min(uiIntervalNs, bFollows ? uiIntervalNs : m_uiPeriodNs));
    }
    m_uiLastFieldNs = uiMomentNs;
    m_bIsInField = true;
    return bIsPut &&
           PutEvent(uiMomentNs, ETrack::FIELDS, EEventType::SLICE_BEGIN, roField.bIsTopField ? "top" : "bottom");
}

bool CPerfettoExport::AddField(const SFieldRecord& roField)
{
    static constexpr const char* aszResults[] = {"field", "timed out", "canceled", "gone"};
    const char* szResult = aszResults[static_cast<size_t>(roField.eResult) % std::size(aszResults)];
    bool bIsPut = PutEvent(roField.uiWaitBeginNs, ETrack::WAITS, EEventType::SLICE_BEGIN, szResult) &&
                  PutEvent(roField.uiArrivalNs, ETrack::WAITS, EEventType::SLICE_END, {});
    if (roField.eResult != EWaitResult::FIELD)
    {
        return bIsPut;
    }
    bIsPut = bIsPut && BeginField(roField) &&
             PutCounter(roField.uiArrivalNs, ETrack::LATENESS, roField.uiArrivalNs - m_uiLastFieldNs);
    if (roField.bHasBuffers)
    {
        bIsPut = bIsPut && PutCounter(roField.uiArrivalNs, ETrack::READY, roField.uiReadyBuffers) &&
                 PutCounter(roField.uiArrivalNs, ETrack::LOANED, roField.uiLoanedBuffers);
    }
    if (roField.bHasSkippedBuffers)
    {
        bIsPut = bIsPut && PutCounter(roField.uiArrivalNs, ETrack::SKIPPED, roField.uiSkippedBuffers);
    }
    if (roField.uiSetBufferCounter != m_oLast.uiSetBufferCounter)
    {
        bIsPut = bIsPut && PutCounter(m_uiLastFieldNs, ETrack::SET, roField.uiSetBufferCounter);
    }
    m_oLast = roField;
    return bIsPut;
}

bool CPerfettoExport::AddEvent(const SWatchEvent& roEvent)
{
    const uint64_t uiMomentNs = m_oClock.uiMonotonicNs + static_cast<uint64_t>(roEvent.iUtcNs - m_oClock.iUtcNs);
    return PutEvent(uiMomentNs, ETrack::EVENTS, EEventType::INSTANT, EventKind_Get(roEvent.eKind).szName);
}

} // namespace

std::unique_ptr<IRecordingExport> PerfettoExport_Make(ExportSink fnSink)
{
    return std::make_unique<CPerfettoExport>(std::move(fnSink));
}
