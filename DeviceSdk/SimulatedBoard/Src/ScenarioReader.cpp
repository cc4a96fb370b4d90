#include "ScenarioReader.h"

#include <cmath>
#include <numbers>

#include "Noise.h"
#include "ScenarioEvents.h"
#include "ScenarioKeys.h"
#include "ScenarioNames.h"
#include "ScenarioStream.h"

namespace
{

constexpr size_t uiChipLimit = 8;
constexpr size_t uiStreamLimit = 32;
constexpr size_t uiLockGroupLimit = 32;
constexpr size_t uiConnectorLimit = 128;
constexpr size_t uiFaultLimit = 256;
constexpr uint64_t uiSharedSecondsLimit = 9'000'000'000; // as far as nanoseconds go
constexpr uint32_t uiDefaultTickFreqHz = 100'000'000;

constexpr std::array aoTimeModes = {
    SNamedValue<ETimeMode>{"real", ETimeMode::REAL},
    SNamedValue<ETimeMode>{"scaled", ETimeMode::REAL},
    SNamedValue<ETimeMode>{"stepped", ETimeMode::STEPPED},
    SNamedValue<ETimeMode>{"granted", ETimeMode::GRANTED},
};

void ReadTime(const SScenarioNode& roTable, SScenario& roScenario, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    std::string szMode = "real";
    (void)oSection.ReadName<ETimeMode>("mode", aoTimeModes, roScenario.eTimeMode);
    (void)oSection.ReadText("mode", 64, szMode);
    const bool bScale = oSection.ReadFloat("scale", 0.001, 1000.0, roScenario.flScale);
    if (!bScale && szMode == "scaled")
    {
        oSection.Refuse(oSection.FindFirst({"scale", "mode"}), "\"scaled\" needs a scale");
    }
    if (bScale && szMode != "scaled")
    {
        oSection.Refuse("scale", "goes with mode = \"scaled\" alone");
    }
    if (oSection.ReadBoolean("hold", roScenario.bHold) && roScenario.eTimeMode != ETimeMode::GRANTED)
    {
        oSection.Refuse("hold", "goes with mode = \"granted\" alone");
    }
    oSection.Finish();
}

void ReadTruth(const SScenarioNode& roTable, SScenario& roScenario, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    oSection.Require("file");
    (void)oSection.ReadText("file", 4096, roScenario.szTruthFile);
    (void)oSection.ReadBoolean("detail", roScenario.bTruthDetail);
    oSection.Finish();
}

void ReadLockGroup(const SScenarioNode& roTable, SChipContext& roContext, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    SLockGroup oGroup;
    oSection.Require("name");
    (void)oSection.ReadText("name", 64, oGroup.szName);
    if (std::ranges::find(roContext.aoLockGroups, oGroup.szName, &SLockGroup::szName) != roContext.aoLockGroups.end())
    {
        oSection.Refuse("name", "there is a lock group of that name already");
    }
    ScenarioClock_Read(oSection, roContext.uiTickFreqHz, oGroup.iRatePpt, oGroup.flWanderTicks, oGroup.flWanderPeriodS);
    oGroup.uiKey = Noise_Hash(roContext.uiSeed ^ 0x6C6F636B, (roContext.uiChip << 8) + roContext.aoLockGroups.size());
    oGroup.uiLine = oSection.GetLine("event");
    oGroup.aoEvents = oSection.ReadTables("event", uiEventLimit);
    oSection.Finish();
    roContext.aoLockGroups.push_back(std::move(oGroup));
}

bool BelongsTo(const std::vector<SStream>& raoStreams, const SLockGroup& roGroup)
{
    return std::ranges::find(raoStreams, roGroup.uiKey, &SStream::uiWanderKey) != raoStreams.end();
}

// Events are read stream by stream; those that no stream has would be taken unread.
void CheckGroupEvents(const SChip& roChip, const SChipContext& roContext, SScenarioFault& roFault)
{
    for (const SLockGroup& roGroup : roContext.aoLockGroups)
    {
        if (!roGroup.aoEvents.empty() && !BelongsTo(roChip.aoInputs, roGroup) && !BelongsTo(roChip.aoOutputs, roGroup))
        {
            roFault.Set(roGroup.uiLine, "event: no stream belongs to lock group \"" + roGroup.szName + '"');
        }
    }
}

// Chips of one clock are equally fast; the first of them gives the clock its number.
void ReadChipClock(CScenarioSection& roSection, SScenario& roScenario, SChip& roChip)
{
    (void)roSection.ReadFloat("clock_ppm", -50000.0, 50000.0, roChip.flClockPpm);
    if (!roSection.ReadText("clock", 64, roChip.szClock))
    {
        return;
    }
    if (roChip.szClock.empty())
    {
        roSection.Refuse("clock", "must not be empty");
    }
    if (roChip.uiTickStart / roChip.uiTickFreqHz > uiSharedSecondsLimit)
    {
        roSection.Refuse("clock", "must not be shared by a counter that stands beyond 9e9 seconds");
    }
    const auto itFirst = std::ranges::find(roScenario.aoChips, roChip.szClock, &SChip::szClock);
    const bool bFirst = itFirst == roScenario.aoChips.end();
    roChip.uiClockId = bFirst ? static_cast<uint32_t>(roScenario.aoChips.size()) + 1 : itFirst->uiClockId;
    if (!bFirst && itFirst->flClockPpm != roChip.flClockPpm)
    {
        roSection.Refuse(roSection.FindFirst({"clock_ppm", "clock"}), "is another than that of the clock's first chip");
    }
}

void ReadConnector(const SScenarioNode& roTable, SChip& roChip, SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    VtBoard_ConnectorInfo oConnector{};
    oConnector.uiSize = sizeof(oConnector);
    std::string szName;
    oSection.Require("name");
    (void)oSection.ReadText("name", sizeof(oConnector.szName) - 1, szName);
    szName.copy(oConnector.szName, szName.size());
    (void)oSection.ReadName<VtBoard_ConnectorType>("type", aoConnectorTypes, oConnector.eType);
    oConnector.bVideoInput = oSection.Read("video_in", 0U, UINT32_MAX, oConnector.uiVideoInIndex) ? 1U : 0U;
    oConnector.bVideoOutput = oSection.Read("video_out", 0U, UINT32_MAX, oConnector.uiVideoOutIndex) ? 1U : 0U;
    oConnector.bAudioInput = oSection.Read("audio_in", 0U, UINT32_MAX, oConnector.uiAudioInIndex) ? 1U : 0U;
    oConnector.bAudioOutput = oSection.Read("audio_out", 0U, UINT32_MAX, oConnector.uiAudioOutIndex) ? 1U : 0U;
    (void)oSection.Read("fpga_port", 0U, UINT32_MAX, oConnector.uiFpgaPortIndex);
    bool bFlag = false;
    oConnector.bDdc = oSection.ReadBoolean("ddc", bFlag) && bFlag ? 1U : 0U;
    oConnector.bHpd = oSection.ReadBoolean("hpd", bFlag) && bFlag ? 1U : 0U;
    oConnector.bEdid1024Support = oSection.ReadBoolean("edid_1024", bFlag) && bFlag ? 1U : 0U;
    oSection.Finish();
    roChip.aoConnectors.push_back(oConnector);
}

// What is made up of a chip: its counter and its streams.
void ReadMadeUp(CScenarioSection& roSection, SChipContext& roContext, SChip& roChip, SScenarioFault& roFault)
{
    (void)roSection.Read("tick_frequency_hz", 1000U, 4'000'000'000U, roChip.uiTickFreqHz);
    auto iTickStart = static_cast<int64_t>(roChip.uiTickFreqHz); // switched on a second ago
    (void)roSection.ReadInteger("tick_start", 1, int64_t{1} << 61, iTickStart);
    roChip.uiTickStart = static_cast<uint64_t>(iTickStart);
    roContext.uiTickFreqHz = roChip.uiTickFreqHz;
    roContext.uiTickStart = roChip.uiTickStart;
    roSection.Forbid("replay_loop", "goes with replay alone");
    for (const SScenarioNode& roGroup : roSection.ReadTables("lock_group", uiLockGroupLimit))
    {
        ReadLockGroup(roGroup, roContext, roFault);
    }
    for (const SScenarioNode& roConnector : roSection.ReadTables("connector", uiConnectorLimit))
    {
        ReadConnector(roConnector, roChip, roFault);
    }
    for (const SScenarioNode& roInput : roSection.ReadTables("input", uiStreamLimit))
    {
        const auto uiIndex = static_cast<uint32_t>(roChip.aoInputs.size());
        ScenarioStream_Read(roInput, roContext, EDirection::INPUT, uiIndex, roChip, roFault);
    }
    for (const SScenarioNode& roOutput : roSection.ReadTables("output", uiStreamLimit))
    {
        const auto uiIndex = static_cast<uint32_t>(roChip.aoOutputs.size());
        ScenarioStream_Read(roOutput, roContext, EDirection::OUTPUT, uiIndex, roChip, roFault);
    }
}

void ReadChip(const SScenarioNode& roTable, uint64_t uiSeed, const ReplayReader& rfnRead, SScenario& roScenario,
              SScenarioFault& roFault)
{
    CScenarioSection oSection(roTable, roFault);
    SChip oChip;
    SChipContext oContext;
    oContext.uiSeed = uiSeed;
    oContext.uiChip = static_cast<uint32_t>(roScenario.aoChips.size());
    oChip.uiTickFreqHz = uiDefaultTickFreqHz;
    oChip.uiTickStart = uiDefaultTickFreqHz;
    std::string szReplay;
    if (oSection.ReadText("replay", 4096, szReplay))
    {
        const bool bKeepsTimeOuts = roScenario.eTimeMode != ETimeMode::REAL;
        ScenarioReplay_Read(oSection, szReplay, rfnRead, bKeepsTimeOuts, oContext, oChip, roFault);
    }
    else
    {
        ReadMadeUp(oSection, oContext, oChip, roFault);
    }
    ReadChipClock(oSection, roScenario, oChip);
    double flRemovalS = 0.0;
    if (oSection.ReadFloat("removal_at_s", 0.0, 1e8, flRemovalS))
    {
        oChip.uiRemovalTicks = oChip.uiTickStart + static_cast<uint64_t>(std::llround(flRemovalS * oChip.uiTickFreqHz));
    }
    oSection.Finish();
    CheckGroupEvents(oChip, oContext, roFault);
    roScenario.aoChips.push_back(std::move(oChip));
}

// A chip that is the only one of its clock shares none.
void ForgetLonelyClocks(std::vector<SChip>& raoChips)
{
    for (SChip& roChip : raoChips)
    {
        const bool bShared = std::ranges::count(raoChips, roChip.szClock, &SChip::szClock) > 1;
        roChip.uiClockId = bShared ? roChip.uiClockId : 0;
    }
}

} // namespace

bool Scenario_Read(std::string_view szText, SScenario& roScenario, SScenarioFault& roFault, const ReplayReader& rfnRead)
{
    roScenario = {};
    SScenarioNode oRoot;
    if (!TomlTree_Parse(szText, oRoot, roFault))
    {
        return false;
    }
    oRoot.uiLine = 1;
    CScenarioSection oSection(oRoot, roFault);
    uint64_t uiSeed = 1;
    (void)oSection.ReadText("name", 64, roScenario.szName);
    (void)oSection.ReadCounter("seed", uiSeed);
    if (const SScenarioNode* poTime = oSection.ReadTable("time"))
    {
        ReadTime(*poTime, roScenario, roFault);
    }
    if (const SScenarioNode* poTruth = oSection.ReadTable("truth"))
    {
        ReadTruth(*poTruth, roScenario, roFault);
    }
    oSection.Require("chip");
    for (const SScenarioNode& roChip : oSection.ReadTables("chip", uiChipLimit))
    {
        ReadChip(roChip, uiSeed, rfnRead, roScenario, roFault);
    }
    ForgetLonelyClocks(roScenario.aoChips);
    if (roScenario.aoChips.empty())
    {
        oSection.Refuse("chip", "must be 1 to 8 tables");
    }
    for (const SScenarioNode& roFaultRule : oSection.ReadTables("fault", uiFaultLimit))
    {
        ScenarioFaultRule_Read(roFaultRule, roScenario, roFault);
    }
    oSection.Finish();
    return !roFault.IsSet();
}
