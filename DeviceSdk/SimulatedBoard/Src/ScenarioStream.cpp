#include "ScenarioStream.h"

#include <algorithm>
#include <iterator>

#include "Noise.h"
#include "ScenarioEvents.h"
#include "ScenarioKeys.h"
#include "ScenarioNames.h"
#include "ScenarioSpelling.h"

namespace
{

void ReadColour(CScenarioSection& roSection, VtVideo_VidParam& roColour)
{
    bool bYuv = true;
    bool bLevelB = false;
    uint32_t uiColorSpace = 0;
    uint32_t uiSubSampling = 0;
    uint32_t uiDepth = 0;
    (void)roSection.ReadBoolean("yuv", bYuv);
    (void)roSection.Read("color_space", 0U, 15U, uiColorSpace);
    (void)roSection.Read("chroma_subsampling", 0U, 3U, uiSubSampling);
    (void)roSection.Read("color_depth", 0U, 3U, uiDepth);
    (void)roSection.ReadBoolean("level_b", bLevelB);
    roColour.bIsYuv = bYuv ? 1U : 0U;
    roColour.fColorSpace = uiColorSpace & 15U;
    roColour.fChromaSubSampling = uiSubSampling & 3U;
    roColour.fColorDepth = uiDepth & 3U;
    roColour.fIs3GLevelB = bLevelB ? 1U : 0U;
}

// Rate and wander: from the lock group, which is returned, or the stream's own.
const SLockGroup* ReadLock(CScenarioSection& roSection, const SChipContext& roContext, SStream& roStream)
{
    std::string szGroup;
    roStream.uiWanderKey = ~roStream.uiKey;
    if (!roSection.ReadText("lock_group", 64, szGroup))
    {
        ScenarioClock_Read(roSection, roContext.uiTickFreqHz, roStream.iRatePpt, roStream.flWanderTicks,
                           roStream.flWanderPeriodS);
        return nullptr;
    }
    for (const char* szKey : {"ppm", "wander_ticks", "wander_period_s"})
    {
        roSection.Forbid(szKey, "is the lock group's matter");
    }
    const auto itGroup = std::ranges::find(roContext.aoLockGroups, szGroup, &SLockGroup::szName);
    if (itGroup == roContext.aoLockGroups.end())
    {
        std::vector<std::string> aszGroups;
        std::ranges::transform(roContext.aoLockGroups, std::back_inserter(aszGroups), &SLockGroup::szName);
        roSection.Refuse("lock_group",
                         "there is no lock group \"" + szGroup + "\"" + Spelling_Suggest(szGroup, aszGroups));
        return nullptr;
    }
    roStream.iRatePpt = itGroup->iRatePpt;
    roStream.flWanderTicks = itGroup->flWanderTicks;
    roStream.flWanderPeriodS = itGroup->flWanderPeriodS;
    roStream.uiWanderKey = itGroup->uiKey;
    return &*itGroup;
}

void ReadPhase(CScenarioSection& roSection, const SChipContext& roContext, SStream& roStream)
{
    const FixedTicks iPhase = ScenarioTicks_Read(roSection, "phase", roStream.oTiming, roContext.uiTickFreqHz);
    const double flFieldTicks =
        FixedTicks_ToDouble(VideoTiming_GetFieldTicks(roStream.oTiming, roContext.uiTickFreqHz, roStream.iRatePpt));
    (void)roSection.ReadFloat("jitter_ticks", 0.0, flFieldTicks / 128.0, roStream.flJitterTicks);
    roStream.iOrigin = FixedTicks{static_cast<int64_t>(roContext.uiTickStart)} * iOneTick + iPhase;
    const double flEarliest =
        FixedTicks_ToDouble(roStream.iOrigin) - 4.0 * roStream.flJitterTicks - roStream.flWanderTicks;
    if (flEarliest < 1.0)
    {
        roSection.Refuse(
            roSection.FindFirst({"phase_ticks", "phase_us", "phase_lines", "jitter_ticks", "wander_ticks"}),
            "field 0 would start before tick 1");
    }
}

void ReadInput(CScenarioSection& roSection, SStream& roStream)
{
    (void)roSection.ReadName<VtVideoIn_State>("capture_state", aoCaptureStates, roStream.oDescription.eCaptureState);
    (void)roSection.Read("buffers", 0U, 1024U, roStream.uiBuffers);
    roStream.uiReady = std::min(roStream.uiReady, roStream.uiBuffers);
    roStream.uiLoan = std::min(roStream.uiLoan, roStream.uiBuffers - roStream.uiReady);
    (void)roSection.Read("ready", 0U, 1024U, roStream.uiReady);
    (void)roSection.Read("ready_spread", 0U, 1024U, roStream.uiReadySpread);
    (void)roSection.Read("loan", 0U, 1024U, roStream.uiLoan);
    (void)roSection.Read("loan_spread", 0U, 1024U, roStream.uiLoanSpread);
    (void)roSection.ReadCounter("skip_count_start", roStream.uiSkipCountStart);
    const uint32_t uiMost = roStream.uiReady + roStream.uiReadySpread + roStream.uiLoan + roStream.uiLoanSpread;
    if (uiMost > roStream.uiBuffers)
    {
        roSection.Refuse(roSection.FindFirst({"buffers", "ready", "ready_spread", "loan", "loan_spread"}),
                         "ready, loan and their spreads together are more than the buffers");
    }
}

void ReadOutput(CScenarioSection& roSection, SStream& roStream)
{
    (void)roSection.ReadName<VtVideoOut_PowerState>("power_state", aoPowerStates, roStream.ePowerState);
    (void)roSection.ReadCounter("set_buffer_start", roStream.uiSetBufferStart);
    roStream.oFeed.uiKey = ~roStream.uiKey;
    (void)ScenarioFeed_Read(roSection, roStream, roStream.oFeed);
    (void)roSection.ReadCounter("luid_start", roStream.uiLuidStart);
}

bool HasConnector(const SChip& roChip, EDirection eDirection, uint32_t uiIndex)
{
    return std::ranges::any_of(roChip.aoConnectors,
                               [eDirection, uiIndex](const VtBoard_ConnectorInfo& roConnector)
                               {
                                   return eDirection == EDirection::INPUT
                                              ? roConnector.bVideoInput != 0 && roConnector.uiVideoInIndex == uiIndex
                                              : roConnector.bVideoOutput != 0 && roConnector.uiVideoOutIndex == uiIndex;
                               });
}

// A stream's own connector: under the name that the scenario gives it or, when neither the stream nor the chip names
// one, under a name that nobody takes for a real one's. An empty name stands for none.
void ReadConnector(CScenarioSection& roSection, EDirection eDirection, uint32_t uiIndex, SChip& roChip)
{
    VtBoard_ConnectorInfo oConnector{};
    oConnector.uiSize = sizeof(oConnector);
    oConnector.eType = VtBoard_ConnectorType_SDI;
    const bool bInput = eDirection == EDirection::INPUT;
    std::string szName = (bInput ? "Simulated input " : "Simulated output ") + std::to_string(uiIndex);
    const bool bNamed = roSection.ReadText("connector", sizeof(oConnector.szName) - 1, szName);
    const bool bNone = szName.empty() || (!bNamed && HasConnector(roChip, eDirection, uiIndex));
    if (roSection.ReadName<VtBoard_ConnectorType>("connector_type", aoConnectorTypes, oConnector.eType) && bNone)
    {
        roSection.Refuse("connector_type", "the stream has no connector of its own");
    }
    if (bNone)
    {
        return;
    }
    szName.copy(oConnector.szName, szName.size());
    oConnector.bVideoInput = bInput ? 1U : 0U;
    oConnector.bVideoOutput = bInput ? 0U : 1U;
    oConnector.uiVideoInIndex = bInput ? uiIndex : 0;
    oConnector.uiVideoOutIndex = bInput ? 0 : uiIndex;
    oConnector.uiFpgaPortIndex = static_cast<uint32_t>(roChip.aoConnectors.size());
    roChip.aoConnectors.push_back(oConnector);
}

} // namespace

void ScenarioStream_Read(const SScenarioNode& roTable, const SChipContext& roContext, EDirection eDirection,
                         uint32_t uiIndex, SChip& roChip, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    SStream oStream;
    oStream.eDirection = eDirection;
    oStream.uiTickFreqHz = roContext.uiTickFreqHz;
    oStream.uiKey = Noise_Hash(roContext.uiSeed, (uint64_t{roContext.uiChip} << 16) +
                                                     (eDirection == EDirection::OUTPUT ? 256U : 0U) + uiIndex);
    ScenarioTiming_Read(oSection, roContext.uiTickFreqHz, roFault, oStream.oTiming);
    ReadColour(oSection, oStream.oDescription.oVidParam);
    const SLockGroup* poGroup = ReadLock(oSection, roContext, oStream);
    ReadPhase(oSection, roContext, oStream);
    (void)oSection.ReadCounter("field_counter_start", oStream.uiFieldCounterStart);
    (void)ScenarioPixelFormat_Read(oSection, oStream.oDescription.ePixelFormat);
    (void)oSection.Read("width", 1U, 65536U, oStream.oDescription.uiWidth);
    (void)oSection.Read("height", 1U, 65536U, oStream.oDescription.uiHeight);
    if (eDirection == EDirection::INPUT)
    {
        ReadInput(oSection, oStream);
    }
    else
    {
        ReadOutput(oSection, oStream);
    }
    ReadConnector(oSection, eDirection, uiIndex, roChip);
    ScenarioEvents_Read(oSection, roContext, poGroup, oStream, roFault);
    oSection.Finish();
    (eDirection == EDirection::INPUT ? roChip.aoInputs : roChip.aoOutputs).push_back(std::move(oStream));
}
