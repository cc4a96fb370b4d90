#include "OptionValues.h"

#include <gmock/gmock.h>

#include "WatchClocks.h"

using testing::HasSubstr;

namespace
{

constexpr int64_t iNowUtcNs = 1'795'300'000 * iNsPerSecond;

struct SParsed
{
    std::optional<int> iStatus;
    std::string szText;
    SWatchOptions oOptions;
};

SParsed Parse(const std::vector<std::string>& raszArguments)
{
    SParsed oParsed;
    oParsed.iStatus = WatchOptions_Parse(raszArguments, iNowUtcNs, oParsed.oOptions, oParsed.szText);
    return oParsed;
}

} // namespace

TEST(WatchOptions, ServesWhenNothingElseIsAskedFor)
{
    EXPECT_EQ(Parse({}).oOptions.eCommand, EWatchCommand::SERVE);
    const SParsed oParsed = Parse({"--keep", "7", "--within", "5us", "--reference", "IN_02,OUT_01"});
    EXPECT_FALSE(oParsed.iStatus) << oParsed.szText;
    EXPECT_EQ(oParsed.oOptions.eCommand, EWatchCommand::SERVE);
    EXPECT_EQ(oParsed.oOptions.oServe.uiKeepDays, 7U);
    EXPECT_DOUBLE_EQ(oParsed.oOptions.oServe.oThreshold.flSeconds, 5e-6);
    EXPECT_EQ(oParsed.oOptions.oServe.aoReferences[1], (SStreamKey{EStreamDirection::OUTPUT, 1}));
    EXPECT_EQ(oParsed.oOptions.oServe.oBoard.auiChips, std::vector<uint32_t>{0});
    EXPECT_EQ(Parse({"-g", "3,1"}).oOptions.oServe.oBoard.auiChips, (std::vector<uint32_t>{1, 3}));
    EXPECT_TRUE(Parse({"--gpu", "all"}).oOptions.oServe.oBoard.auiChips.empty());
}

TEST(WatchOptions, TakesConditionsOfACheck)
{
    const SParsed oParsed = Parse({"check", "--expect", "IN_00,IN_01", "--expect", "OUT_00", "--rate-within", "5,20",
                                   "--locked", "IN_00,IN_01", "--locked", "OUT_00,IN_01", "--most-lost", "3"});
    EXPECT_FALSE(oParsed.iStatus) << oParsed.szText;
    const SCheckOptions& roCheck = oParsed.oOptions.oCheck;
    EXPECT_EQ(roCheck.aoExpected.size(), 3U);
    EXPECT_EQ(roCheck.aaoLocked.size(), 2U);
    EXPECT_EQ(roCheck.oRateWithinPpm->oWarning, 5.0);
    EXPECT_EQ(roCheck.oMostLost->oWarning, 3U);
}

TEST(WatchOptions, CountsRelativeMomentsFromNow)
{
    const SParsed oParsed = Parse({"report", "store", "--from", "-90m", "--to", "-1h"});
    EXPECT_FALSE(oParsed.iStatus) << oParsed.szText;
    EXPECT_EQ(oParsed.oOptions.oReport.iFromUtcNs, iNowUtcNs - 90 * iNsPerMinute);
    EXPECT_EQ(oParsed.oOptions.oReport.iToUtcNs, iNowUtcNs - 60 * iNsPerMinute);
    EXPECT_EQ(OptionValues_FindMoment("2026-11-21T22:26:40Z", 0), iNowUtcNs);
    EXPECT_FALSE(OptionValues_FindMoment("-5y", 0));
}

TEST(WatchOptions, SaysInOneLineWhatIsWrong)
{
    const std::pair<std::vector<std::string>, const char*> aoCases[] = {
        {{"--keep", "0"}, "--keep"},
        {{"--within", "5"}, "'5': the unit is missing"},
        {{"--within", "-1us"}, "'-1us'"},
        {{"--reference", "IN_00,IN_01"}, "one stream per direction"},
        {{"--listen"}, "--listen"},
        {{"nonsense"}, "nonsense"},
        {{"check", "--expect", "IN_32"}, "'IN_32': streams are numbered by two digits, 00 to 31"},
        {{"--listen", "localhost:80"}, "ADDRESS:PORT"},
        {{"--listen", "127.0.0.1:99999"}, "ADDRESS:PORT"},
        {{"check", "--expect", "IN_01", "--expect", "IN_01"}, "twice"},
        {{"check", "--locked", "IN_00,IN_00"}, "twice"},
        {{"check", "--locked", "IN_00"}, "at least two streams"},
        {{"check", "--path", "IN_00,IN_01"}, "--path: 'IN_00,IN_01': not one input and one output"},
        {{"--path", "IN_00"}, "not one input and one output"},
        {{"--path", "IN_00,OUT_40"}, "'IN_00,OUT_40': streams are numbered by two digits"},
        {{"--path", "IN_00,OUT_00", "--path", "OUT_00,IN_00"}, "--path: a path is named twice"},
        {{"check", "--rate-within", "20,5"}, "'20,5': the limit for a warning is the higher one"},
        {{"check", "--most-lost", "1.5"}, "'1.5'"},
        {{"check", "--seconds", "x"}, "--seconds"},
        {{"--store=", "--journal=x"}, "--store=: needs a value"},
        {{"--store", "x", "--journal", "x"}, "file of --store"},
        {{"--recordings", "x", "--recorder", "0"}, "--recordings: needs a --recorder"},
        {{"--recorder", "3601"}, "--recorder"},
        {{"--gpu", "0,0"}, "'0,0': a chip is named twice"},
        {{"check", "--gpu", "0,x"}, "'0,x': expected 0,1|all"},
        {{"record", "--gpu", "all", "x"}, "one chip only"},
        {{"--gpu", "0,1", "--recordings", "x"}, "one chip only"},
        {{"--locked", "0:IN_00,1:IN_00"}, "streams of one chip"},
        {{"report", "store", "--from", "2030-01-01"}, "has not come yet"},
        {{"report"}, "store"},
        {{"report", "store", "--from", "-1h", "--to", "-2h"}, "before --to"},
        {{"report", "store", "--csv", "--json"}, "--json"},
    };
    for (const auto& [aszArguments, szSays] : aoCases)
    {
        const SParsed oParsed = Parse(aszArguments);
        EXPECT_EQ(oParsed.iStatus, iExitUsage) << szSays;
        EXPECT_THAT(oParsed.szText, HasSubstr(szSays));
        EXPECT_EQ(oParsed.szText.find('\n'), std::string::npos) << oParsed.szText;
    }
    EXPECT_EQ(Parse({"check", "--help"}).iStatus, iExitUnknown);
    EXPECT_EQ(Parse({"check", "-V"}).iStatus, iExitUnknown);
    EXPECT_EQ(Parse({"check", "-V"}).szText, Parse({"--version"}).szText);
}
