// Lock groups that come and go, and which stream the others are compared with.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "LockGroups.h"
#include "ReferenceChoice.h"

namespace
{

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

TEST(LockGroups, KeepTheirIdentityWithMostOfTheirMembers)
{
    CLockGroups oGroups;
    uint64_t uiNow = 0;
    // The changes, then all groups.
    const auto Update = [&](const Pairs& raoPairs)
    {
        std::vector<uint64_t> auiLocked(32);
        for (const auto& [uiFirst, uiSecond] : raoPairs)
        {
            auiLocked[uiFirst] |= uint64_t{1} << uiSecond;
            auiLocked[uiSecond] |= uint64_t{1} << uiFirst;
        }
        std::string szText;
        const auto Tell = [&](const SGroupLife& roGroup)
        {
            szText += std::to_string(roGroup.uiGroup) + "@" + std::to_string(roGroup.uiSinceNs);
            for (uint32_t uiStream = 0; uiStream < 32; ++uiStream)
            {
                szText += (roGroup.uiMembers >> uiStream & 1U) != 0 ? "," + std::to_string(uiStream) : "";
            }
            szText += " ";
        };
        for (const SGroupChange& roChange : oGroups.Update(auiLocked, ++uiNow))
        {
            szText += "FCE"[static_cast<size_t>(roChange.eChange)];
            Tell(roChange.oGroup);
        }
        szText += "| ";
        std::ranges::for_each(oGroups.Get(), Tell);
        return szText + "^" + std::to_string(oGroups.GetLargest().uiGroup);
    };
    EXPECT_EQ(Update({}), "| ^0");
    EXPECT_EQ(Update({{5, 31}, {9, 5}, {9, 2}}), "F1@2,2,5,9,31 | 1@2,2,5,9,31 ^1");
    EXPECT_EQ(Update({{5, 31}, {9, 5}, {9, 2}, {0, 1}}), "F2@3,0,1 | 1@2,2,5,9,31 2@3,0,1 ^1");
    EXPECT_EQ(Update({{5, 31}, {0, 1}}), "C1@2,5,31 | 1@2,5,31 2@3,0,1 ^1");
    EXPECT_EQ(Update({{0, 5}, {1, 7}, {7, 31}}), "C1@2,0,5 C2@3,1,7,31 | 1@2,0,5 2@3,1,7,31 ^2");
    EXPECT_EQ(Update({{0, 1}, {1, 7}, {7, 31}, {5, 7}}), "C2@3,0,1,5,7,31 E1@2,0,5 | 2@3,0,1,5,7,31 ^2");
    EXPECT_EQ(Update({{0, 5}, {1, 7}, {7, 31}}), "C2@3,1,7,31 F3@7,0,5 | 2@3,1,7,31 3@7,0,5 ^2");
    EXPECT_EQ(Update({}), "E2@3,1,7,31 E3@7,0,5 | ^0");
    Pairs aoAll;
    for (uint32_t uiStream = 0; uiStream < 32; uiStream += 2)
    {
        aoAll.emplace_back(uiStream, uiStream + 1);
    }
    Update(aoAll);
    EXPECT_EQ(oGroups.Get().size(), 16U);
    EXPECT_EQ(oGroups.Get()[15].uiMembers, 3U << 30);
}

TEST(ReferenceChoice, StaysAsLongAsItMay)
{
    struct SStep
    {
        uint64_t uiNowNs;
        uint32_t uiRunning, uiGrouped, uiLargest;
        int32_t iReference;
    };
    constexpr uint64_t uiSecond = 1'000'000'000;
    const auto Follow = [](int32_t iSetting, std::initializer_list<SStep> aoSteps)
    {
        CReferenceChoice oChoice(iSetting);
        for (const SStep& roStep : aoSteps)
        {
            const int32_t iBefore = oChoice.Get();
            const bool bIsOther = oChoice.Update(roStep.uiRunning, roStep.uiGrouped, roStep.uiLargest, roStep.uiNowNs);
            EXPECT_EQ(oChoice.Get(), roStep.iReference) << roStep.uiNowNs;
            EXPECT_EQ(bIsOther, iBefore != roStep.iReference);
        }
    };
    // The first that runs; the first of the largest group within ten seconds; not when it has stood for longer.
    Follow(-1, {{uiSecond, 0, 0, 0, -1},
                {2 * uiSecond, 0b0110, 0, 0, 1},
                {12 * uiSecond, 0b1111, 0b1101, 0b1100, 2},
                {23 * uiSecond, 0b1111, 0b0011, 0b0011, 2}});
    // Beside all groups for a minute; the largest one does not run.
    Follow(-1, {{uiSecond, 0b0110, 0, 0, 1},
                {12 * uiSecond, 0b1110, 0, 0, 1},
                {20 * uiSecond, 0b1110, 0b1100, 0b1100, 1},
                {72 * uiSecond, 0b1110, 0b1100, 0b1100, 1},
                {72 * uiSecond + 1, 0b1010, 0b1100, 0b0100, 1},
                {72 * uiSecond + 2, 0b1000, 0b1100, 0b0100, 3}});
    // In a group of its own it stays.
    Follow(-1,
           {{uiSecond, 0b0110, 0, 0, 1}, {90 * uiSecond, 0b1111, 0b1111, 0b1101, 1}, {100 * uiSecond, 15, 15, 13, 1}});
    // Stopped for ten seconds; while nothing runs there is nothing better.
    Follow(-1, {{uiSecond, 0b10, 0, 0, 1},
                {30 * uiSecond, 0b10, 0, 0, 1},
                {40 * uiSecond, 0b01, 0, 0, 1},
                {50 * uiSecond, 0, 0, 0, 1},
                {50 * uiSecond + 1, 0b1100, 0, 0, 2}});
    Follow(3, {{uiSecond, 0b0110, 0b0110, 0b0110, 3}, {90 * uiSecond, 0b0110, 0b0110, 0b0110, 3}});
}

} // namespace
