/*
 * Everything that the tool shows while it runs goes through Log: to standard output and, when asked for, to the log
 * file. Called from every thread without a lock; lines of different threads may interleave.
 */
#ifndef CONSOLE_LOG_H
#define CONSOLE_LOG_H

#include <cstdint>

#include "KrvTypes.h"

/*
 * Formats a message, prints it and appends it to the log file.
 *   pszFormat  in  printf format, then its values; the message is cut at 4095 characters
 * Silent while the one-shot report waits for its single redraw. A message above 1000 characters is followed by a
 * warning.
 */
void Log(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));

/*
 * Local time in the 24 characters of asctime, such as "Mon Nov 16 08:06:12 2026".
 *   szTime  out  64 characters, cleared first
 */
void GetTimeString(VTSTR64& szTime);

/*
 * Creates or empties a file.
 * 1 when it could be opened, else 0.
 */
Bool32 CreateFile(const char* pszFilePathWithName);

/*
 * Appends uiSize bytes of pszStr to a file, which is opened and closed for it.
 * 0 when the file cannot be opened or something was written, 1 when nothing was written: the result is inverted, and
 * nobody looks at it.
 */
Bool32 WriteToFile(const char* pszFilePathWithName, const char* pszStr, uint32_t uiSize);

#endif
