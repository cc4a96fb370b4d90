#include "CheckPrint.h"

#include <functional>

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace
{

struct SCase
{
    const char* szName;
    std::function<void(SCheckOptions&, SWatchPublication&)> fnChange;
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
    std::array<SDirectionFigures, 2>& raoDirections = oPublication.oSnapshot.aoDirections;
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

void AskForLock(SCheckOptions& roOptions)
{
    roOptions.aaoLocked = {{Input(0), Input(1)}};
}

ELockState& PairLock(SWatchPublication& roPublication)
{
    return roPublication.oSnapshot.aoDirections[0].aoPairs[0].eLock;
}

const SCase aoCases[] = {
    {"what idles and was not asked for is no fault", [](auto&, auto&) {}, EVerdict::OK, "2 of 3 streams run"},
    {"an expected stream idles",
     [](auto& roOptions, auto&) {
         roOptions.aoExpected = {Input(0), {EStreamDirection::OUTPUT, 0}};
     },
     EVerdict::CRITICAL, "OUT_00 is idle"},
    {"an expected stream does not exist", [](auto& roOptions, auto&) { roOptions.aoExpected = {Input(7)}; },
     EVerdict::CRITICAL, "the board has no IN_07"},
    {"a stream is lost", [](auto&, auto& roNow) { In(roNow, 1).eState = EStreamState::LOST; }, EVerdict::CRITICAL,
     "IN_01 is lost"},
    {"a signal was away for a moment", [](auto&, auto& roNow) { In(roNow, 1).oCounters.uiSignalLosses = 1; },
     EVerdict::WARNING, "IN_01 lost its signal"},
    {"nothing runs at all", [](auto&, auto& roNow) { In(roNow, 0).eState = In(roNow, 1).eState = EStreamState::IDLE; },
     EVerdict::CRITICAL, "0 of 3"},
    {"a lost field is a warning by itself", [](auto&, auto& roNow) { In(roNow, 0).oCounters.uiFieldsLost = 1; },
     EVerdict::WARNING, "IN_00 lost 1 field"},
    {"lost fields at the limit are well",
     [](auto& roOptions, auto& roNow)
     {
         In(roNow, 0).oCounters.uiFieldsLost = 3;
         roOptions.oMostLost = {3, 3};
     },
     EVerdict::OK, "run"},
    {"lost fields beyond the limit",
     [](auto& roOptions, auto& roNow)
     {
         In(roNow, 0).oCounters.uiFieldsLost = 4;
         roOptions.oMostLost = {0, 3};
     },
     EVerdict::CRITICAL, "IN_00 lost 4 fields"},
    {"the watcher's lateness is never critical, whatever the limit",
     [](auto& roOptions, auto& roNow)
     {
         In(roNow, 0).oCounters.uiFieldsUnobserved = 300;
         roOptions.oMostLost = {0, 0};
     },
     EVerdict::WARNING, "too late for 300 of 600"},
    {"a rate within by the figure that is known best",
     [](auto& roOptions, auto&) {
         roOptions.oRateWithinPpm = {5.0, 10.0};
     },
     EVerdict::OK, "run"},
    {"a rate surely beyond the warning",
     [](auto& roOptions, auto&) {
         roOptions.oRateWithinPpm = {1.0, 10.0};
     },
     EVerdict::WARNING, "IN_00 runs at +2.000 ppm"},
    {"a rate surely beyond",
     [](auto& roOptions, auto&) {
         roOptions.oRateWithinPpm = {1.0, 1.0};
     },
     EVerdict::CRITICAL, "IN_01 runs at +2.000 ppm"},
    {"a rate that may be beyond or not",
     [](auto& roOptions, auto&) {
         roOptions.oRateWithinPpm = {1.9, 1.9};
     },
     EVerdict::UNKNOWN, "+2.000 ppm"},
    {"a rate that is not known",
     [](auto& roOptions, auto& roNow)
     {
         In(roNow, 0).aoRatePpm = {};
         roOptions.oRateWithinPpm = {5.0, 5.0};
     },
     EVerdict::UNKNOWN, "the rate of IN_00 is not known"},
    {"in lock", [](auto& roOptions, auto&) { AskForLock(roOptions); }, EVerdict::OK, "1 pair in lock"},
    {"a lock that the eye believes",
     [](auto& roOptions, auto& roNow)
     {
         AskForLock(roOptions);
         PairLock(roNow) = ELockState::PASSING;
     },
     EVerdict::WARNING, "only passing"},
    {"no lock",
     [](auto& roOptions, auto& roNow)
     {
         AskForLock(roOptions);
         PairLock(roNow) = ELockState::FREE;
     },
     EVerdict::CRITICAL, "not in lock (+5.000 us"},
    {"no lock that was not asked for", [](auto&, auto& roNow) { PairLock(roNow) = ELockState::FREE; }, EVerdict::OK,
     "run"},
    {"a lock that is not known yet",
     [](auto& roOptions, auto& roNow)
     {
         AskForLock(roOptions);
         PairLock(roNow) = ELockState::IDLE;
     },
     EVerdict::UNKNOWN, "too little is known"},
    {"the worst comes first",
     [](auto&, auto& roNow)
     {
         In(roNow, 0).oCounters.uiFieldsLost = 1;
         In(roNow, 1).eState = EStreamState::GONE;
     },
     EVerdict::CRITICAL, "- IN_01 is gone (2 more)"},
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
    AskForLock(oOptions);
    oOptions.oThreshold = {0.0, 1e-5};
    oOptions.oRateWithinPpm = {5.0, 10.0};
    oOptions.oMostLost = {1, 2};
    const SWatchPublication oPublication = MakePublication();
    const std::string szLine = CheckPrint_Line(CheckVerdict_Judge(oOptions, oPublication));
    EXPECT_THAT(szLine, StartsWith("VIDEO OK - 2 of 3 streams run, 1 pair in lock | "));
    EXPECT_THAT(szLine, HasSubstr(" IN_00_ppm=2.0000;-5:5;-10:10 IN_00_lost=0;1;2;0 IN_00_unobserved=0;;;0 "));
    EXPECT_THAT(szLine, HasSubstr(" IN_00_IN_01_offset=0.000005000s;;-0.000010000:0.000010000"));
}
