// What the scenario reader takes, what it refuses, and what it says then.
#include "ScenarioReader.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "ScenarioSource.h"

namespace
{

std::string ReadFile(const char* szFile)
{
    std::ifstream oFile(szFile);
    EXPECT_TRUE(oFile.good()) << szFile;
    std::ostringstream oText;
    oText << oFile.rdbuf();
    return oText.str();
}

// "" when the text is taken, otherwise "<line>: <fault>".
std::string GetFault(const std::string& rszText)
{
    SScenario oScenario;
    SScenarioFault oFault;
    const auto fnReplay = [](const std::string&, SReplay& roReplay, std::string&)
    {
        roReplay.uiTickFreqHz = 1'000'000;
        roReplay.aoInputs.resize(1);
        roReplay.aoInputs[0].aoWaits.resize(2);
        return true;
    };
    const bool bIsTaken = Scenario_Read(rszText, oScenario, oFault, fnReplay);
    return bIsTaken ? "" : std::to_string(oFault.uiLine) + ": " + oFault.szText;
}

SScenario Read(const std::string& rszText)
{
    SScenario oScenario;
    SScenarioFault oFault;
    EXPECT_TRUE(Scenario_Read(rszText, oScenario, oFault)) << oFault.uiLine << ": " << oFault.szText;
    return oScenario;
}

// A number as the reader says it.
std::string Shortest(const std::string& rszNumber)
{
    std::ostringstream oText;
    oText.precision(15);
    oText << std::stod(rszNumber);
    return oText.str();
}

const std::string szInput = "[[chip]]\n[[chip.input]]\nstandard = '1080p60'\n"; // lines 1 to 3

} // namespace

// Each row: how the text begins, how it goes on ("|" ends a line), and the line and the fault that it must give, or the
// beginning of that as far as into a list of names.
TEST(ScenarioReader, RefusesWithLineAndFault)
{
    const std::map<char, std::string> aszBegins = {{'-', ""},
                                                   {'C', "[[chip]]\n"},
                                                   {'S', "[[chip]]\n[[chip.input]]\n"},
                                                   {'F', "[[chip]]\n[[fault]]\n"},
                                                   {'I', szInput},
                                                   {'O', "[[chip]]\n[[chip.output]]\nstandard = '1080p60'\n"},
                                                   {'E', szInput + "[[chip.input.event]]\nat_field = 10\nkind = "}};
    std::istringstream oRows(R"(-  => 1: chip: missing
- chip = [] => 1: chip: must be 1 to 8 tables
- chip = [1] => 1: chip: must be an array of tables
- ||sed = 3|[[chip]] => 3: unknown key sed: did you mean seed?
- seed = '0x10000000000000000'|[[chip]] => 1: seed: must be an integer from 0 or a text "0x..." of at most 64 bits
C tick_frequency_hz = 0 => 2: tick_frequency_hz: must be 1000 to 4000000000
C tick_frequency_hz = 1e6 => 2: tick_frequency_hz: must be an integer
- [[chip]]|clock = 'a'|clock_ppm = 1|[[chip]]|clock = 'a' => 5: clock: is another than that of the clock's first chip
- [[chip]]|clock = 'a'|tick_frequency_hz = 1000|tick_start = 9_000_000_001_000 => 2: clock: must not be shared by a counter that stands beyond 9e9 seconds
- [time]|mode = 'fast'|[[chip]] => 2: mode: "fast" is none of its names (real, scaled, stepped, granted)
- [time]|mode = 'scaled'|[[chip]] => 2: mode: "scaled" needs a scale
- [time]|mode = 'scaled'|scale = nan|[[chip]] => 3: scale: must be 0.001 to 1000
- [time]|mode = 'stepped'|hold = true|[[chip]] => 3: hold: goes with mode = "granted" alone
S  => 2: standard: missing
S ppm = 3|standrd = '1080p60' => 4: unknown key standrd: did you mean standard?
S event = [{ kind = 'hang' }]|standrad = 3 => 4: unknown key standrad: did you mean standard?
S lock_group = 'x'|ppm = 1|pixel_format = 'x'|width = 9 => 2: standard: missing
S standard = '1080P61' => 3: standard: "1080P61" is none of its names; did you mean 1080p60? (480i59.94,
S timing = { h_active = 8, v_active = 8, pixel_clock_hz = 10_000_000_000 } => 3: timing: a field must last 64 ticks to 10 seconds
I lock_group = 'x' => 4: lock_group: there is no lock group "x"
C lock_group = [{ name = 'x' }, { name = 'x' }] => 2: name: there is a lock group of that name already
C lock_group = [{ name = 'x' }]|[[chip.input]]|standard = '720p50'|lock_group = 'x'|ppm = 1 => 6: ppm: is the lock group's matter
I wander_ticks = 1_000_000 => 4: wander_ticks: changes the rate by more than 1000 ppm over wander_period_s
I jitter_ticks = 20_000 => 4: jitter_ticks: must be 0 to 13020.8333333333
I phase_ticks = -200_000_000 => 4: phase_ticks: field 0 would start before tick 1
I phase_us = -2e6 => 4: phase_us: field 0 would start before tick 1
I phase_us = 1|phase_lines = 1 => 5: phase_lines: only one of phase_ticks, phase_us and phase_lines
I ready = 7 => 4: ready: ready, loan and their spreads together are more than the buffers
I pixel_format = 'RGB' => 4: pixel_format: "RGB" is none of its names (UNKOWN,
I connector = ''|connector_type = 'SDI' => 5: connector_type: the stream has no connector of its own
I connector = 'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx' => 4: connector: must be a text of at most 63 bytes
I connector = "a\u0000" => 4: connector: may hold no NUL character
O set_buffer_pattern = [1,|-1] => 5: set_buffer_pattern: must be 1 to 64 integers of 0 to 1000
E 'rain' => 6: kind: "rain" is none of its names (signal_loss,
E 'hang'|ms = 5|at_s = 1 => 8: at_s: either at_field or at_s
I event = [{ knid = 'missed_field', at_field = 3 }] => 4: unknown key knid: did you mean kind?
I event = [{ at_field = 3, for_s = 2 }] => 4: kind: missing
E 'signal_loss'|every_s = 1 => 6: kind: a periodic signal_loss needs for_fields or for_s
E 'signal_loss'|every_s = 1|for_s = 1 => 8: for_s: must be shorter than the period
E 'missed_field'|every_s = 0 => 7: every_s: must last at least 2 fields
E 'power_state'|state = 'OFF' => 6: kind: goes with outputs alone
E 'hang'|ms = 5|times = 2 => 4: every_fields: missing
E 'description_change' => 6: kind: changes nothing
E 'description_change'|colour_depth = 1 => 7: unknown key colour_depth: did you mean color_depth?
E 'description_change'|pixel_format = 'RGB' => 7: pixel_format: "RGB" is none of its names (UNKOWN,
E 'field_order_swap' => 5: the stream is never interlaced
E 'slow_consumer'|takes = 1 => 7: takes: must be 0 to 0.999999
E 'slow_consumer'|[[chip.input.event]]|kind = 'buffers_run_out'|at_field = 1 => 5: a stream has either slow_consumer or buffers_run_out events
O event = [{ kind = 'cadence_change', at_s = 1 }] => 4: set_buffer_pattern: missing
O event = [{ kind = 'cadence_change', at_s = 1, set_buffer_rate = 24, every_s = 2, for_s = 1 }] => 4: kind: cannot be periodic
O set_buffer_pattern = [1]|set_buffer_rate = 24 => 5: set_buffer_rate: either set_buffer_pattern or set_buffer_rate
O set_buffer_irregular = 1 => 4: set_buffer_irregular: goes with set_buffer_rate alone
C lock_group = [{ name = 'x', event = [{ kind = 'signal_loss', at_s = 1 }] }] => 2: event: no stream belongs to lock group "x"
C lock_group = [{ name = 'x', event = [{ kind = 'rain', at_s = 1 }] }]|output = [{ standard = '720p50', lock_group = 'x' }] => 2: kind: "rain" is none of its names (signal_loss,
E 'lock_lost'|ppm = -50|for_s = 30 => 7: ppm: the stream would jump back by more than 1/16 field when lock is regained
E 'lock_lost'|ppm = 4000|[[chip.input.event]]|kind = 'format_change'|at_field = 18|timing = { h_active = 10, v_active = 10, pixel_clock_hz = 1_000_000 } => 7: the stream would jump back by more than 1/16 of the shortest field
E 'phase_step'|step_us = 33_334|every_fields = 2 => 7: periodic steps must not take longer than the fields between them
I event = [{ kind = 'hang', ms = 1, at_field = 13_000_000_000 }] => 4: begins later than in 2e8 seconds
E 'phase_step'|step_lines = -71 => 7: steps back must stay within 1/16 field together
E 'buffers_run_out'|for_fields = 9|[[chip.input.event]]|kind = 'buffers_run_out'|at_field = 18 => 10: meets the buffers_run_out of line 5
E 'doubled_field'|[[chip.input.event]]|kind = 'format_change'|at_field = 18|standard = '720p50' => 5: a stream has either doubled_field or format_change events
F operation = 'VtNo'|status = 'VtStatus_FAIL' => 3: operation: "VtNo" is none of its names (Veltrano_LoadLite,
F operation = 'Veltrano_UnLoad'|status = 'VtStatus_FAIL' => 3: operation: returns nothing that could fail
F operation = 'VtVideoIn_GetCount'|status = 'VtStatus_FIAL' => 4: status: "VtStatus_FIAL" is none of its names; did you mean VtStatus_FAIL? (VtStatus_SEIOVERSIZE,
F operation = 'VtVideoIn_GetCount'|status = 'VtStatus_FAIL'|index = 0 => 5: index: goes with operations on one input or output alone
F operation = 'Veltrano_Version'|status = 'VtStatus_FAIL'|chip = 0 => 5: chip: goes with operations on a chip alone)");
    for (std::string szRow; std::getline(oRows, szRow);)
    {
        const size_t uiArrow = szRow.find(" => ");
        std::string szText = szRow.substr(2, uiArrow - 2);
        std::ranges::replace(szText, '|', '\n');
        const std::string szFault = szRow.substr(uiArrow + 4);
        const bool bListFollows = szFault.ends_with(",");
        EXPECT_EQ(
            GetFault(aszBegins.at(szRow[0]) + szText).substr(0, bListFollows ? szFault.size() : std::string::npos),
            szFault)
            << szRow;
    }
    // The TOML library words its own faults; the line is what counts.
    EXPECT_EQ(GetFault("seed = 1\nseed = 2\n").substr(0, 3), "2: ");
    EXPECT_EQ(GetFault("[[chip]]\nx = [1, 2\ny = 3").substr(0, 3), "3: ");
    EXPECT_EQ(GetFault(std::string((1U << 20) + 1, '\n')), "1: the text is longer than 1 MiB");
    EXPECT_EQ(GetFault("[[chip]]\nx = " + std::string(40, '[') + std::string(40, ']')).substr(0, 3), "2: ");
    EXPECT_EQ(GetFault("a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.p.q.r = 1"), "1: nested too deeply");
    // What the TOML library would assert on, take for impossible, or end its stack with.
    EXPECT_EQ(GetFault("x = 1\n[;"), "2: '[' without the name of a table");
    EXPECT_EQ(GetFault("x = '\xC3\xA4' # \xC3\xA4\n\xC3\xA4 = 1"),
              "2: a character that may only stand in quotes or comments");
    EXPECT_EQ(GetFault("x = \"\"\"\"\n\\ \n\xC3\xA4\"\"\""), "3: a backslash before a character that it cannot escape");
    std::string szDotted = "# [[[[[[[[[[[[[[[[[[ \" ' \nx = ['[[[[[[[[[[[[[[[[[[', \"\\\"[[[[[[[[[[[[[[[[[[\"]\na";
    for (int iLevel = 0; iLevel < 100000; ++iLevel)
    {
        szDotted += ".a";
    }
    EXPECT_EQ(GetFault(szDotted + " = 1"), "3: nested too deeply");
}

// Each row: how the text begins, keys with their least and their most value, and what lies just outside of them.
TEST(ScenarioReader, TakesEveryFigureAsFarAsItsLimits)
{
    const std::map<char, std::string> aszBegins = {
        {'C', "[[chip]]\n"},
        {'S', "[time]\nmode = 'scaled'\n"},
        {'I', szInput},
        {'O', "[[chip]]\n[[chip.output]]\nstandard = '1080p60'\n"},
        {'R', "[[chip]]\n[[chip.output]]\nstandard = '1080p60'\nset_buffer_rate = 24\n"},
        {'T', "[[chip]]\n[[chip.input]]\n[chip.input.timing]\nh_active = 8\nv_active = 8\npixel_clock_hz = 10_000\n"},
        {'D', szInput + "[[chip.input.event]]\nat_field = 10\nkind = 'description_change'\n"},
        {'H', szInput + "[[chip.input.event]]\nat_field = 10\nkind = 'hang'\n"},
        {'B', szInput + "[[chip.input.event]]\nat_field = 10\nkind = 'skipped_buffers'\n"},
        {'L', szInput + "[[chip.input.event]]\nat_field = 10\nkind = 'lock_lost'\n"},
        {'W', szInput + "[[chip.input.event]]\nkind = 'missed_field'\n"},
        {'F', "[[chip]]\n[[fault]]\noperation = 'VtVideoIn_GetHandle'\nstatus = 'VtStatus_FAIL'\n"}};
    std::istringstream oRows(R"(C tick_frequency_hz 1000 4000000000 999 4000000001
C tick_start 1 2305843009213693952 0 2305843009213693953
C clock_ppm -50000 50000 -50000.01 50000.01
C removal_at_s 0 1e8 -0.01 100000001
S scale 0.001 1000 0.0009 1000.1
I ppm -50000 50000 -50000.01 50000.01
I wander_ticks 0 1e12 -1 1.01e12
I wander_period_s 1 1e7 0.99 10000001
I buffers,ready,ready_spread,loan,loan_spread 0 1024 -1 1025
I width,height 1 65536 0 65537
I color_space 0 15 -1 16
I chroma_subsampling,color_depth 0 3 -1 4
I phase_us -1e9 1e9 -1.01e9 1.01e9
I phase_lines -1e5 1e5 -100001 100001
O set_buffer_rate 0.001 4000 0.0009 4000.1
R set_buffer_irregular 0 1 -0.01 1.01
T h_front_porch,h_sync,h_back_porch,v_front_porch,v_sync,v_back_porch 0 16384 -1 16385
D h_active,v_active 1 16384 0 16385
D v_rate_hz,h_rate_khz,pixel_clock_khz 0 4294967295 -1 4294967296
D h_front_porch,h_sync,h_back_porch,v_front_porch,v_sync,v_back_porch 0 16384 -1 16385
D color_space 0 15 -1 16
D chroma_subsampling,color_depth 0 3 -1 4
D width,height 1 65536 0 65537
H ms 1 60000 0 60001
B count 1 1000000 0 1000001
L ppm -50000 50000 -50000.01 50000.01
W at_s 0 1e8 -0.01 100000001
F call,every 1 9223372036854775807 0 -
F times 0 9223372036854775807 -1 -)");
    char cBegin = 0;
    for (std::string szKeys, szLeast, szMost, szBelow, szAbove;
         oRows >> cBegin >> szKeys >> szLeast >> szMost >> szBelow >> szAbove;)
    {
        std::istringstream oKeys(szKeys);
        for (std::string szKey; std::getline(oKeys, szKey, ',');)
        {
            const auto Get = [&](const std::string& rszValue)
            { return GetFault(aszBegins.at(cBegin) + szKey + " = " + rszValue + (cBegin == 'S' ? "\n[[chip]]" : "")); };
            const std::string szRefused = szKey + ": must be " + Shortest(szLeast) + " to " + Shortest(szMost);
            for (const std::string& rszInside : {szLeast, szMost})
            {
                EXPECT_FALSE(Get(rszInside).find(": must be") != std::string::npos)
                    << szKey << " = " << rszInside << ": " << Get(rszInside);
            }
            for (const std::string& rszOutside : {szBelow, szAbove})
            {
                EXPECT_TRUE(rszOutside == "-" || Get(rszOutside).ends_with(": " + szRefused))
                    << szKey << " = " << rszOutside << ": " << Get(rszOutside);
            }
        }
    }
}

TEST(ScenarioReader, RefusesMoreThanTheBoardHolds)
{
    const auto Repeat = [](size_t uiTimes, std::string_view szTable)
    {
        std::string szText;
        for (size_t uiTime = 0; uiTime < uiTimes; ++uiTime)
        {
            szText += szTable;
            std::ranges::replace(szText, '#', static_cast<char>('A' + uiTime));
        }
        return szText;
    };
    struct SRow
    {
        std::string szBegin, szTable, szKey;
        size_t uiMost;
    };
    for (const SRow& roRow :
         {SRow{"", "[[chip]]\n", "chip", 8},
          {"[[chip]]\n", "[[chip.lock_group]]\nname = '#'\n", "lock_group", 32},
          {"[[chip]]\n", "[[chip.connector]]\nname = 'x'\n", "connector", 128},
          {"[[chip]]\n", "[[fault]]\noperation = 'Veltrano_Version'\nstatus = 'VtStatus_FAIL'\n", "fault", 256},
          {"[[chip]]\n", "[[chip.input]]\nstandard = '1080p60'\n", "input", 32},
          {"[[chip]]\n", "[[chip.output]]\nstandard = '1080p60'\n", "output", 32}})
    {
        EXPECT_EQ(GetFault(roRow.szBegin + Repeat(roRow.uiMost, roRow.szTable)), "") << roRow.szKey;
        const std::string szFault = GetFault(roRow.szBegin + Repeat(roRow.uiMost + 1, roRow.szTable));
        EXPECT_TRUE(szFault.ends_with(": " + roRow.szKey + ": more than " + std::to_string(roRow.uiMost))) << szFault;
    }
}

TEST(ScenarioReader, TurnsTimesIntoFieldsOfTheFirstFormat)
{
    const SScenario oScenario = Read(szInput + R"(phase_us = 1000
event = [{ kind = "signal_loss", at_s = 1.0, for_s = 0.5, every_s = 20 },
         { kind = "hang", ms = 3, at_s = 0.0 }]
)");
    const std::vector<SEvent>& raoEvents = oScenario.aoChips[0].aoInputs[0].aoEvents;
    EXPECT_EQ(raoEvents[0].oWhen.uiFirst, 60U); // field 59 starts at 0.984 s, field 60 at 1.001 s
    EXPECT_EQ(raoEvents[0].oWhen.uiLength, 30U);
    EXPECT_EQ(raoEvents[0].oWhen.uiPeriod, 1200U);
    EXPECT_EQ(raoEvents[1].oWhen.uiFirst, 0U);
}

TEST(ScenarioReader, StreamsWithoutANameAreCalledSimulated)
{
    const SScenario oScenario = Read(R"([[chip]]
connector = [{ name = "both", video_in = 1, video_out = 0 }]
input = [{ standard = "1080p60", connector_type = "HDMI" }, { standard = "1080p60" },
         { standard = "1080p60", connector = "" }]
output = [{ standard = "1080p60" }, { standard = "1080p60" }]
)");
    std::string szConnectors;
    for (const VtBoard_ConnectorInfo& roConnector : oScenario.aoChips.at(0).aoConnectors)
    {
        szConnectors += roConnector.szName + std::to_string(roConnector.eType) + (roConnector.bVideoInput ? "i" : "") +
                        (roConnector.bVideoOutput ? "o" : "") + ",";
    }
    EXPECT_EQ(szConnectors, "both0io,Simulated input 02i,Simulated output 11o,");
}

TEST(ScenarioReader, DefaultScenarioIsTheFileInTheTreeAndSaysThatItIsSimulated)
{
    ASSERT_EQ(ReadFile(VT_DEFAULT_SCENARIO), g_szDefaultScenario);
    const SScenario oScenario = Read(g_szDefaultScenario);
    const SChip& roChip = oScenario.aoChips.at(0);
    ASSERT_EQ(roChip.aoInputs.size(), 4U);
    ASSERT_EQ(roChip.aoOutputs.size(), 4U);
    ASSERT_EQ(roChip.aoConnectors.size(), 8U);
    for (const VtBoard_ConnectorInfo& roConnector : roChip.aoConnectors)
    {
        EXPECT_TRUE(std::string_view(roConnector.szName).starts_with("Simulated ")) << roConnector.szName;
    }
    EXPECT_EQ(roChip.aoInputs[3].aoEvents.size() + roChip.aoOutputs[2].aoEvents.size(), 3U);
}

// Every scenario in the document loads, so the document stays true.
TEST(ScenarioReader, ScenariosOfTheDocumentLoad)
{
    const std::string szDocument = ReadFile(VT_SCENARIO_DOCUMENT);
    const std::string szBegin = "```toml\n";
    int iScenarios = 0;
    for (size_t uiAt = szDocument.find(szBegin); uiAt != std::string::npos; uiAt = szDocument.find(szBegin, uiAt))
    {
        uiAt += szBegin.size();
        EXPECT_EQ(GetFault(szDocument.substr(uiAt, szDocument.find("```", uiAt) - uiAt)), "")
            << szDocument.substr(uiAt, 80);
        ++iScenarios;
    }
    EXPECT_GE(iScenarios, 3);
    for (const SVideoStandard& roStandard : VideoStandard_GetAll())
    {
        const std::string szName(roStandard.szName);
        EXPECT_NE(szDocument.find('`' + szName + '`'), std::string::npos) << szName;
    }
}
