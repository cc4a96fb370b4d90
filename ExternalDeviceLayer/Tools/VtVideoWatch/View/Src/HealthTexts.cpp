#include "HealthTexts.h"

#include <array>
#include <bit>

#include "DescriptionMembers.h"
#include "KrvTypes.h"
#include "StreamId.h"
#include "TextFormat.h"
#include "VideoTexts.h"

namespace
{

template <size_t N> const char* Find(const std::array<const char*, N>& raszWords, size_t uiValue)
{
    return uiValue < N ? raszWords[uiValue] : "unknown";
}

constexpr std::array<const char*, uiNbOfHealthStatuses> aszStatuses = {"inactive", "healthy", "partially_healthy",
                                                                       "unhealthy"};
constexpr std::array<const char*, uiNbOfHealthDomains> aszDomains = {"signal", "delivery", "feed", "synchronisation",
                                                                     "observation"};
constexpr std::array<const char*, static_cast<size_t>(EIncidentShare::COUNT)> aszShares = {"stream", "lock_group",
                                                                                           "board", "machine", "none"};
constexpr std::array<const char*, uiNbOfUnobservedCauses> aszCauses = {"outside_wait", "no_processor", "machine",
                                                                       "neighbour"};
// What there is to say of a domain that is well.
constexpr std::array<const char*, uiNbOfHealthDomains> aszFine = {
    "the signal is there", "no field is lost", "pictures come as they used to", "it keeps its rate and its locks",
    "fields are observed"};

using Reason = const SHealthReason&;
using Of = const SStreamKey&;
using DescribeFunction = std::string (*)(Of roOf, Reason);

// "1 field was not delivered", "2 fields were not delivered"
std::string CountThat(uint64_t uiCount, const char* szOne, const char* szWhat)
{
    return TextFormat_Count(uiCount, szOne) + (uiCount == 1 ? " was " : " were ") + szWhat;
}

std::string GetMemberName(uint32_t uiMember)
{
    const auto aoMembers = DescriptionMembers_Get();
    std::string szName = uiMember < aoMembers.size() ? aoMembers[uiMember].szName : "rate";
    for (char& rcLetter : szName)
    {
        rcLetter = rcLetter == '_' ? ' ' : rcLetter;
    }
    return szName;
}

std::string DescribeStandard(Of, Reason roReason)
{
    if (roReason.uiMember >= DescriptionMembers_Get().size())
    {
        return TextFormat_Print("another rate than expected: %.6g Hz", roReason.flValue);
    }
    return GetMemberName(roReason.uiMember) + " is " + HealthTexts_GetMemberValue(roReason.uiMember, roReason.uiAfter) +
           ", expected " + HealthTexts_GetMemberValue(roReason.uiMember, roReason.uiBefore);
}

std::string DescribeChange(Of, Reason roReason)
{
    return GetMemberName(roReason.uiMember) + " changed from " +
           HealthTexts_GetMemberValue(roReason.uiMember, roReason.uiBefore) + " to " +
           HealthTexts_GetMemberValue(roReason.uiMember, roReason.uiAfter);
}

std::string DescribeCadence(Of, Reason roReason)
{
    return "its cadence of " + HealthTexts_GetCadence(Cadence_Unpack(roReason.uiBefore)) + " broke";
}

std::string DescribeLock(Of roOf, Reason roReason)
{
    return std::string(roReason.eReason == EHealthReason::LOCK_DRIFTS ? "drifts against " : "out of lock with ") +
           StreamId_Print({roReason.uiBefore != 0 ? StreamDirection_GetOther(roOf.eDirection) : roOf.eDirection,
                           roReason.uiMember, roOf.uiChip});
}

// By EHealthReason; null: said by the domain.
constexpr std::array<DescribeFunction, static_cast<size_t>(EHealthReason::COUNT)> apfnReasons = {
    nullptr,
    [](Of, Reason) -> std::string { return "nothing is meant to run"; },
    [](Of, Reason) -> std::string { return "no signal has come"; },
    [](Of, Reason) -> std::string { return "switched off"; },
    [](Of, Reason) -> std::string { return "the signal is lost"; },
    [](Of, Reason) -> std::string { return "the device is gone"; },
    [](Of, Reason) -> std::string { return "the timings contradict themselves"; },
    DescribeStandard,
    DescribeChange,
    [](Of, Reason) -> std::string { return "top and bottom fields are swapped"; },
    [](Of, Reason roReason) { return CountThat(roReason.uiCount, "field", "not delivered"); },
    [](Of, Reason) -> std::string { return "no new picture comes"; },
    [](Of, Reason) -> std::string { return "no picture has come"; },
    DescribeCadence,
    [](Of, Reason roReason) { return CountThat(roReason.uiCount, "picture", "not taken in time"); },
    [](Of, Reason) -> std::string { return "nobody takes the pictures"; },
    DescribeLock,
    DescribeLock,
    [](Of, Reason roReason) { return TextFormat_Print("its rate is %+.0f ppm off", roReason.flValue); },
    [](Of, Reason roReason)
    { return TextFormat_Count(roReason.uiCount, "field") + " passed while the watch was late"; },
};

uint32_t CountStreams(const SIncident& roIncident, EStreamDirection eDirection)
{
    uint32_t uiCount = 0;
    for (auto uiSlot = static_cast<size_t>(eDirection); uiSlot < roIncident.auiStreams.size(); uiSlot += 2)
    {
        uiCount += static_cast<uint32_t>(std::popcount(roIncident.auiStreams[uiSlot]));
    }
    return uiCount;
}

uint32_t CountStreams(const SIncident& roIncident)
{
    return CountStreams(roIncident, EStreamDirection::INPUT) + CountStreams(roIncident, EStreamDirection::OUTPUT);
}

const char* GetNoun(const SIncident& roIncident)
{
    return CountStreams(roIncident, EStreamDirection::OUTPUT) == 0  ? "inputs"
           : CountStreams(roIncident, EStreamDirection::INPUT) == 0 ? "outputs"
                                                                    : "streams";
}

std::string GetTogether(const SIncident& roIncident)
{
    constexpr double flAtOnceSeconds = 5e-6;
    return !roIncident.bIsTogether ? ", one after another"
           : roIncident.flSpreadSeconds < flAtOnceSeconds
               ? " at once"
               : TextFormat_Print(" within %.3g ms", roIncident.flSpreadSeconds * 1e3);
}

std::string GetFirstReason(const SIncident& roIncident)
{
    return HealthTexts_GetReason(roIncident.eDomain, roIncident.oFirstStream, roIncident.oFirst);
}

// What its streams are of: "all 4 inputs of one lock group within 0.2 ms".
std::string GetShared(const SIncident& roIncident, const char* szOf)
{
    return (roIncident.bIsWhole ? "all " : "") + std::to_string(CountStreams(roIncident)) + " " + GetNoun(roIncident) +
           " of " + szOf + GetTogether(roIncident);
}

} // namespace

const char* HealthTexts_GetStatus(EHealthStatus eStatus)
{
    return Find(aszStatuses, static_cast<size_t>(eStatus));
}

const char* HealthTexts_GetDomain(EHealthDomain eDomain)
{
    return Find(aszDomains, static_cast<size_t>(eDomain));
}

const char* HealthTexts_GetShare(EIncidentShare eShare)
{
    return Find(aszShares, static_cast<size_t>(eShare));
}

const char* HealthTexts_GetCause(EUnobservedCause eCause)
{
    return Find(aszCauses, static_cast<size_t>(eCause));
}

std::string HealthTexts_GetCadence(const SCadence& roCadence)
{
    std::string szText;
    for (uint32_t uiRun = 0; uiRun < roCadence.uiNbOfRuns; ++uiRun)
    {
        szText += (uiRun == 0 ? "" : ":") + std::to_string(roCadence.auiRuns[uiRun]);
    }
    // Runs that are all alike are told twice, as the trade does: 2:2.
    return roCadence.uiNbOfRuns == 1 ? szText + ":" + szText : szText;
}

std::string HealthTexts_GetMemberValue(uint32_t uiMember, uint64_t uiValue)
{
    switch (static_cast<EDescriptionMember>(uiMember))
    {
    case EDescriptionMember::INTERLACED:
    case EDescriptionMember::BOTTOM_FIELD_FIRST:
    case EDescriptionMember::H_SYNC_POSITIVE:
    case EDescriptionMember::V_SYNC_POSITIVE:
    case EDescriptionMember::YUV:
    case EDescriptionMember::LEVEL_B:
        return uiValue != 0 ? "true" : "false";
    case EDescriptionMember::PIXEL_FORMAT:
    {
        VTSTR64 szName = {};
        GetPixelFormatString(static_cast<VtPixelFormat>(uiValue), szName);
        return szName;
    }
    default:
        return std::to_string(uiValue);
    }
}

std::string HealthTexts_GetReason(EHealthDomain eDomain, const SStreamKey& roOf, const SHealthReason& roReason)
{
    const auto uiReason = static_cast<size_t>(roReason.eReason);
    const DescribeFunction pfnReason = uiReason < apfnReasons.size() ? apfnReasons[uiReason] : nullptr;
    return pfnReason != nullptr ? pfnReason(roOf, roReason) : Find(aszFine, static_cast<size_t>(eDomain));
}

EHealthDomain HealthTexts_GetWorst(const SStreamHealth& roHealth)
{
    uint32_t uiWorst = 0;
    for (uint32_t uiDomain = 1; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        const EHealthStatus eStatus = roHealth.aoDomains[uiDomain].eStatus;
        if (eStatus > EHealthStatus::HEALTHY && eStatus > roHealth.aoDomains[uiWorst].eStatus)
        {
            uiWorst = uiDomain;
        }
    }
    return static_cast<EHealthDomain>(uiWorst);
}

std::string HealthTexts_GetIncidentCause(const SIncident& roIncident)
{
    switch (roIncident.eShared)
    {
    case EIncidentShare::MACHINE:
        if (roIncident.eDomain != EHealthDomain::OBSERVATION)
        {
            return GetFirstReason(roIncident) + "; " + GetShared(roIncident, "several chips");
        }
        return roIncident.bIsWhole ? TextFormat_Print("the machine stood still for %.1f s", roIncident.flStoodSeconds)
                                   : TextFormat_Print("the watching of %u %s was held up", CountStreams(roIncident),
                                                      GetNoun(roIncident));
    case EIncidentShare::LOCK_GROUP:
        return roIncident.bIsWhole && roIncident.bIsTogether
                   ? GetShared(roIncident, "one lock group") + ": their common reference"
                   : GetFirstReason(roIncident) + "; " + GetShared(roIncident, "one lock group");
    case EIncidentShare::BOARD:
        return GetFirstReason(roIncident) + "; " + GetShared(roIncident, "the board");
    default:
        return GetFirstReason(roIncident);
    }
}

std::string HealthTexts_GetIncidentStreams(const SIncident& roIncident)
{
    std::string szStreams;
    for (size_t uiSlot = 0; uiSlot < roIncident.auiStreams.size(); ++uiSlot)
    {
        const std::string szOfOne = StreamId_PrintRanges(StreamKey_FromSlot(uiSlot, 0), roIncident.auiStreams[uiSlot]);
        szStreams += (szStreams.empty() || szOfOne.empty() ? "" : ", ") + szOfOne;
    }
    return szStreams;
}

std::string HealthTexts_GetIncidentLost(const SIncident& roIncident)
{
    return roIncident.uiLost == 0
               ? ""
               : TextFormat_Count(roIncident.uiLost, roIncident.eDomain == EHealthDomain::FEED ? "picture" : "field");
}

std::string HealthTexts_GetIncidentTitle(const SIncident& roIncident)
{
    return std::string(HealthTexts_GetDomain(roIncident.eDomain)) + " of " +
           HealthTexts_GetIncidentStreams(roIncident) + ": " + HealthTexts_GetIncidentCause(roIncident);
}
