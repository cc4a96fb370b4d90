#include "StreamDescription.h"

#include <cstring>

bool CStreamDescription::Take(const SStreamDescription& roDescription)
{
    const bool bIsOther = TakeTimings(roDescription);
    TakeStates(roDescription);
    if (roDescription.bHasSkippedBuffers)
    {
        TakeSkipped(roDescription);
    }
    m_roOutput.GetFigures().oDescription = roDescription;
    m_bHasDescription = true;
    return bIsOther;
}

void CStreamDescription::TakeSkipped(const SStreamDescription& roDescription)
{
    if (m_bHasSkippedBefore && roDescription.uiSkippedBuffers != m_uiSkippedBefore)
    {
        // A count that is smaller than before began anew at 0.
        const bool bRestarted = roDescription.uiSkippedBuffers < m_uiSkippedBefore;
        const uint64_t uiSkipped = roDescription.uiSkippedBuffers - (bRestarted ? 0 : m_uiSkippedBefore);
        m_roOutput.GetCounters().uiBuffersSkipped += uiSkipped;
        if (uiSkipped > 0)
        {
            m_roOutput.AddEvent(m_roOutput.MakeEvent(EWatchEventKind::BUFFERS_SKIPPED, 0, uiSkipped),
                                roDescription.uiMomentNs);
        }
    }
    m_uiSkippedBefore = roDescription.uiSkippedBuffers;
    m_bHasSkippedBefore = true;
}

bool CStreamDescription::TakeTimings(const SStreamDescription& roDescription)
{
    const VtVideo_VidParam& roTimings = roDescription.oTimings;
    const bool bHasSignal = roTimings.uiHActive != 0 && roTimings.uiVActive != 0;
    if (!bHasSignal || std::memcmp(&roTimings, &m_oTimings, sizeof(roTimings)) == 0)
    {
        return false;
    }
    const bool bIsFirst = m_oTimings.uiHActive == 0;
    const double flBefore = m_roOutput.GetFigures().flNominalRateHz;
    m_oTimings = roTimings;
    m_bIsAmbiguous = NominalRate_IsAmbiguous(roTimings);
    m_oNominal = {};
    ChooseNominal();
    if (bIsFirst)
    {
        return false;
    }
    ++m_roOutput.GetCounters().uiTimingChanges;
    SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::TIMINGS_CHANGED);
    oEvent.flBefore = flBefore;
    oEvent.flAfter = m_roOutput.GetFigures().flNominalRateHz;
    m_roOutput.AddEvent(oEvent, roDescription.uiMomentNs);
    return true;
}

void CStreamDescription::TakeStates(const SStreamDescription& roDescription)
{
    const SStreamDescription& roBefore = m_roOutput.GetFigures().oDescription;
    const auto Compare = [&](EWatchEventKind eKind, uint64_t uiBefore, uint64_t uiAfter, uint64_t& ruiCounter)
    {
        if (!m_bHasDescription || uiBefore == uiAfter)
        {
            return;
        }
        ++ruiCounter;
        SWatchEvent oEvent = m_roOutput.MakeEvent(eKind);
        oEvent.uiBefore = uiBefore;
        oEvent.uiAfter = uiAfter;
        m_roOutput.AddEvent(oEvent, roDescription.uiMomentNs);
    };
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    Compare(EWatchEventKind::FORMAT_CHANGED, roBefore.ePixelFormat, roDescription.ePixelFormat,
            roCounters.uiFormatChanges);
    if (!m_roOutput.IsOutput())
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

void CStreamDescription::ChooseNominal()
{
    SStreamFigures& roFigures = m_roOutput.GetFigures();
    const SEstimate& roMeasured = roFigures.aoRateHz[static_cast<size_t>(ERateWindow::SECONDS_1)];
    const SNominalRate oRate = NominalRate_Choose(m_oTimings, roMeasured.bIsValid ? roMeasured.flValue : 0.0);
    if (oRate == m_oNominal)
    {
        return;
    }
    m_oNominal = oRate;
    roFigures.uiNominalNumerator = oRate.uiNumerator;
    roFigures.uiNominalDenominator = oRate.uiDenominator;
    roFigures.flNominalRateHz = oRate.GetHz();
    roFigures.flLineSeconds = NominalRate_GetLineSeconds(m_oTimings, oRate);
}
