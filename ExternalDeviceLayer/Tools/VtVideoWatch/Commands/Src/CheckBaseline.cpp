#include "CheckBaseline.h"

#include <algorithm>

#include "HealthTexts.h"
#include "StreamId.h"
#include "TextFormat.h"
#include "WatchTexts.h"

namespace
{

// What the figures tell better, condition by condition.
bool IsToldByFigures(const SHealthReason& roReason)
{
    switch (roReason.eReason)
    {
    case EHealthReason::FEED_STALLED:
    case EHealthReason::NOT_FED:
    case EHealthReason::CADENCE_BROKEN:
    case EHealthReason::CONSUMER_STALLED:
    case EHealthReason::FIELD_ORDER_SWAPPED:
    case EHealthReason::DESCRIPTION_CHANGED:
    case EHealthReason::TIMINGS_INVALID:
        return false;
    default:
        return true;
    }
}

std::vector<SStreamKey> GetStreams(const SIncident& roIncident)
{
    std::vector<SStreamKey> aoStreams;
    for (size_t uiSlot = 0; uiSlot < roIncident.auiStreams.size(); ++uiSlot)
    {
        for (uint32_t uiIndex = 0; uiIndex < uiMaxStreamsPerDirection; ++uiIndex)
        {
            if ((roIncident.auiStreams[uiSlot] >> uiIndex & 1U) != 0)
            {
                aoStreams.push_back(StreamKey_FromSlot(uiSlot, uiIndex));
            }
        }
    }
    return aoStreams;
}

EVerdict GetVerdict(EHealthStatus eStatus)
{
    return eStatus == EHealthStatus::UNHEALTHY ? EVerdict::CRITICAL : EVerdict::WARNING;
}

const SHealth& GetHealth(const SWatchPublication& roPublication, const SStreamKey& roKey, EHealthDomain eDomain)
{
    return WatchPublication_GetHealth(roPublication, roKey).aoDomains[static_cast<size_t>(eDomain)];
}

// Whether a feed that broke its cadence stands still by now: then that is what there is to say.
std::string GetText(const SIncident& roIncident, const SWatchPublication& roPublication)
{
    SIncident oIncident = roIncident;
    const SHealth& roNow = GetHealth(roPublication, roIncident.oFirstStream, roIncident.eDomain);
    if (roNow.eStatus > EHealthStatus::HEALTHY && roIncident.eShared == EIncidentShare::STREAM)
    {
        oIncident.oFirst = roNow.oReason;
    }
    const std::string szLost = HealthTexts_GetIncidentLost(roIncident);
    return HealthTexts_GetIncidentTitle(oIncident) + (szLost.empty() ? "" : ", ") + szLost + ", since " +
           WatchTexts_GetUtc(roIncident.iBeginUtcNs);
}

// What is wrong with a stream of an incident beside that with which it began.
void AddDomains(const SIncident& roIncident, const SStreamKey& roKey, const SWatchPublication& roPublication,
                SCheckVerdict& roVerdict)
{
    for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        const auto eDomain = static_cast<EHealthDomain>(uiDomain);
        const SHealth& roNow = GetHealth(roPublication, roKey, eDomain);
        const bool bIsTold = eDomain == roIncident.eDomain && roIncident.eShared == EIncidentShare::STREAM;
        if (roNow.eStatus > EHealthStatus::HEALTHY && !bIsTold && !IsToldByFigures(roNow.oReason))
        {
            const std::string szDomain = HealthTexts_GetDomain(eDomain);
            roVerdict.aoFindings.push_back({GetVerdict(roNow.eStatus),
                                            HealthTexts_GetDomain(eDomain),
                                            szDomain + " of " + StreamId_Print(roKey) + ": " +
                                                HealthTexts_GetReason(eDomain, roKey, roNow.oReason) + ", since " +
                                                WatchTexts_GetUtc(roNow.iSinceUtcNs),
                                            {roKey}});
        }
    }
}

void AddIncidents(const SWatchPublication& roPublication, SCheckVerdict& roVerdict)
{
    for (const SIncident& roIncident : roPublication.oJudgement.aoIncidents)
    {
        const std::vector<SStreamKey> aoStreams = GetStreams(roIncident);
        if (!IsToldByFigures(roIncident.oFirst))
        {
            roVerdict.aoFindings.push_back({GetVerdict(roIncident.eWorst), HealthTexts_GetDomain(roIncident.eDomain),
                                            GetText(roIncident, roPublication), aoStreams});
        }
        for (const SStreamKey& roKey : aoStreams)
        {
            AddDomains(roIncident, roKey, roPublication, roVerdict);
        }
    }
}

class CBaseline
{
public:
    CBaseline(const SWatchPublication& roPublication, SCheckVerdict& roVerdict)
        : m_roPublication(roPublication), m_roVerdict(roVerdict)
    {
    }

    void Compare(const SStreamKey& roKey, const SStreamExpectation& roTold)
    {
        const std::string szId = StreamId_Print(roKey);
        const SStreamFigures* poFigures = WatchPublication_Find(m_roPublication.oSnapshot, roKey);
        if (poFigures == nullptr)
        {
            Find(roKey, "the board has no " + szId);
            return;
        }
        const SStreamFigures& roFigures = *poFigures;
        if (roFigures.eState != EStreamState::RUNNING)
        {
            Find(roKey, szId + " is " + WatchTexts_GetState(roFigures.eState));
            return;
        }
        CompareDescription(roFigures, roTold, szId);
        CompareLocks(roFigures, roTold, szId);
        if (roTold.bIsFed && !roFigures.oFeed.bHasFed)
        {
            Find(roKey, szId + " is not fed");
        }
    }

private:
    void Find(const SStreamKey& roKey, const std::string& rszText)
    {
        m_roVerdict.aoFindings.push_back({EVerdict::CRITICAL, "expect", rszText, {roKey}});
    }
    void CompareDescription(const SStreamFigures& roFigures, const SStreamExpectation& roTold, const std::string& rszId)
    {
        if (roTold.uiRateNumerator != 0 && (roFigures.uiNominalNumerator != roTold.uiRateNumerator ||
                                            roFigures.uiNominalDenominator != roTold.uiRateDenominator))
        {
            Find(roFigures.oKey,
                 TextFormat_Print("%s runs at %.6g Hz, expected %.6g", rszId.c_str(), roFigures.flNominalRateHz,
                                  static_cast<double>(roTold.uiRateNumerator) /
                                      static_cast<double>(roTold.uiRateDenominator)));
        }
        for (const SExpectedMember& roMember : roTold.aoMembers)
        {
            const auto uiMember = static_cast<uint32_t>(roMember.eMember);
            const uint64_t uiIs = DescriptionMembers_Get()[uiMember].fnGet(roFigures.oDescription);
            if (uiIs != roMember.uiValue)
            {
                SHealthReason oReason;
                oReason.eReason = EHealthReason::OTHER_STANDARD;
                oReason.uiMember = uiMember;
                oReason.uiBefore = roMember.uiValue;
                oReason.uiAfter = uiIs;
                Find(roFigures.oKey,
                     rszId + ": " + HealthTexts_GetReason(EHealthDomain::SIGNAL, roFigures.oKey, oReason));
            }
        }
    }
    void CompareLocks(const SStreamFigures& roFigures, const SStreamExpectation& roTold, const std::string& rszId)
    {
        const SDirectionFigures& roDirection =
            m_roPublication.oSnapshot.aoDirections[StreamKey_GetSlot(roFigures.oKey)];
        for (const SPairFigures& roPair : roDirection.aoPairs)
        {
            // Once per pair: with its first stream.
            if (roPair.uiFirst == roFigures.oKey.uiIndex && (roTold.uiLockedWith >> roPair.uiSecond & 1U) != 0 &&
                roPair.eLock != ELockState::LOCKED)
            {
                Find(roFigures.oKey, rszId + " and " +
                                         StreamId_Print(StreamKey_GetNeighbour(roFigures.oKey, roPair.uiSecond)) +
                                         " are " + WatchTexts_GetLock(roPair.eLock) + ", expected locked");
            }
        }
        for (const SAcrossFigures& roPair : m_roPublication.oSnapshot.aoAcross)
        {
            const bool bIsFirst = roPair.oFirst == roFigures.oKey;
            const SStreamKey& roOther = bIsFirst ? roPair.oSecond : roPair.oFirst;
            if ((bIsFirst || roPair.oSecond == roFigures.oKey) &&
                (roTold.uiLockedAcross >> roOther.uiIndex & 1U) != 0 && roPair.oPair.eLock != ELockState::LOCKED)
            {
                Find(roFigures.oKey, rszId + " and " + StreamId_Print(roOther) + " are " +
                                         WatchTexts_GetLock(roPair.oPair.eLock) + ", expected locked");
            }
        }
    }

    const SWatchPublication& m_roPublication;
    SCheckVerdict& m_roVerdict;
};

// Streams that run and that nobody told about: only a baseline can miss them.
void AddNewcomers(const SJudgeSettings& roSettings, const SWatchPublication& roPublication, SCheckVerdict& roVerdict)
{
    WatchPublication_ForEachStream(
        roPublication.oSnapshot,
        [&](const SStreamFigures& roFigures)
        {
            const size_t uiSlot = StreamKey_GetSlot(roFigures.oKey);
            const bool bIsKnown = uiSlot < roSettings.aoStreams.size() &&
                                  roFigures.oKey.uiIndex < roSettings.aoStreams[uiSlot].size() &&
                                  roSettings.aoStreams[uiSlot][roFigures.oKey.uiIndex].IsTold();
            if (roFigures.eState == EStreamState::RUNNING && !bIsKnown)
            {
                roVerdict.aoFindings.push_back({EVerdict::WARNING,
                                                "expect",
                                                StreamId_Print(roFigures.oKey) + " runs, and is not in the baseline",
                                                {roFigures.oKey}});
            }
        });
}

} // namespace

CFault CheckBaseline_Read(const SCheckOptions& roOptions, SJudgeSettings& roSettings)
{
    SExpectOptions oExpect = roOptions.oExpect;
    oExpect.aoExpected = roOptions.aoExpected;
    return Expectations_Read(oExpect, roSettings);
}

void CheckBaseline_Judge(const SCheckOptions& roOptions, const SWatchPublication& roPublication,
                         SCheckVerdict& roVerdict)
{
    AddIncidents(roPublication, roVerdict);
    // Whether a stream runs at all the figures have told of those that an option names.
    SJudgeSettings oSettings;
    static_cast<void>(Expectations_Read(roOptions.oExpect, oSettings)); // which it could before
    CBaseline oBaseline(roPublication, roVerdict);
    for (size_t uiSlot = 0; uiSlot < oSettings.aoStreams.size(); ++uiSlot)
    {
        const std::vector<SStreamExpectation>& raoTold = oSettings.aoStreams[uiSlot];
        for (uint32_t uiIndex = 0; uiIndex < raoTold.size(); ++uiIndex)
        {
            if (raoTold[uiIndex].IsTold())
            {
                oBaseline.Compare(StreamKey_FromSlot(uiSlot, uiIndex), raoTold[uiIndex]);
            }
        }
    }
    if (!roOptions.oExpect.szFile.empty())
    {
        AddNewcomers(oSettings, roPublication, roVerdict);
    }
    if (const CFault oFault = roOptions.szSave.empty() ? CFault() : Expectations_Save(roOptions.szSave, roPublication))
    {
        roVerdict.aoFindings.push_back({EVerdict::UNKNOWN, "save", "cannot save " + oFault.GetText(), {}});
    }
    CheckVerdict_Sort(roVerdict);
}
