#include "CsvExport.h"

#include <utility>

#include "StreamId.h"

namespace
{

constexpr const char* aszResults[] = {"field", "timed_out", "canceled", "gone"};

std::string Quote(const std::string& rszText)
{
    if (rszText.find_first_of(",\"\r\n") == std::string::npos)
    {
        return rszText;
    }
    std::string szQuoted = "\"";
    for (const char c : rszText)
    {
        szQuoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return szQuoted + '"';
}

class CCsvExport : public IRecordingExport
{
public:
    explicit CCsvExport(ExportSink fnSink) : m_fnSink(std::move(fnSink)) {}

    bool Begin(const SRecordingAbout& roAbout, const SRecordedClock& roClock) override
    {
        m_oClock = roClock;
        m_uiTickFrequencyHz = roAbout.uiTickFrequencyHz;
        return m_fnSink("stream,name,utc_ns,tick,field_counter,set_buffer_counter,parity,ready,loaned,internal,skipped,"
                        "wait_begin_ns,arrival_ns,result\r\n");
    }
    bool BeginStream(const SStreamKey& roStream, const std::string& rszName) override
    {
        m_bIsInput = roStream.eDirection == EStreamDirection::INPUT;
        m_szBegin = StreamId_Print(roStream) + "," + Quote(rszName) + ",";
        return true;
    }
    bool AddField(const SFieldRecord& roField) override;
    bool AddEvent(const SWatchEvent& /*roEvent*/) override { return true; } // rows are waits
    bool EndStream() override { return true; }

private:
    ExportSink m_fnSink;
    SRecordedClock m_oClock;
    uint32_t m_uiTickFrequencyHz = 1;
    bool m_bIsInput = true;
    std::string m_szBegin;
};

bool CCsvExport::AddField(const SFieldRecord& roField)
{
    const auto fnNumber = [](uint64_t uiValue, bool bIsKnown)
    { return (bIsKnown ? std::to_string(uiValue) : "") + ","; };
    const bool bIsField = roField.eResult == EWaitResult::FIELD;
    const uint64_t uiMomentNs =
        bIsField ? RecordingExport_GetMonotonicNs(roField.uiTick, m_oClock, m_uiTickFrequencyHz) : roField.uiArrivalNs;
    const auto iUtcNs = m_oClock.iUtcNs + static_cast<int64_t>(uiMomentNs - m_oClock.uiMonotonicNs);
    const bool bHasBuffers = bIsField && roField.bHasBuffers;
    const bool bHasSkipped = bIsField && roField.bHasSkippedBuffers;
    return m_fnSink(m_szBegin + std::to_string(iUtcNs) + "," + fnNumber(roField.uiTick, bIsField) +
                    fnNumber(roField.uiFieldCounter, bIsField) +
                    fnNumber(roField.uiSetBufferCounter, bIsField && !m_bIsInput) +
                    fnNumber(roField.bIsTopField ? 1 : 0, bIsField) + fnNumber(roField.uiReadyBuffers, bHasBuffers) +
                    fnNumber(roField.uiLoanedBuffers, bHasBuffers) + fnNumber(roField.uiInternalBuffers, bHasBuffers) +
                    fnNumber(roField.uiSkippedBuffers, bHasSkipped) + fnNumber(roField.uiWaitBeginNs, true) +
                    fnNumber(roField.uiArrivalNs, true) +
                    aszResults[static_cast<size_t>(roField.eResult) % std::size(aszResults)] + "\r\n");
}

} // namespace

std::unique_ptr<IRecordingExport> CsvExport_Make(ExportSink fnSink)
{
    return std::make_unique<CCsvExport>(std::move(fnSink));
}
