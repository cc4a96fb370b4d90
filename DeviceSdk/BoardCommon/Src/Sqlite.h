/*
 * As much of SQLite as reading takes, from the library that the system has when it is asked for: its interface in C is
 * kept for ever. A database belongs to one thread.
 */
#ifndef BOARD_COMMON_SQLITE_H
#define BOARD_COMMON_SQLITE_H

#include <cstdint>
#include <string>

class CSqliteRows;
struct SSqliteCalls;

class CSqlite
{
public:
    CSqlite() = default;
    ~CSqlite();
    CSqlite(const CSqlite&) = delete;
    CSqlite& operator=(const CSqlite&) = delete;

    /* Opens a file for reading, as one that nobody vouches for. False with rszWhy set. */
    bool Open(const std::string& rszFile, std::string& rszWhy);
    /* The number that a statement gives; -1 when it gives none. */
    int64_t Ask(const char* szSql);
    /* What is wrong. */
    std::string GetFault() const;

private:
    friend class CSqliteRows;
    const SSqliteCalls* m_poCalls = nullptr;
    void* m_poFile = nullptr;
};

// The rows of a statement.
class CSqliteRows
{
public:
    CSqliteRows(CSqlite& roFile, const char* szSql, int64_t iParameter = 0);
    ~CSqliteRows();
    CSqliteRows(const CSqliteRows&) = delete;
    CSqliteRows& operator=(const CSqliteRows&) = delete;

    /* False behind the last one, and when the file is broken. */
    bool Next();
    bool HasFailed() const { return m_bHasFailed; }

    // Columns from the left; each call takes the next one.
    int64_t GetInt();
    /* The next one within bounds; anything else makes the row invalid. */
    uint64_t GetBounded(uint64_t uiMost);
    bool IsNextNull() const;
    std::string GetText();
    /* Whether all numbers of the row were within their bounds so far. */
    bool IsValid() const { return m_bIsValid; }

private:
    const SSqliteCalls* m_poCalls;
    void* m_poRows = nullptr;
    int m_iColumn = 0;
    bool m_bIsValid = true;
    bool m_bHasFailed = false;
};

#endif
