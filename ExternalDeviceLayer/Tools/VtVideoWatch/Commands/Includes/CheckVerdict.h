/*
 * What a check makes of the figures: findings, the worst of which decides, and performance data. Follows the guidelines
 * of the Monitoring Plugins project. No state, no clock, no output.
 *
 * The signal is blamed only for what the signal did: fields that passed while the watcher was late, and figures that
 * are not sure yet, never make a verdict critical.
 */
#ifndef CHECK_VERDICT_H
#define CHECK_VERDICT_H

#include <string>
#include <vector>

#include "WatchOptions.h"
#include "WatchPublication.h"

// Exit statuses of monitoring plug-ins.
enum class EVerdict : uint8_t
{
    OK,
    WARNING,
    CRITICAL,
    UNKNOWN
};

// Something that a verdict rests on.
struct SFinding
{
    EVerdict eVerdict = EVerdict::OK;
    const char* szCondition =
        ""; // "streams", "expect", "lost", "late", "rate", "locked", "path", "skipped", "repeated", a domain of health
    std::string szText;
    std::vector<SStreamKey> aoStreams; // that it is about
};

// A figure for those who draw curves: label=value[unit];warn;crit;min;max
struct SPerformance
{
    std::string szLabel;
    std::string szValue; // with its unit
    std::string szWarning;
    std::string szCritical;
    std::string szLeast;
};

struct SCheckVerdict
{
    EVerdict eVerdict = EVerdict::UNKNOWN;
    std::vector<SFinding> aoFindings; // the worst first
    std::vector<SPerformance> aoPerformance;
    std::vector<SAcrossFigures> aoAcross; // pairs across directions that were judged
};

/* Judges a moment by the conditions of a check. */
SCheckVerdict CheckVerdict_Judge(const SCheckOptions& roOptions, const SWatchPublication& roPublication);

/* "OK", "WARNING", "CRITICAL", "UNKNOWN". */
const char* CheckVerdict_GetName(EVerdict eVerdict);

/* Brings the worst finding to the front and makes it the verdict. */
void CheckVerdict_Sort(SCheckVerdict& roVerdict);

#endif
