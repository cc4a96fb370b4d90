/*
 * A report out of a recording: the analysis sees again what the watch saw. No output, no clock.
 */
#ifndef RECORDING_REPORT_H
#define RECORDING_REPORT_H

#include "RecordingFile.h"
#include "ReportData.h"

// Waits that are taken into memory for it at most.
constexpr uint64_t uiMostReportedWaits = 4'000'000;

/*
 *   roReader  in   open
 *   roReport  out
 * The fault says what is wrong with the recording, or that it is too long.
 */
CFault RecordingReport_Collect(CRecordingReader& roReader, SReport& roReport);

#endif
