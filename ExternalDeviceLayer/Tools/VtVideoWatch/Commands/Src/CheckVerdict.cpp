#include "CheckVerdict.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "StreamId.h"
#include "TextFormat.h"
#include "WatchTexts.h"

namespace
{

constexpr double flSigmas = 3.0;          // a figure differs from a limit when it does so by this many standard errors
constexpr double flMostUnobserved = 0.01; // of a stream's fields, before the watcher counts as too late to judge

// In the order of how bad they are; the exit statuses are not.
int GetRank(EVerdict eVerdict)
{
    switch (eVerdict)
    {
    case EVerdict::OK:
        return 0;
    case EVerdict::UNKNOWN:
        return 1;
    case EVerdict::WARNING:
        return 2;
    case EVerdict::CRITICAL:
        return 3;
    }
    return 1;
}

// The deviation from the nominal rate that is known best.
const SEstimate* FindPpm(const SStreamFigures& roStream)
{
    const SEstimate* poBest = nullptr;
    for (const SEstimate& roPpm : roStream.aoRatePpm)
    {
        if (roPpm.bIsValid && (poBest == nullptr || roPpm.flStdErr < poBest->flStdErr))
        {
            poBest = &roPpm;
        }
    }
    return poBest;
}

class CJudge
{
public:
    CJudge(const SCheckOptions& roOptions, const SWatchPublication& roPublication)
        : m_roOptions(roOptions), m_roPublication(roPublication)
    {
    }

    SCheckVerdict Judge();

private:
    void Find(EVerdict eVerdict, const char* szCondition, std::vector<SStreamKey> aoStreams, std::string szText)
    {
        m_oVerdict.aoFindings.push_back({eVerdict, szCondition, std::move(szText), std::move(aoStreams)});
    }
    void ChooseStreams();
    void JudgeStream(const SStreamFigures& roStream, bool bIsExpected);
    void JudgeState(const SStreamFigures& roStream, const std::string& rszId, bool bIsExpected);
    void JudgeLost(const SStreamFigures& roStream, const std::string& rszId);
    void JudgePictures(const SStreamFigures& roStream, const std::string& rszId);
    void JudgeCount(const SStreamFigures& roStream, const char* szCondition, const SLimits<uint64_t>& roLimits,
                    uint64_t uiCount, const std::string& rszText);
    void JudgeLate(const SStreamFigures& roStream, const std::string& rszId);
    void JudgeRate(const SStreamFigures& roStream, const std::string& rszId);
    void JudgeLock(const std::vector<SStreamKey>& raoStreams);
    void JudgePath(const SStreamPath& roPath);
    double GetThreshold(const SPairFigures& roPair) const;
    void JudgePair(const SPairFigures& roPair, const SStreamKey& roFirst, const SStreamKey& roSecond);
    void AddPerformance(const SStreamFigures& roStream, const std::string& rszId);
    void Summarise();

    const SCheckOptions& m_roOptions;
    const SWatchPublication& m_roPublication;
    std::vector<SStreamKey> m_aoStreams; // that are judged
    uint32_t m_uiRunning = 0;
    uint32_t m_uiInLock = 0; // pairs
    SCheckVerdict m_oVerdict;
};

SCheckVerdict CJudge::Judge()
{
    ChooseStreams();
    for (const SStreamKey& roStream : m_aoStreams)
    {
        const SStreamFigures* poStream = WatchPublication_Find(m_roPublication.oSnapshot, roStream);
        if (poStream == nullptr)
        {
            Find(EVerdict::CRITICAL, "expect", {roStream}, "the board has no " + StreamId_Print(roStream));
            continue;
        }
        JudgeStream(*poStream, !m_roOptions.aoExpected.empty());
    }
    for (const SChipFigures& roChip : m_roPublication.oSnapshot.aoChips)
    {
        if (roChip.uiInstants == 0)
        {
            Find(EVerdict::CRITICAL, "expect", {}, "chip " + std::to_string(roChip.uiNumber) + " does not answer");
        }
    }
    for (const std::vector<SStreamKey>& raoStreams : m_roOptions.aaoLocked)
    {
        JudgeLock(raoStreams);
    }
    std::ranges::for_each(m_roOptions.aoPaths, [this](const SStreamPath& roPath) { JudgePath(roPath); });
    Summarise();
    return m_oVerdict;
}

// Those that are expected, and otherwise all that the board has.
void CJudge::ChooseStreams()
{
    m_aoStreams = m_roOptions.aoExpected;
    if (!m_aoStreams.empty())
    {
        return;
    }
    WatchPublication_ForEachStream(m_roPublication.oSnapshot,
                                   [this](const SStreamFigures& roStream) { m_aoStreams.push_back(roStream.oKey); });
}

void CJudge::JudgeStream(const SStreamFigures& roStream, bool bIsExpected)
{
    const std::string szId = StreamId_Print(roStream.oKey);
    JudgeState(roStream, szId, bIsExpected);
    JudgeLost(roStream, szId);
    JudgePictures(roStream, szId);
    JudgeLate(roStream, szId);
    JudgeRate(roStream, szId);
    AddPerformance(roStream, szId);
}

void CJudge::JudgeState(const SStreamFigures& roStream, const std::string& rszId, bool bIsExpected)
{
    if (roStream.eState == EStreamState::RUNNING)
    {
        ++m_uiRunning;
        if (roStream.oCounters.uiSignalLosses > 0)
        {
            Find(EVerdict::WARNING, "expect", {roStream.oKey},
                 TextFormat_Print("%s lost its signal %s, for %.3f s", rszId.c_str(),
                                  TextFormat_Count(roStream.oCounters.uiSignalLosses, "time").c_str(),
                                  roStream.oCounters.flSignalLostSeconds));
        }
    }
    else if (bIsExpected || roStream.eState != EStreamState::IDLE)
    {
        Find(EVerdict::CRITICAL, "expect", {roStream.oKey}, rszId + " is " + WatchTexts_GetState(roStream.eState));
    }
}

void CJudge::JudgeLost(const SStreamFigures& roStream, const std::string& rszId)
{
    // Without a limit nothing is critical, but a lost field is worth a word.
    const SLimits<uint64_t> oLimits = m_roOptions.oMostLost.value_or(SLimits<uint64_t>{0, UINT64_MAX});
    const uint64_t uiLost = roStream.oCounters.uiFieldsLost;
    if (uiLost > oLimits.oWarning || uiLost > oLimits.oCritical)
    {
        Find(uiLost > oLimits.oCritical ? EVerdict::CRITICAL : EVerdict::WARNING, "lost", {roStream.oKey},
             rszId + " lost " + TextFormat_Count(uiLost, "field"));
    }
}

void CJudge::JudgeCount(const SStreamFigures& roStream, const char* szCondition, const SLimits<uint64_t>& roLimits,
                        uint64_t uiCount, const std::string& rszText)
{
    if (uiCount > roLimits.oWarning || uiCount > roLimits.oCritical)
    {
        Find(uiCount > roLimits.oCritical ? EVerdict::CRITICAL : EVerdict::WARNING, szCondition, {roStream.oKey},
             rszText);
    }
}

// Pictures that were not taken, and those that were shown too long. A desktop that nobody draws on repeats for ever.
void CJudge::JudgePictures(const SStreamFigures& roStream, const std::string& rszId)
{
    const SStreamCounters& roCounters = roStream.oCounters;
    JudgeCount(roStream, "skipped", m_roOptions.oMostSkipped.value_or(SLimits<uint64_t>{0, UINT64_MAX}),
               roCounters.uiBuffersSkipped,
               rszId + " skipped " + TextFormat_Count(roCounters.uiBuffersSkipped, "buffer"));
    JudgeCount(roStream, "repeated", m_roOptions.oMostRepeated.value_or(SLimits<uint64_t>{UINT64_MAX, UINT64_MAX}),
               roCounters.uiRepeatedBeyond,
               rszId + " repeated " + TextFormat_Count(roCounters.uiRepeatedBeyond, "field") + " beyond its cadence");
}

void CJudge::JudgeLate(const SStreamFigures& roStream, const std::string& rszId)
{
    const SStreamCounters& roCounters = roStream.oCounters;
    if (static_cast<double>(roCounters.uiFieldsUnobserved) >
        flMostUnobserved * static_cast<double>(roCounters.uiFields))
    {
        Find(EVerdict::WARNING, "late", {roStream.oKey},
             "the watcher was too late for " + std::to_string(roCounters.uiFieldsUnobserved) + " of " +
                 TextFormat_Count(roCounters.uiFields, "field") + " of " + rszId);
    }
}

void CJudge::JudgeRate(const SStreamFigures& roStream, const std::string& rszId)
{
    if (!m_roOptions.oRateWithinPpm || roStream.eState != EStreamState::RUNNING)
    {
        return;
    }
    const SEstimate* poPpm = FindPpm(roStream);
    if (poPpm == nullptr)
    {
        Find(EVerdict::UNKNOWN, "rate", {roStream.oKey}, "the rate of " + rszId + " is not known yet");
        return;
    }
    const double flDeviation = std::fabs(poPpm->flValue);
    const double flSurely = flDeviation - flSigmas * poPpm->flStdErr;
    const SLimits<double>& roLimits = *m_roOptions.oRateWithinPpm;
    if (flDeviation <= roLimits.oWarning)
    {
        return;
    }
    const EVerdict eVerdict = flSurely > roLimits.oCritical  ? EVerdict::CRITICAL
                              : flSurely > roLimits.oWarning ? EVerdict::WARNING
                                                             : EVerdict::UNKNOWN;
    Find(eVerdict, "rate", {roStream.oKey},
         TextFormat_Print("%s runs at %+.3f ppm (+/- %.3f)", rszId.c_str(), poPpm->flValue, poPpm->flStdErr));
}

void CJudge::JudgeLock(const std::vector<SStreamKey>& raoStreams)
{
    for (const SStreamKey& roStream : raoStreams)
    {
        const SStreamFigures* poStream = WatchPublication_Find(m_roPublication.oSnapshot, roStream);
        if (poStream == nullptr || poStream->eState != EStreamState::RUNNING)
        {
            Find(EVerdict::CRITICAL, "locked", {roStream}, StreamId_Print(roStream) + " is not there to be in lock");
        }
    }
    const auto fnHas = [&raoStreams](const SStreamKey& roStream)
    { return std::ranges::count(raoStreams, roStream) > 0; };
    const std::vector<SDirectionFigures>& raoDirections = m_roPublication.oSnapshot.aoDirections;
    for (size_t uiSlot = 0; uiSlot < raoDirections.size(); ++uiSlot)
    {
        for (const SPairFigures& roPair : raoDirections[uiSlot].aoPairs)
        {
            const SStreamKey oFirst = StreamKey_FromSlot(uiSlot, roPair.uiFirst);
            const SStreamKey oSecond = StreamKey_FromSlot(uiSlot, roPair.uiSecond);
            if (fnHas(oFirst) && fnHas(oSecond))
            {
                JudgePair(roPair, oFirst, oSecond);
            }
        }
    }
    for (const SChipPairFigures& roPair : m_roPublication.oSnapshot.aoChipPairs)
    {
        if (fnHas(roPair.oFirst) && fnHas(roPair.oSecond))
        {
            JudgePair(roPair.oPair, roPair.oFirst, roPair.oSecond);
        }
    }
    for (const SAcrossFigures& roPair : m_roPublication.oSnapshot.aoAcross)
    {
        if (fnHas(roPair.oFirst) && fnHas(roPair.oSecond))
        {
            JudgePair(roPair.oPair, roPair.oFirst, roPair.oSecond);
            m_oVerdict.aoAcross.push_back(roPair);
        }
    }
}

void CJudge::JudgePath(const SStreamPath& roPath)
{
    const std::string szInput = StreamId_Print(roPath.oInput);
    const std::string szOutput = StreamId_Print(roPath.oOutput);
    const std::vector<SStreamKey> aoBoth = {roPath.oInput, roPath.oOutput};
    for (const SStreamKey& roStream : aoBoth)
    {
        if (WatchPublication_Find(m_roPublication.oSnapshot, roStream) == nullptr)
        {
            Find(EVerdict::CRITICAL, "path", {roStream}, "the board has no " + StreamId_Print(roStream));
            return;
        }
    }
    const std::vector<SPathFigures>& raoPaths = m_roPublication.oSnapshot.aoPaths;
    const auto itPath =
        std::ranges::find_if(raoPaths, [&roPath](const SPathFigures& roFigures)
                             { return roFigures.oInput == roPath.oInput && roFigures.oOutput == roPath.oOutput; });
    const bool bIsKnown = itPath != raoPaths.end() && itPath->bIsKnown;
    if (!bIsKnown && itPath != raoPaths.end() && itPath->eLock == ELockState::DIFFERENT)
    {
        Find(EVerdict::CRITICAL, "path", aoBoth, szInput + " and " + szOutput + " run at different rates");
        return;
    }
    if (!bIsKnown)
    {
        Find(EVerdict::UNKNOWN, "path", aoBoth,
             "too little is known yet of the path from " + szInput + " to " + szOutput);
        return;
    }
    Find(EVerdict::OK, "path", aoBoth,
         TextFormat_Print("%s reaches %s after %.3f to %.3f ms at the least, without the application's own time",
                          szInput.c_str(), szOutput.c_str(), itPath->flLeastSeconds * 1e3,
                          itPath->flMostSeconds * 1e3));
    const auto fnAdd = [&](const char* szWhat, double flSeconds)
    {
        m_oVerdict.aoPerformance.push_back(
            {szInput + "_" + szOutput + szWhat, TextFormat_Print("%.9fs", flSeconds), "", "", "0"});
    };
    fnAdd("_delay_least", itPath->flLeastSeconds);
    fnAdd("_delay", itPath->flMeanSeconds);
    fnAdd("_delay_most", itPath->flMostSeconds);
}

// In seconds.
double CJudge::GetThreshold(const SPairFigures& roPair) const
{
    const SWatchSnapshot& roSnapshot = m_roPublication.oSnapshot;
    if (roSnapshot.oThreshold.flSeconds > 0.0)
    {
        return roSnapshot.oThreshold.flSeconds;
    }
    return roPair.flLineSeconds > 0.0 ? roSnapshot.oThreshold.flLines * roPair.flLineSeconds
                                      : std::numeric_limits<double>::infinity();
}

void CJudge::JudgePair(const SPairFigures& roPair, const SStreamKey& roFirst, const SStreamKey& roSecond)
{
    const std::string szFirst = StreamId_Print(roFirst);
    const std::string szSecond = StreamId_Print(roSecond);
    const std::vector<SStreamKey> aoBoth = {roFirst, roSecond};
    const std::string szPair = szFirst + " and " + szSecond;
    const std::string szOffset =
        TextFormat_Print("%+.3f us, %+.2f lines", roPair.oOffsetSeconds.flValue * 1e6, roPair.flOffsetLines);
    // The engine lets a pair go only a tenth beyond the threshold. A verdict has no yesterday: it is the plain one.
    const bool bIsWithin = std::fabs(roPair.oOffsetSeconds.flValue) <= GetThreshold(roPair);
    const bool bWasWithin = roPair.eLock == ELockState::LOCKED || roPair.eLock == ELockState::PASSING;
    switch (bWasWithin && !bIsWithin ? ELockState::FREE : roPair.eLock)
    {
    case ELockState::LOCKED:
        ++m_uiInLock;
        break;
    case ELockState::PASSING:
        Find(EVerdict::WARNING, "locked", aoBoth,
             TextFormat_Print("%s are only passing each other (%s, drifting %+.3f ppb)", szPair.c_str(),
                              szOffset.c_str(), roPair.oDriftRatio.flValue * 1e9));
        break;
    case ELockState::FREE:
        Find(EVerdict::CRITICAL, "locked", aoBoth, szPair + " are not in lock (" + szOffset + ")");
        break;
    case ELockState::DIFFERENT:
        Find(EVerdict::CRITICAL, "locked", aoBoth, szPair + " run at different rates");
        break;
    default:
        Find(EVerdict::UNKNOWN, "locked", aoBoth, "too little is known yet of " + szPair);
        break;
    }
    if (roPair.oOffsetSeconds.bIsValid)
    {
        const double flSeconds = m_roOptions.oThreshold.flSeconds;
        const std::string szRange = flSeconds > 0.0 ? TextFormat_Print("-%.9f:%.9f", flSeconds, flSeconds) : "";
        m_oVerdict.aoPerformance.push_back({szFirst + "_" + szSecond + "_offset",
                                            TextFormat_Print("%.9fs", roPair.oOffsetSeconds.flValue), "", szRange, ""});
    }
}

void CJudge::AddPerformance(const SStreamFigures& roStream, const std::string& rszId)
{
    const SEstimate* poPpm = FindPpm(roStream);
    if (poPpm != nullptr)
    {
        SPerformance oPpm = {rszId + "_ppm", TextFormat_Print("%.4f", poPpm->flValue), "", "", ""};
        if (m_roOptions.oRateWithinPpm)
        {
            const SLimits<double>& roLimits = *m_roOptions.oRateWithinPpm;
            oPpm.szWarning = TextFormat_Print("-%g:%g", roLimits.oWarning, roLimits.oWarning);
            oPpm.szCritical = TextFormat_Print("-%g:%g", roLimits.oCritical, roLimits.oCritical);
        }
        m_oVerdict.aoPerformance.push_back(oPpm);
    }
    SPerformance oLost = {rszId + "_lost", std::to_string(roStream.oCounters.uiFieldsLost), "0", "", "0"};
    if (m_roOptions.oMostLost)
    {
        oLost.szWarning = std::to_string(m_roOptions.oMostLost->oWarning);
        oLost.szCritical = std::to_string(m_roOptions.oMostLost->oCritical);
    }
    m_oVerdict.aoPerformance.push_back(oLost);
    m_oVerdict.aoPerformance.push_back(
        {rszId + "_unobserved", std::to_string(roStream.oCounters.uiFieldsUnobserved), "", "", "0"});
}

void CJudge::Summarise()
{
    std::string szText = std::to_string(m_uiRunning) + " of " + TextFormat_Count(m_aoStreams.size(), "stream") +
                         (m_aoStreams.size() == 1 ? " runs" : " run");
    if (m_uiInLock > 0)
    {
        szText += ", " + TextFormat_Count(m_uiInLock, "pair") + " in lock";
    }
    // A board where nothing runs is no good news, whatever was asked for.
    const EVerdict eSummary = m_aoStreams.empty() ? EVerdict::UNKNOWN
                              : m_uiRunning == 0  ? EVerdict::CRITICAL
                                                  : EVerdict::OK;
    Find(eSummary, "streams", m_aoStreams, m_aoStreams.empty() ? "the board has no streams" : szText);
    CheckVerdict_Sort(m_oVerdict);
}

} // namespace

void CheckVerdict_Sort(SCheckVerdict& roVerdict)
{
    std::ranges::stable_sort(roVerdict.aoFindings, std::greater(),
                             [](const SFinding& roFinding) { return GetRank(roFinding.eVerdict); });
    roVerdict.eVerdict = roVerdict.aoFindings.front().eVerdict;
}

SCheckVerdict CheckVerdict_Judge(const SCheckOptions& roOptions, const SWatchPublication& roPublication)
{
    return CJudge(roOptions, roPublication).Judge();
}

const char* CheckVerdict_GetName(EVerdict eVerdict)
{
    switch (eVerdict)
    {
    case EVerdict::OK:
        return "OK";
    case EVerdict::WARNING:
        return "WARNING";
    case EVerdict::CRITICAL:
        return "CRITICAL";
    case EVerdict::UNKNOWN:
        break;
    }
    return "UNKNOWN";
}
