#include "ReportData.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "LineFit.h"
#include "TimeUnits.h"

namespace
{

constexpr uint32_t uiLeastMinutesForDrift = 3;

double ToSeconds(int64_t iNs)
{
    return static_cast<double>(iNs) * 1e-9;
}

// A straight line through minute rates, each weighted by its seconds.
class CRateLine
{
public:
    void Add(double flHours, double flRate, double flWeight) { m_aoMinutes.push_back({flHours, flRate, flWeight}); }
    void Draw() { m_oSums = LineSums_Make(m_aoMinutes); }

    SEstimate GetRate() const
    {
        SEstimate oRate = {m_oSums.flMeanY, 0.0, !m_aoMinutes.empty()};
        if (m_aoMinutes.size() > 1)
        {
            oRate.flStdErr = std::sqrt(m_oSums.flYY / m_oSums.flWeight / static_cast<double>(m_aoMinutes.size() - 1));
        }
        return oRate;
    }

    SEstimate GetDriftPerHour() const
    {
        SEstimate oDrift;
        if (m_aoMinutes.size() < uiLeastMinutesForDrift || m_oSums.flXX <= 0.0 || m_oSums.flMeanY <= 0.0)
        {
            return oDrift;
        }
        const double flVariance = LineSums_GetRest(m_oSums, m_aoMinutes) / static_cast<double>(m_aoMinutes.size() - 2);
        oDrift.flValue = m_oSums.GetSlope() / m_oSums.flMeanY;
        oDrift.flStdErr = std::sqrt(flVariance / m_oSums.flXX) / m_oSums.flMeanY;
        oDrift.bIsValid = true;
        return oDrift;
    }

private:
    std::vector<SLinePoint> m_aoMinutes;
    SLineSums m_oSums;
};

SReportStream* FindStream(SReport& roReport, const SWatchEvent& roEvent)
{
    const auto itStream = std::ranges::find(roReport.aoStreams, roEvent.oKey, &SReportStream::oKey);
    return itStream == roReport.aoStreams.end() ? nullptr : &*itStream;
}

SReportHour& GetHour(SReport& roReport, int64_t iUtcNs)
{
    const int64_t iHour = iUtcNs - iUtcNs % iNsPerHour;
    const auto itAt = std::ranges::lower_bound(roReport.aoHours, iHour, {}, &SReportHour::iUtcNs);
    return itAt == roReport.aoHours.end() || itAt->iUtcNs != iHour
               ? *roReport.aoHours.insert(itAt, SReportHour{iHour, 0, 0, 0, 0, 0})
               : *itAt;
}

// How often it happened: an event of a burst stands for several.
uint64_t GetTimes(const SWatchEvent& roEvent)
{
    return std::max<uint64_t>(1, roEvent.uiCount);
}

void AddToHour(SReport& roReport, const SWatchEvent& roEvent)
{
    SReportHour& roHour = GetHour(roReport, roEvent.iUtcNs);
    ++roHour.uiEvents;
    roHour.uiSignalLosses += roEvent.eKind == EWatchEventKind::SIGNAL_LOST ? GetTimes(roEvent) : 0;
    roHour.uiLockChanges += roEvent.eKind == EWatchEventKind::LOCK_CHANGED ? GetTimes(roEvent) : 0;
}

void AddToHour(SReport& roReport, const SHistoryPoint& roMinute)
{
    if (roMinute.uiLost > 0 || roMinute.uiUnobserved > 0)
    {
        SReportHour& roHour = GetHour(roReport, roMinute.iUtcNs);
        roHour.uiFieldsLost += roMinute.uiLost;
        roHour.uiFieldsUnobserved += roMinute.uiUnobserved;
    }
}

// Gaps of streams: losses of the signal that end, or that last to the end of the watch, and runs of lost fields.
class CGaps
{
public:
    explicit CGaps(SReport& roReport) : m_roReport(roReport)
    {
        for (const SReportStream& roStream : roReport.aoStreams)
        {
            if (roStream.iLostFromUtcNs != 0)
            {
                m_oLostSince[&roStream] = roStream.iLostFromUtcNs;
            }
        }
    }

    void Add(const SWatchEvent& roEvent)
    {
        SReportStream* poStream = FindStream(m_roReport, roEvent);
        if (poStream == nullptr)
        {
            return;
        }
        switch (roEvent.eKind)
        {
        case EWatchEventKind::SIGNAL_LOST:
            poStream->uiSignalLosses += GetTimes(roEvent);
            m_oLostSince[poStream] = roEvent.iUtcNs;
            break;
        case EWatchEventKind::SIGNAL_BACK:
            Take(*poStream, roEvent.flSeconds);
            EndBack(*poStream, roEvent);
            break;
        case EWatchEventKind::STATE_CHANGED:
            TakeState(*poStream, roEvent);
            break;
        case EWatchEventKind::FIELDS_LOST:
            Take(*poStream, roEvent.flSeconds);
            m_roReport.aoOutages.push_back(
                {poStream->oKey, roEvent.iUtcNs, roEvent.iUtcNs + ToNs(roEvent.flSeconds), GetTimes(roEvent), false});
            break;
        case EWatchEventKind::WATCH_ENDED:
            EndAt(*poStream, roEvent.iUtcNs, false);
            break;
        default:
            break;
        }
    }

    void End(int64_t iUtcNs)
    {
        for (SReportStream& roStream : m_roReport.aoStreams)
        {
            EndAt(roStream, iUtcNs, true);
        }
        std::ranges::stable_sort(m_roReport.aoOutages, {}, &SReportOutage::iFromUtcNs);
    }

private:
    static void Take(SReportStream& roStream, double flSeconds)
    {
        roStream.flWorstGapSeconds = std::max(roStream.flWorstGapSeconds, flSeconds);
    }
    static int64_t ToNs(double flSeconds) { return std::llround(flSeconds * flNsPerSecond); }

    // Losses that nobody counts: of a device, or one that an earlier run has told of.
    void TakeState(SReportStream& roStream, const SWatchEvent& roEvent)
    {
        const auto eState = static_cast<EStreamState>(roEvent.uiAfter);
        if (eState == EStreamState::LOST || eState == EStreamState::GONE)
        {
            m_oLostSince.emplace(&roStream, roEvent.iUtcNs);
        }
        else
        {
            EndAt(roStream, roEvent.iUtcNs, false);
        }
    }

    // Of the event's own length where it says one: the loss may have begun before what is told.
    void EndBack(const SReportStream& roStream, const SWatchEvent& roEvent)
    {
        const auto itSince = m_oLostSince.find(&roStream);
        const int64_t iFrom =
            itSince != m_oLostSince.end() ? itSince->second : roEvent.iUtcNs - ToNs(roEvent.flSeconds);
        m_roReport.aoOutages.push_back({roStream.oKey, iFrom, roEvent.iUtcNs, 0, false});
        m_oLostSince.erase(&roStream);
    }

    void EndAt(SReportStream& roStream, int64_t iUtcNs, bool bIsOpen)
    {
        if (const auto itSince = m_oLostSince.find(&roStream); itSince != m_oLostSince.end())
        {
            Take(roStream, ToSeconds(iUtcNs - itSince->second));
            m_roReport.aoOutages.push_back({roStream.oKey, itSince->second, iUtcNs, 0, bIsOpen});
            m_oLostSince.erase(itSince);
        }
    }

    SReport& m_roReport;
    std::map<const SReportStream*, int64_t> m_oLostSince;
};

// Lock groups from their events. A group ends with its run.
class CLocks
{
public:
    explicit CLocks(std::vector<SReportLock>& raoLocks) : m_raoLocks(raoLocks) {}

    void Add(const SWatchEvent& roEvent)
    {
        const SStreamKey oOf = StreamKey_GetNeighbour(roEvent.oKey, 0);
        const Key oKey = {oOf, roEvent.uiGroup};
        switch (roEvent.eKind)
        {
        case EWatchEventKind::GROUP_FORMED:
        case EWatchEventKind::GROUP_CHANGED:
            EndOne(oKey, roEvent.iUtcNs);
            m_oOpen[oKey] = m_raoLocks.size();
            m_raoLocks.push_back({oOf, roEvent.uiMembers, roEvent.iUtcNs, roEvent.iUtcNs, true});
            break;
        case EWatchEventKind::GROUP_ENDED:
            EndOne(oKey, roEvent.iUtcNs);
            break;
        case EWatchEventKind::WATCH_ENDED:
            End(roEvent.iUtcNs, false);
            break;
        default:
            break;
        }
    }

    void End(int64_t iUtcNs, bool bIsOpen)
    {
        for (const auto& [oKey, uiLock] : m_oOpen)
        {
            m_raoLocks[uiLock].iToUtcNs = iUtcNs;
            m_raoLocks[uiLock].bIsOpen = bIsOpen;
        }
        m_oOpen.clear();
    }

private:
    using Key = std::pair<SStreamKey, uint32_t>;
    void EndOne(const Key& roKey, int64_t iUtcNs)
    {
        if (const auto itOpen = m_oOpen.find(roKey); itOpen != m_oOpen.end())
        {
            m_raoLocks[itOpen->second].iToUtcNs = iUtcNs;
            m_raoLocks[itOpen->second].bIsOpen = false;
            m_oOpen.erase(itOpen);
        }
    }

    std::vector<SReportLock>& m_raoLocks;
    std::map<Key, size_t> m_oOpen;
};

bool IsAway(const SHistoryPoint& roMinute)
{
    return roMinute.uiFields == 0 && (roMinute.eState == EStreamState::LOST || roMinute.eState == EStreamState::GONE);
}

void AddPhase(SReportStream& roStream, const SMinuteSummary& roMinute)
{
    const SHistoryPoint& roPoint = roMinute.oPoint;
    roStream.flLockedSeconds += roPoint.eLock == ELockState::LOCKED ? roMinute.flWatchedSeconds : 0.0;
    if (!roPoint.oPhaseSeconds.bIsValid)
    {
        return;
    }
    roStream.bHasPhase = true;
    for (const double flPhase : {roPoint.flPhaseMinSeconds, roPoint.flPhaseMaxSeconds})
    {
        roStream.flWorstPhaseSeconds =
            std::abs(flPhase) > std::abs(roStream.flWorstPhaseSeconds) ? flPhase : roStream.flWorstPhaseSeconds;
    }
}

} // namespace

int64_t ReportData_GetEnd(const SReport& roReport)
{
    int64_t iEnd = roReport.iFromUtcNs;
    for (const SStoreRun& roRun : roReport.aoRuns)
    {
        iEnd = std::max(iEnd, roRun.iEndUtcNs);
    }
    return std::min(iEnd, roReport.iToUtcNs);
}

void ReportData_AddMinutes(SReport& roReport, SReportStream& roStream, std::span<const SMinuteSummary> aoMinutes)
{
    CRateLine oLine;
    roStream.iLostFromUtcNs =
        !aoMinutes.empty() && IsAway(aoMinutes.front().oPoint) ? aoMinutes.front().oPoint.iUtcNs : 0;
    for (const SMinuteSummary& roMinute : aoMinutes)
    {
        const SHistoryPoint& roPoint = roMinute.oPoint;
        AddToHour(roReport, roPoint);
        AddPhase(roStream, roMinute);
        roStream.flWatchedSeconds += roMinute.flWatchedSeconds;
        roStream.flRunningSeconds += roPoint.flRunningSeconds;
        roStream.uiFields += roPoint.uiFields;
        roStream.uiLost += roPoint.uiLost;
        roStream.uiUnobserved += roPoint.uiUnobserved;
        roStream.uiSkipped += roPoint.uiSkipped;
        Pacing_Merge(roStream.oPacing, roMinute.oPacing);
        if (roPoint.oRateHz.bIsValid && roMinute.uiRatePoints > 0)
        {
            const int64_t iSinceNs = roPoint.iUtcNs - aoMinutes.front().oPoint.iUtcNs;
            oLine.Add(ToSeconds(iSinceNs) / 3600.0, roPoint.oRateHz.flValue, roMinute.uiRatePoints);
        }
    }
    oLine.Draw();
    roStream.oRateHz = oLine.GetRate();
    roStream.oDriftPerHour = oLine.GetDriftPerHour();
}

void ReportData_AddEvents(SReport& roReport, std::span<const SWatchEvent> aoEvents)
{
    CGaps oGaps(roReport);
    CLocks oLocks(roReport.aoLocks);
    for (const SWatchEvent& roEvent : aoEvents)
    {
        AddToHour(roReport, roEvent);
        oGaps.Add(roEvent);
        oLocks.Add(roEvent);
    }
    oGaps.End(ReportData_GetEnd(roReport));
    oLocks.End(ReportData_GetEnd(roReport), true);
}

SReport ReportData_Collect(CStoreReader& roStore, int64_t iFromUtcNs, int64_t iToUtcNs)
{
    SReport oReport;
    oReport.iFromUtcNs = iFromUtcNs;
    oReport.iToUtcNs = iToUtcNs;
    oReport.aoRuns = roStore.FindRuns(iFromUtcNs, iToUtcNs);
    for (const SStoreStream& roStream : roStore.FindStreams())
    {
        SReportStream& roReported = oReport.aoStreams.emplace_back();
        roReported.oKey = roStream.oKey;
        roReported.oTexts = roStream.oTexts;
        const SHistoryQuery oMinutes = {roStream.oKey, iFromUtcNs, iToUtcNs, 60, UINT32_MAX};
        std::vector<SMinuteSummary> aoMinutes;
        roStore.FindMinutes(oMinutes, aoMinutes);
        ReportData_AddMinutes(oReport, roReported, aoMinutes);
    }
    SIncidentQuery oIncidents;
    oIncidents.iFromUtcNs = iFromUtcNs;
    oIncidents.iToUtcNs = iToUtcNs;
    oIncidents.uiMost = UINT32_MAX;
    roStore.FindIncidents(oIncidents, UINT64_MAX, oReport.aoIncidents);
    std::ranges::stable_sort(oReport.aoIncidents, {}, &SIncident::iBeginUtcNs);
    SEventQuery oQuery;
    oQuery.iFromUtcNs = iFromUtcNs;
    oQuery.iToUtcNs = iToUtcNs;
    oQuery.uiMost = UINT32_MAX;
    std::vector<SWatchEvent> aoEvents;
    roStore.FindEvents(oQuery, UINT64_MAX, aoEvents);
    std::ranges::reverse(aoEvents);
    ReportData_AddEvents(oReport, aoEvents);
    return oReport;
}
