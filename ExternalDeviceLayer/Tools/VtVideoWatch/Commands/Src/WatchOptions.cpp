#include "WatchOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <system_error>

#include "Fault.h"
#include "HistoryPoint.h"
#include "ListenAddress.h"
#include "OptionValues.h"
#include "RecordingKeeper.h"

namespace
{

constexpr const char* szVersion = "VtVideoWatch " VT_WATCH_VERSION;

// A --option whose text has to be understood by one of OptionValues; szForm says how it is to look.
template <typename TFind, typename TTake>
CLI::Option* AddValue(CLI::App& roApp, const char* szName, const char* szForm, const char* szHelp, TFind fnFind,
                      TTake fnTake, const char* (*fnWhy)(std::string_view) = nullptr)
{
    const std::string szExpected = std::string("expected ") + szForm;
    const auto fnParse = [=](const CLI::results_t& raszTexts)
    {
        for (const std::string& rszText : raszTexts)
        {
            const auto oValue = fnFind(rszText);
            if (!oValue)
            {
                const char* szWhy = fnWhy == nullptr ? nullptr : fnWhy(rszText);
                std::string szFault = "'" + rszText + "': ";
                szFault += szWhy == nullptr ? "" : szWhy + std::string("; ");
                throw CLI::ValidationError(szName, szFault + szExpected);
            }
            fnTake(*oValue);
        }
        return true;
    };
    return roApp.add_option(szName, fnParse, szHelp)->type_name(szForm)->take_last();
}

void AddBoardOptions(CLI::App& roApp, SBoardOptions& roBoard)
{
    AddValue(
        roApp, "-g,--gpu", "0,1|all", "chips of the board, from 0 (0)", OptionValues_FindChips,
        [&roBoard](const std::vector<uint32_t>& rauiChips) { roBoard.auiChips = rauiChips; }, OptionValues_WhyNoChips);
    roApp.add_flag(
        "--no-realtime", [&roBoard](int64_t) { roBoard.bRealTime = false; },
        "do not ask for real-time priority for the threads that stamp the fields");
}

void AddThreshold(CLI::App& roApp, SLockThreshold& roThreshold)
{
    AddValue(
        roApp, "--within", "1line|5us", "how close streams in lock are (1line)", OptionValues_FindThreshold,
        [&roThreshold](const SLockThreshold& roValue) { roThreshold = roValue; }, OptionValues_WhyNoThreshold);
}

// What streams are expected to do, but for whether they run and are in lock.
void AddExpectations(CLI::App& roApp, SExpectOptions& roExpect)
{
    AddValue(roApp, "--fed", "OUT_00,OUT_01", "outputs that must show new pictures (those that did so for a while)",
             OptionValues_FindStreams,
             [&roExpect](const std::vector<SStreamKey>& raoStreams)
             { roExpect.aoFed.insert(roExpect.aoFed.end(), raoStreams.begin(), raoStreams.end()); })
        ->take_all();
    AddValue(roApp, "--standard", "IN_00=1080p59.94", "standard that a stream must have; may be repeated",
             ExpectedStandard_Find,
             [&roExpect](const SExpectedStandard& roStandard) { roExpect.aoStandards.push_back(roStandard); })
        ->take_all();
    roApp.add_option("--expect-file", roExpect.szFile, "all of it as a file, such as check --save writes")
        ->type_name("FILE");
}

void AddPaths(CLI::App& roApp, std::vector<SStreamPath>& raoPaths)
{
    AddValue(
        roApp, "--path", "IN_00,OUT_00",
        "an output that an application feeds from an input, for the delay between both; may be repeated",
        OptionValues_FindPath, [&raoPaths](const SStreamPath& roPath) { raoPaths.push_back(roPath); },
        OptionValues_WhyNoPath)
        ->take_all();
}

void AddRecordings(CLI::App& roApp, SServeOptions& roServe)
{
    roApp.add_option("--recorder", roServe.uiRecorderSeconds, "how far back every field is remembered; 0: none is")
        ->type_name("SECONDS")
        ->check(CLI::Range(0U, uiMostRecorderSeconds - uiRecorderSlackSeconds))
        ->capture_default_str();
    roApp.add_option("--recordings", roServe.szRecordings, "keep a recording of every incident in this folder")
        ->type_name("FOLDER");
    roApp.add_option("--keep-recordings", roServe.uiKeepRecordingsMiB, "how much that may take; the oldest give way")
        ->type_name("MIB")
        ->check(CLI::Range(64U, 1U << 24U))
        ->capture_default_str();
}

void AddServing(CLI::App& roApp, SServingOptions& roServing)
{
    roApp
        .add_option("--listen", roServing.aszListen,
                    std::string("where to serve, may be repeated; port 0 takes any free one (") + szDefaultListen + ")")
        ->type_name("ADDRESS:PORT|unix:PATH")
        ->allow_extra_args(false);
    AddValue(roApp, "--socket-mode", "0660", "who may use unix sockets, as for chmod (0660)", OptionValues_FindMode,
             [&roServing](uint32_t uiMode) { roServing.oSocketFile.uiMode = uiMode; });
    roApp.add_option("--socket-group", roServing.oSocketFile.szGroup, "group of unix sockets")->type_name("GROUP");
    SHttpFiles& roFiles = roServing.oFiles;
    CLI::Option* poCertificate =
        roApp.add_option("--tls-certificate", roFiles.szCertificate, "serve by TLS, with this certificate (PEM)")
            ->type_name("FILE");
    CLI::Option* poKey =
        roApp.add_option("--tls-key", roFiles.szKey, "its key")->type_name("FILE")->needs(poCertificate);
    poCertificate->needs(poKey);
    roApp.add_option("--tls-client-ca", roFiles.szClientCa, "ask clients for certificates of these authorities")
        ->type_name("FILE")
        ->needs(poCertificate);
    roApp.add_option("--users", roFiles.szUsers, "ask for names and passwords: lines of htpasswd -B")
        ->type_name("FILE");
}

void AddKeeping(CLI::App& roApp, SServeOptions& roServe)
{
    roApp.add_option("--store", roServe.szStore, "keep history and events in this SQLite file")->type_name("FILE");
    roApp.add_option("--keep", roServe.uiKeepDays, "how long the store keeps minutes; events stay for ever")
        ->type_name("DAYS")
        ->check(CLI::Range(1U, 36500U))
        ->capture_default_str();
    roApp.add_option("--journal", roServe.szJournal, "append events to this file as JSON Lines; - is standard output")
        ->type_name("FILE");
}

void AddServe(CLI::App& roApp, SServeOptions& roServe)
{
    AddBoardOptions(roApp, roServe.oBoard);
    AddServing(roApp, roServe.oServing);
    AddKeeping(roApp, roServe);
    AddThreshold(roApp, roServe.oThreshold);
    AddValue(
        roApp, "--reference", "IN_00,OUT_00",
        "stream that phases are told against, or one per direction (chosen per direction)", OptionValues_FindStreams,
        [&roServe](const std::vector<SStreamKey>& raoStreams)
        { roServe.aoReferences.insert(roServe.aoReferences.end(), raoStreams.begin(), raoStreams.end()); },
        OptionValues_WhyNoStreams)
        ->take_all();
    AddValue(roApp, "--expect", "IN_00,OUT_01", "streams that must run (those that did so for a minute)",
             OptionValues_FindStreams,
             [&roServe](const std::vector<SStreamKey>& raoStreams)
             {
                 std::vector<SStreamKey>& raoExpected = roServe.oExpect.aoExpected;
                 raoExpected.insert(raoExpected.end(), raoStreams.begin(), raoStreams.end());
             })
        ->take_all();
    AddValue(roApp, "--locked", "IN_00,IN_01", "streams that must be in lock with each other; may be repeated",
             OptionValues_FindStreams,
             [&roServe](const std::vector<SStreamKey>& raoStreams) { roServe.oExpect.aaoLocked.push_back(raoStreams); })
        ->take_all();
    AddPaths(roApp, roServe.aoPaths);
    AddExpectations(roApp, roServe.oExpect);
    roApp
        .add_option("--on-incident", roServe.szOnIncident,
                    "run this program at each begin and end of an incident, with it as JSON on standard input")
        ->type_name("PROGRAM");
    AddRecordings(roApp, roServe);
    roApp.footer(
        "Without --store the history is kept in memory: ten minutes by the second and a day by the minute,\n"
        "2040 points of " +
        std::to_string(sizeof(SHistoryPoint)) + " bytes per stream, and the last 10000 events.\n" +
        "Exit status: 0 after INT or TERM; 1 when the board, the store, the journal or the address cannot be\n"
        "used; 2 for a wrong command line. HUP opens the journal anew, and reads certificates and users again.");
}

void AddCheck(CLI::App& roApp, SCheckOptions& roCheck)
{
    AddBoardOptions(roApp, roCheck.oBoard);
    roApp.add_option("--seconds", roCheck.uiSeconds, "how long to watch")
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, 86400U))
        ->capture_default_str();
    AddValue(
        roApp, "--expect", "IN_00,OUT_01", "streams that must run (whatever has a signal)", OptionValues_FindStreams,
        [&roCheck](const std::vector<SStreamKey>& raoStreams)
        { roCheck.aoExpected.insert(roCheck.aoExpected.end(), raoStreams.begin(), raoStreams.end()); },
        OptionValues_WhyNoStreams)
        ->take_all();
    AddValue(
        roApp, "--rate-within", "[WARN,]CRIT", "most deviation from the nominal rate, ppm", OptionValues_FindLimits,
        [&roCheck](const SLimits<double>& roLimits) { roCheck.oRateWithinPpm = roLimits; }, OptionValues_WhyNoLimits);
    AddValue(roApp, "--most-lost", "[WARN,]CRIT", "most lost fields of a stream (any are a warning)",
             OptionValues_FindCounts, [&roCheck](const SLimits<uint64_t>& roLimits) { roCheck.oMostLost = roLimits; });
    AddValue(roApp, "--locked", "IN_00,IN_01", "streams that must be in lock with each other; may be repeated",
             OptionValues_FindStreams,
             [&roCheck](const std::vector<SStreamKey>& raoStreams) { roCheck.aaoLocked.push_back(raoStreams); })
        ->take_all();
    AddValue(roApp, "--most-skipped", "[WARN,]CRIT", "most skipped buffers of an input (any are a warning)",
             OptionValues_FindCounts,
             [&roCheck](const SLimits<uint64_t>& roLimits) { roCheck.oMostSkipped = roLimits; });
    AddValue(roApp, "--most-repeated", "[WARN,]CRIT", "most fields of an output that repeat beyond its cadence",
             OptionValues_FindCounts,
             [&roCheck](const SLimits<uint64_t>& roLimits) { roCheck.oMostRepeated = roLimits; });
    AddPaths(roApp, roCheck.aoPaths);
    AddExpectations(roApp, roCheck.oExpect);
    roApp.add_option("--save", roCheck.szSave, "write what is there now to this file, for --expect-file")
        ->type_name("FILE");
    AddThreshold(roApp, roCheck.oThreshold);
    roApp.add_flag("--json", roCheck.bJson, "print the whole verdict as JSON");
    roApp.footer("Exit status, as monitoring plug-ins have it: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.");
}

void AddReport(CLI::App& roApp, SReportOptions& roReport, int64_t iNowUtcNs)
{
    constexpr char szForm[] = "-24h|2026-11-21T22:00:00Z";
    const auto fnFind = [iNowUtcNs](const std::string& rszText) { return OptionValues_FindMoment(rszText, iNowUtcNs); };
    roReport.iFromUtcNs = *OptionValues_FindMoment("-24h", iNowUtcNs);
    roReport.iToUtcNs = iNowUtcNs;
    roApp.add_option("--store,store", roReport.szStore, "the SQLite file of a watch, or a recording as a whole")
        ->type_name("FILE")
        ->required();
    AddValue(roApp, "--from", szForm, "begin, UTC or so long ago (-24h)", fnFind,
             [&roReport](int64_t iUtcNs) { roReport.iFromUtcNs = iUtcNs; });
    AddValue(roApp, "--to", szForm, "end (now)", fnFind, [&roReport](int64_t iUtcNs) { roReport.iToUtcNs = iUtcNs; });
    CLI::Option* poCsv = roApp.add_flag(
        "--csv", [&roReport](int64_t) { roReport.eForm = EReportForm::CSV; }, "a line per stream, for a spreadsheet");
    roApp
        .add_flag(
            "--json", [&roReport](int64_t) { roReport.eForm = EReportForm::JSON; }, "everything as JSON")
        ->excludes(poCsv);
    roApp.footer("Exit status: 0; 1 when the store, or a part of it, cannot be read; 2 for a wrong command line.");
}

void AddRecord(CLI::App& roApp, SRecordOptions& roRecord)
{
    AddBoardOptions(roApp, roRecord.oBoard);
    roApp.add_option("file", roRecord.szFile, "the recording to write")->type_name("FILE")->required();
    roApp.add_option("--seconds", roRecord.uiSeconds, "how long to watch")
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, uiMostRecordSeconds))
        ->capture_default_str();
    roApp.footer(
        "Exit status: 0; 1 when the board or the file cannot be used; 2 for a wrong command line. INT and TERM\n"
        "end it early, and what has been seen by then is kept.");
}

void AddExport(CLI::App& roApp, SExportOptions& roExport)
{
    roApp.add_option("file", roExport.szFile, "a recording")->type_name("FILE")->required();
    roApp.add_option("--format", roExport.eForm, "perfetto: a trace for its viewer; csv: a row per wait")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, EExportForm>{{"perfetto", EExportForm::PERFETTO}, {"csv", EExportForm::CSV}}))
        ->type_name("perfetto|csv")
        ->required();
    roApp.add_option("-o,--output", roExport.szOutput, "where to (standard output)")->type_name("FILE");
    roApp.footer(
        "Exit status: 0; 1 when the recording cannot be read or the output not be written; 2 for a wrong command\n"
        "line.");
}

bool HasTwins(const std::vector<SStreamKey>& raoStreams)
{
    return std::ranges::any_of(raoStreams, [&raoStreams](const SStreamKey& roStream)
                               { return std::ranges::count(raoStreams, roStream) > 1; });
}

// By whatever way it is named.
bool IsOneFile(const std::string& rszA, const std::string& rszB)
{
    std::error_code oNone;
    return !rszA.empty() && !rszB.empty() &&
           (std::filesystem::equivalent(rszA, rszB, oNone) ||
            std::filesystem::weakly_canonical(rszA, oNone) == std::filesystem::weakly_canonical(rszB, oNone));
}

CFault CheckFed(const SExpectOptions& roExpect)
{
    if (std::ranges::any_of(roExpect.aoFed,
                            [](const SStreamKey& roStream) { return roStream.eDirection == EStreamDirection::INPUT; }))
    {
        return CFault("--fed: outputs only");
    }
    return {};
}

CFault CheckLocked(const std::vector<std::vector<SStreamKey>>& raaoLocked)
{
    for (const std::vector<SStreamKey>& raoStreams : raaoLocked)
    {
        if (HasTwins(raoStreams))
        {
            return CFault("--locked: a stream is named twice");
        }
        if (raoStreams.size() < 2)
        {
            return CFault("--locked: at least two streams");
        }
    }
    return {};
}

// What a watch goes on to expect it learns and keeps by chip.
CFault CheckLockedChips(const std::vector<std::vector<SStreamKey>>& raaoLocked)
{
    const auto fnHasOthers = [](const std::vector<SStreamKey>& raoStreams)
    {
        return std::ranges::any_of(raoStreams, [&raoStreams](const SStreamKey& roStream)
                                   { return roStream.uiChip != raoStreams.front().uiChip; });
    };
    return std::ranges::any_of(raaoLocked, fnHasOthers) ? CFault("--locked: streams of one chip") : CFault();
}

CFault CheckPaths(const std::vector<SStreamPath>& raoPaths)
{
    const bool bHasTwins = std::ranges::any_of(raoPaths, [&raoPaths](const SStreamPath& roPath)
                                               { return std::ranges::count(raoPaths, roPath) > 1; });
    return bHasTwins ? CFault("--path: a path is named twice") : CFault();
}

// What the library does not look at: values that depend on each other.
CFault CheckTogether(const SWatchOptions& roOptions, int64_t iNowUtcNs)
{
    std::array<int, uiMaxSlots> aiReferences = {};
    for (const SStreamKey& roStream : roOptions.oServe.aoReferences)
    {
        if (++aiReferences[StreamKey_GetSlot(roStream)] > 1)
        {
            return CFault("--reference: one stream per direction and chip");
        }
    }
    if (HasTwins(roOptions.oCheck.aoExpected))
    {
        return CFault("--expect: a stream is named twice");
    }
    const SServeOptions& roServe = roOptions.oServe;
    for (const CFault& roFault :
         {CheckFed(roServe.oExpect), CheckFed(roOptions.oCheck.oExpect), CheckLocked(roOptions.oCheck.aaoLocked),
          CheckLocked(roServe.oExpect.aaoLocked), CheckLockedChips(roServe.oExpect.aaoLocked),
          CheckPaths(roOptions.oCheck.aoPaths), CheckPaths(roServe.aoPaths)})
    {
        if (roFault)
        {
            return roFault;
        }
    }
    if (IsOneFile(roServe.szStore, roServe.szJournal))
    {
        return CFault("--journal: is the file of --store");
    }
    if (!roServe.szRecordings.empty() && roServe.oBoard.auiChips.size() != 1)
    {
        return CFault("--recordings: of one chip only");
    }
    if (roOptions.oRecord.oBoard.auiChips.size() != 1)
    {
        return CFault("--gpu: a recording is of one chip only");
    }
    if (!roServe.szRecordings.empty() && roServe.uiRecorderSeconds == 0)
    {
        return CFault("--recordings: needs a --recorder");
    }
    if (roOptions.eCommand == EWatchCommand::REPORT && roOptions.oReport.iFromUtcNs >= iNowUtcNs)
    {
        return CFault("--from: has not come yet");
    }
    if (roOptions.eCommand == EWatchCommand::REPORT && roOptions.oReport.iFromUtcNs >= roOptions.oReport.iToUtcNs)
    {
        return CFault("--from: must be before --to");
    }
    for (const std::string& rszListen : roOptions.oServe.oServing.aszListen)
    {
        SListenAddress oAddress;
        if (CFault oFault = ListenAddress_Read(rszListen, oAddress))
        {
            return oFault;
        }
    }
    return {};
}

bool IsMainFlag(const std::string& rszArgument)
{
    return rszArgument == "-h" || rszArgument == "--help" || rszArgument == "--version";
}

constexpr const char* aszSubcommands[] = {"serve", "check", "report", "record", "export"};

bool IsSubcommand(const std::string& rszArgument)
{
    return std::ranges::find(aszSubcommands, rszArgument) != std::end(aszSubcommands);
}

int ParseWith(CLI::App& roApp, const std::vector<std::string>& raszArguments, std::string& rszText)
{
    // The library takes them from the back.
    std::vector<std::string> aszReversed(raszArguments.rbegin(), raszArguments.rend());
    if (raszArguments.empty() || (raszArguments.front().starts_with('-') && !IsMainFlag(raszArguments.front())))
    {
        aszReversed.emplace_back("serve");
    }
    // The library would only say that a subcommand is missing.
    else if (!raszArguments.front().starts_with('-') && !IsSubcommand(raszArguments.front()))
    {
        rszText = "'" + raszArguments.front() + "': expected serve, check, report, record or export";
        return iExitUsage;
    }
    // The library would take the next argument for its value.
    const auto fnLacksValue = [](const std::string& rszArgument)
    { return rszArgument.starts_with("--") && rszArgument.find('=') == rszArgument.size() - 1; };
    if (const auto itBare = std::ranges::find_if(raszArguments, fnLacksValue); itBare != raszArguments.end())
    {
        rszText = *itBare + ": needs a value";
        return iExitUsage;
    }
    try
    {
        roApp.parse(aszReversed);
    }
    catch (const CLI::ParseError& roError)
    {
        std::ostringstream oOut;
        std::ostringstream oError;
        const int iStatus = roApp.exit(roError, oOut, oError);
        rszText = iStatus == 0 ? oOut.str() : roError.what();
        return iStatus;
    }
    return 0;
}

} // namespace

std::optional<int> WatchOptions_Parse(const std::vector<std::string>& raszArguments, int64_t iNowUtcNs,
                                      SWatchOptions& roOptions, std::string& rszText)
{
    CLI::App oApp("Watches the video inputs and outputs of a board and keeps what it saw.", "VtVideoWatch");
    oApp.require_subcommand(1);
    oApp.set_version_flag("--version", szVersion);
    CLI::App* poServe = oApp.add_subcommand("serve", "watch until ended, and serve what is seen (the default)");
    CLI::App* poCheck = oApp.add_subcommand("check", "watch for a while, and end with a verdict");
    CLI::App* poReport = oApp.add_subcommand("report", "sum up what a store or a recording holds");
    CLI::App* poRecord = oApp.add_subcommand("record", "watch for a while, and keep every field in a file");
    CLI::App* poExport = oApp.add_subcommand("export", "turn such a recording into a trace or a table");
    AddServe(*poServe, roOptions.oServe);
    AddRecord(*poRecord, roOptions.oRecord);
    AddExport(*poExport, roOptions.oExport);
    AddCheck(*poCheck, roOptions.oCheck);
    AddReport(*poReport, roOptions.oReport, iNowUtcNs);
    for (CLI::App* poCommand : oApp.get_subcommands({}))
    {
        poCommand->set_version_flag(poCommand == poCheck ? "-V,--version" : "--version", szVersion);
    }
    const int iStatus = ParseWith(oApp, raszArguments, rszText);
    roOptions.eCommand = poCheck->parsed()    ? EWatchCommand::CHECK
                         : poReport->parsed() ? EWatchCommand::REPORT
                         : poRecord->parsed() ? EWatchCommand::RECORD
                         : poExport->parsed() ? EWatchCommand::EXPORT
                                              : EWatchCommand::SERVE;
    if (iStatus == 0 && rszText.empty())
    {
        rszText = CheckTogether(roOptions, iNowUtcNs).GetText();
        return rszText.empty() ? std::nullopt : std::optional(iExitUsage);
    }
    // Monitoring plug-ins end with 3 when they have not checked.
    const bool bIsCheck = roOptions.eCommand == EWatchCommand::CHECK;
    return iStatus != 0 ? iExitUsage : bIsCheck ? iExitUnknown : iExitOk;
}
