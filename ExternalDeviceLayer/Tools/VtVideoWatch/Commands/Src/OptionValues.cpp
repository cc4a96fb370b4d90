#include "OptionValues.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>

#include "StreamId.h"
#include "TimeUnits.h"
#include "WatchTexts.h"

namespace
{

// A number and what follows it.
struct SQuantity
{
    double flNumber;
    std::string_view szUnit;
};

std::optional<SQuantity> FindQuantity(std::string_view szText)
{
    SQuantity oQuantity = {};
    const char* szEnd = szText.data() + szText.size();
    const auto [szRest, eError] = std::from_chars(szText.data(), szEnd, oQuantity.flNumber);
    if (eError != std::errc() || !std::isfinite(oQuantity.flNumber))
    {
        return std::nullopt;
    }
    oQuantity.szUnit = std::string_view(szRest, static_cast<size_t>(szEnd - szRest));
    return oQuantity;
}

struct SUnit
{
    std::string_view szName;
    double flSeconds;
};

constexpr SUnit aoShortUnits[] = {{"ns", 1e-9}, {"us", 1e-6}, {"ms", 1e-3}, {"s", 1.0}};
constexpr SUnit aoLongUnits[] = {{"s", 1.0}, {"m", 60.0}, {"h", 3600.0}, {"d", 86400.0}};

std::optional<double> ToSeconds(const SQuantity& roQuantity, std::span<const SUnit> aoUnits)
{
    for (const SUnit& roUnit : aoUnits)
    {
        if (roUnit.szName == roQuantity.szUnit)
        {
            return roQuantity.flNumber * roUnit.flSeconds;
        }
    }
    return std::nullopt;
}

std::vector<std::string_view> Split(std::string_view szText)
{
    std::vector<std::string_view> aszParts;
    for (size_t uiFrom = 0; uiFrom <= szText.size();)
    {
        const size_t uiComma = std::min(szText.find(',', uiFrom), szText.size());
        aszParts.push_back(szText.substr(uiFrom, uiComma - uiFrom));
        uiFrom = uiComma + 1;
    }
    return aszParts;
}

} // namespace

std::optional<SLockThreshold> OptionValues_FindThreshold(std::string_view szText)
{
    const std::optional<SQuantity> oQuantity = FindQuantity(szText);
    if (!oQuantity || oQuantity->flNumber <= 0.0)
    {
        return std::nullopt;
    }
    if (oQuantity->szUnit == "line" || oQuantity->szUnit == "lines")
    {
        return SLockThreshold{oQuantity->flNumber, 0.0};
    }
    const std::optional<double> flSeconds = ToSeconds(*oQuantity, aoShortUnits);
    return flSeconds ? std::optional(SLockThreshold{0.0, *flSeconds}) : std::nullopt;
}

std::optional<std::vector<SStreamKey>> OptionValues_FindStreams(std::string_view szText)
{
    std::vector<SStreamKey> aoStreams;
    for (const std::string_view szPart : Split(szText))
    {
        const std::optional<SStreamKey> oStream = StreamId_Find(szPart);
        if (!oStream)
        {
            return std::nullopt;
        }
        aoStreams.push_back(*oStream);
    }
    return aoStreams;
}

std::optional<SStreamPath> OptionValues_FindPath(std::string_view szText)
{
    const std::optional<std::vector<SStreamKey>> oStreams = OptionValues_FindStreams(szText);
    if (!oStreams || oStreams->size() != 2 || oStreams->front().eDirection == oStreams->back().eDirection ||
        oStreams->front().uiChip != oStreams->back().uiChip)
    {
        return std::nullopt;
    }
    const bool bInputIsFirst = oStreams->front().eDirection == EStreamDirection::INPUT;
    return bInputIsFirst ? SStreamPath{oStreams->front(), oStreams->back()}
                         : SStreamPath{oStreams->back(), oStreams->front()};
}

std::optional<std::vector<uint32_t>> OptionValues_FindChips(std::string_view szText)
{
    std::vector<uint32_t> auiChips;
    for (const std::string_view szPart : szText == "all" ? std::vector<std::string_view>() : Split(szText))
    {
        uint32_t uiChip = 0;
        const auto oRead = std::from_chars(szPart.data(), szPart.data() + szPart.size(), uiChip);
        if (oRead.ec != std::errc() || oRead.ptr != szPart.data() + szPart.size())
        {
            return std::nullopt;
        }
        auiChips.push_back(uiChip);
    }
    std::ranges::sort(auiChips);
    return std::ranges::adjacent_find(auiChips) == auiChips.end() ? std::optional(auiChips) : std::nullopt;
}

std::optional<SLimits<double>> OptionValues_FindLimits(std::string_view szText)
{
    std::vector<double> aflLimits;
    for (const std::string_view szPart : Split(szText))
    {
        const std::optional<SQuantity> oQuantity = FindQuantity(szPart);
        if (!oQuantity || !oQuantity->szUnit.empty() || oQuantity->flNumber < 0.0)
        {
            return std::nullopt;
        }
        aflLimits.push_back(oQuantity->flNumber);
    }
    if (aflLimits.empty() || aflLimits.size() > 2 || aflLimits.front() > aflLimits.back())
    {
        return std::nullopt;
    }
    return SLimits<double>{aflLimits.front(), aflLimits.back()};
}

const char* OptionValues_WhyNoThreshold(std::string_view szText)
{
    const std::optional<SQuantity> oQuantity = FindQuantity(szText);
    return !oQuantity                   ? "no number"
           : oQuantity->flNumber <= 0.0 ? "not above 0"
           : oQuantity->szUnit.empty()  ? "the unit is missing"
                                        : "no such unit";
}

const char* OptionValues_WhyNoStreams(std::string_view szText)
{
    for (const std::string_view szPart : Split(szText))
    {
        const size_t uiDigits = szPart.starts_with("IN_") ? 3 : szPart.starts_with("OUT_") ? 4 : szPart.size();
        const bool bIsNumber =
            uiDigits < szPart.size() && szPart.find_first_not_of("0123456789", uiDigits) == std::string_view::npos;
        if (!StreamId_Find(szPart))
        {
            return bIsNumber ? "streams are numbered by two digits, 00 to 31" : nullptr;
        }
    }
    return nullptr;
}

const char* OptionValues_WhyNoPath(std::string_view szText)
{
    return OptionValues_FindStreams(szText) ? "not one input and one output of a chip"
                                            : OptionValues_WhyNoStreams(szText);
}

const char* OptionValues_WhyNoChips(std::string_view szText)
{
    const std::vector<std::string_view> aszParts = Split(szText);
    const bool bAreNumbers = std::ranges::all_of(aszParts, [](std::string_view szPart)
                                                 { return OptionValues_FindChips(szPart) && szPart != "all"; });
    return bAreNumbers ? "a chip is named twice" : nullptr;
}

const char* OptionValues_WhyNoLimits(std::string_view szText)
{
    const size_t uiComma = szText.find(',');
    const bool bAreTwo = uiComma != std::string_view::npos && OptionValues_FindLimits(szText.substr(0, uiComma)) &&
                         OptionValues_FindLimits(szText.substr(uiComma + 1));
    return bAreTwo ? "the limit for a warning is the higher one" : nullptr;
}

std::optional<SLimits<uint64_t>> OptionValues_FindCounts(std::string_view szText)
{
    constexpr double flMost = 1e15;
    const std::optional<SLimits<double>> oLimits = OptionValues_FindLimits(szText);
    if (!oLimits || oLimits->oCritical > flMost || std::trunc(oLimits->oWarning) != oLimits->oWarning ||
        std::trunc(oLimits->oCritical) != oLimits->oCritical)
    {
        return std::nullopt;
    }
    return SLimits<uint64_t>{static_cast<uint64_t>(oLimits->oWarning), static_cast<uint64_t>(oLimits->oCritical)};
}

std::optional<int64_t> OptionValues_FindMoment(std::string_view szText, int64_t iNowUtcNs)
{
    constexpr double flMostSeconds = 1e9;
    if (szText == "now")
    {
        return iNowUtcNs;
    }
    if (!szText.starts_with('-'))
    {
        return WatchTexts_FindUtc(szText);
    }
    const std::optional<SQuantity> oQuantity = FindQuantity(szText);
    const std::optional<double> flSeconds = oQuantity ? ToSeconds(*oQuantity, aoLongUnits) : std::nullopt;
    if (!flSeconds || *flSeconds < -flMostSeconds)
    {
        return std::nullopt;
    }
    return iNowUtcNs + static_cast<int64_t>(*flSeconds * static_cast<double>(iNsPerSecond));
}

std::optional<uint32_t> OptionValues_FindMode(std::string_view szText)
{
    uint32_t uiMode = 0;
    const char* szEnd = szText.data() + szText.size();
    const auto [szRest, eError] = std::from_chars(szText.data(), szEnd, uiMode, 8);
    return eError == std::errc() && szRest == szEnd && uiMode <= 0777 ? std::optional(uiMode) : std::nullopt;
}
