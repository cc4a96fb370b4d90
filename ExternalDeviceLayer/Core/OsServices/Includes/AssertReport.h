/*
 * The report of a failed internal check, for the whole code base. Execution continues after it. Thread-safe.
 */
#ifndef ASSERT_REPORT_H
#define ASSERT_REPORT_H

#include <cstdint>

// Writes the error message "<base name>(<line>) Assertion failed". Without arguments, those of the caller.
void ReportFailedAssert(const char* szSourcePath = __builtin_FILE(), uint32_t uiLine = __builtin_LINE());

#endif
