/*
 * A history as columns: one array per figure, all of one length. No state; any thread.
 */
#ifndef HISTORY_JSON_H
#define HISTORY_JSON_H

#include <span>
#include <vector>

#include "ApiQuery.h"
#include "HistoryPoint.h"
#include "WatchJson.h"

struct SHistoryColumn
{
    const char* szName;
    CJson (*oGet)(const SHistoryPoint& roPoint);
    const char* szWith; // the column that an estimate's uncertainty stands in; null: it has none
};

/* The columns that the parameter "fields" asks for, with the uncertainties of the estimates among them; without the
 * parameter all of them. An unknown one becomes the query's problem. */
std::vector<const SHistoryColumn*> HistoryJson_FindColumns(CApiQuery& roQuery);

/* Adds "t", begins in milliseconds since 1970 UTC, and the columns. */
void HistoryJson_AddColumns(CJson& roJson, std::span<const SHistoryPoint> aoPoints,
                            std::span<const SHistoryColumn* const> apoColumns);

#endif
