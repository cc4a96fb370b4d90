/*
 * The command line of the watch: a record per subcommand. No state.
 */
#ifndef WATCH_OPTIONS_H
#define WATCH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "BoardSession.h"
#include "Expectations.h"
#include "LockThreshold.h"
#include "StreamKey.h"
#include "WatchServer.h"
#include "WatchSettings.h"

// Exit statuses; check has those of monitoring plug-ins (CheckVerdict.h).
constexpr int iExitOk = 0;
constexpr int iExitFailure = 1; // something that the program needs is not there; one line on standard error says what
constexpr int iExitUnknown = 3; // of a check: its help or version was asked for
constexpr int iExitUsage = 2;   // the command line is wrong; likewise

struct SServeOptions
{
    SBoardOptions oBoard;
    SServingOptions oServing;
    std::string szStore;   // empty: none
    std::string szJournal; // empty: none
    uint32_t uiKeepDays = 35;
    SLockThreshold oThreshold;
    std::vector<SStreamKey> aoReferences; // one per direction at most; a single one is for both
    std::vector<SStreamPath> aoPaths;
    SExpectOptions oExpect;
    std::string szOnIncident; // a program; empty: none
    uint32_t uiRecorderSeconds = 60;
    std::string szRecordings; // a folder; empty: none
    uint32_t uiKeepRecordingsMiB = 1024;
};

// A limit whose excess is a warning, and one whose excess is critical.
template <typename TValue> struct SLimits
{
    TValue oWarning = {};
    TValue oCritical = {};
};

struct SCheckOptions
{
    SBoardOptions oBoard;
    uint32_t uiSeconds = 10;
    std::vector<SStreamKey> aoExpected; // empty: whatever runs
    std::optional<SLimits<double>> oRateWithinPpm;
    std::optional<SLimits<uint64_t>> oMostLost;
    std::optional<SLimits<uint64_t>> oMostSkipped;
    std::optional<SLimits<uint64_t>> oMostRepeated; // beyond the cadence
    SExpectOptions oExpect;                         // but for the streams and locks, which stand above and below
    std::string szSave;                             // empty: nothing is saved
    std::vector<std::vector<SStreamKey>> aaoLocked;
    std::vector<SStreamPath> aoPaths;
    SLockThreshold oThreshold;
    bool bJson = false;
};

enum class EReportForm : uint8_t
{
    TABLE,
    CSV,
    JSON
};

struct SReportOptions
{
    std::string szStore;
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;
    EReportForm eForm = EReportForm::TABLE;
};

// The recorder reaches back a little farther.
constexpr uint32_t uiMostRecordSeconds = 3590;

struct SRecordOptions
{
    SBoardOptions oBoard;
    std::string szFile;
    uint32_t uiSeconds = 60;
};

enum class EExportForm : uint8_t
{
    PERFETTO,
    CSV
};

struct SExportOptions
{
    std::string szFile;
    std::string szOutput; // empty or "-": standard output
    EExportForm eForm = EExportForm::PERFETTO;
};

enum class EWatchCommand : uint8_t
{
    SERVE,
    CHECK,
    REPORT,
    RECORD,
    EXPORT
};

struct SWatchOptions
{
    EWatchCommand eCommand = EWatchCommand::SERVE;
    SServeOptions oServe;
    SCheckOptions oCheck;
    SReportOptions oReport;
    SRecordOptions oRecord;
    SExportOptions oExport;
};

/*
 * Reads the command line.
 *   aszArguments  in   without the program's name
 *   iNowUtcNs     in   what relative moments count from
 *   roOptions     out  what it asks for
 *   rszText       out  what to print when the program ends here: a help on standard output, or one line that says what
 *                      is wrong
 * Nothing when the program is to go on, otherwise its exit status.
 */
std::optional<int> WatchOptions_Parse(const std::vector<std::string>& raszArguments, int64_t iNowUtcNs,
                                      SWatchOptions& roOptions, std::string& rszText);

#endif
