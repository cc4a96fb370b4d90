/*
 * The store: a SQLite file with the events, a summary per stream and minute, and who watched when. Here is what the
 * file looks like and how it is opened; who writes it and who reads it stand in StoreWriter.h and StoreReader.h.
 *
 * A connection belongs to one thread. Moments are nanoseconds since 1970-01-01 UTC.
 */
#ifndef STORE_FILE_H
#define STORE_FILE_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <sqlite3.h>

#include "Fault.h"

// Of the file's layout; a program refuses files of a newer one.
constexpr int iStoreVersion = 5;

struct SStoreCloser
{
    void operator()(sqlite3* poFile) const { sqlite3_close_v2(poFile); }
    void operator()(sqlite3_stmt* poStatement) const { sqlite3_finalize(poStatement); }
};
using StoreFilePtr = std::unique_ptr<sqlite3, SStoreCloser>;

// How a run of the program ended; numbers of the store.
enum class ERunEnd : uint8_t
{
    OPEN,   // it runs, or was killed and nobody has written since
    CLOSED, // it said so
    BROKEN  // the next one said so
};

/*
 * Opens the store for writing, makes what it lacks, and brings one of an older layout to this one's.
 *   rszFile  in
 *   rpoFile  out  the connection; null on a fault
 * A fault may heal when the disk is full or gives errors; a file that cannot be a store, or may not be used, stays one.
 */
CFault StoreFile_OpenForWriting(const std::string& rszFile, StoreFilePtr& rpoFile);

/* The same for reading; the file must be a store, and stays as it is. */
CFault StoreFile_OpenForReading(const std::string& rszFile, StoreFilePtr& rpoFile);

/* "store FILE: what the connection says is wrong". */
CFault StoreFile_GetFault(const std::string& rszFile, sqlite3* poFile);

// A prepared statement whose values are bound in order. A null or failed statement passes everything over.
class CStoreStatement
{
public:
    CStoreStatement() = default;
    CStoreStatement(sqlite3* poFile, const char* szSql);

    CStoreStatement& Bind(int64_t iValue);
    CStoreStatement& Bind(uint64_t uiValue); // as the signed number of the same bits
    CStoreStatement& Bind(uint32_t uiValue) { return Bind(static_cast<int64_t>(uiValue)); }
    CStoreStatement& Bind(double flValue);
    CStoreStatement& Bind(const std::string& rszValue);
    CStoreStatement& Bind(std::span<const uint8_t> auiBytes); // none: NULL
    CStoreStatement& BindNull();

    /* Runs to the end of a statement that gives no rows, and makes it ready for the next values. */
    bool Run();
    /* Steps to the next row; false behind the last one, and the statement is ready for the next values. */
    bool Next();
    /* Whether a Next() met an error instead of the end, or the statement could not be made or a text not be had. */
    bool HasFailed() const { return m_bHasFailed; }

    // Columns of the row, from the left; each call takes the next one.
    int64_t GetInt() { return sqlite3_column_int64(m_poStatement.get(), m_iColumn++); }
    uint64_t GetUint() { return static_cast<uint64_t>(GetInt()); }
    uint32_t GetUint32() { return static_cast<uint32_t>(GetInt()); }
    double GetDouble() { return sqlite3_column_double(m_poStatement.get(), m_iColumn++); }
    bool IsNextNull() const { return sqlite3_column_type(m_poStatement.get(), m_iColumn) == SQLITE_NULL; }
    std::string GetText();
    /* Valid until the next row. */
    std::span<const uint8_t> GetBytes();

private:
    void Reset();
    CStoreStatement& Note(int iResult);

    std::unique_ptr<sqlite3_stmt, SStoreCloser> m_poStatement;
    bool m_bHasFailed = false; // a value that could not be bound, too
    int m_iParameter = 0;
    int m_iColumn = 0;
};

/*
 * Refuses a name that is not that of a file: a queue would wait for somebody who writes, a device have no end. Time may
 * heal that there is none.
 */
CFault StoreFile_CheckKind(const std::string& rszFile);

/* Runs statements that give no rows. */
bool StoreFile_Run(sqlite3* poFile, const char* szSql);

#endif
