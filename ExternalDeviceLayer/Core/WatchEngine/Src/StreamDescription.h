/*
 * What the board says about one stream, what changes in it, and the nominal rate that it means.
 */
#ifndef STREAM_DESCRIPTION_H
#define STREAM_DESCRIPTION_H

#include "NominalRate.h"
#include "StreamOutput.h"

class CStreamDescription
{
public:
    explicit CStreamDescription(CStreamOutput& roOutput) : m_roOutput(roOutput) {}

    /*
     * Takes in a description.
     *   bIsSkippedKnown  in  fields have told what was skipped
     * True when it tells of another rate or raster than the one before: another signal.
     */
    bool Take(const SStreamDescription& roDescription, bool bIsSkippedKnown);
    /* Whether the measured rate can change the nominal one. */
    bool IsAmbiguous() const { return m_bIsAmbiguous; }
    /* Chooses the nominal rate, by the rate measured over a second where one is known. */
    void ChooseNominal();
    const SNominalRate& GetNominal() const { return m_oNominal; }

private:
    void TellMembers(const SStreamDescription& roBefore, const SStreamDescription& roDescription, bool bOfSignal);
    bool TakeTimings(const SStreamDescription& roDescription);
    void TakeStates(const SStreamDescription& roDescription);
    void TakeSkipped(const SStreamDescription& roDescription);

    CStreamOutput& m_roOutput;
    bool m_bHasDescription = false;
    VtVideo_VidParam m_oTimings = {}; // the last ones of a signal
    bool m_bIsAmbiguous = false;      // they leave more than one nominal rate
    SNominalRate m_oNominal;
    uint64_t m_uiSkippedBefore = 0;
    bool m_bHasSkippedBefore = false;
};

#endif
