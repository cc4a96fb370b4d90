/*
 * The words of a verdict: the line that monitoring systems read, and JSON. No state.
 */
#ifndef CHECK_PRINT_H
#define CHECK_PRINT_H

#include <string>

#include "CheckVerdict.h"

/* "VIDEO OK - the worst finding | performance data" on one line, without a line end. */
std::string CheckPrint_Line(const SCheckVerdict& roVerdict);

/* The same, and where there are several findings a line for each behind it. */
std::string CheckPrint_Lines(const SCheckVerdict& roVerdict);

/*
 * All of it as JSON on one line.
 *   uiSeconds  in  how long was watched
 */
std::string CheckPrint_Json(const SCheckVerdict& roVerdict, const SWatchPublication& roPublication, uint32_t uiSeconds);

#endif
