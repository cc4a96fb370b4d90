#include "CheckPrint.h"

#include <functional>

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace
{

using FChange = std::function<void(SCheckOptions&, SWatchPublication&)>;

struct SCase
{
    const char* szName;
    FChange fnChange;
    EVerdict eVerdict;
    const char* szSays;
};

SStreamFigures& In(SWatchPublication& roPublication, uint32_t uiIndex)
{
    return roPublication.oSnapshot.aoDirections[0].aoStreams[uiIndex];
}

// Two inputs that run well and in lock, an output that idles.
SWatchPublication MakePublication()
{
    SWatchPublication oPublication;
    std::vector<SDirectionFigures>& raoDirections = oPublication.oSnapshot.aoDirections;
    for (uint32_t uiIndex = 0; uiIndex < 2; ++uiIndex)
    {
        SStreamFigures& roStream = raoDirections[0].aoStreams.emplace_back();
        roStream.oKey.uiIndex = uiIndex;
        roStream.eState = EStreamState::RUNNING;
        roStream.oCounters.uiFields = 600;
        roStream.oCounters.uiFieldsObserved = 600;
        roStream.aoRatePpm[0] = {40.0, 20.0, true}; // of one second: worth little
        roStream.aoRatePpm[1] = {2.0, 0.1, true};
    }
    SPairFigures& roPair = raoDirections[0].aoPairs.emplace_back();
    roPair.uiSecond = 1;
    roPair.eLock = ELockState::LOCKED;
    roPair.oOffsetSeconds = {5e-6, 1e-9, true};
    SStreamFigures& roOut = raoDirections[1].aoStreams.emplace_back();
    roOut.oKey.eDirection = EStreamDirection::OUTPUT;
    return oPublication;
}

SStreamKey Input(uint32_t uiIndex)
{
    return {EStreamDirection::INPUT, uiIndex};
}

FChange Expect(const std::vector<SStreamKey>& raoExpected)
{
    return [=](auto& roOptions, auto&) { roOptions.aoExpected = raoExpected; };
}

// Of the first input, with the limits for lost fields.
FChange Counter(uint64_t SStreamCounters::*puiCounter, uint64_t uiCount, std::optional<SLimits<uint64_t>> oMost = {})
{
    return [=](auto& roOptions, auto& roNow)
    {
        In(roNow, 0).oCounters.*puiCounter = uiCount;
        roOptions.oMostLost = oMost;
    };
}

FChange State(EStreamState eFirst, EStreamState eSecond, uint64_t uiFirstLost = 0)
{
    return [=](auto&, auto& roNow)
    {
        In(roNow, 0).eState = eFirst;
        In(roNow, 0).oCounters.uiFieldsLost = uiFirstLost;
        In(roNow, 1).eState = eSecond;
    };
}

FChange RateWithin(double flWarning, double flCritical, bool bIsKnown = true)
{
    return [=](auto& roOptions, auto& roNow)
    {
        roOptions.oRateWithinPpm = {flWarning, flCritical};
        In(roNow, 0).aoRatePpm = bIsKnown ? In(roNow, 0).aoRatePpm : decltype(SStreamFigures::aoRatePpm){};
    };
}

FChange Lock(bool bIsAskedFor, ELockState eLock)
{
    return [=](auto& roOptions, auto& roNow)
    {
        if (bIsAskedFor)
        {
            roOptions.aaoLocked = {{Input(0), Input(1)}};
        }
        roNow.oSnapshot.aoDirections[0].aoPairs[0].eLock = eLock;
    };
}

// The first input and the output as a pair, or as a path.
FChange Across(ELockState eLock, bool bIsPath = false, bool bIsKnown = true)
{
    return [=](auto& roOptions, auto& roNow)
    {
        const SStreamKey oOutput = {EStreamDirection::OUTPUT, 0};
        roNow.oSnapshot.aoDirections[1].aoStreams[0].eState = EStreamState::RUNNING;
        roNow.oSnapshot.aoAcross.push_back({Input(0), oOutput, {}, {}});
        roNow.oSnapshot.aoAcross[0].oPair.eLock = eLock;
        roNow.oSnapshot.aoPaths.push_back({Input(0), oOutput, eLock, bIsKnown, 0.02, 0.03, 0.04});
        roOptions.aoPaths.resize(bIsPath ? 1 : 0, {Input(0), oOutput});
        roOptions.aaoLocked.resize(bIsPath ? 0 : 1, {oOutput, Input(0)});
    };
}

using enum EVerdict;
constexpr auto puiLost = &SStreamCounters::uiFieldsLost;
constexpr auto puiLate = &SStreamCounters::uiFieldsUnobserved;
constexpr auto eRuns = EStreamState::RUNNING;

const SCase aoCases[] = {
    {"what idles and was not asked for is no fault", Expect({}), OK, "2 of 3 streams run"},
    {"an expected stream idles", Expect({Input(0), {EStreamDirection::OUTPUT, 0}}), CRITICAL, "OUT_00 is idle"},
    {"an expected stream does not exist", Expect({Input(7)}), CRITICAL, "the board has no IN_07"},
    {"a stream is lost", State(eRuns, EStreamState::LOST), CRITICAL, "IN_01 is lost"},
    {"a signal was away", Counter(&SStreamCounters::uiSignalLosses, 1), WARNING, "IN_00 lost its signal"},
    {"nothing runs at all", State(EStreamState::IDLE, EStreamState::IDLE), CRITICAL, "0 of 3"},
    {"a lost field is a warning by itself", Counter(puiLost, 1), WARNING, "IN_00 lost 1 field"},
    {"lost fields at the limit are well", Counter(puiLost, 3, {{3, 3}}), OK, "run"},
    {"lost fields beyond the limit", Counter(puiLost, 4, {{0, 3}}), CRITICAL, "IN_00 lost 4 fields"},
    {"the watcher's lateness is never critical", Counter(puiLate, 300, {{0, 0}}), WARNING, "too late for 300 of 600"},
    {"a rate within by the figure that is known best", RateWithin(5.0, 10.0), OK, "run"},
    {"a rate surely beyond the warning", RateWithin(1.0, 10.0), WARNING, "IN_00 runs at +2.000 ppm"},
    {"a rate surely beyond", RateWithin(1.0, 1.0), CRITICAL, "IN_01 runs at +2.000 ppm"},
    {"a rate that may be beyond or not", RateWithin(1.9, 1.9), UNKNOWN, "+2.000 ppm"},
    {"a rate that is not known", RateWithin(5.0, 5.0, false), UNKNOWN, "the rate of IN_00 is not known"},
    {"in lock", Lock(true, ELockState::LOCKED), OK, "1 pair in lock"},
    {"a lock that the eye believes", Lock(true, ELockState::PASSING), WARNING, "only passing"},
    {"a lock that the watch would still let pass",
     [](auto& roOptions, auto& roNow)
     {
         roOptions.aaoLocked = {{Input(0), Input(1)}};
         roOptions.oThreshold = roNow.oSnapshot.oThreshold = {0.0, 5e-6};
         roNow.oSnapshot.aoDirections[0].aoPairs[0].oOffsetSeconds.flValue = 5.004e-6;
     },
     CRITICAL, "IN_00_IN_01_offset=0.000005004s;;-0.000005000:0.000005000"},
    {"no lock", Lock(true, ELockState::FREE), CRITICAL, "not in lock (+5.000 us"},
    {"no lock that was not asked for", Lock(false, ELockState::FREE), OK, "run"},
    {"in lock across", Across(ELockState::LOCKED), OK, "1 pair in lock"},
    {"no lock across", Across(ELockState::FREE), CRITICAL, "IN_00 and OUT_00 are not in lock"},
    {"a path", Across(ELockState::FREE, true), OK, "IN_00_OUT_00_delay_least=0.020000000s;;;0"},
    {"a path of other rates", Across(ELockState::DIFFERENT, true, false), CRITICAL, "different rates"},
    {"a path that is not known yet", Across(ELockState::IDLE, true, false), UNKNOWN, "path from IN_00 to OUT_00"},
    {"a path that is not there",
     [](auto& roOptions, auto&) {
         roOptions.aoPaths = {{Input(9), {}}};
     },
     CRITICAL, "the board has no IN_09"},
    {"a lock that is not known yet", Lock(true, ELockState::IDLE), UNKNOWN, "too little is known"},
    {"the worst comes first", State(eRuns, EStreamState::GONE, 1), CRITICAL, "- IN_01 is gone (2 more)"},
};

} // namespace

TEST(CheckVerdict, BlamesTheSignalForWhatItDidAndNothingElse)
{
    for (const SCase& roCase : aoCases)
    {
        SCheckOptions oOptions;
        SWatchPublication oPublication = MakePublication();
        roCase.fnChange(oOptions, oPublication);
        const SCheckVerdict oVerdict = CheckVerdict_Judge(oOptions, oPublication);
        EXPECT_EQ(oVerdict.eVerdict, roCase.eVerdict) << roCase.szName << ": " << CheckPrint_Line(oVerdict);
        EXPECT_THAT(CheckPrint_Lines(oVerdict), HasSubstr(roCase.szSays)) << roCase.szName;
    }
}

TEST(CheckVerdict, PrintsOneLineWithPerformanceData)
{
    SCheckOptions oOptions;
    oOptions.aaoLocked = {{Input(0), Input(1)}};
    oOptions.oThreshold = {0.0, 1e-5};
    oOptions.oRateWithinPpm = {5.0, 10.0};
    oOptions.oMostLost = {1, 2};
    const SWatchPublication oPublication = MakePublication();
    const std::string szLine = CheckPrint_Line(CheckVerdict_Judge(oOptions, oPublication));
    EXPECT_THAT(szLine, StartsWith("VIDEO OK - 2 of 3 streams run, 1 pair in lock | "));
    EXPECT_THAT(szLine, HasSubstr(" IN_00_ppm=2.0000;-5:5;-10:10 IN_00_lost=0;1;2;0 IN_00_unobserved=0;;;0 "));
    EXPECT_THAT(szLine, HasSubstr(" IN_00_IN_01_offset=0.000005000s;;-0.000010000:0.000010000"));
}
