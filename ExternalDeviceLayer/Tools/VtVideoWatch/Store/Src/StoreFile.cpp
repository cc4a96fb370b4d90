#include "StoreFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "StoreRows.h"

namespace
{

constexpr int iApplicationId = 0x56745657; // "VtVW"
constexpr int iBusyTimeOutMs = 1000;       // readers and the writer let each other in between
constexpr mode_t uiFileMode = 0640;        // as the journal's

// The running minutes stand apart: they are written every second, side by side, so that a second touches a few pages.
// Once complete they move to where a stream's minutes follow each other.
std::string GetLayout()
{
    return "CREATE TABLE runs(id INTEGER PRIMARY KEY, begin_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL, "
           "ending INTEGER NOT NULL, host TEXT NOT NULL, board TEXT NOT NULL, board_version INTEGER NOT NULL, "
           "inputs INTEGER NOT NULL, outputs INTEGER NOT NULL);"
           "CREATE TABLE streams(direction INTEGER NOT NULL, stream INTEGER NOT NULL, name TEXT NOT NULL, "
           "standard TEXT NOT NULL, format TEXT NOT NULL, PRIMARY KEY(direction, stream)) WITHOUT ROWID;"
           "CREATE TABLE events(" +
           StoreRows_GetColumns<SWatchEvent>() +
           ", PRIMARY KEY(number));"
           "CREATE INDEX events_by_moment ON events(utc_ns);"
           "CREATE TABLE minutes(" +
           StoreRows_GetColumns<SMinuteSummary>() +
           ", PRIMARY KEY(direction, stream, utc_ns)) WITHOUT ROWID;"
           "CREATE TABLE running(" +
           StoreRows_GetColumns<SMinuteSummary>() + ", PRIMARY KEY(direction, stream)) WITHOUT ROWID;";
}

// What a layout has beyond those before it.
std::string GetIncidents()
{
    return "CREATE TABLE incidents(" + StoreRows_GetColumns<SIncident>() +
           ", PRIMARY KEY(number));"
           "CREATE INDEX incidents_by_moment ON incidents(begin_ns);"
           "CREATE TABLE delivered(id INTEGER PRIMARY KEY CHECK(id = 1), event INTEGER NOT NULL);";
}

std::string GetUpdate(int64_t iVersion)
{
    std::string szSql = iVersion < 2 ? "ALTER TABLE runs RENAME COLUMN is_closed TO ending;" : "";
    szSql += iVersion < 3 ? GetIncidents() : "";
    for (const std::string& rszColumn : StoreRows_GetLaterColumns<SIncident>(iVersion))
    {
        szSql += iVersion < 3 ? "" : "ALTER TABLE incidents ADD COLUMN " + rszColumn + ";";
    }
    for (const std::string& rszColumn : StoreRows_GetLaterColumns<SMinuteSummary>(iVersion))
    {
        for (const char* szTable : {"minutes", "running"})
        {
            szSql.append("ALTER TABLE ").append(szTable).append(" ADD COLUMN ").append(rszColumn).append(";");
        }
    }
    return szSql;
}

CFault Refuse(const std::string& rszFile, const std::string& rszWhy)
{
    return CFault("store " + rszFile + ": " + rszWhy);
}

CFault Change(sqlite3* poFile, const std::string& rszFile, const std::string& rszSql)
{
    const std::string szAll = "BEGIN IMMEDIATE;" + rszSql + "PRAGMA application_id=" + std::to_string(iApplicationId) +
                              ";PRAGMA user_version=" + std::to_string(iStoreVersion) + ";COMMIT;";
    return StoreFile_Run(poFile, szAll.c_str()) ? CFault() : StoreFile_GetFault(rszFile, poFile);
}

int64_t ReadNumber(sqlite3* poFile, const char* szSql)
{
    CStoreStatement oStatement(poFile, szSql);
    return oStatement.Next() ? oStatement.GetInt() : -1;
}

// Whether the file is a store that this program understands; bWrite: an empty one becomes one, an older one a new one.
CFault CheckLayout(sqlite3* poFile, const std::string& rszFile, bool bWrite)
{
    const int64_t iApplication = ReadNumber(poFile, "PRAGMA application_id");
    const int64_t iVersion = ReadNumber(poFile, "PRAGMA user_version");
    const int64_t iTables = ReadNumber(poFile, "SELECT count(*) FROM sqlite_schema");
    if (iTables < 0)
    {
        return StoreFile_GetFault(rszFile, poFile);
    }
    if (bWrite && iTables == 0 && iApplication == 0)
    {
        return Change(poFile, rszFile, GetLayout() + GetIncidents());
    }
    if (iApplication != iApplicationId)
    {
        return Refuse(rszFile, "is a database, but not one of this program");
    }
    if (iVersion > iStoreVersion)
    {
        return Refuse(rszFile, "was written by a newer version of this program (layout " + std::to_string(iVersion) +
                                   ", this one knows " + std::to_string(iStoreVersion) + ")");
    }
    return bWrite && iVersion < iStoreVersion ? Change(poFile, rszFile, GetUpdate(iVersion)) : CFault();
}

// Of a file that nobody changes, on a medium that takes no lock.
std::string GetFrozenName(const std::string& rszFile)
{
    std::string szName = "file:";
    for (const char cByte : rszFile)
    {
        szName += cByte == '%' ? "%25" : cByte == '?' ? "%3f" : cByte == '#' ? "%23" : std::string(1, cByte);
    }
    return szName + "?immutable=1";
}

CFault Connect(const std::string& rszFile, const std::string& rszName, int iFlags, bool bWrite, StoreFilePtr& rpoFile)
{
    const bool bMayBeMade = (iFlags & SQLITE_OPEN_CREATE) != 0;
    const CFault oKind = StoreFile_CheckKind(rszFile);
    if (oKind && !(bMayBeMade && oKind.MayHeal() && rszFile != ":memory:"))
    {
        return Refuse(rszFile, oKind.GetText());
    }
    if (const int iNew = bMayBeMade ? open(rszFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, uiFileMode) : -1;
        iNew >= 0)
    {
        close(iNew);
    }
    sqlite3* poFile = nullptr;
    const int iResult = sqlite3_open_v2(rszName.c_str(), &poFile, iFlags | SQLITE_OPEN_NOMUTEX, nullptr);
    rpoFile.reset(poFile);
    if (iResult != SQLITE_OK)
    {
        return StoreFile_GetFault(rszFile, poFile);
    }
    sqlite3_busy_timeout(poFile, iBusyTimeOutMs);
    return CheckLayout(poFile, rszFile, bWrite);
}

} // namespace

CFault StoreFile_GetFault(const std::string& rszFile, sqlite3* poFile)
{
    const int iError = poFile == nullptr ? SQLITE_NOMEM : sqlite3_errcode(poFile);
    const bool bMayHeal = iError == SQLITE_FULL || iError == SQLITE_IOERR || iError == SQLITE_BUSY;
    const char* szFault = poFile == nullptr     ? "no memory"
                          : iError == SQLITE_OK ? "could not be used"
                                                : sqlite3_errmsg(poFile);
    return CFault("store " + rszFile + ": " + szFault, bMayHeal);
}

CFault StoreFile_OpenForWriting(const std::string& rszFile, StoreFilePtr& rpoFile)
{
    CFault oFault = Connect(rszFile, rszFile, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, true, rpoFile);
    // FULL: what is committed has reached the disk, so that a power cut takes the last second at most. No write-ahead
    // log: its index is memory that others share, where a truncated file ends the process, and neither it nor the log
    // can be read from a medium that takes no writes.
    if (!oFault && !StoreFile_Run(rpoFile.get(), "PRAGMA journal_mode=TRUNCATE;PRAGMA synchronous=FULL;"
                                                 "PRAGMA cache_size=-2048"))
    {
        oFault = StoreFile_GetFault(rszFile, rpoFile.get());
    }
    if (oFault)
    {
        rpoFile.reset();
    }
    return oFault;
}

CFault StoreFile_OpenForReading(const std::string& rszFile, StoreFilePtr& rpoFile)
{
    CFault oFault = Connect(rszFile, rszFile, SQLITE_OPEN_READONLY, false, rpoFile);
    const int iError = rpoFile == nullptr ? SQLITE_OK : sqlite3_errcode(rpoFile.get());
    struct stat oLog = {};
    if (oFault && iError == SQLITE_READONLY)
    {
        // Its watch was killed while it wrote: who opens it next takes that second back.
        oFault = Connect(rszFile, rszFile, SQLITE_OPEN_READWRITE, false, rpoFile);
    }
    else if (oFault && iError == SQLITE_CANTOPEN && stat((rszFile + "-wal").c_str(), &oLog) != 0)
    {
        // One of an earlier version, which wants files beside it.
        oFault = Connect(rszFile, GetFrozenName(rszFile), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, false, rpoFile);
    }
    if (oFault)
    {
        rpoFile.reset();
    }
    return oFault;
}

CFault StoreFile_CheckKind(const std::string& rszFile)
{
    struct stat oFile = {};
    if (stat(rszFile.c_str(), &oFile) != 0)
    {
        return CFault(std::strerror(errno), errno == ENOENT);
    }
    return S_ISREG(oFile.st_mode) ? CFault() : CFault("is no regular file");
}

bool StoreFile_Run(sqlite3* poFile, const char* szSql)
{
    return poFile != nullptr && sqlite3_exec(poFile, szSql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

CStoreStatement::CStoreStatement(sqlite3* poFile, const char* szSql)
{
    sqlite3_stmt* poStatement = nullptr;
    if (poFile != nullptr &&
        sqlite3_prepare_v3(poFile, szSql, -1, SQLITE_PREPARE_PERSISTENT, &poStatement, nullptr) == SQLITE_OK)
    {
        m_poStatement.reset(poStatement);
    }
}

CStoreStatement& CStoreStatement::Note(int iResult)
{
    m_bHasFailed = m_bHasFailed || iResult != SQLITE_OK;
    return *this;
}

CStoreStatement& CStoreStatement::Bind(int64_t iValue)
{
    return Note(sqlite3_bind_int64(m_poStatement.get(), ++m_iParameter, iValue));
}

CStoreStatement& CStoreStatement::Bind(uint64_t uiValue)
{
    return Bind(static_cast<int64_t>(uiValue));
}

CStoreStatement& CStoreStatement::Bind(double flValue)
{
    return Note(sqlite3_bind_double(m_poStatement.get(), ++m_iParameter, flValue));
}

CStoreStatement& CStoreStatement::Bind(const std::string& rszValue)
{
    return Note(sqlite3_bind_text(m_poStatement.get(), ++m_iParameter, rszValue.c_str(),
                                  static_cast<int>(rszValue.size()), SQLITE_TRANSIENT));
}

CStoreStatement& CStoreStatement::Bind(std::span<const uint8_t> auiBytes)
{
    sqlite3_bind_blob(m_poStatement.get(), ++m_iParameter, auiBytes.data(), static_cast<int>(auiBytes.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

CStoreStatement& CStoreStatement::BindNull()
{
    return Note(sqlite3_bind_null(m_poStatement.get(), ++m_iParameter));
}

void CStoreStatement::Reset()
{
    sqlite3_reset(m_poStatement.get());
    m_iParameter = 0;
}

bool CStoreStatement::Run()
{
    const bool bIsDone = m_poStatement != nullptr && !m_bHasFailed && sqlite3_step(m_poStatement.get()) == SQLITE_DONE;
    m_bHasFailed = false; // the next row has values of its own
    Reset();
    return bIsDone;
}

bool CStoreStatement::Next()
{
    m_iColumn = 0;
    const int iResult = m_poStatement == nullptr || m_bHasFailed ? SQLITE_MISUSE : sqlite3_step(m_poStatement.get());
    if (iResult == SQLITE_ROW)
    {
        return true;
    }
    m_bHasFailed = iResult != SQLITE_DONE;
    Reset();
    return false;
}

std::string CStoreStatement::GetText()
{
    const bool bIsNull = IsNextNull();
    const unsigned char* puiText = sqlite3_column_text(m_poStatement.get(), m_iColumn++);
    m_bHasFailed = m_bHasFailed || (puiText == nullptr && !bIsNull);
    return puiText == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(puiText));
}

std::span<const uint8_t> CStoreStatement::GetBytes()
{
    const auto* puiBytes = static_cast<const uint8_t*>(sqlite3_column_blob(m_poStatement.get(), m_iColumn));
    const int iBytes = sqlite3_column_bytes(m_poStatement.get(), m_iColumn++);
    return {puiBytes, static_cast<size_t>(iBytes)};
}
