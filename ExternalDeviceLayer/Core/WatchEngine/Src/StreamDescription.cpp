// What the board says about a stream, and what changes in it. See StreamWatch.h.
#include <cstring>

#include "StreamWatch.h"

void CStreamWatch::TakeDescription(const SStreamDescription& roDescription)
{
    TakeTimings(roDescription);
    TakeStates(roDescription);
    SStreamCounters& roCounters = m_oFigures.oCounters;
    if (roDescription.bHasSkippedBuffers)
    {
        if (m_bHasSkippedBefore && roDescription.uiSkippedBuffers != m_uiSkippedBefore)
        {
            // A count that is smaller than before began anew at 0.
            const bool bRestarted = roDescription.uiSkippedBuffers < m_uiSkippedBefore;
            const uint64_t uiSkipped = roDescription.uiSkippedBuffers - (bRestarted ? 0 : m_uiSkippedBefore);
            roCounters.uiBuffersSkipped += uiSkipped;
            SWatchEvent oEvent = MakeEvent(EWatchEventKind::BUFFERS_SKIPPED, 0, uiSkipped);
            if (uiSkipped > 0)
            {
                m_roContext.oEvents.Add(oEvent, roDescription.uiMomentNs);
            }
        }
        m_uiSkippedBefore = roDescription.uiSkippedBuffers;
        m_bHasSkippedBefore = true;
    }
    m_oFigures.oDescription = roDescription;
    m_bHasDescription = true;
}

void CStreamWatch::TakeTimings(const SStreamDescription& roDescription)
{
    const VtVideo_VidParam& roTimings = roDescription.oTimings;
    const bool bHasSignal = roTimings.uiHActive != 0 && roTimings.uiVActive != 0;
    if (!bHasSignal || std::memcmp(&roTimings, &m_oTimings, sizeof(roTimings)) == 0)
    {
        return;
    }
    const bool bIsFirst = m_oTimings.uiHActive == 0;
    const double flBefore = m_oFigures.flNominalRateHz;
    m_oTimings = roTimings;
    m_bIsAmbiguous = NominalRate_IsAmbiguous(roTimings);
    m_oPhase.oNominal = {};
    ChooseNominal();
    if (bIsFirst)
    {
        return;
    }
    ++m_oFigures.oCounters.uiTimingChanges;
    SWatchEvent oEvent = MakeEvent(EWatchEventKind::TIMINGS_CHANGED);
    oEvent.flBefore = flBefore;
    oEvent.flAfter = m_oFigures.flNominalRateHz;
    m_roContext.oEvents.Add(oEvent, roDescription.uiMomentNs);
    RestartGrid();
}

void CStreamWatch::TakeStates(const SStreamDescription& roDescription)
{
    const SStreamDescription& roBefore = m_oFigures.oDescription;
    const auto Compare = [&](EWatchEventKind eKind, uint64_t uiBefore, uint64_t uiAfter, uint64_t& ruiCounter)
    {
        if (!m_bHasDescription || uiBefore == uiAfter)
        {
            return;
        }
        ++ruiCounter;
        SWatchEvent oEvent = MakeEvent(eKind);
        oEvent.uiBefore = uiBefore;
        oEvent.uiAfter = uiAfter;
        m_roContext.oEvents.Add(oEvent, roDescription.uiMomentNs);
    };
    SStreamCounters& roCounters = m_oFigures.oCounters;
    Compare(EWatchEventKind::FORMAT_CHANGED, roBefore.ePixelFormat, roDescription.ePixelFormat,
            roCounters.uiFormatChanges);
    if (m_oFigures.oKey.eDirection == EStreamDirection::INPUT)
    {
        Compare(EWatchEventKind::CAPTURE_CHANGED, roBefore.eCaptureState, roDescription.eCaptureState,
                roCounters.uiStateChanges);
    }
    else
    {
        Compare(EWatchEventKind::POWER_CHANGED, roBefore.ePowerState, roDescription.ePowerState,
                roCounters.uiStateChanges);
    }
}

void CStreamWatch::ChooseNominal()
{
    const SEstimate& roMeasured = m_oFigures.aoRateHz[static_cast<size_t>(ERateWindow::SECONDS_1)];
    const SNominalRate oRate = NominalRate_Choose(m_oTimings, roMeasured.bIsValid ? roMeasured.flValue : 0.0);
    if (oRate == m_oPhase.oNominal)
    {
        return;
    }
    m_oPhase.oNominal = oRate;
    m_oTimeDeviation.Clear(); // its phases are told against this rate
    m_oFigures.uiNominalNumerator = oRate.uiNumerator;
    m_oFigures.uiNominalDenominator = oRate.uiDenominator;
    m_oFigures.flNominalRateHz = oRate.GetHz();
    m_oFigures.flLineSeconds = NominalRate_GetLineSeconds(m_oTimings, oRate);
}
