#include "SetBufferEstimate.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace
{

constexpr uint64_t uiPeriodNs = 16683350;

// A program that sets a buffer at a moment of each field, and an output that is looked at when the estimate wants to.
struct SScreen
{
    CSetBufferEstimate oEstimate;
    std::vector<double> aflSet; // of each buffer so far, in fields
    size_t uiSeen = 0;
    double flNow = 0.0;
    uint32_t uiLooks = 0;

    void RunUntil(double flEnd)
    {
        for (; flNow < flEnd; uiLooks++)
        {
            while (uiSeen < aflSet.size() && aflSet[uiSeen] <= flNow)
            {
                uiSeen++;
            }
            // Three buffers in turn, the first of them shown before all.
            oEstimate.Look(static_cast<uint32_t>(uiSeen % 3 + 1), ToNs(flNow));
            const uint64_t uiNextNs =
                oEstimate.NextLookNs(ToNs(static_cast<double>(static_cast<int>(flNow))), uiPeriodNs);
            flNow = static_cast<double>(uiNextNs - ToNs(0.0)) / uiPeriodNs + 0.01; // whoever sleeps wakes late
        }
    }
    static uint64_t ToNs(double flFields) { return 1000000000 + static_cast<uint64_t>(flFields * uiPeriodNs); }
};

} // namespace

TEST(SetBufferEstimate, SeesEveryBufferWhereverInAFieldItIsSet)
{
    for (const auto& [flOne, flOther] : {std::pair(0.05, 0.05), {0.3, 0.34}, {0.58, 0.62}, {0.7, 0.5}, {0.98, 1.03}})
    {
        SScreen oScreen;
        for (int iField = 0; iField < 600; iField++)
        {
            oScreen.aflSet.push_back(iField + (iField % 2 == 0 ? flOne : flOther));
        }
        oScreen.RunUntil(100.0);
        const uint64_t uiBefore = oScreen.oEstimate.Count();
        oScreen.RunUntil(500.0);
        EXPECT_NEAR(static_cast<double>(oScreen.oEstimate.Count() - uiBefore), 400.0, 2.0) << flOne;
        EXPECT_LT(oScreen.uiLooks, 600U) << "about one a field";
    }
}

TEST(SetBufferEstimate, FollowsAProgramWhoseMomentMoves)
{
    SScreen oScreen;
    for (int iField = 0; iField < 6000; iField++) // once round the field, and a step
    {
        oScreen.aflSet.push_back(iField + iField / 5000.0 + (iField > 5500 ? 0.45 : 0.1));
    }
    oScreen.RunUntil(5990.0);
    EXPECT_NEAR(static_cast<double>(oScreen.oEstimate.Count()), static_cast<double>(oScreen.uiSeen), 30.0);
}

TEST(SetBufferEstimate, LooksSeldomAtAStillPictureAndNoticesThatItIsNone)
{
    SScreen oScreen;
    for (int iField = 600; iField < 720; iField++)
    {
        oScreen.aflSet.push_back(iField + 0.6);
    }
    oScreen.RunUntil(600.0);
    EXPECT_LT(oScreen.uiLooks, 110U);
    EXPECT_EQ(oScreen.oEstimate.Count(), 0U);
    oScreen.RunUntil(720.0);
    EXPECT_GE(oScreen.oEstimate.Count(), 100U);
}

TEST(SetBufferEstimate, CountsChangesOfTheFramebufferOnly)
{
    CSetBufferEstimate oEstimate;
    uint64_t uiNowNs = 0;
    for (const uint32_t uiFramebufferId : {3U, 3U, 4U, 0U, 4U, 3U, 3U})
    {
        oEstimate.Look(uiFramebufferId, uiNowNs += uiPeriodNs);
    }
    EXPECT_EQ(oEstimate.Count(), 2U);
}
