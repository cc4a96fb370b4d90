#include "Expectations.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "DescriptionMembers.h"
#include "StreamId.h"
#include "WatchJson.h"

namespace
{

constexpr size_t uiLargestFile = 4U << 20U;
constexpr double flFieldsFrom = 40.0; // below, the rate of an interlaced standard is that of its frames

// 59.94, 29.97 and 23.98 stand for 60, 30 and 24 times 1000/1001.
bool FindRate(std::string_view szText, SStandard& roStandard)
{
    double flRate = 0.0;
    const auto oRead = std::from_chars(szText.data(), szText.data() + szText.size(), flRate);
    if (oRead.ec != std::errc() || oRead.ptr != szText.data() + szText.size() || !(flRate >= 1.0) || flRate > 1000.0)
    {
        return false;
    }
    const double flWhole = std::ceil(flRate);
    const bool bIsWhole = flRate == flWhole;
    if (!bIsWhole && std::abs(flWhole * 1000.0 / 1001.0 - flRate) > 0.005)
    {
        return false;
    }
    roStandard.uiRateNumerator = static_cast<uint64_t>(flWhole) * (bIsWhole ? 1 : 1000);
    roStandard.uiRateDenominator = bIsWhole ? 1 : 1001;
    if (roStandard.bInterlaced && flRate < flFieldsFrom)
    {
        roStandard.uiRateNumerator *= 2;
    }
    return true;
}

void Reduce(uint64_t& ruiNumerator, uint64_t& ruiDenominator)
{
    uint64_t uiA = ruiNumerator;
    uint64_t uiB = ruiDenominator;
    while (uiB != 0)
    {
        const uint64_t uiRest = uiA % uiB;
        uiA = uiB;
        uiB = uiRest;
    }
    ruiNumerator /= uiA == 0 ? 1 : uiA;
    ruiDenominator /= uiA == 0 ? 1 : uiA;
}

void ExpectStandard(SStreamExpectation& roTold, const SStandard& roStandard)
{
    roTold.uiRateNumerator = roStandard.uiRateNumerator;
    roTold.uiRateDenominator = roStandard.uiRateDenominator;
    Reduce(roTold.uiRateNumerator, roTold.uiRateDenominator);
    roTold.aoMembers.push_back({EDescriptionMember::V_ACTIVE, roStandard.uiLines});
    roTold.aoMembers.push_back({EDescriptionMember::INTERLACED, roStandard.bInterlaced ? 1ULL : 0ULL});
}

void ExpectLock(SStreamExpectation& roTold, const SStreamKey& roKey, const SStreamKey& roOther)
{
    uint32_t& ruiWith = roOther.eDirection == roKey.eDirection ? roTold.uiLockedWith : roTold.uiLockedAcross;
    ruiWith |= roOther == roKey ? 0U : 1U << roOther.uiIndex;
}

bool IsOfSort(const CJson& roJson, const char* szKey, CJson::value_t eSort)
{
    return !roJson.contains(szKey) || roJson[szKey].type() == eSort;
}

CFault CheckKinds(const CJson& roStream)
{
    using Sort = CJson::value_t;
    if (!roStream.is_object())
    {
        return CFault("expected an object");
    }
    for (const auto& [szKey, eSort] : {std::pair{"expected", Sort::boolean},
                                       {"fed", Sort::boolean},
                                       {"locked", Sort::array},
                                       {"standard", Sort::string},
                                       {"description", Sort::object},
                                       {"rate", Sort::object}})
    {
        if (!IsOfSort(roStream, szKey, eSort))
        {
            return CFault(std::string("'") + szKey + "' is of the wrong kind");
        }
    }
    return {};
}

CFault ReadDescription(const CJson& roDescription, SStreamExpectation& roTold)
{
    const auto aoMembers = DescriptionMembers_Get();
    for (const auto& [szName, roValue] : roDescription.items())
    {
        const auto itMember = std::ranges::find_if(aoMembers, [&szWanted = szName](const SDescriptionMember& roMember)
                                                   { return szWanted == roMember.szName; });
        if (itMember == aoMembers.end() || !roValue.is_number_unsigned())
        {
            return CFault("'description': '" + szName + "' is no member, or not a number");
        }
        roTold.aoMembers.push_back(
            {static_cast<EDescriptionMember>(itMember - aoMembers.begin()), roValue.get<uint64_t>()});
    }
    return {};
}

bool ReadRate(const CJson& roRate, SStreamExpectation& roTold)
{
    for (const char* szPart : {"numerator", "denominator"})
    {
        if (!roRate.contains(szPart) || !roRate[szPart].is_number_unsigned() || roRate[szPart].get<uint64_t>() == 0)
        {
            return false;
        }
    }
    roTold.uiRateNumerator = roRate["numerator"].get<uint64_t>();
    roTold.uiRateDenominator = roRate["denominator"].get<uint64_t>();
    return true;
}

CFault ReadStream(const SStreamKey& roKey, const CJson& roStream, SStreamExpectation& roTold)
{
    if (CFault oFault = CheckKinds(roStream))
    {
        return oFault;
    }
    roTold.bRuns = roStream.value("expected", false);
    roTold.bIsFed = roStream.value("fed", false);
    for (const CJson& roOther : roStream.value("locked", CJson::array()))
    {
        const auto oOther = StreamId_Find(roOther.is_string() ? roOther.get<std::string>() : "");
        if (!oOther || *oOther == roKey || oOther->uiChip != roKey.uiChip)
        {
            return CFault("'locked': expected other streams of the same chip");
        }
        ExpectLock(roTold, roKey, *oOther);
    }
    if (roStream.contains("standard"))
    {
        const auto oStandard = Standard_Find(roStream["standard"].get<std::string>());
        if (!oStandard)
        {
            return CFault("'standard': expected one like 1080p59.94");
        }
        ExpectStandard(roTold, *oStandard);
    }
    if (roStream.contains("rate") && !ReadRate(roStream["rate"], roTold))
    {
        return CFault("'rate': expected a numerator and a denominator above 0");
    }
    return ReadDescription(roStream.value("description", CJson::object()), roTold);
}

CFault ReadFile(const std::string& rszFile, SJudgeSettings& roSettings)
{
    std::ifstream oFile(rszFile, std::ios::binary);
    if (!oFile)
    {
        return CFault(rszFile + ": " + std::strerror(errno));
    }
    std::string szText(uiLargestFile + 1, '\0');
    oFile.read(szText.data(), static_cast<std::streamsize>(szText.size()));
    szText.resize(static_cast<size_t>(oFile.gcount()));
    const CJson oJson = CJson::parse(szText, nullptr, false);
    if (szText.size() > uiLargestFile || !oJson.is_object() || !oJson.contains("streams") ||
        !oJson["streams"].is_object())
    {
        return CFault(rszFile + ": expected JSON with an object 'streams'");
    }
    for (const auto& [szId, roStream] : oJson["streams"].items())
    {
        const auto oKey = StreamId_Find(szId);
        const CFault oFault =
            oKey ? ReadStream(*oKey, roStream, Expectations_Get(roSettings, *oKey)) : CFault("no stream is called so");
        if (oFault)
        {
            return CFault(std::string(rszFile).append(": ").append(szId).append(": ").append(oFault.GetText()));
        }
    }
    return {};
}

CJson MakeStream(const SStreamFigures& roFigures, uint32_t uiLockedWith)
{
    CJson oDescription = CJson::object();
    for (const SDescriptionMember& roMember : DescriptionMembers_Get())
    {
        oDescription[roMember.szName] = roMember.fnGet(roFigures.oDescription);
    }
    CJson oJson = {{"expected", true}};
    if (roFigures.oKey.eDirection == EStreamDirection::OUTPUT)
    {
        oJson["fed"] = roFigures.oFeed.oCadence.IsKnown();
    }
    if (roFigures.uiNominalNumerator != 0)
    {
        oJson["rate"] = {{"numerator", roFigures.uiNominalNumerator}, {"denominator", roFigures.uiNominalDenominator}};
    }
    oJson["locked"] = StreamId_PrintMembers(roFigures.oKey, uiLockedWith);
    oJson["description"] = std::move(oDescription);
    return oJson;
}

uint32_t GetLockedWith(const SDirectionFigures& roDirection, uint32_t uiStream)
{
    uint32_t uiLocked = 0;
    for (const SPairFigures& roPair : roDirection.aoPairs)
    {
        if (roPair.eLock == ELockState::LOCKED && (roPair.uiFirst == uiStream || roPair.uiSecond == uiStream))
        {
            uiLocked |= 1U << (roPair.uiFirst == uiStream ? roPair.uiSecond : roPair.uiFirst);
        }
    }
    return uiLocked;
}

} // namespace

std::optional<SStandard> Standard_Find(std::string_view szText)
{
    SStandard oStandard;
    const auto oRead = std::from_chars(szText.data(), szText.data() + szText.size(), oStandard.uiLines);
    const auto uiSort = static_cast<size_t>(oRead.ptr - szText.data());
    if (oRead.ec != std::errc() || oStandard.uiLines == 0 || oStandard.uiLines > 65535 || uiSort + 1 >= szText.size() ||
        (szText[uiSort] != 'p' && szText[uiSort] != 'i'))
    {
        return std::nullopt;
    }
    oStandard.bInterlaced = szText[uiSort] == 'i';
    return FindRate(szText.substr(uiSort + 1), oStandard) ? std::optional(oStandard) : std::nullopt;
}

std::optional<SExpectedStandard> ExpectedStandard_Find(std::string_view szText)
{
    const size_t uiEquals = szText.find('=');
    if (uiEquals == std::string_view::npos)
    {
        return std::nullopt;
    }
    const auto oKey = StreamId_Find(szText.substr(0, uiEquals));
    const auto oStandard = Standard_Find(szText.substr(uiEquals + 1));
    return oKey && oStandard ? std::optional(SExpectedStandard{*oKey, *oStandard}) : std::nullopt;
}

SStreamExpectation& Expectations_Get(SJudgeSettings& roSettings, const SStreamKey& roKey)
{
    const size_t uiSlot = StreamKey_GetSlot(roKey);
    roSettings.aoStreams.resize(std::max(roSettings.aoStreams.size(), uiSlot + 1));
    std::vector<SStreamExpectation>& raoStreams = roSettings.aoStreams[uiSlot];
    raoStreams.resize(std::max<size_t>(raoStreams.size(), roKey.uiIndex + 1));
    return raoStreams[roKey.uiIndex];
}

CFault Expectations_Read(const SExpectOptions& roOptions, SJudgeSettings& roSettings)
{
    if (CFault oFault = roOptions.szFile.empty() ? CFault() : ReadFile(roOptions.szFile, roSettings))
    {
        return oFault;
    }
    for (const SStreamKey& roKey : roOptions.aoExpected)
    {
        Expectations_Get(roSettings, roKey).bRuns = true;
    }
    for (const SStreamKey& roKey : roOptions.aoFed)
    {
        Expectations_Get(roSettings, roKey).bRuns = true;
        Expectations_Get(roSettings, roKey).bIsFed = true;
    }
    for (const std::vector<SStreamKey>& raoLocked : roOptions.aaoLocked)
    {
        for (const SStreamKey& roKey : raoLocked)
        {
            for (const SStreamKey& roOther : raoLocked)
            {
                ExpectLock(Expectations_Get(roSettings, roKey), roKey, roOther);
            }
        }
    }
    for (const SExpectedStandard& roStandard : roOptions.aoStandards)
    {
        ExpectStandard(Expectations_Get(roSettings, roStandard.oKey), roStandard.oStandard);
    }
    return {};
}

CFault Expectations_Save(const std::string& rszFile, const SWatchPublication& roPublication)
{
    CJson oStreams = CJson::object();
    for (const SDirectionFigures& roDirection : roPublication.oSnapshot.aoDirections)
    {
        for (const SStreamFigures& roFigures : roDirection.aoStreams)
        {
            if (roFigures.eState == EStreamState::RUNNING)
            {
                oStreams[StreamId_Print(roFigures.oKey)] =
                    MakeStream(roFigures, GetLockedWith(roDirection, roFigures.oKey.uiIndex));
            }
        }
    }
    // Beside it and then in its place, so that nobody reads half a file.
    const std::string szNew = rszFile + ".new";
    std::ofstream oFile(szNew, std::ios::binary | std::ios::trunc);
    oFile << CJson{{"streams", std::move(oStreams)}}.dump(2) << "\n";
    oFile.close();
    if (!oFile || std::rename(szNew.c_str(), rszFile.c_str()) != 0)
    {
        CFault oFault(rszFile + ": " + std::strerror(errno));
        static_cast<void>(unlink(szNew.c_str()));
        return oFault;
    }
    return {};
}
