/*
 * What streams are expected to do: by options, and by a file that a check has saved. The file is JSON:
 * {"streams": {"IN_00": {"expected": true, "fed": true, "locked": ["IN_01"], "standard": "1080p59.94",
 * "description": {"h_active": 1920, ...}}}}; every key may be missing.
 */
#ifndef EXPECTATIONS_H
#define EXPECTATIONS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Fault.h"
#include "StreamKey.h"
#include "WatchExpectations.h"
#include "WatchPublication.h"

// Lines, order and fields per second of a signal, as the trade names it.
struct SStandard
{
    uint32_t uiLines = 0;
    bool bInterlaced = false;
    uint64_t uiRateNumerator = 0;
    uint64_t uiRateDenominator = 1;
};

struct SExpectedStandard
{
    SStreamKey oKey;
    SStandard oStandard;
};

// The options that serve and check have in common.
struct SExpectOptions
{
    std::vector<SStreamKey> aoExpected;
    std::vector<SStreamKey> aoFed;                  // outputs
    std::vector<std::vector<SStreamKey>> aaoLocked; // with each other
    std::vector<SExpectedStandard> aoStandards;
    std::string szFile; // empty: none
};

/* "1080p59.94", "1080i50", "2160p60", "720p25": of an interlaced one the rate is that of its fields, from 40 on. */
std::optional<SStandard> Standard_Find(std::string_view szText);

/* "IN_00=1080p59.94". */
std::optional<SExpectedStandard> ExpectedStandard_Find(std::string_view szText);

/*
 * Puts together what is expected, the file first.
 *   roSettings  in/out  its streams are added to
 * A fault says what is wrong and where.
 */
CFault Expectations_Read(const SExpectOptions& roOptions, SJudgeSettings& roSettings);

/* Writes what a moment shows to a file, atomically. */
CFault Expectations_Save(const std::string& rszFile, const SWatchPublication& roPublication);

/* The expectation of a stream, which is added if it is missing. */
SStreamExpectation& Expectations_Get(SJudgeSettings& roSettings, const SStreamKey& roKey);

#endif
