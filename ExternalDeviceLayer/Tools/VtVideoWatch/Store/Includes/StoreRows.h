/*
 * Records of the watch as rows of the store, both ways: SWatchEvent and SMinuteSummary. What a record's columns are
 * stands in one list each (StoreRows.cpp). The caller's connection; no state.
 */
#ifndef STORE_ROWS_H
#define STORE_ROWS_H

#include <string>
#include <vector>

#include "HistoryPoint.h"
#include "StoreFile.h"
#include "WatchEvent.h"
#include "WatchHealth.h"

/* "number, utc_ns, ..." */
template <typename TRow> std::string StoreRows_GetNames();
/* The same to read a file of a layout that may be older: what that lacks is NULL. */
template <typename TRow> std::string StoreRows_GetNames(int64_t iVersion);

/* Columns that a layout lacks, as StoreRows_GetColumns has them. */
template <typename TRow> std::vector<std::string> StoreRows_GetLaterColumns(int64_t iVersion);

/* "number INTEGER NOT NULL, utc_ns ...": to make a table of. */
template <typename TRow> std::string StoreRows_GetColumns();

/* Puts rows into a table, in the place of those with the same key. */
template <typename TRow> CStoreStatement StoreRows_Insert(sqlite3* poFile, const char* szTable);

/* Binds a whole record, and reads one from the first column on. */
template <typename TRow> CStoreStatement& StoreRows_Bind(CStoreStatement& roStatement, const TRow& roRow);
template <typename TRow> TRow StoreRows_Read(CStoreStatement& roStatement);

/* The columns direction and stream. */
SStreamKey StoreRows_ReadKey(CStoreStatement& roStatement);
CStoreStatement& StoreRows_BindKey(CStoreStatement& roStatement, const SStreamKey& roKey);

#endif
