// A recording played again by the simulated board: to the watch it is the same night.
#include <array>
#include <map>

#include <nlohmann/json.hpp>

#include "EventJson.h"
#include "RecordingFile.h"
#include "StreamId.h"
#include "WatchBench.h"
#include "WatchJson.h"
#include "WatchSteps.h"

namespace
{

constexpr auto eIn = EStreamDirection::INPUT;
constexpr auto eOut = EStreamDirection::OUTPUT;
constexpr SStreamKey oInput = {eIn, 0};
constexpr SStreamKey oOutput = {eOut, 0};
constexpr uint64_t uiTickHz = 100'000'000;
constexpr uint64_t uiBenchStartNs = 5'000'000'000'000; // where the bench's clock stands at the board's start

// Something of everything that can happen to a stream.
constexpr char szNight[] = R"(
input = [
    { standard = "1080i50", jitter_ticks = 3, ready_spread = 2, event = [
        { kind = "signal_loss", at_s = 4, for_s = 1.5 }, { kind = "missed_field", at_s = 8, for_fields = 3 } ] },
    { standard = "1080p59.94", connector = "Camera 2", event = [
        { kind = "slow_consumer", at_s = 3, for_s = 4, takes = 0.5 }, { kind = "missed_field", at_s = 5.5 } ] } ]
output = [
    { standard = "1080p60", set_buffer_rate = 24, wander_ticks = 40, event = [
        { kind = "counter_jump", at_s = 6, jump = 160 }, { kind = "phase_step", at_s = 7, step_us = 900 } ] },
    { standard = "1080p50", event = [ { kind = "power_state", at_s = 5, for_s = 2, state = "OFF" } ] } ]
)";

// A watch of a board, and what it saw.
struct SNight
{
    explicit SNight(const std::string& rszChip) : oBench(rszChip, MakeSetup())
    {
        oBench.fnField = [this](const SStreamKey& roKey, const SFieldRecord& roField)
        { oFields[roKey].push_back(roField); };
        oBench.fnDescription = [this](const SStreamKey& roKey, const SStreamDescription& roDescription) {
            aoDescriptions.push_back({roKey, roDescription, roKey == SStreamKey{eIn, 1} ? "Camera 2" : "", ""});
        };
    }

    // The same moments on the bench's clock, whatever the chip says.
    static SBenchSetup MakeSetup()
    {
        SBenchSetup oSetup;
        oSetup.uiStartTick = uiTickHz;
        return oSetup;
    }

    CWatchBench oBench;
    std::map<SStreamKey, std::vector<SFieldRecord>> oFields;
    std::vector<SRecordedDescription> aoDescriptions;
};

class Replay : public ::testing::Test
{
protected:
    CTestFolder m_oFolder;
    const std::string m_szFile = m_oFolder / "night.vtrec";
    const std::string m_szReplay = "replay = '" + m_szFile + "'\n";

    void Write(const SNight& roNight)
    {
        CRecordingWriter oWriter;
        SRecordingAbout oAbout;
        oAbout.uiTickFrequencyHz = uiTickHz;
        std::vector<SStreamKey> aoStreams;
        for (const auto& [oKey, aoFields] : roNight.oFields)
        {
            aoStreams.push_back(oKey);
        }
        ASSERT_EQ(oWriter.Begin(m_szFile, oAbout, aoStreams).GetText(), "");
        for (const auto& [oKey, aoFields] : roNight.oFields)
        {
            for (const SFieldRecord& roField : aoFields)
            {
                ASSERT_TRUE(oWriter.AddField(oKey, roField));
            }
        }
        for (const SRecordedDescription& roDescription : roNight.aoDescriptions)
        {
            ASSERT_TRUE(oWriter.AddDescription(roDescription));
        }
        ASSERT_TRUE(oWriter.AddClock({uiTickHz, uiBenchStartNs, 1, 0.0, 0}));
        ASSERT_EQ(oWriter.Finish().GetText(), "");
    }
    static std::string Refuse(const std::string& rszChip)
    {
        std::array<char, 1024> szFault{};
        VtSim_SetScenario(("[[chip]]\n" + rszChip).c_str(), szFault.data(), szFault.size());
        VtSim_SetScenario(nullptr, nullptr, 0);
        return szFault.data();
    }
};

// Everything that a watch knows, as it tells it.
std::string Print(const SNight& roNight)
{
    SWatchPublication oPublication;
    oPublication.oSnapshot = roNight.oBench.oSnapshot;
    std::string szText =
        WatchJson_Print(WatchJson_FromStreams(oPublication)) + WatchJson_Print(WatchJson_FromPairs(oPublication));
    for (const SWatchEvent& roEvent : roNight.oBench.aoEvents)
    {
        szText += "\n" + WatchJson_Print(EventJson_FromEvent(roEvent));
    }
    return szText;
}

} // namespace

TEST_F(Replay, IsTheSameNightToTheDigit)
{
    std::string szWanted;
    std::map<SStreamKey, std::vector<SFieldRecord>> oWanted;
    {
        SNight oNight(szNight);
        oNight.oBench.Run(12);
        EXPECT_EQ(oNight.oBench.GetInput(0).oCounters.uiFieldsLost, 3U);
        Write(oNight);
        szWanted = Print(oNight);
        oWanted = oNight.oFields;
    }
    SNight oAgain(m_szReplay);
    oAgain.oBench.Run(12);
    for (const auto& [oKey, aoWanted] : oWanted)
    {
        const std::vector<SFieldRecord>& raoGot = oAgain.oFields.at(oKey);
        ASSERT_EQ(raoGot.size(), aoWanted.size());
        for (size_t uiField = 0; uiField < aoWanted.size(); ++uiField)
        {
            ASSERT_TRUE(AreSame(raoGot[uiField], aoWanted[uiField])) << StreamId_Print(oKey) << " " << uiField;
        }
    }
    EXPECT_EQ(Print(oAgain), szWanted);
}

TEST_F(Replay, EndsWithoutASignalOrBeginsAnewAsIfItHadGoneOn)
{
    {
        SNight oNight("input = [{ standard = '1080p50', skip_count_start = 7 }]\noutput = [{ standard = '1080p50' }]");
        oNight.oBench.Run(3);
        Write(oNight);
    }
    {
        SNight oOnce(m_szReplay);
        oOnce.oBench.Run(5);
        EXPECT_EQ(oOnce.oFields[oInput].back().eResult, EWaitResult::CANCELED);
        EXPECT_EQ(oOnce.oBench.GetInput(0).oCounters.uiSignalLosses, 1U);
    }
    SNight oLoop(m_szReplay + "replay_loop = true");
    oLoop.oBench.Run(20);
    const SStreamCounters& roCounters = oLoop.oBench.GetInput(0).oCounters;
    EXPECT_EQ(roCounters.uiFields, roCounters.uiFieldsObserved);
    EXPECT_EQ(roCounters.uiSignalLosses + roCounters.uiPhaseSteps + roCounters.uiFieldsLate, 0U);
    EXPECT_GE(oLoop.oFields[oOutput].size(), 50U * 20);
    EXPECT_EQ(oLoop.oFields[oInput].back().uiSkippedBuffers, 7U);
}

TEST_F(Replay, TakesEventsOnTop)
{
    {
        SNight oNight("output = [{ standard = '1080p50' }]");
        oNight.oBench.Run(3);
        Write(oNight);
    }
    SNight oNight(m_szReplay + "replay_loop = true\noutput = [{ event = [\n"
                               "{ kind = 'missed_field', at_s = 2, for_fields = 4 },\n"
                               "{ kind = 'signal_loss', at_s = 7, for_s = 1 } ] }]");
    oNight.oBench.Run(12);
    const SStreamCounters& roCounters = oNight.oBench.Get(eOut, 0).oCounters;
    EXPECT_EQ(roCounters.uiFieldsLost, 4U);
    EXPECT_EQ(roCounters.uiSignalLosses, 1U);
    EXPECT_NEAR(roCounters.flSignalLostSeconds, 1.0, 0.1);
}

TEST_F(Replay, RefusesWhatCannotBePlayedInOneLine)
{
    {
        SNight oNight("output = [{ standard = '1080p50' }]");
        oNight.oBench.Run(1);
        Write(oNight);
    }
    const std::pair<std::string, const char*> aoCases[] = {
        {"replay = '/nowhere/night.vtrec'", "2: replay: /nowhere/night.vtrec: No such file"},
        {"replay = '/dev/null'", "is no regular file"},
        {"replay_loop = true\ninput = [{ standard = '1080p50' }]", "goes with replay alone"},
        {m_szReplay + "tick_start = 5", "3: tick_start: is the recording's matter"},
        {m_szReplay + "output = [{ standard = '1080p60' }]", "standard"},
        {m_szReplay + "output = [{}, {}]", "the recording has 1"},
        {m_szReplay + "output = [{ event = [{ kind = 'cadence_change', at_s = 1, set_buffer_rate = 24 }] }]",
         "cannot be put on top"},
    };
    for (const auto& [szChip, szSays] : aoCases)
    {
        const std::string szFault = Refuse(szChip);
        EXPECT_NE(szFault.find(szSays), std::string::npos) << szChip << ": " << szFault;
        EXPECT_EQ(szFault.find('\n'), std::string::npos);
    }
    // Files that are none, cut or of a later day: a line, and nothing else.
    for (const char* szSql : {"PRAGMA user_version = 2", "PRAGMA application_id = 7", "DROP TABLE fields",
                              "UPDATE fields SET result = 9 WHERE rowid = 3", "DELETE FROM clock", "DELETE FROM fields",
                              "UPDATE streams SET stream_index = 3", "UPDATE fields SET tick = -1",
                              "ALTER TABLE about ADD COLUMN x AS (hex(zeroblob(99)))"})
    {
        SNight oNight("output = [{ standard = '1080p50' }]");
        oNight.oBench.Run(1);
        Write(oNight);
        sqlite3* poFile = nullptr;
        sqlite3_open(m_szFile.c_str(), &poFile);
        EXPECT_TRUE(StoreFile_Run(poFile, szSql)) << szSql;
        sqlite3_close(poFile);
        const std::string szFault = Refuse(m_szReplay);
        EXPECT_NE(szFault.find("night.vtrec: "), std::string::npos) << szSql << ": " << szFault;
        EXPECT_EQ(szFault.find('\n'), std::string::npos);
    }
    std::filesystem::resize_file(m_szFile, 5000);
    EXPECT_NE(Refuse(m_szReplay), "");
}
