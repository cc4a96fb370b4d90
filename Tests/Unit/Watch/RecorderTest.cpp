// The flight recorder: what goes in comes out, field by field, from memory and from a file.
#include <fstream>
#include <random>

#include "FieldRecorder.h"
#include "RecordingFile.h"
#include "RecordingKeeper.h"
#include "WatchSteps.h"

namespace
{

constexpr SStreamKey oInput = {EStreamDirection::INPUT, 0};
constexpr SStreamKey oOutput = {EStreamDirection::OUTPUT, 0};
constexpr uint64_t uiPeriodNs = 16'666'667;

// Streams of a seed: regular ones with jitter, and now and then anything that 64 bits can hold.
class CRecordMaker
{
public:
    CRecordMaker(const SStreamKey& roStream, uint32_t uiSeed) : m_bIsInput(roStream == oInput), m_oRandom(uiSeed) {}

    SFieldRecord Make()
    {
        SFieldRecord oRecord = {};
        oRecord.uiWaitBeginNs = m_oLast.uiArrivalNs + Draw(20000);
        oRecord.uiArrivalNs = oRecord.uiWaitBeginNs + uiPeriodNs - 40000 + Draw(60000);
        m_oLast.uiArrivalNs = oRecord.uiArrivalNs;
        if (Draw(50) == 0)
        {
            oRecord.eResult = static_cast<EWaitResult>(1 + Draw(3));
            return oRecord;
        }
        const bool bIsWild = Draw(200) == 0;
        oRecord.uiTick = bIsWild ? m_oRandom() : m_oLast.uiTick + uiPeriodNs + Draw(3000);
        oRecord.uiFieldCounter =
            bIsWild ? m_oRandom() : m_oLast.uiFieldCounter + 16 * (1 + (Draw(30) == 0 ? Draw(9) : 0));
        oRecord.uiSetBufferCounter = m_bIsInput ? 0 : m_oLast.uiSetBufferCounter + Draw(3);
        oRecord.bIsTopField = Draw(2) == 0;
        oRecord.uiRunDelayNs = Draw(60) == 0 ? m_oRandom() >> 1U : 0;
        oRecord.bHasBuffers = m_bIsInput && Draw(20) != 0;
        oRecord.bHasSkippedBuffers = oRecord.bHasBuffers && Draw(3) == 0;
        oRecord.uiReadyBuffers = static_cast<uint16_t>(oRecord.bHasBuffers ? Draw(4) : 0);
        oRecord.uiLoanedBuffers = static_cast<uint16_t>(oRecord.bHasBuffers ? Draw(3) : 0);
        oRecord.uiInternalBuffers = static_cast<uint16_t>(oRecord.bHasBuffers ? 65535 - Draw(2) : 0);
        oRecord.uiSkippedBuffers = oRecord.bHasSkippedBuffers ? m_oRandom() : 0;
        m_oLast = oRecord;
        return oRecord;
    }

private:
    uint64_t Draw(uint64_t uiBelow) { return m_oRandom() % uiBelow; }

    const bool m_bIsInput;
    std::mt19937_64 m_oRandom;
    SFieldRecord m_oLast = {};
};

void ExpectSame(const std::vector<SFieldRecord>& raoWanted, const std::vector<SFieldRecord>& raoGot)
{
    ASSERT_EQ(raoWanted.size(), raoGot.size());
    for (size_t uiRecord = 0; uiRecord < raoWanted.size(); ++uiRecord)
    {
        ASSERT_TRUE(AreSame(raoWanted[uiRecord], raoGot[uiRecord])) << "record " << uiRecord;
    }
}

} // namespace

TEST(FieldRecorder, GivesBackTheLastSecondsOfEveryStreamAsTheyWere)
{
    constexpr uint32_t uiSeconds = 20;
    CFieldRecorder oRecorder(1, 1, uiSeconds);
    std::map<SStreamKey, std::vector<SFieldRecord>> oWanted;
    CRecordMaker oMakeInput(oInput, 1);
    CRecordMaker oMakeOutput(oOutput, 2);
    for (uint32_t uiField = 0; uiField < 60 * 60; ++uiField)
    {
        oRecorder.Add(oInput, oWanted[oInput].emplace_back(oMakeInput.Make()));
        oRecorder.Add(oOutput, oWanted[oOutput].emplace_back(oMakeOutput.Make()));
    }
    const uint64_t uiFromNs = std::min(oWanted[oInput].back().uiArrivalNs, oWanted[oOutput].back().uiArrivalNs) -
                              uiSeconds * 1'000'000'000ULL;
    std::map<SStreamKey, std::vector<SFieldRecord>> oGot;
    oRecorder.Copy({}).ForEach(uiFromNs, [&](const SStreamKey& roStream, const SFieldRecord& roRecord)
                               { oGot[roStream].push_back(roRecord); });
    for (auto& [oStream, aoWanted] : oWanted)
    {
        std::erase_if(aoWanted, [&](const SFieldRecord& roRecord) { return roRecord.uiArrivalNs < uiFromNs; });
        ExpectSame(aoWanted, oGot[oStream]);
    }
}

TEST(FieldRecorder, KeepsToItsMemoryWhenFieldsComeFasterThanItIsMadeFor)
{
    CFieldRecorder oRecorder(1, 0, 2);
    SFieldRecord oRecord = {};
    for (uint64_t uiField = 1; uiField <= 100'000; ++uiField)
    {
        oRecord.uiArrivalNs = uiField * 10'000;
        oRecord.uiTick = uiField * uiField * uiField; // never regular, so never short
        oRecorder.Add(oInput, oRecord);
    }
    uint64_t uiLast = 0;
    uint64_t uiCount = 0;
    oRecorder.Copy({}).ForEach(0,
                               [&](const SStreamKey&, const SFieldRecord& roRecord)
                               {
                                   EXPECT_TRUE(uiLast == 0 || roRecord.uiArrivalNs == uiLast + 10'000);
                                   uiLast = roRecord.uiArrivalNs;
                                   ++uiCount;
                               });
    EXPECT_EQ(uiLast, 100'000U * 10'000);
    EXPECT_GT(uiCount, 200U);
    EXPECT_LE(CFieldRecorder(32, 32, 60).GetBytes(), 8U << 20U);
}

// A stream that keeps its time is told in a few bytes a field: flags, and what no interval tells.
TEST(FieldPacker, TakesFewBytesForARegularStream)
{
    SPackedState oState;
    SFieldRecord oRecord = {};
    uint8_t auiBytes[uiMostPackedBytes];
    for (uint64_t uiField = 1; uiField <= 100; ++uiField)
    {
        oRecord.uiTick = oRecord.uiArrivalNs = uiField * uiPeriodNs;
        oRecord.uiWaitBeginNs = oRecord.uiArrivalNs - uiPeriodNs + 3000;
        oRecord.uiFieldCounter = 16 * uiField;
        const uint32_t uiBytes = FieldPacker_Pack(oState, oRecord, auiBytes);
        EXPECT_TRUE(uiField < 3 || uiBytes <= 6) << uiField << ": " << uiBytes;
    }
}

TEST(FieldPacker, TakesNoBytesForARun)
{
    std::mt19937 oRandom(3);
    for (uint32_t uiTry = 0; uiTry < 2000; ++uiTry)
    {
        std::vector<uint8_t> auiBytes(oRandom() % 60);
        std::ranges::generate(auiBytes, oRandom);
        std::span<const uint8_t> aoRest(auiBytes);
        SPackedState oState;
        SFieldRecord oRecord;
        while (FieldPacker_Unpack(oState, aoRest, oRecord))
        {
        }
        EXPECT_LT(aoRest.size(), 2U + auiBytes.size()); // and nothing behind the end was read, says the sanitizer
    }
}

class Recording : public ::testing::Test
{
protected:
    CTestFolder m_oFolder;
    const std::string m_szFile = m_oFolder / "night.vtrec";
    std::vector<SFieldRecord> m_aoFields;

    void Write()
    {
        CRecordingWriter oWriter;
        SRecordingAbout oAbout;
        oAbout.uiTickFrequencyHz = 180'000'000;
        oAbout.szReason = "asked for";
        ASSERT_FALSE(oWriter.Begin(m_szFile, oAbout, std::array{oInput, oOutput}));
        CRecordMaker oMake(oInput, 7);
        for (uint32_t uiField = 0; uiField < 500; ++uiField)
        {
            ASSERT_TRUE(oWriter.AddField(oInput, m_aoFields.emplace_back(oMake.Make())));
        }
        SRecordedDescription oDescription;
        oDescription.oStream = oOutput;
        oDescription.oDescription.oTimings.bBottomFieldFirst = 1;
        oDescription.oDescription.oTimings.fColorSpace = 5;
        oDescription.szName = "Left, \"main\"";
        ASSERT_TRUE(oWriter.AddDescription(oDescription));
        ASSERT_TRUE(oWriter.AddClock({1, 2, 3, 4.5, 37}));
        SWatchEvent oEvent = {};
        oEvent.uiNumber = 9;
        oEvent.eKind = EWatchEventKind::FIELDS_LOST;
        oEvent.uiCount = UINT64_MAX;
        ASSERT_TRUE(oWriter.AddEvent(oEvent));
        ASSERT_FALSE(oWriter.Finish());
    }
    // What the reader says of the file after a statement has changed it.
    std::string Spoil(const char* szSql) const
    {
        StoreFilePtr poFile;
        sqlite3* poRaw = nullptr;
        sqlite3_open(m_szFile.c_str(), &poRaw);
        poFile.reset(poRaw);
        EXPECT_TRUE(StoreFile_Run(poRaw, szSql)) << sqlite3_errmsg(poRaw);
        poFile.reset();
        return Read();
    }
    std::string Read() const
    {
        CRecordingReader oReader;
        CFault oFault = oReader.Open(m_szFile);
        for (const SRecordedStream& roStream : oReader.GetStreams())
        {
            oFault = oFault ? oFault : oReader.ForEachField(roStream, [](const SFieldRecord&) {});
        }
        return oFault.GetText();
    }
};

TEST_F(Recording, SaysWhatWasWritten)
{
    Write();
    CRecordingReader oReader;
    ASSERT_FALSE(oReader.Open(m_szFile));
    EXPECT_EQ(oReader.GetAbout().uiTickFrequencyHz, 180'000'000U);
    ASSERT_EQ(oReader.GetStreams().size(), 2U);
    std::vector<SFieldRecord> aoGot;
    ASSERT_FALSE(
        oReader.ForEachField(oReader.GetStreams()[0], [&](const SFieldRecord& roField) { aoGot.push_back(roField); }));
    ExpectSame(m_aoFields, aoGot);
    ASSERT_EQ(oReader.GetDescriptions().size(), 1U);
    EXPECT_EQ(oReader.GetDescriptions()[0].oDescription.oTimings.bBottomFieldFirst, 1U);
    EXPECT_EQ(oReader.GetDescriptions()[0].oDescription.oTimings.fColorSpace, 5U);
    EXPECT_EQ(oReader.GetDescriptions()[0].szName, "Left, \"main\"");
    EXPECT_EQ(oReader.GetClocks().at(0).iUtcNs, 3);
    EXPECT_EQ(oReader.GetEvents().at(0).uiCount, UINT64_MAX);
    EXPECT_FALSE(std::filesystem::exists(m_szFile + szRecordingPart));
}

TEST_F(Recording, RefusesWhatIsNoneInOneLine)
{
    const std::pair<const char*, const char*> aoCases[] = {
        {"UPDATE fields SET result = 4 WHERE rowid = 3", "table fields: row 3 of IN_00 is no field"},
        {"UPDATE fields SET tick = NULL WHERE result = 0 AND rowid > 100", "of IN_00 is no field"},
        {"UPDATE streams SET id = 'OUT_99' WHERE stream = 2", "table streams: row 2"},
        {"UPDATE descriptions SET yuv = 2", "table descriptions: row 1"},
        {"UPDATE events SET kind = 'fields_found'", "table events: number 9"},
        {"DELETE FROM clock", "table clock is empty"},
        {"UPDATE about SET value = '0' WHERE key = 'tick_frequency_hz'", "table about"},
        {"PRAGMA user_version = 2", "newer version"},
        {"PRAGMA application_id = 1", "no recording"},
        {"CREATE VIEW v AS SELECT 1", "has not the tables"},
        {"ALTER TABLE about ADD COLUMN x AS (hex(zeroblob(99)))", "has not the tables"},
        {"DROP TABLE fields", "has not the tables"},
    };
    for (const auto& [szSql, szSays] : aoCases)
    {
        m_aoFields.clear();
        Write();
        const std::string szFault = Spoil(szSql);
        EXPECT_NE(szFault.find(szSays), std::string::npos) << szSql << ": " << szFault;
        EXPECT_EQ(szFault.find('\n'), std::string::npos);
    }
    Write();
    std::filesystem::resize_file(m_szFile, 5000);
    EXPECT_NE(Read(), "");
    std::ofstream(m_szFile) << "not a database at all";
    EXPECT_NE(Read().find("not a database"), std::string::npos);
}

TEST_F(Recording, LeavesNothingOfOneThatWasGivenUp)
{
    {
        CRecordingWriter oWriter;
        ASSERT_FALSE(oWriter.Begin(m_szFile, {}, std::array{oInput}));
        EXPECT_FALSE(std::filesystem::exists(m_szFile));
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_oFolder / ""));
    CRecordingWriter oWriter;
    EXPECT_EQ(oWriter.Begin("/nowhere/night.vtrec", {}, std::array{oInput}).GetText(),
              "recording /nowhere/night.vtrec: No such file or directory");
}

// An input at 50 fields/s that has been watched for so many seconds, and the keeper of its incidents.
class RecordingKeeper : public ::testing::Test
{
protected:
    static constexpr uint64_t msc_uiNs = 1'000'000'000;
    CTestFolder m_oFolder;
    const std::string m_szFolder = m_oFolder / "kept";
    CFieldRecorder m_oRecorder{1, 0, 3600};
    uint64_t m_uiEvents = 0;

    void SetUp() override
    {
        SFieldRecord oRecord = {};
        for (uint64_t uiField = 1; uiField <= 50 * 1000; ++uiField)
        {
            oRecord.uiArrivalNs = uiField * msc_uiNs / 50;
            oRecord.uiFieldCounter = 16 * uiField;
            m_oRecorder.Add(oInput, oRecord);
        }
    }
    std::unique_ptr<CRecordingKeeper> Open(uint64_t uiKeepBytes = 1U << 26U)
    {
        SRecordingKeeperSetup oSetup;
        oSetup.szFolder = m_szFolder;
        oSetup.uiKeepBytes = uiKeepBytes;
        oSetup.fnAwaitCut = [this](const SRecorderSpan& roSpan) { return std::optional(m_oRecorder.Copy(roSpan)); };
        auto poKeeper = std::make_unique<CRecordingKeeper>(std::move(oSetup));
        EXPECT_EQ(poKeeper->Open().GetText(), "");
        EXPECT_FALSE(poKeeper->Start());
        return poKeeper;
    }
    // The second that ends then, in which incidents begin and end.
    void Put(CRecordingKeeper& roKeeper, int64_t iSecond, const std::vector<std::pair<EWatchEventKind, uint32_t>>& rao)
    {
        SMadeUpSecond oSecond = MakeSecond(iSecond, ++m_uiEvents);
        oSecond.poPublication->oSnapshot.uiTickFrequencyHz = 1'000'000;
        for (const auto& [eKind, uiIncident] : rao)
        {
            SWatchEvent& roEvent = oSecond.aoEvents.emplace_back();
            roEvent.uiNumber = ++m_uiEvents;
            roEvent.eKind = eKind;
            roEvent.uiGroup = uiIncident;
        }
        roKeeper.Put(oSecond.GetStep());
    }
    std::vector<std::string> List() const
    {
        std::vector<std::string> aszNames;
        for (const auto& roEntry : std::filesystem::directory_iterator(m_szFolder))
        {
            aszNames.push_back(roEntry.path().filename());
        }
        std::ranges::sort(aszNames);
        return aszNames;
    }
    // From the begin of one to ten seconds behind its end; then there is one recording more, or one failure.
    void LetHappen(CRecordingKeeper& roKeeper, int64_t iSecond, uint32_t uiIncident)
    {
        const uint64_t uiBefore = GetCosts(roKeeper).uiRecordings + GetCosts(roKeeper).uiRecordingFailures;
        Put(roKeeper, iSecond, {{EWatchEventKind::INCIDENT_BEGAN, uiIncident}});
        Put(roKeeper, iSecond + 1, {{EWatchEventKind::INCIDENT_ENDED, uiIncident}});
        ASSERT_TRUE(Await(
            [&]
            {
                Put(roKeeper, iSecond + 12, {});
                const SWatchCosts oCosts = GetCosts(roKeeper);
                return oCosts.uiRecordings + oCosts.uiRecordingFailures > uiBefore;
            }));
    }
};

TEST_F(RecordingKeeper, KeepsWhatWasBeforeAndBehindAnIncident)
{
    std::filesystem::create_directory(m_szFolder);
    for (const char* szName : {"20261122T035109Z-incident-1.vtrec.part", "request.vtrec", "holiday.vtrec",
                               "20261122T035109Z-incident-2.vtrec"}) // the last one by its name alone
    {
        std::ofstream(m_szFolder + "/" + szName) << "something";
    }
    const auto poKeeper = Open();
    EXPECT_EQ(List(), (std::vector<std::string>{"20261122T035109Z-incident-2.vtrec", "holiday.vtrec"}));
    EXPECT_NE(CRecordingKeeper({.szFolder = m_szFolder, .fnAwaitCut = {}}).Open().GetText().find("another watch"),
              std::string::npos);
    Put(*poKeeper, 200, {{EWatchEventKind::INCIDENT_BEGAN, 7}});
    Put(*poKeeper, 203, {{EWatchEventKind::INCIDENT_BEGAN, 8}, {EWatchEventKind::INCIDENT_ENDED, 7}});
    Put(*poKeeper, 320, {{EWatchEventKind::INCIDENT_ENDED, 8}});
    ASSERT_TRUE(Await(
        [&]
        {
            Put(*poKeeper, 331, {});
            return GetCosts(*poKeeper).uiRecordings == 1;
        }));
    ASSERT_EQ(List().size(), 3U);
    CRecordingReader oReader;
    ASSERT_EQ(oReader.Open(m_szFolder + "/" + List()[0]).GetText(), "");
    std::vector<uint64_t> auiCounters;
    ASSERT_FALSE(oReader.ForEachField(oReader.GetStreams()[0], [&](const SFieldRecord& roField)
                                      { auiCounters.push_back(roField.uiFieldCounter / 16); }));
    // Each field once, from a minute before; the recorder goes on beyond what the last second tells.
    ASSERT_GE(auiCounters.size(), 50U * 191);
    EXPECT_LE(auiCounters.front(), 50U * 140);
    EXPECT_EQ(auiCounters.back(), auiCounters.front() + auiCounters.size() - 1);
    EXPECT_GE(oReader.GetEvents().size(), 7U);
    EXPECT_EQ(oReader.GetAbout().szReason, "incident 7");
}

TEST_F(RecordingKeeper, TheOldestGiveWay)
{
    const auto poKeeper = Open(3U << 20U); // each takes more than half of it
    for (uint32_t uiIncident = 1; uiIncident <= 4; ++uiIncident)
    {
        LetHappen(*poKeeper, 100 * uiIncident, uiIncident);
        ASSERT_FALSE(List().empty());
        EXPECT_NE(List().back().find("-incident-" + std::to_string(uiIncident) + "."), std::string::npos);
        uint64_t uiBytes = 0;
        for (const std::string& rszName : List())
        {
            uiBytes += std::filesystem::file_size(m_szFolder + "/" + rszName);
        }
        EXPECT_LE(uiBytes, 3U << 20U);
    }
    EXPECT_EQ(GetCosts(*poKeeper).uiRecordings, 4U);
    EXPECT_LT(List().size(), 4U);
}

TEST_F(RecordingKeeper, SaysOnceThatItCannotWriteAndTriesTheNextOne)
{
    const auto poKeeper = Open();
    std::filesystem::remove(m_szFolder);
    testing::internal::CaptureStderr();
    LetHappen(*poKeeper, 100, 1);
    LetHappen(*poKeeper, 200, 2);
    EXPECT_TRUE(GetCosts(*poKeeper).bRecordingIsFailing);
    std::filesystem::create_directory(m_szFolder);
    LetHappen(*poKeeper, 300, 3);
    const SWatchCosts oCosts = GetCosts(*poKeeper);
    EXPECT_EQ(oCosts.uiRecordings, 1U);
    EXPECT_EQ(oCosts.uiRecordingFailures, 2U);
    EXPECT_FALSE(oCosts.bRecordingIsFailing);
    const std::string szSaid = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(szSaid, '\n'), 2) << szSaid;
}

TEST_F(RecordingKeeper, GivesTheLastSecondsToWhoAsks)
{
    const auto poKeeper = Open();
    int iFile = -1;
    EXPECT_TRUE(poKeeper->MakeRecording(20, iFile).MayHeal()); // nothing has been seen
    Put(*poKeeper, 1000, {});
    ASSERT_EQ(poKeeper->MakeRecording(20, iFile).GetText(), "");
    CRecordingReader oReader;
    std::filesystem::copy_file("/proc/self/fd/" + std::to_string(iFile), m_oFolder / "asked");
    ASSERT_EQ(oReader.Open(m_oFolder / "asked").GetText(), "");
    uint64_t uiFields = 0;
    ASSERT_FALSE(oReader.ForEachField(oReader.GetStreams()[0], [&](const SFieldRecord&) { ++uiFields; }));
    EXPECT_EQ(uiFields, 20U * 50 + 1);
    EXPECT_TRUE(List().empty());
    close(iFile);
}
