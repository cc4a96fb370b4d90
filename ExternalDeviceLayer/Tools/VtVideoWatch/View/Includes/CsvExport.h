/*
 * A recording as CSV, by RFC 4180: one row per wait.
 */
#ifndef CSV_EXPORT_H
#define CSV_EXPORT_H

#include <memory>

#include "RecordingExport.h"

std::unique_ptr<IRecordingExport> CsvExport_Make(ExportSink fnSink);

#endif
