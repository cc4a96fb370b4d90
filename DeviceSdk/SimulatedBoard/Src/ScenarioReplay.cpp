#include "ScenarioReplay.h"

#include <algorithm>
#include <utility>

#include "ScenarioEvents.h"
#include "TextLine.h"

namespace
{

constexpr uint64_t uiLeadsPerSecond = 5; // a fifth of a second to open the streams in, before the first field

// How long a field lasts is what the recording shows; the rest is what it says.
SVideoTiming MakeTiming(const CReplayTrack& roTrack, uint32_t uiTickFreqHz)
{
    SVideoTiming oTiming = *VideoStandard_Find("1080p60");
    if (const SReplayDescription* poDescription = roTrack.FindTimings())
    {
        const VtVideo_VidParam& roVidParam = poDescription->oVidParam;
        const auto fnTake = [](uint32_t uiValue) { return std::min(uiValue, 16384U); };
        oTiming.uiHActive = std::max(fnTake(roVidParam.uiHActive), 1U);
        oTiming.uiHFPorch = fnTake(roVidParam.uiHFPorch);
        oTiming.uiHSync = fnTake(roVidParam.uiHSync);
        oTiming.uiHBPorch = fnTake(roVidParam.uiHBPorch);
        oTiming.uiVActive = std::max(fnTake(roVidParam.uiVActive), 1U);
        oTiming.uiVFPorch = fnTake(roVidParam.uiVFPorch);
        oTiming.uiVSync = fnTake(roVidParam.uiVSync);
        oTiming.uiVBPorch = fnTake(roVidParam.uiVBPorch);
        oTiming.bInterlaced = roVidParam.bInterlaced != 0;
        oTiming.bBottomFieldFirst = roVidParam.bBottomFieldFirst != 0;
    }
    const UInt128 uiPixels = UInt128{VideoTiming_GetHTotal(oTiming)} * VideoTiming_GetVTotal(oTiming);
    const UInt128 uiPerField = UInt128{roTrack.GetFieldTicks()} * (oTiming.bInterlaced ? 2 : 1);
    const auto uiClockHz = static_cast<uint64_t>((uiPixels * uiTickFreqHz + uiPerField / 2) / uiPerField);
    oTiming.uiPixelClockHz = std::clamp<uint64_t>(uiClockHz, 1, 10'000'000'000);
    oTiming.bClockBy1001 = false;
    return oTiming;
}

using Tracks = std::vector<std::shared_ptr<CReplayTrack>>;

// From the begin of the first stream to the end of the last.
void FindReach(const Tracks& rapoTracks, uint64_t& ruiBegin, uint64_t& ruiEnd)
{
    for (const std::shared_ptr<CReplayTrack>& rpoTrack : rapoTracks)
    {
        ruiBegin = std::min(ruiBegin, rpoTrack->GetFirstDue());
        ruiEnd = std::max(ruiEnd, rpoTrack->GetEndDue());
    }
}

// False when a stream has nothing to play.
bool MakeTracks(std::vector<SReplayStream>& raoStreams, const SReplay& roReplay, bool bKeepsTimeOuts,
                Tracks& rapoTracks)
{
    for (SReplayStream& roStream : raoStreams)
    {
        rapoTracks.push_back(std::make_shared<CReplayTrack>(std::move(roStream), roReplay, bKeepsTimeOuts));
    }
    return std::ranges::none_of(rapoTracks, [](const auto& rpoTrack) { return rpoTrack->IsEmpty(); });
}

void AddConnector(const CReplayTrack& roTrack, EDirection eDirection, uint32_t uiIndex, SChip& roChip)
{
    const std::string szName = TextLine_Make(roTrack.GetName());
    if (szName.empty())
    {
        return;
    }
    VtBoard_ConnectorInfo oConnector{};
    oConnector.uiSize = sizeof(oConnector);
    oConnector.eType = VtBoard_ConnectorType_UNKNOWN;
    szName.copy(oConnector.szName, sizeof(oConnector.szName) - 1);
    if (eDirection == EDirection::INPUT)
    {
        oConnector.bVideoInput = 1U;
        oConnector.uiVideoInIndex = uiIndex;
    }
    else
    {
        oConnector.bVideoOutput = 1U;
        oConnector.uiVideoOutIndex = uiIndex;
    }
    oConnector.uiFpgaPortIndex = static_cast<uint32_t>(roChip.aoConnectors.size());
    roChip.aoConnectors.push_back(oConnector);
}

SStream MakeStream(const std::shared_ptr<CReplayTrack>& rpoTrack, EDirection eDirection, const SChipContext& roContext)
{
    SStream oStream;
    oStream.eDirection = eDirection;
    oStream.uiTickFreqHz = roContext.uiTickFreqHz;
    oStream.iOrigin = FixedTicks{static_cast<int64_t>(rpoTrack->GetFirstDue())} * iOneTick;
    oStream.oTiming = MakeTiming(*rpoTrack, roContext.uiTickFreqHz);
    oStream.poReplay = rpoTrack;
    return oStream;
}

// Tables of a direction, by index: what happens on top of the recording.
void AddStreams(CScenarioSection& roChipSection, std::string_view szKey, const Tracks& rapoTracks,
                const SChipContext& roContext, SChip& roChip, SScenarioFault& roFault)
{
    const EDirection eDirection = szKey == "input" ? EDirection::INPUT : EDirection::OUTPUT;
    const std::span<const SScenarioNode> aoTables = roChipSection.ReadTables(szKey, 32);
    if (aoTables.size() > rapoTracks.size())
    {
        roFault.Set(aoTables[rapoTracks.size()].uiLine,
                    std::string(szKey) + ": the recording has " + std::to_string(rapoTracks.size()));
    }
    for (uint32_t uiIndex = 0; uiIndex < rapoTracks.size(); ++uiIndex)
    {
        SStream oStream = MakeStream(rapoTracks[uiIndex], eDirection, roContext);
        if (uiIndex < aoTables.size())
        {
            CScenarioSection oSection(aoTables[uiIndex], roFault);
            ScenarioEvents_Read(oSection, roContext, nullptr, oStream, roFault);
            oSection.Finish();
        }
        AddConnector(*rapoTracks[uiIndex], eDirection, uiIndex, roChip);
        (eDirection == EDirection::INPUT ? roChip.aoInputs : roChip.aoOutputs).push_back(std::move(oStream));
    }
}

} // namespace

void ScenarioReplay_Read(CScenarioSection& roSection, const std::string& rszFile, const ReplayReader& rfnRead,
                         bool bKeepsTimeOuts, SChipContext& roContext, SChip& roChip, SScenarioFault& roFault)
{
    bool bLoop = false;
    (void)roSection.ReadBoolean("replay_loop", bLoop);
    for (const char* szKey : {"tick_frequency_hz", "tick_start", "lock_group", "connector"})
    {
        roSection.Forbid(szKey, "is the recording's matter");
    }
    SReplay oReplay;
    std::string szWhy = "recordings are not read here";
    Tracks apoInputs;
    Tracks apoOutputs;
    if (roFault.IsSet() || !rfnRead || !rfnRead(rszFile, oReplay, szWhy))
    {
        roSection.Refuse("replay", TextLine_Make(rszFile + ": " + szWhy));
        return;
    }
    if (oReplay.uiTickFreqHz < 1000 || oReplay.uiTickFreqHz > 4'000'000'000)
    {
        roSection.Refuse("replay", "ticks of " + std::to_string(oReplay.uiTickFreqHz) + " Hz cannot be played");
        return;
    }
    if (!MakeTracks(oReplay.aoInputs, oReplay, bKeepsTimeOuts, apoInputs) ||
        !MakeTracks(oReplay.aoOutputs, oReplay, bKeepsTimeOuts, apoOutputs))
    {
        roSection.Refuse("replay", TextLine_Make(rszFile + ": a stream has nothing to play"));
        return;
    }
    uint64_t uiBegin = UINT64_MAX;
    uint64_t uiEnd = 0;
    FindReach(apoInputs, uiBegin, uiEnd);
    FindReach(apoOutputs, uiBegin, uiEnd);
    for (Tracks* papoTracks : {&apoInputs, &apoOutputs})
    {
        for (const std::shared_ptr<CReplayTrack>& rpoTrack : *papoTracks)
        {
            rpoTrack->SetLoop(bLoop ? uiEnd - uiBegin : 0);
        }
    }
    roContext.uiTickFreqHz = roChip.uiTickFreqHz = oReplay.uiTickFreqHz;
    const uint64_t uiLead = oReplay.uiTickFreqHz / uiLeadsPerSecond;
    roContext.uiTickStart = roChip.uiTickStart = uiBegin > uiLead ? uiBegin - uiLead : 1;
    AddStreams(roSection, "input", apoInputs, roContext, roChip, roFault);
    AddStreams(roSection, "output", apoOutputs, roContext, roChip, roFault);
}
