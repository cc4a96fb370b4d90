/*
 * A report in the forms in which it leaves the program. No state.
 */
#ifndef REPORT_PRINT_H
#define REPORT_PRINT_H

#include <string>

#include "ReportData.h"

/* Plain text of about 150 lines and 100 columns at most, for a mail. */
std::string ReportPrint_Table(const SReport& roReport);

/* A header and a line per stream, by RFC 4180. */
std::string ReportPrint_Csv(const SReport& roReport);

/* Everything, on one line. */
std::string ReportPrint_Json(const SReport& roReport);

#endif
