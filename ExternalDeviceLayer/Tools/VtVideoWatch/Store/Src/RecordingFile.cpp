#include "RecordingFile.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

#include "EventKinds.h"
#include "RecordingColumns.h"
#include "StreamId.h"

namespace
{

constexpr int iApplicationId = 0x56745672; // "VtVr"
constexpr int64_t iMostStreams = int64_t{2} * uiMaxStreamsPerDirection;
constexpr uint64_t uiMostRows = 1'000'000; // of events, clocks
constexpr uint64_t uiMostDescriptionRows = 100'000;
constexpr size_t uiMostTextBytes = 4096;
constexpr size_t uiMostNameBytes = 256;

// What the file says of itself to who opens it with anything that reads SQLite.
constexpr const char* aszDocumentation[][2] = {
    {"streams.stream", "row that the other tables name a stream by"},
    {"fields.tick", "when the field started, ticks of the board; null: the wait gave no field"},
    {"fields.field_counter", "16 per field, the board's own, 64 bits without a sign"},
    {"fields.set_buffer_counter", "outputs: buffers set so far"},
    {"fields.parity", "1: top field, 0: bottom field"},
    {"fields.ready", "inputs: filled buffers that waited for the application; null: not known"},
    {"fields.loaned", "inputs: buffers in the application's hands"},
    {"fields.internal", "inputs: buffers in the board's hands"},
    {"fields.skipped", "inputs: pictures that the board had no buffer for, since its start"},
    {"fields.wait_begin_ns", "when the wait began, CLOCK_MONOTONIC"},
    {"fields.arrival_ns", "when it returned, CLOCK_MONOTONIC"},
    {"fields.result", "0: a field, 1: timed out, 2: canceled, no signal, 3: the device is gone"},
    {"fields.run_delay_ns", "how long the waiting thread stood ready without a processor; 0: not asked"},
    {"clock", "the same moment in all clocks"},
};

std::string MakeLayout()
{
    return "BEGIN;PRAGMA application_id=" + std::to_string(iApplicationId) +
           ";PRAGMA user_version=" + std::to_string(iRecordingVersion) +
           ";CREATE TABLE about(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;"
           "CREATE TABLE streams(stream INTEGER PRIMARY KEY, direction TEXT NOT NULL, stream_index INTEGER NOT NULL,"
           " id TEXT NOT NULL);"
           "CREATE TABLE descriptions(stream INTEGER NOT NULL, " +
           RecordingColumns_Print(aoDescriptionColumns, " INTEGER NOT NULL") +
           ", name TEXT NOT NULL, format TEXT NOT NULL);"
           "CREATE TABLE fields(stream INTEGER NOT NULL, " +
           RecordingColumns_Print(aoFieldColumns, " INTEGER") + ", " +
           RecordingColumns_Print(aoBufferColumns, " INTEGER") + ", skipped INTEGER, " +
           RecordingColumns_Print(aoWaitColumns, " INTEGER NOT NULL") +
           ");"
           "CREATE TABLE events(number INTEGER PRIMARY KEY, utc_ns INTEGER NOT NULL, tick INTEGER NOT NULL,"
           " kind TEXT NOT NULL, stream INTEGER NOT NULL, count INTEGER NOT NULL, value_before INTEGER NOT NULL,"
           " value_after INTEGER NOT NULL, real_before REAL, real_after REAL, seconds REAL);"
           "CREATE TABLE clock(tick INTEGER NOT NULL, monotonic_ns INTEGER NOT NULL, utc_ns INTEGER NOT NULL,"
           " uncertainty_s REAL NOT NULL, tai_offset_s INTEGER NOT NULL);";
}

template <typename TColumns, typename TRecord>
void Bind(CStoreStatement& roStatement, const TColumns& raoColumns, const TRecord& roRecord, bool bIsKnown = true)
{
    for (const auto& roColumn : raoColumns)
    {
        bIsKnown ? roStatement.Bind(roColumn.fnGet(roRecord)) : roStatement.BindNull();
    }
}

// False when a value is none of its column, or only some are known. rbHasAny: they are known.
template <typename TColumns, typename TRecord>
bool Read(CStoreStatement& roRow, const TColumns& raoColumns, TRecord& roRecord, bool& rbHasAny)
{
    bool bIsValid = true;
    bool bHasNull = false;
    rbHasAny = false;
    for (const auto& roColumn : raoColumns)
    {
        const bool bIsNull = roRow.IsNextNull();
        const uint64_t uiValue = roRow.GetUint();
        (bIsNull ? bHasNull : rbHasAny) = true;
        bIsValid = bIsValid && uiValue <= roColumn.uiMost;
        if (!bIsNull && bIsValid)
        {
            roColumn.fnSet(roRecord, uiValue);
        }
    }
    return bIsValid && !(bHasNull && rbHasAny);
}

std::string MakePlaces(size_t uiColumns)
{
    std::string szPlaces = "?";
    for (size_t uiColumn = 1; uiColumn < uiColumns; ++uiColumn)
    {
        szPlaces += ", ?";
    }
    return szPlaces;
}

bool SyncFile(const std::string& rszFile)
{
    const int iFile = open(rszFile.c_str(), O_RDONLY | O_CLOEXEC);
    const bool bIsSynced = iFile >= 0 && fsync(iFile) == 0;
    if (iFile >= 0)
    {
        close(iFile);
    }
    return bIsSynced;
}

// Made here, so that the rights are ours and no link or queue of that name is followed.
bool MakeFile(const std::string& rszFile)
{
    static_cast<void>(unlink(rszFile.c_str()));
    const int iFile = open(rszFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    if (iFile >= 0)
    {
        close(iFile);
    }
    return iFile >= 0;
}

} // namespace

bool RecordingFile_IsOne(const std::string& rszFile)
{
    // Of a database's header: its first words, and where it says whose it is.
    constexpr char szBegin[] = "SQLite format 3";
    constexpr size_t uiApplicationAt = 68;
    std::array<char, 100> achHeader = {};
    std::error_code oNone;
    if (!std::filesystem::is_regular_file(rszFile, oNone))
    {
        return false; // a queue would be waited for
    }
    std::ifstream oFile(rszFile, std::ios::binary);
    oFile.read(achHeader.data(), achHeader.size());
    const std::array<char, 4> achApplication = {iApplicationId >> 24, iApplicationId >> 16 & 0xFF,
                                                iApplicationId >> 8 & 0xFF, iApplicationId & 0xFF};
    return oFile && std::memcmp(achHeader.data(), szBegin, sizeof(szBegin)) == 0 &&
           std::memcmp(&achHeader[uiApplicationAt], achApplication.data(), achApplication.size()) == 0;
}

CFault CRecordingWriter::TryName(const std::string& rszFile)
{
    const std::string szPart = rszFile + szRecordingPart;
    if (!MakeFile(szPart))
    {
        return CFault("recording " + rszFile + ": " + std::strerror(errno));
    }
    static_cast<void>(unlink(szPart.c_str()));
    return {};
}

uint64_t CRecordingWriter::GetBytes() const
{
    CStoreStatement oPages(m_poFile.get(), "SELECT page_count * page_size FROM pragma_page_count, pragma_page_size");
    return oPages.Next() ? oPages.GetUint() : 0;
}

CFault CRecordingWriter::Fail()
{
    CFault oFault("recording " + m_szFile + ": " +
                  (m_poFile == nullptr ? std::strerror(errno) : sqlite3_errmsg(m_poFile.get())));
    Discard();
    return oFault;
}

CFault CRecordingWriter::Begin(const std::string& rszFile, const SRecordingAbout& roAbout,
                               std::span<const SStreamKey> aoStreams)
{
    Discard();
    m_szFile = rszFile;
    const std::string szPart = rszFile + szRecordingPart;
    if (!MakeFile(szPart))
    {
        return Fail();
    }
    sqlite3* poFile = nullptr;
    const int iOpened = sqlite3_open_v2(szPart.c_str(), &poFile, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_poFile.reset(poFile);
    if (iOpened != SQLITE_OK ||
        !StoreFile_Run(poFile, "PRAGMA journal_mode=OFF;PRAGMA synchronous=OFF;PRAGMA locking_mode=EXCLUSIVE") ||
        !StoreFile_Run(poFile, MakeLayout().c_str()) || !WriteAbout(roAbout))
    {
        return Fail();
    }
    CStoreStatement oStream(poFile, "INSERT INTO streams VALUES(?, ?, ?, ?)");
    for (const SStreamKey& roStream : aoStreams)
    {
        const auto iRow = static_cast<int64_t>(m_oRows.size()) + 1;
        m_oRows[roStream] = iRow;
        if (!oStream.Bind(iRow)
                 .Bind(StreamId_GetDirection(roStream.eDirection))
                 .Bind(roStream.uiIndex)
                 .Bind(StreamId_Print(roStream))
                 .Run())
        {
            return Fail();
        }
    }
    const size_t uiColumns = 2 + aoFieldColumns.size() + aoBufferColumns.size() + aoWaitColumns.size();
    m_oField = CStoreStatement(poFile, ("INSERT INTO fields VALUES(" + MakePlaces(uiColumns) + ")").c_str());
    return {};
}

bool CRecordingWriter::WriteAbout(const SRecordingAbout& roAbout)
{
    CStoreStatement oRow(m_poFile.get(), "INSERT INTO about VALUES(?, ?)");
    bool bIsWritten = true;
    for (const auto& [szKey, szValue] : std::initializer_list<std::pair<const char*, std::string>>{
             {"program", "VtVideoWatch"},
             {"version", roAbout.szVersion},
             {"host", roAbout.szHost},
             {"board", roAbout.szBoard},
             {"board_version", std::to_string(roAbout.uiBoardVersion)},
             {"simulated", roAbout.bIsSimulated ? "1" : "0"},
             {"tick_frequency_hz", std::to_string(roAbout.uiTickFrequencyHz)},
             {"reason", roAbout.szReason}})
    {
        bIsWritten = bIsWritten && oRow.Bind(std::string(szKey)).Bind(szValue).Run();
    }
    for (const auto& [szKey, szValue] : aszDocumentation)
    {
        bIsWritten = bIsWritten && oRow.Bind(std::string(szKey)).Bind(std::string(szValue)).Run();
    }
    return bIsWritten;
}

int64_t CRecordingWriter::GetRow(const SStreamKey& roStream) const
{
    const auto itRow = m_oRows.find(roStream);
    return itRow == m_oRows.end() ? 0 : itRow->second;
}

bool CRecordingWriter::AddField(const SStreamKey& roStream, const SFieldRecord& roField)
{
    const bool bIsField = roField.eResult == EWaitResult::FIELD;
    m_oField.Bind(GetRow(roStream));
    Bind(m_oField, aoFieldColumns, roField, bIsField);
    Bind(m_oField, aoBufferColumns, roField, bIsField && roField.bHasBuffers);
    bIsField&& roField.bHasSkippedBuffers ? m_oField.Bind(roField.uiSkippedBuffers) : m_oField.BindNull();
    Bind(m_oField, aoWaitColumns, roField);
    ++m_uiFields;
    return m_oField.Run();
}

bool CRecordingWriter::AddDescription(const SRecordedDescription& roDescription)
{
    CStoreStatement oRow(
        m_poFile.get(),
        ("INSERT INTO descriptions VALUES(" + MakePlaces(3 + aoDescriptionColumns.size()) + ")").c_str());
    oRow.Bind(GetRow(roDescription.oStream));
    Bind(oRow, aoDescriptionColumns, roDescription.oDescription);
    return oRow.Bind(roDescription.szName).Bind(roDescription.szFormat).Run();
}

bool CRecordingWriter::AddEvent(const SWatchEvent& roEvent)
{
    CStoreStatement oRow(m_poFile.get(), "INSERT OR IGNORE INTO events VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    return oRow.Bind(roEvent.uiNumber)
        .Bind(roEvent.iUtcNs)
        .Bind(roEvent.uiTick)
        .Bind(std::string(EventKind_Get(roEvent.eKind).szName))
        .Bind(GetRow(roEvent.oKey))
        .Bind(roEvent.uiCount)
        .Bind(roEvent.uiBefore)
        .Bind(roEvent.uiAfter)
        .Bind(roEvent.flBefore)
        .Bind(roEvent.flAfter)
        .Bind(roEvent.flSeconds)
        .Run();
}

bool CRecordingWriter::AddClock(const SRecordedClock& roClock)
{
    CStoreStatement oRow(m_poFile.get(), "INSERT INTO clock VALUES(?, ?, ?, ?, ?)");
    return oRow.Bind(roClock.uiTick)
        .Bind(roClock.uiMonotonicNs)
        .Bind(roClock.iUtcNs)
        .Bind(roClock.flUncertaintySeconds)
        .Bind(static_cast<int64_t>(roClock.iTaiOffsetSeconds))
        .Run();
}

// Without a journal: what is not finished is thrown away, so nothing has to be undone.
CFault CRecordingWriter::Finish()
{
    m_oField = {};
    const std::string szPart = m_szFile + szRecordingPart;
    if (!StoreFile_Run(m_poFile.get(), "CREATE INDEX fields_by_stream ON fields(stream);COMMIT"))
    {
        return Fail();
    }
    m_poFile.reset();
    if (!SyncFile(szPart) || std::rename(szPart.c_str(), m_szFile.c_str()) != 0)
    {
        return Fail();
    }
    m_szFile.clear();
    return {};
}

void CRecordingWriter::Discard()
{
    m_oField = {};
    m_poFile.reset();
    if (!m_szFile.empty())
    {
        static_cast<void>(unlink((m_szFile + szRecordingPart).c_str()));
        m_szFile.clear();
    }
    m_oRows.clear();
    m_uiFields = 0;
}

CFault CRecordingReader::Refuse(const std::string& rszWhy) const
{
    // What the database says of a file from elsewhere may quote it.
    std::string szWhy = rszWhy;
    std::ranges::replace_if(
        szWhy, [](char cByte) { return static_cast<unsigned char>(cByte) < ' '; }, '?');
    return CFault("recording " + m_szFile + ": " + szWhy);
}

CFault CRecordingReader::EndOf(const CStoreStatement& roRows) const
{
    return roRows.HasFailed() ? Refuse(sqlite3_errmsg(m_poFile.get())) : CFault();
}

CFault CRecordingReader::Open(const std::string& rszFile)
{
    m_szFile = rszFile;
    // Only a file is opened: the name of a queue would wait for somebody who writes.
    if (const CFault oKind = StoreFile_CheckKind(rszFile))
    {
        return Refuse(oKind.GetText());
    }
    sqlite3* poFile = nullptr;
    const int iOpened = sqlite3_open_v2(rszFile.c_str(), &poFile, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    m_poFile.reset(poFile);
    if (iOpened != SQLITE_OK)
    {
        return Refuse(poFile == nullptr ? "no memory" : sqlite3_errmsg(poFile));
    }
    return ReadAll();
}

CFault CRecordingReader::OpenBytes(std::span<const uint8_t> aoBytes)
{
    m_szFile = "in memory";
    sqlite3* poFile = nullptr;
    const int iOpened = sqlite3_open_v2(":memory:", &poFile, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_poFile.reset(poFile);
    // The library takes what it only reads as if it wrote.
    auto* puiBytes = const_cast<unsigned char*>(aoBytes.data());
    const auto iBytes = static_cast<sqlite3_int64>(aoBytes.size());
    if (iOpened != SQLITE_OK ||
        sqlite3_deserialize(poFile, "main", puiBytes, iBytes, iBytes, SQLITE_DESERIALIZE_READONLY) != SQLITE_OK)
    {
        return Refuse(poFile == nullptr ? "no memory" : sqlite3_errmsg(poFile));
    }
    return ReadAll();
}

// Everything but the fields.
CFault CRecordingReader::ReadAll()
{
    sqlite3* poFile = m_poFile.get();
    // A file from elsewhere is data: its schema may run nothing, and no row is larger than ours are.
    StoreFile_Run(poFile, "PRAGMA trusted_schema=OFF;PRAGMA cell_size_check=ON;PRAGMA mmap_size=0");
    sqlite3_limit(poFile, SQLITE_LIMIT_LENGTH, 1 << 20);
    for (CFault (CRecordingReader::*fnRead)() :
         {&CRecordingReader::CheckLayout, &CRecordingReader::ReadAbout, &CRecordingReader::ReadStreams,
          &CRecordingReader::ReadDescriptions, &CRecordingReader::ReadClocks, &CRecordingReader::ReadEvents})
    {
        if (CFault oFault = (this->*fnRead)())
        {
            return oFault;
        }
    }
    return {};
}

CFault CRecordingReader::CheckLayout()
{
    CStoreStatement oTables(m_poFile.get(), "SELECT count(*) FROM sqlite_schema WHERE type='table' AND name IN "
                                            "('about', 'streams', 'descriptions', 'fields', 'events', 'clock')");
    if (!oTables.Next())
    {
        return Refuse(sqlite3_errmsg(m_poFile.get()));
    }
    const int64_t iTables = oTables.GetInt();
    CStoreStatement oApplication(m_poFile.get(), "PRAGMA application_id");
    CStoreStatement oVersion(m_poFile.get(), "PRAGMA user_version");
    if (!oApplication.Next() || oApplication.GetInt() != iApplicationId)
    {
        return Refuse("is a database, but no recording");
    }
    const int64_t iVersion = oVersion.Next() ? oVersion.GetInt() : 0;
    if (iVersion > iRecordingVersion)
    {
        return Refuse("was written by a newer version of this program (layout " + std::to_string(iVersion) +
                      ", this one knows " + std::to_string(iRecordingVersion) + ")");
    }
    // Neither a view nor a column that is worked out: reading a row must cost no more than its bytes.
    CStoreStatement oViews(m_poFile.get(), "SELECT count(*) FROM sqlite_schema WHERE type IN ('view', 'trigger') OR "
                                           "sql LIKE 'create virtual%' OR sql LIKE '% as (%' OR sql LIKE '% as(%'");
    return iTables == 6 && oViews.Next() && oViews.GetInt() == 0 ? CFault()
                                                                 : Refuse("has not the tables of a recording");
}

CFault CRecordingReader::ReadAbout()
{
    std::map<std::string, std::string> oValues;
    CStoreStatement oRows(m_poFile.get(), "SELECT key, value FROM about LIMIT 1000");
    while (oRows.Next())
    {
        std::string szKey = oRows.GetText().substr(0, uiMostTextBytes);
        oValues[std::move(szKey)] = oRows.GetText().substr(0, uiMostTextBytes);
    }
    m_oAbout.szVersion = oValues["version"];
    m_oAbout.szHost = oValues["host"];
    m_oAbout.szBoard = oValues["board"];
    m_oAbout.szReason = oValues["reason"];
    m_oAbout.uiBoardVersion = std::strtoull(oValues["board_version"].c_str(), nullptr, 10);
    m_oAbout.bIsSimulated = oValues["simulated"] == "1";
    const uint64_t uiFrequencyHz = std::strtoull(oValues["tick_frequency_hz"].c_str(), nullptr, 10);
    if (oRows.HasFailed() || uiFrequencyHz == 0 || uiFrequencyHz > UINT32_MAX)
    {
        return Refuse("table about: no frequency of the ticks");
    }
    m_oAbout.uiTickFrequencyHz = static_cast<uint32_t>(uiFrequencyHz);
    return {};
}

CFault CRecordingReader::ReadStreams()
{
    CStoreStatement oRows(m_poFile.get(), "SELECT stream, id FROM streams ORDER BY stream LIMIT 100");
    while (oRows.Next())
    {
        SRecordedStream oStream;
        oStream.iRow = oRows.GetInt();
        const std::string szId = oRows.GetText();
        const std::optional<SStreamKey> oKey = StreamId_Find(szId);
        const bool bIsNew = oKey && std::ranges::find(m_aoStreams, *oKey, &SRecordedStream::oKey) == m_aoStreams.end();
        if (!bIsNew || m_aoStreams.size() == static_cast<size_t>(iMostStreams))
        {
            return Refuse("table streams: row " + std::to_string(oStream.iRow) + " is no stream or one named twice");
        }
        oStream.oKey = *oKey;
        m_aoStreams.push_back(oStream);
    }
    return EndOf(oRows);
}

const SRecordedStream* CRecordingReader::FindRow(int64_t iRow) const
{
    const auto itStream = std::ranges::find(m_aoStreams, iRow, &SRecordedStream::iRow);
    return itStream == m_aoStreams.end() ? nullptr : &*itStream;
}

CFault CRecordingReader::ReadDescriptions()
{
    const std::string szSql = "SELECT stream, " + RecordingColumns_Print(aoDescriptionColumns) +
                              ", name, format FROM descriptions ORDER BY rowid";
    CStoreStatement oRows(m_poFile.get(), szSql.c_str());
    while (oRows.Next())
    {
        const SRecordedStream* poStream = FindRow(oRows.GetInt());
        SRecordedDescription oDescription;
        bool bHasAny = false;
        const bool bIsValid = Read(oRows, aoDescriptionColumns, oDescription.oDescription, bHasAny);
        if (poStream == nullptr || !bIsValid || m_aoDescriptions.size() == uiMostDescriptionRows)
        {
            return Refuse("table descriptions: row " + std::to_string(m_aoDescriptions.size() + 1) +
                          " is no description of a stream");
        }
        oDescription.oStream = poStream->oKey;
        oDescription.szName = oRows.GetText().substr(0, uiMostNameBytes);
        oDescription.szFormat = oRows.GetText().substr(0, uiMostNameBytes);
        m_aoDescriptions.push_back(std::move(oDescription));
    }
    return EndOf(oRows);
}

CFault CRecordingReader::ReadClocks()
{
    CStoreStatement oRows(m_poFile.get(),
                          "SELECT tick, monotonic_ns, utc_ns, uncertainty_s, tai_offset_s FROM clock ORDER BY rowid");
    while (oRows.Next() && m_aoClocks.size() < uiMostRows)
    {
        SRecordedClock& roClock = m_aoClocks.emplace_back();
        roClock.uiTick = oRows.GetUint();
        roClock.uiMonotonicNs = oRows.GetUint();
        roClock.iUtcNs = oRows.GetInt();
        roClock.flUncertaintySeconds = oRows.GetDouble();
        roClock.iTaiOffsetSeconds = static_cast<int32_t>(oRows.GetInt());
    }
    if (oRows.HasFailed() || m_aoClocks.empty())
    {
        return Refuse(m_aoClocks.empty() ? "table clock is empty" : sqlite3_errmsg(m_poFile.get()));
    }
    return {};
}

CFault CRecordingReader::ReadEvents()
{
    CStoreStatement oRows(m_poFile.get(),
                          "SELECT number, utc_ns, tick, kind, stream, count, value_before, value_after, "
                          "real_before, real_after, seconds FROM events ORDER BY number");
    while (oRows.Next())
    {
        SWatchEvent oEvent = {};
        oEvent.uiNumber = oRows.GetUint();
        oEvent.iUtcNs = oRows.GetInt();
        oEvent.uiTick = oRows.GetUint();
        const std::optional<EWatchEventKind> oKind = EventKind_Find(oRows.GetText());
        const SRecordedStream* poStream = FindRow(oRows.GetInt());
        if (!oKind || poStream == nullptr || m_aoEvents.size() == uiMostRows)
        {
            return Refuse("table events: number " + std::to_string(oEvent.uiNumber) + " is no event of a stream");
        }
        oEvent.eKind = *oKind;
        oEvent.oKey = poStream->oKey;
        oEvent.uiCount = oRows.GetUint();
        oEvent.uiBefore = oRows.GetUint();
        oEvent.uiAfter = oRows.GetUint();
        oEvent.flBefore = oRows.GetDouble();
        oEvent.flAfter = oRows.GetDouble();
        oEvent.flSeconds = oRows.GetDouble();
        m_aoEvents.push_back(oEvent);
    }
    return EndOf(oRows);
}

CFault CRecordingReader::ForEachField(const SRecordedStream& roStream, const Take& rfnTake)
{
    const std::string szSql = "SELECT " + RecordingColumns_Print(aoFieldColumns) + ", " +
                              RecordingColumns_Print(aoBufferColumns) + ", skipped, " +
                              RecordingColumns_Print(aoWaitColumns) + " FROM fields WHERE stream=? ORDER BY rowid";
    CStoreStatement oRows(m_poFile.get(), szSql.c_str());
    oRows.Bind(roStream.iRow);
    uint64_t uiRows = 0;
    while (oRows.Next())
    {
        SFieldRecord oField = {};
        bool bIsField = false;
        bool bIsWait = false;
        bool bIsValid = Read(oRows, aoFieldColumns, oField, bIsField);
        bIsValid = Read(oRows, aoBufferColumns, oField, oField.bHasBuffers) && bIsValid;
        oField.bHasSkippedBuffers = !oRows.IsNextNull();
        oField.uiSkippedBuffers = oRows.GetUint();
        bIsValid = Read(oRows, aoWaitColumns, oField, bIsWait) && bIsValid;
        if (!bIsValid || bIsField != (oField.eResult == EWaitResult::FIELD) || ++uiRows > uiMostRecordedFields)
        {
            return Refuse("table fields: row " + std::to_string(uiRows + 1) + " of " + StreamId_Print(roStream.oKey) +
                          " is no field");
        }
        rfnTake(oField);
    }
    return EndOf(oRows);
}
