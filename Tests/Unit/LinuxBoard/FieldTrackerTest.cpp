#include "FieldTracker.h"

#include <gtest/gtest.h>
#include <vector>

using namespace LinuxBoard;

namespace
{

constexpr uint64_t uiPeriodNs = 20000000;

struct SStep
{
    uint32_t uiSequence;
    double flPeriods; // stamp, in field periods after the start
    EFieldParity eParity;
    uint64_t uiFields; // what the counter has advanced by since the first field start
};

struct SRun
{
    const char* szFault;
    bool bInterlaced;
    std::vector<SStep> aoSteps;
    uint64_t uiSkipped;
};

constexpr EFieldParity None = EFieldParity::None;
constexpr EFieldParity Top = EFieldParity::Top;
constexpr EFieldParity Bottom = EFieldParity::Bottom;

const SRun aoRuns[] = {
    {"a frame is a field", false, {{5, 0, None, 0}, {6, 1, None, 1}, {7, 2, None, 2}}, 0},
    {"a gap in the sequence is lost", false, {{5, 0, None, 0}, {9, 4, None, 4}, {10, 5, None, 5}}, 3},
    {"the sequence wraps", false, {{0xFFFFFFFF, 0, None, 0}, {0, 1, None, 1}, {2, 3, None, 3}}, 1},
    {"the queue is started anew", false, {{900, 0, None, 0}, {0, 5, None, 5}, {1, 6, None, 6}}, 0},
    {"a driver counts delivered buffers only", false, {{1, 0, None, 0}, {2, 3, None, 1}, {3, 4, None, 4}}, 2},
    {"a late stamp is no gap", false, {{1, 0, None, 0}, {2, 1.6, None, 1}, {3, 2, None, 2}, {4, 3, None, 3}}, 0},
    {"late stamps where the sequence shows losses",
     false,
     {{1, 0, None, 0}, {3, 2, None, 2}, {4, 4.6, None, 3}, {5, 5.6, None, 4}},
     1},
    {"a driver that does not count", false, {{0, 0, None, 0}, {0, 1, None, 1}, {0, 2, None, 2}}, 0},
    {"fields one by one, top first", true, {{4, 0, Top, 0}, {4, 1, Bottom, 1}, {5, 2, Top, 2}, {5, 3, Bottom, 3}}, 0},
    {"fields one by one, bottom first",
     true,
     {{4, 0, Bottom, 0}, {4, 1, Top, 1}, {5, 2, Bottom, 2}, {6, 5, Top, 5}},
     2},
    {"begun on the second field, order unknown", true, {{4, 0, Top, 0}, {5, 1, Bottom, 1}, {5, 2, Top, 2}}, 0},
    {"a field is lost", true, {{4, 0, Top, 0}, {4, 1, Bottom, 1}, {5, 3, Bottom, 3}, {6, 4, Top, 4}}, 1},
};

} // namespace

TEST(FieldTracker, CountsFieldsThroughEveryFault)
{
    for (const SRun& roRun : aoRuns)
    {
        SCOPED_TRACE(roRun.szFault);
        CFieldTracker oTracker;
        oTracker.SetSignal(uiPeriodNs, roRun.bInterlaced, Top);
        uint64_t uiFirst = 0;
        for (size_t uiStep = 0; uiStep < roRun.aoSteps.size(); uiStep++)
        {
            const SStep& roStep = roRun.aoSteps[uiStep];
            const auto uiStampNs = static_cast<uint64_t>(1e9 + roStep.flPeriods * uiPeriodNs);
            SFieldStart oField;
            ASSERT_TRUE(oTracker.Accept({roStep.uiSequence, uiStampNs, roStep.eParity}));
            ASSERT_TRUE(oTracker.Take(uiStampNs, oField));
            uiFirst = uiStep == 0 ? oField.uiFieldCounter : uiFirst;
            EXPECT_EQ(oField.uiFieldCounter - uiFirst, roStep.uiFields * 16) << "step " << uiStep;
            EXPECT_EQ(oField.uiTickNs, uiStampNs);
            EXPECT_EQ(oField.bIsTopField, roStep.eParity == Top);
        }
        EXPECT_EQ(oTracker.SkippedFields(), roRun.uiSkipped);
        EXPECT_EQ(oTracker.Buffers(), roRun.aoSteps.size());
    }
}

TEST(FieldTracker, GivesTheSecondFieldOfAFrameWhenItIsDue)
{
    CFieldTracker oTracker;
    oTracker.SetSignal(uiPeriodNs, true, Top);
    SFieldStart oField;
    ASSERT_TRUE(oTracker.Accept({10, 1000, None}));
    ASSERT_TRUE(oTracker.Take(1000, oField));
    EXPECT_EQ(oField.uiFieldCounter, 20U * 16);
    EXPECT_FALSE(oTracker.Take(1000, oField));
    EXPECT_EQ(oTracker.NextDueNs(), 1000 + uiPeriodNs);
    ASSERT_TRUE(oTracker.Take(1000 + uiPeriodNs, oField));
    EXPECT_EQ(oField.uiFieldCounter, 21U * 16);
    EXPECT_EQ(oField.uiTickNs, 1000 + uiPeriodNs);
    // The next frame began before the reckoned field: its own start would go back, its second field does not.
    ASSERT_TRUE(oTracker.Accept({11, 1000 + uiPeriodNs - 5, None}));
    ASSERT_TRUE(oTracker.Take(1000 + 3 * uiPeriodNs, oField));
    EXPECT_EQ(oField.uiFieldCounter, 23U * 16);
    EXPECT_GT(oField.uiTickNs, 1000 + uiPeriodNs);
}

TEST(FieldTracker, DeliversTheNewestAndNothingTwice)
{
    CFieldTracker oTracker;
    oTracker.SetSignal(0, false, Top);
    SFieldStart oField;
    EXPECT_FALSE(oTracker.Take(1, oField));
    EXPECT_TRUE(oTracker.Accept({1, 100, None}));
    EXPECT_TRUE(oTracker.Accept({2, 200, None}));
    EXPECT_FALSE(oTracker.Accept({3, 200, None})) << "a stamp that does not increase";
    ASSERT_TRUE(oTracker.Take(1000, oField));
    EXPECT_EQ(oField.uiTickNs, 200U);
    EXPECT_FALSE(oTracker.Take(1000, oField));
    EXPECT_TRUE(oTracker.Accept({3, 300, None}));
    oTracker.Interrupt();
    EXPECT_FALSE(oTracker.Take(1000, oField)) << "a field from before the loss";
    EXPECT_TRUE(oTracker.Accept({50, 400, None}));
    EXPECT_EQ(oTracker.SkippedFields(), 0U) << "what passed without a signal was not lost";
}
