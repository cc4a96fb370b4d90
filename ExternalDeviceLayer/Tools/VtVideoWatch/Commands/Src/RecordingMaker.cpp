#include "RecordingMaker.h"

#include <utility>
#include <vector>

namespace
{

// What a recording says of the watch that made it.
SRecordingAbout Describe(const SWatchPublication& roPublication, const std::string& rszReason)
{
    SRecordingAbout oAbout;
    oAbout.szVersion = VT_WATCH_VERSION;
    oAbout.szHost = roPublication.szHost;
    oAbout.szBoard = roPublication.szBoard;
    oAbout.uiBoardVersion = roPublication.uiBoardVersion;
    oAbout.bIsSimulated = roPublication.bIsSimulated;
    oAbout.uiTickFrequencyHz = roPublication.oSnapshot.uiTickFrequencyHz;
    oAbout.szReason = rszReason;
    return oAbout;
}

} // namespace

CFault CRecordingMaker::Begin(const std::string& rszFile, const SWatchPublication& roPublication,
                              const std::string& rszReason, uint64_t uiFromNs)
{
    m_uiFromNs = uiFromNs;
    m_oArrivals.clear();
    m_oDescriptions.clear();
    std::vector<SStreamKey> aoStreams;
    WatchPublication_ForEachStream(roPublication.oSnapshot,
                                   [&](const SStreamFigures& roStream) { aoStreams.push_back(roStream.oKey); });
    return m_oWriter.Begin(rszFile, Describe(roPublication, rszReason), aoStreams);
}

bool CRecordingMaker::AddCut(const CRecorderCut& roCut, const SWatchPublication& roPublication)
{
    bool bIsWritten = true;
    roCut.ForEach(m_uiFromNs,
                  [&](const SStreamKey& roStream, const SFieldRecord& roField)
                  {
                      uint64_t& ruiLast = m_oArrivals[roStream];
                      if (roField.uiArrivalNs > ruiLast)
                      {
                          ruiLast = roField.uiArrivalNs;
                          bIsWritten = bIsWritten && m_oWriter.AddField(roStream, roField);
                      }
                  });
    for (const SRecordedDescription& roDescription : roCut.GetDescriptions())
    {
        uint64_t& ruiLast = m_oDescriptions[roDescription.oStream];
        if (roDescription.oDescription.uiMomentNs > ruiLast)
        {
            ruiLast = roDescription.oDescription.uiMomentNs;
            bIsWritten = bIsWritten && m_oWriter.AddDescription(roDescription);
        }
    }
    const SClockFigures& roClock = roPublication.oSnapshot.oClock;
    return bIsWritten && m_oWriter.AddClock({roClock.uiTick, roClock.uiMonotonicNs, roClock.iUtcNs,
                                             roClock.flTickUncertaintySeconds, roClock.iTaiOffsetSeconds});
}

bool CRecordingMaker::AddEvents(std::span<const SWatchEvent> aoEvents)
{
    bool bIsWritten = true;
    for (const SWatchEvent& roEvent : aoEvents)
    {
        bIsWritten = bIsWritten && m_oWriter.AddEvent(roEvent);
    }
    return bIsWritten;
}
