/*
 * A recording as Perfetto's trace: per stream a track of its fields, which end where the next one begins or a regular
 * one would have, so that what is missing is a hole; tracks of waits and events; counters of lateness and buffers.
 * Numbers of the members are those of its published description (protos/perfetto/trace).
 */
#ifndef PERFETTO_EXPORT_H
#define PERFETTO_EXPORT_H

#include <memory>

#include "RecordingExport.h"

std::unique_ptr<IRecordingExport> PerfettoExport_Make(ExportSink fnSink);

#endif
