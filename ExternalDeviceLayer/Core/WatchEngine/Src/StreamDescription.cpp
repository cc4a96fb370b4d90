#include "StreamDescription.h"

#include <cstring>
#include <utility>

#include "DescriptionMembers.h"

namespace
{

// Pixels and lines of a frame with its blanking; those of a field's blanking come twice, which nobody compares.
std::pair<uint64_t, uint64_t> GetRaster(const VtVideo_VidParam& roTimings)
{
    return {uint64_t{roTimings.uiHActive} + roTimings.uiHFPorch + roTimings.uiHSync + roTimings.uiHBPorch,
            uint64_t{roTimings.uiVActive} + roTimings.uiVFPorch + roTimings.uiVSync + roTimings.uiVBPorch};
}

} // namespace

bool CStreamDescription::Take(const SStreamDescription& roDescription, bool bIsSkippedKnown)
{
    const bool bIsOther = TakeTimings(roDescription);
    TakeStates(roDescription);
    if (roDescription.bHasSkippedBuffers && !bIsSkippedKnown)
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
    const VtVideo_VidParam oBefore = m_oTimings;
    const SNominalRate oNominalBefore = m_oNominal;
    m_oTimings = roTimings;
    m_bIsAmbiguous = NominalRate_IsAmbiguous(roTimings);
    m_oNominal = {};
    ChooseNominal();
    if (bIsFirst)
    {
        return false;
    }
    ++m_roOutput.GetCounters().uiTimingChanges;
    SStreamDescription oDescriptionBefore = {};
    oDescriptionBefore.oTimings = oBefore;
    TellMembers(oDescriptionBefore, roDescription, true);
    if (oNominalBefore == m_oNominal && GetRaster(oBefore) == GetRaster(roTimings))
    {
        return false;
    }
    SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::TIMINGS_CHANGED);
    oEvent.flBefore = flBefore;
    oEvent.flAfter = m_roOutput.GetFigures().flNominalRateHz;
    m_roOutput.AddEvent(oEvent, roDescription.uiMomentNs);
    return true;
}

// Each member that is another one than before, by its name.
void CStreamDescription::TellMembers(const SStreamDescription& roBefore, const SStreamDescription& roDescription,
                                     bool bOfSignal)
{
    const auto aoMembers = DescriptionMembers_Get();
    for (uint32_t uiMember = 0; uiMember < aoMembers.size(); ++uiMember)
    {
        const SDescriptionMember& roMember = aoMembers[uiMember];
        if (roMember.bIsOfSignal != bOfSignal || roMember.fnGet(roBefore) == roMember.fnGet(roDescription))
        {
            continue;
        }
        SWatchEvent oEvent = m_roOutput.MakeEvent(EWatchEventKind::DESCRIPTION_CHANGED);
        oEvent.uiGroup = uiMember;
        oEvent.uiBefore = roMember.fnGet(roBefore);
        oEvent.uiAfter = roMember.fnGet(roDescription);
        m_roOutput.AddEvent(oEvent, roDescription.uiMomentNs);
    }
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
    if (m_bHasDescription)
    {
        TellMembers(roBefore, roDescription, false);
    }
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
