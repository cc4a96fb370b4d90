// See Sqlite.h.
#include "Sqlite.h"

#include <dlfcn.h>

struct SSqliteCalls
{
    int (*fnOpen)(const char*, void**, int, const char*) = nullptr;
    int (*fnClose)(void*) = nullptr;
    int (*fnExec)(void*, const char*, void*, void*, char**) = nullptr;
    int (*fnLimit)(void*, int, int) = nullptr;
    const char* (*fnGetFault)(void*) = nullptr;
    int (*fnPrepare)(void*, const char*, int, void**, const char**) = nullptr;
    int (*fnBind)(void*, int, int64_t) = nullptr;
    int (*fnStep)(void*) = nullptr;
    int (*fnFinalize)(void*) = nullptr;
    int64_t (*fnGetInt)(void*, int) = nullptr;
    int (*fnGetType)(void*, int) = nullptr;
    const unsigned char* (*fnGetText)(void*, int) = nullptr;
};

namespace
{

constexpr const char* szLibrary = "libsqlite3.so.0";

// Numbers and shapes of its C interface.
constexpr int iOk = 0;
constexpr int iRow = 100;
constexpr int iDone = 101;
constexpr int iOpenReadOnly = 0x1;
constexpr int iOpenNoMutex = 0x8000;
constexpr int iTypeNull = 5;
constexpr int iLimitLength = 0;
constexpr int iMostLength = 1 << 20; // of a row: ours are far smaller

template <typename TCall> bool Find(void* pvLibrary, const char* szName, TCall& rfnCall)
{
    rfnCall = reinterpret_cast<TCall>(dlsym(pvLibrary, szName));
    return rfnCall != nullptr;
}

bool Load(SSqliteCalls& roCalls)
{
    void* pvLibrary = dlopen(szLibrary, RTLD_NOW | RTLD_LOCAL);
    return pvLibrary != nullptr && Find(pvLibrary, "sqlite3_open_v2", roCalls.fnOpen) &&
           Find(pvLibrary, "sqlite3_close_v2", roCalls.fnClose) && Find(pvLibrary, "sqlite3_exec", roCalls.fnExec) &&
           Find(pvLibrary, "sqlite3_limit", roCalls.fnLimit) && Find(pvLibrary, "sqlite3_errmsg", roCalls.fnGetFault) &&
           Find(pvLibrary, "sqlite3_prepare_v2", roCalls.fnPrepare) &&
           Find(pvLibrary, "sqlite3_bind_int64", roCalls.fnBind) && Find(pvLibrary, "sqlite3_step", roCalls.fnStep) &&
           Find(pvLibrary, "sqlite3_finalize", roCalls.fnFinalize) &&
           Find(pvLibrary, "sqlite3_column_int64", roCalls.fnGetInt) &&
           Find(pvLibrary, "sqlite3_column_type", roCalls.fnGetType) &&
           Find(pvLibrary, "sqlite3_column_text", roCalls.fnGetText);
}

// Null where there is no such library. It stays loaded: databases may be open until the end.
const SSqliteCalls* FindCalls()
{
    static SSqliteCalls oCalls;
    static const bool bIsComplete = Load(oCalls);
    return bIsComplete ? &oCalls : nullptr;
}

} // namespace

CSqlite::~CSqlite()
{
    if (m_poFile != nullptr)
    {
        m_poCalls->fnClose(m_poFile);
    }
}

bool CSqlite::Open(const std::string& rszFile, std::string& rszWhy)
{
    m_poCalls = FindCalls();
    if (m_poCalls == nullptr)
    {
        rszWhy = std::string("reading recordings needs ") + szLibrary + ", which is not installed";
        return false;
    }
    const int iOpened = m_poCalls->fnOpen(rszFile.c_str(), &m_poFile, iOpenReadOnly | iOpenNoMutex, nullptr);
    if (iOpened != iOk)
    {
        rszWhy = m_poFile == nullptr ? "no memory" : GetFault();
        return false;
    }
    m_poCalls->fnExec(m_poFile, "PRAGMA trusted_schema=OFF;PRAGMA cell_size_check=ON;PRAGMA mmap_size=0", nullptr,
                      nullptr, nullptr);
    m_poCalls->fnLimit(m_poFile, iLimitLength, iMostLength);
    return true;
}

int64_t CSqlite::Ask(const char* szSql)
{
    CSqliteRows oRows(*this, szSql);
    return oRows.Next() ? oRows.GetInt() : -1;
}

std::string CSqlite::GetFault() const
{
    return m_poCalls->fnGetFault(m_poFile);
}

CSqliteRows::CSqliteRows(CSqlite& roFile, const char* szSql, int64_t iParameter) : m_poCalls(roFile.m_poCalls)
{
    m_bHasFailed = m_poCalls->fnPrepare(roFile.m_poFile, szSql, -1, &m_poRows, nullptr) != iOk;
    if (!m_bHasFailed)
    {
        m_poCalls->fnBind(m_poRows, 1, iParameter);
    }
}

CSqliteRows::~CSqliteRows()
{
    m_poCalls->fnFinalize(m_poRows);
}

bool CSqliteRows::Next()
{
    m_iColumn = 0;
    m_bIsValid = true;
    const int iResult = m_bHasFailed ? iDone : m_poCalls->fnStep(m_poRows);
    m_bHasFailed = m_bHasFailed || (iResult != iRow && iResult != iDone);
    return iResult == iRow;
}

int64_t CSqliteRows::GetInt()
{
    return m_poCalls->fnGetInt(m_poRows, m_iColumn++);
}

uint64_t CSqliteRows::GetBounded(uint64_t uiMost)
{
    const auto uiValue = static_cast<uint64_t>(GetInt());
    m_bIsValid = m_bIsValid && uiValue <= uiMost;
    return uiValue;
}

bool CSqliteRows::IsNextNull() const
{
    return m_poCalls->fnGetType(m_poRows, m_iColumn) == iTypeNull;
}

std::string CSqliteRows::GetText()
{
    const unsigned char* puiText = m_poCalls->fnGetText(m_poRows, m_iColumn++);
    return puiText == nullptr ? std::string() : reinterpret_cast<const char*>(puiText);
}
