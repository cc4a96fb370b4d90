#include <gtest/gtest.h>
#include <tuple>
#include <vector>

#include "FieldTracker.h"

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

using enum EFieldParity;

// What happens, whether interlaced, the fields skipped.
const std::tuple<const char*, bool, uint64_t, std::vector<SStep>> aoRuns[] = {
    {"a gap in the sequence is lost", false, 3, {{5, 0, NONE, 0}, {9, 4, NONE, 4}, {10, 5, NONE, 5}}},
    {"the sequence wraps", false, 1, {{0xFFFFFFFF, 0, NONE, 0}, {0, 1, NONE, 1}, {2, 3, NONE, 3}}},
    {"the queue is started anew", false, 0, {{900, 0, NONE, 0}, {0, 5, NONE, 5}, {1, 6, NONE, 6}}},
    {"a driver counts delivered buffers only", false, 2, {{1, 0, NONE, 0}, {2, 3, NONE, 1}, {3, 4, NONE, 4}}},
    {"a late stamp is no gap", false, 0, {{1, 0, NONE, 0}, {2, 1.6, NONE, 1}, {3, 2, NONE, 2}, {4, 3, NONE, 3}}},
    {"late stamps, real losses", false, 1, {{1, 0, NONE, 0}, {3, 2, NONE, 2}, {4, 4.6, NONE, 3}, {5, 5.6, NONE, 4}}},
    {"a driver that does not count", false, 0, {{0, 0, NONE, 0}, {0, 1, NONE, 1}, {0, 2, NONE, 2}}},
    {"fields, top first", true, 0, {{4, 0, TOP, 0}, {4, 1, BOTTOM, 1}, {5, 2, TOP, 2}, {5, 3, BOTTOM, 3}}},
    {"fields, bottom first", true, 2, {{4, 0, BOTTOM, 0}, {4, 1, TOP, 1}, {5, 2, BOTTOM, 2}, {6, 5, TOP, 5}}},
    {"begun on the second field, order unknown", true, 0, {{4, 0, TOP, 0}, {5, 1, BOTTOM, 1}, {5, 2, TOP, 2}}},
    {"a field is lost", true, 1, {{4, 0, TOP, 0}, {4, 1, BOTTOM, 1}, {5, 3, BOTTOM, 3}, {6, 4, TOP, 4}}},
};

} // namespace

TEST(FieldTracker, CountsFieldsThroughEveryFault)
{
    for (const auto& [pszFault, bInterlaced, uiSkipped, aoSteps] : aoRuns)
    {
        SCOPED_TRACE(pszFault);
        CFieldTracker oTracker;
        oTracker.SetSignal({uiPeriodNs, bInterlaced, TOP, true});
        uint64_t uiFirst = 0;
        for (const SStep& roStep : aoSteps)
        {
            const auto uiStampNs = static_cast<uint64_t>(1e9 + roStep.flPeriods * uiPeriodNs);
            SFieldStart oField;
            ASSERT_TRUE(oTracker.Accept({roStep.uiSequence, uiStampNs, roStep.eParity}, uiStampNs) &&
                        oTracker.Take(uiStampNs, oField));
            uiFirst = &roStep == &aoSteps[0] ? oField.uiFieldCounter : uiFirst;
            EXPECT_EQ(oField.uiFieldCounter - uiFirst, roStep.uiFields * 16) << "after " << roStep.flPeriods;
            EXPECT_EQ(oField.uiStampNs, uiStampNs);
            EXPECT_EQ(oField.bIsTopField, roStep.eParity == TOP);
        }
        EXPECT_EQ(oTracker.SkippedFields(), uiSkipped);
        EXPECT_EQ(oTracker.Buffers(), aoSteps.size());
    }
}

TEST(FieldTracker, GivesTheSecondFieldOfAFrameWhenItIsDue)
{
    CFieldTracker oTracker;
    oTracker.SetSignal({uiPeriodNs, true, TOP, false});
    SFieldStart oField;
    ASSERT_TRUE(oTracker.Accept({10, 1000, NONE}, 1000) && oTracker.Take(1000, oField));
    EXPECT_EQ(oField.uiFieldCounter, 20U * 16);
    EXPECT_FALSE(oTracker.Take(1000, oField));
    EXPECT_EQ(oTracker.NextDueNs(), 1000 + uiPeriodNs);
    ASSERT_TRUE(oTracker.Take(1000 + uiPeriodNs, oField));
    EXPECT_EQ(oField.uiFieldCounter, 21U * 16);
    EXPECT_EQ(oField.uiStampNs, 1000 + uiPeriodNs);
    // The next frame began before the reckoned field: its own start would go back, its second field does not.
    ASSERT_TRUE(oTracker.Accept({11, 1000 + uiPeriodNs - 5, NONE}, uiPeriodNs * 2) &&
                oTracker.Take(1000 + 3 * uiPeriodNs, oField));
    EXPECT_EQ(oField.uiFieldCounter, 23U * 16);
}

TEST(FieldTracker, DeliversTheNewestAndNothingTwice)
{
    CFieldTracker oTracker;
    oTracker.SetSignal({});
    SFieldStart oField;
    EXPECT_FALSE(oTracker.Take(1, oField));
    EXPECT_TRUE(oTracker.Accept({1, 100, NONE}, 1000) && oTracker.Accept({2, 200, NONE}, 1000));
    EXPECT_FALSE(oTracker.Accept({3, 200, NONE}, 1000)) << "a stamp that does not increase";
    EXPECT_TRUE(oTracker.Take(1000, oField) && oField.uiStampNs == 200);
    EXPECT_FALSE(oTracker.Take(1000, oField));
    EXPECT_TRUE(oTracker.Accept({3, 300, NONE}, 1000));
    oTracker.Interrupt();
    EXPECT_FALSE(oTracker.Take(1000, oField)) << "a field from before the loss";
    EXPECT_TRUE(oTracker.Accept({50, 400, NONE}, 1000));
    EXPECT_EQ(oTracker.SkippedFields(), 0U) << "what passed without a signal was not lost";
}

// What went by while we looked away is lost only as far as the sequence lacks it beyond what the owner fetched.
TEST(FieldTracker, DoesNotBlameTheSignalForWhatWasNotSeen)
{
    struct SRow
    {
        uint32_t uiSequence; // of the frame that is seen again, ten periods after frame 100
        uint64_t uiUnseen;
        uint64_t uiSkipped;
        uint64_t uiFields; // that the counter advances by
        bool bUnknown;
    };
    const SRow aoRows[] = {
        {110, 9, 0, 10, false},
        {110, 7, 2, 10, false},
        {110, CFieldTracker::msc_uiUnknown, 0, 10, true},
        {101, 9, 0, 10, true}, // the driver counts nothing
    };
    for (const SRow& roRow : aoRows)
    {
        CFieldTracker oTracker;
        oTracker.SetSignal({uiPeriodNs, false, TOP, true});
        oTracker.Accept({100, uiPeriodNs, NONE}, uiPeriodNs);
        oTracker.Unseen(roRow.uiUnseen);
        oTracker.Accept({roRow.uiSequence, 11 * uiPeriodNs, NONE}, 11 * uiPeriodNs);
        oTracker.AllSeen();
        SFieldStart oField;
        ASSERT_TRUE(oTracker.Take(11 * uiPeriodNs, oField));
        EXPECT_EQ(oField.uiFieldCounter, (100 + roRow.uiFields) * 16);
        EXPECT_EQ(oTracker.SkippedFields(), roRow.uiSkipped) << roRow.uiUnseen;
        EXPECT_EQ(oTracker.IsLossUnknown(), roRow.bUnknown) << roRow.uiUnseen;
    }
}

TEST(FieldTracker, ACameraThatTakesItsTimeLosesNothing)
{
    CFieldTracker oTracker;
    oTracker.SetSignal({0, false, TOP, false});
    for (uint32_t uiFrame = 0; uiFrame < 20; uiFrame++)
    {
        oTracker.Accept({uiFrame, (uiFrame + 1) * 3 * uiPeriodNs, NONE}, UINT64_MAX / 2);
    }
    SFieldStart oField;
    ASSERT_TRUE(oTracker.Take(UINT64_MAX / 2, oField));
    EXPECT_EQ(oField.uiFieldCounter, 19U * 16);
    EXPECT_EQ(oTracker.SkippedFields(), 0U);
    oTracker.SetSignal({0, true, TOP, false});
    EXPECT_TRUE(oTracker.Accept({20, 70 * uiPeriodNs, NONE}, UINT64_MAX / 2) && oTracker.Take(UINT64_MAX / 2, oField));
    EXPECT_EQ(oTracker.NextDueNs(), 0U) << "nobody knows when the second field of a frame is";
    EXPECT_FALSE(oTracker.Take(UINT64_MAX / 2, oField));
}

TEST(FieldTracker, CountsPicturesWithAnErrorAsSkippedAndOnce)
{
    CFieldTracker oTracker;
    oTracker.SetSignal({uiPeriodNs, false, TOP, false});
    oTracker.Accept({1, 1 * uiPeriodNs, NONE}, uiPeriodNs);
    EXPECT_TRUE(oTracker.Accept({2, 2 * uiPeriodNs, NONE, true}, 2 * uiPeriodNs)) << "its field has been";
    EXPECT_FALSE(oTracker.Accept({3, 0, NONE, true}, 3 * uiPeriodNs)) << "one that bears no stamp";
    EXPECT_EQ(oTracker.SkippedFields(), 2U);
    oTracker.Accept({4, 4 * uiPeriodNs, NONE}, 4 * uiPeriodNs);
    EXPECT_EQ(oTracker.SkippedFields(), 2U) << "the sequence lacks it too";
    EXPECT_EQ(oTracker.Buffers(), 2U);
    oTracker.Accept({7, 7 * uiPeriodNs, NONE}, 7 * uiPeriodNs);
    EXPECT_EQ(oTracker.SkippedFields(), 4U) << "once";
}

TEST(FieldTracker, StampsThatLieAheadLoseNoFieldAndKeepTheirDistances)
{
    CFieldTracker oTracker;
    oTracker.SetSignal({uiPeriodNs, true, TOP, false});
    uint64_t uiFields = 0;
    uint64_t uiLastNs = 0;
    // Frames of two fields, stamped with an end that is to come a field and a half later; two of them fetched late.
    for (uint32_t uiFrame = 0; uiFrame < 10; uiFrame++)
    {
        const uint64_t uiArrivalNs = (uiFrame + 1) * 2 * uiPeriodNs + (uiFrame % 5 == 0 ? 1000 : 0);
        const uint64_t uiStampNs = (uiFrame + 1) * 2 * uiPeriodNs + uiPeriodNs * 3 / 2;
        ASSERT_TRUE(oTracker.Accept({uiFrame, uiStampNs, NONE}, uiArrivalNs));
        for (SFieldStart oField; oTracker.Take(uiArrivalNs + uiPeriodNs, oField); uiFields++)
        {
            EXPECT_LE(oField.uiStampNs, uiArrivalNs + uiPeriodNs);
            EXPECT_TRUE(uiFrame < 2 || oField.uiStampNs == uiLastNs + uiPeriodNs) << uiFrame;
            uiLastNs = oField.uiStampNs;
        }
    }
    EXPECT_EQ(uiFields, 20U);
    EXPECT_TRUE(oTracker.Accept({11, UINT64_MAX, NONE}, 30 * uiPeriodNs)) << "a stamp that is a mistake";
    EXPECT_TRUE(oTracker.Accept({12, 32 * uiPeriodNs, NONE}, 32 * uiPeriodNs));
}
