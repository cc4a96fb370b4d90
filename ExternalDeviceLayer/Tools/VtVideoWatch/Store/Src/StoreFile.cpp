#include "StoreFile.h"

namespace
{

constexpr int iApplicationId = 0x56745657; // "VtVW"
constexpr int iBusyTimeOutMs = 200;

// The running minutes stand apart: they are written every second, side by side, so that a second touches a few pages.
// Once complete they move to where a stream's minutes follow each other.
constexpr char szLayout[] = R"(
CREATE TABLE runs(id INTEGER PRIMARY KEY, begin_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL, is_closed INTEGER NOT NULL,
    host TEXT NOT NULL, board TEXT NOT NULL, board_version INTEGER NOT NULL, inputs INTEGER NOT NULL,
    outputs INTEGER NOT NULL);
CREATE TABLE streams(direction INTEGER NOT NULL, stream INTEGER NOT NULL, name TEXT NOT NULL, standard TEXT NOT NULL,
    format TEXT NOT NULL, PRIMARY KEY(direction, stream)) WITHOUT ROWID;
CREATE TABLE events(number INTEGER PRIMARY KEY, utc_ns INTEGER NOT NULL, tick INTEGER NOT NULL, kind INTEGER NOT NULL,
    direction INTEGER NOT NULL, stream INTEGER NOT NULL, count INTEGER NOT NULL, value_before INTEGER NOT NULL,
    value_after INTEGER NOT NULL, real_before REAL, real_after REAL, seconds REAL, lock_group INTEGER NOT NULL,
    members INTEGER NOT NULL);
CREATE INDEX events_by_moment ON events(utc_ns);
CREATE TABLE minutes(direction INTEGER NOT NULL, stream INTEGER NOT NULL, utc_ns INTEGER NOT NULL,
    points INTEGER NOT NULL, rate_points INTEGER NOT NULL, phase_points INTEGER NOT NULL, fields INTEGER NOT NULL,
    observed INTEGER NOT NULL, lost INTEGER NOT NULL, unobserved INTEGER NOT NULL, skipped INTEGER NOT NULL,
    watched_s REAL, running_s REAL, rate_hz REAL, rate_stderr_hz REAL, phase_s REAL, phase_stderr_s REAL, phase_min_s REAL,
    phase_max_s REAL, drift REAL, drift_stderr REAL, jitter_rms_s REAL, lock INTEGER NOT NULL, state INTEGER NOT NULL,
    PRIMARY KEY(direction, stream, utc_ns)) WITHOUT ROWID;
CREATE TABLE running(direction INTEGER NOT NULL, stream INTEGER NOT NULL, utc_ns INTEGER NOT NULL,
    points INTEGER NOT NULL, rate_points INTEGER NOT NULL, phase_points INTEGER NOT NULL, fields INTEGER NOT NULL,
    observed INTEGER NOT NULL, lost INTEGER NOT NULL, unobserved INTEGER NOT NULL, skipped INTEGER NOT NULL,
    watched_s REAL, running_s REAL, rate_hz REAL, rate_stderr_hz REAL, phase_s REAL, phase_stderr_s REAL, phase_min_s REAL,
    phase_max_s REAL, drift REAL, drift_stderr REAL, jitter_rms_s REAL, lock INTEGER NOT NULL, state INTEGER NOT NULL,
    PRIMARY KEY(direction, stream)) WITHOUT ROWID;
)";

EStoreOpen Refuse(const std::string& rszFile, const std::string& rszWhy, std::string& rszFault)
{
    rszFault = "store " + rszFile + ": " + rszWhy;
    return EStoreOpen::REFUSED;
}

EStoreOpen JudgeError(sqlite3* poFile, const std::string& rszFile, std::string& rszFault)
{
    const int iError = poFile == nullptr ? SQLITE_NOMEM : sqlite3_errcode(poFile);
    rszFault = "store " + rszFile + ": " + (poFile == nullptr ? "no memory" : sqlite3_errmsg(poFile));
    const bool bMayHeal = iError == SQLITE_FULL || iError == SQLITE_IOERR || iError == SQLITE_BUSY;
    return bMayHeal ? EStoreOpen::FAILED : EStoreOpen::REFUSED;
}

int64_t ReadNumber(sqlite3* poFile, const char* szSql)
{
    CStoreStatement oStatement(poFile, szSql);
    return oStatement.Next() ? oStatement.GetInt() : -1;
}

// Whether the file is a store that this program understands; an empty one becomes one when bMake is set.
EStoreOpen CheckLayout(sqlite3* poFile, const std::string& rszFile, bool bMake, std::string& rszFault)
{
    const int64_t iApplication = ReadNumber(poFile, "PRAGMA application_id");
    const int64_t iVersion = ReadNumber(poFile, "PRAGMA user_version");
    const int64_t iTables = ReadNumber(poFile, "SELECT count(*) FROM sqlite_schema");
    if (iTables < 0)
    {
        return JudgeError(poFile, rszFile, rszFault);
    }
    if (bMake && iTables == 0 && iApplication == 0)
    {
        const std::string szMake = std::string("BEGIN IMMEDIATE;") + szLayout +
                                   "PRAGMA application_id=" + std::to_string(iApplicationId) +
                                   ";PRAGMA user_version=" + std::to_string(iStoreVersion) + ";COMMIT;";
        return StoreFile_Run(poFile, szMake.c_str()) ? EStoreOpen::OPENED : JudgeError(poFile, rszFile, rszFault);
    }
    if (iApplication != iApplicationId)
    {
        return Refuse(rszFile, "is a database, but not one of this program", rszFault);
    }
    if (iVersion > iStoreVersion)
    {
        return Refuse(rszFile,
                      "was written by a newer version of this program (layout " + std::to_string(iVersion) +
                          ", this one knows " + std::to_string(iStoreVersion) + ")",
                      rszFault);
    }
    return EStoreOpen::OPENED;
}

EStoreOpen Connect(const std::string& rszFile, int iFlags, StoreFilePtr& rpoFile, std::string& rszFault)
{
    sqlite3* poFile = nullptr;
    const int iResult = sqlite3_open_v2(rszFile.c_str(), &poFile, iFlags | SQLITE_OPEN_NOMUTEX, nullptr);
    rpoFile.reset(poFile);
    if (iResult != SQLITE_OK)
    {
        const EStoreOpen eOutcome = JudgeError(poFile, rszFile, rszFault);
        rpoFile.reset();
        return eOutcome;
    }
    sqlite3_busy_timeout(poFile, iBusyTimeOutMs);
    return EStoreOpen::OPENED;
}

} // namespace

EStoreOpen StoreFile_OpenForWriting(const std::string& rszFile, StoreFilePtr& rpoFile, std::string& rszFault)
{
    EStoreOpen eOutcome = Connect(rszFile, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, rpoFile, rszFault);
    if (eOutcome == EStoreOpen::OPENED)
    {
        eOutcome = CheckLayout(rpoFile.get(), rszFile, true, rszFault);
    }
    // FULL: what is committed has reached the disk, so that a power cut takes the last second at most.
    if (eOutcome == EStoreOpen::OPENED &&
        !StoreFile_Run(rpoFile.get(), "PRAGMA journal_mode=WAL;PRAGMA synchronous=FULL;"
                                      "PRAGMA journal_size_limit=4194304;PRAGMA cache_size=-2048"))
    {
        eOutcome = JudgeError(rpoFile.get(), rszFile, rszFault);
    }
    if (eOutcome != EStoreOpen::OPENED)
    {
        rpoFile.reset();
    }
    return eOutcome;
}

EStoreOpen StoreFile_OpenForReading(const std::string& rszFile, StoreFilePtr& rpoFile, std::string& rszFault)
{
    EStoreOpen eOutcome = Connect(rszFile, SQLITE_OPEN_READONLY, rpoFile, rszFault);
    if (eOutcome == EStoreOpen::OPENED)
    {
        eOutcome = CheckLayout(rpoFile.get(), rszFile, false, rszFault);
    }
    if (eOutcome != EStoreOpen::OPENED)
    {
        rpoFile.reset();
    }
    return eOutcome;
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

CStoreStatement& CStoreStatement::Bind(int64_t iValue)
{
    sqlite3_bind_int64(m_poStatement.get(), ++m_iParameter, iValue);
    return *this;
}

CStoreStatement& CStoreStatement::Bind(uint64_t uiValue)
{
    return Bind(static_cast<int64_t>(uiValue));
}

CStoreStatement& CStoreStatement::Bind(double flValue)
{
    sqlite3_bind_double(m_poStatement.get(), ++m_iParameter, flValue);
    return *this;
}

CStoreStatement& CStoreStatement::Bind(const std::string& rszValue)
{
    sqlite3_bind_text(m_poStatement.get(), ++m_iParameter, rszValue.c_str(), static_cast<int>(rszValue.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

void CStoreStatement::Reset()
{
    sqlite3_reset(m_poStatement.get());
    m_iParameter = 0;
}

bool CStoreStatement::Run()
{
    const bool bIsDone = m_poStatement != nullptr && sqlite3_step(m_poStatement.get()) == SQLITE_DONE;
    Reset();
    return bIsDone;
}

bool CStoreStatement::Next()
{
    m_iColumn = 0;
    if (m_poStatement != nullptr && sqlite3_step(m_poStatement.get()) == SQLITE_ROW)
    {
        return true;
    }
    Reset();
    return false;
}

std::string CStoreStatement::GetText()
{
    const unsigned char* puiText = sqlite3_column_text(m_poStatement.get(), m_iColumn++);
    return puiText == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(puiText));
}
