#include <gtest/gtest.h>

#include "HandleTable.h"
#include "VblankTracker.h"

namespace
{

struct VblankTracker : testing::Test
{
    uint64_t QueueAll()
    {
        uint64_t uiLast = 0;
        for (uint64_t uiNext = oTracker.NextToQueue(); uiNext != 0; uiNext = oTracker.NextToQueue())
        {
            oTracker.Queued(uiLast = uiNext);
        }
        return uiLast;
    }
    CVblankTracker oTracker;
    SFieldStart oField;
};

} // namespace

TEST_F(VblankTracker, KeepsTheQueueFullAndDropsWhatDoesNotIncrease)
{
    EXPECT_FALSE(oTracker.Accept(5, 50)) << "before the numbering is known";
    oTracker.Start(100);
    EXPECT_GE(QueueAll(), 108U) << "eight or more ahead";
    EXPECT_FALSE(oTracker.Take(oField)) << "the start is no field";
    oTracker.AcceptEvent(oTracker.TagOf(101), 101, 1000);
    EXPECT_EQ(oTracker.LastStampNs(), 1000U);
    EXPECT_TRUE(oTracker.Accept(102, 2000));
    EXPECT_FALSE(oTracker.Accept(102, 2500) || oTracker.Accept(103, 2000));
    ASSERT_TRUE(oTracker.Take(oField));
    EXPECT_TRUE(oField.uiFieldCounter == 102 * 16 && oField.uiStampNs == 2000);
    EXPECT_FALSE(oTracker.Take(oField));
}

TEST_F(VblankTracker, AsksAgainForWhatAChangeOfModeFlushed)
{
    oTracker.Start(100);
    const uint64_t uiLast = QueueAll();
    EXPECT_EQ(oTracker.NextToQueue(), 0U);
    for (uint64_t uiAsked = 101; uiAsked <= uiLast; uiAsked++)
    {
        oTracker.AcceptEvent(oTracker.TagOf(uiAsked), 100, 1000);
    }
    EXPECT_EQ(oTracker.LastStampNs(), 0U);
    EXPECT_TRUE(oTracker.TakeFlushed() && !oTracker.TakeFlushed());
    EXPECT_TRUE(oTracker.IsQueueSpent());
    EXPECT_EQ(oTracker.NextToQueue(), 101U);
}

TEST_F(VblankTracker, GoesOnWhenTheNumberingBeginsAnew)
{
    oTracker.Start(100);
    oTracker.Accept(101, 1000);
    const uint64_t uiOldTag = oTracker.TagOf(102);
    oTracker.Start(7);
    EXPECT_EQ(oTracker.NextToQueue(), 8U);
    oTracker.AcceptEvent(uiOldTag, 102, 1500);
    EXPECT_FALSE(oTracker.Take(oField)) << "a field of the CRTC that is another output's now";
    ASSERT_TRUE(oTracker.Accept(8, 2000) && oTracker.Take(oField));
    EXPECT_EQ(oField.uiFieldCounter, 102U * 16);
    oTracker.Start(3);
    ASSERT_TRUE(oTracker.Accept(4, 3000) && oTracker.Take(oField));
    EXPECT_EQ(oField.uiFieldCounter, 103U * 16) << "and once more";
}

TEST(Ticks, AreRoundedAndNeverGoBack)
{
    EXPECT_EQ(Ticks_FromNs(14), 1U);
    EXPECT_EQ(Ticks_FromNs(15), 2U);
    EXPECT_EQ(Ticks_FromNs(UINT64_C(5000000000000000004)), UINT64_C(500000000000000000)); // a century and a half
    EXPECT_GE(UINT32_MAX / 1000, uiTickFreqHz / 24) << "a phase of 24 Hz in hundredths of lines, in 32 bits";
}

TEST(HandleTable, KnowsNoStaleForeignOrInventedHandle)
{
    constexpr auto eKind = EHandleKind::INPUT;
    CHandleTable<std::shared_ptr<int>, 3> oTable;
    const auto poKept = std::make_shared<int>(1);
    const auto Open = [&] { return oTable.Open(eKind, std::make_unique<std::shared_ptr<int>>(poKept)); };
    void* hFirst = Open();
    EXPECT_TRUE(oTable.Enter(hFirst, EHandleKind::OUTPUT) == nullptr && !oTable.Close(hFirst, EHandleKind::OUTPUT));
    {
        const auto poInside = oTable.Enter(hFirst, eKind);
        ASSERT_FALSE(poInside == nullptr);
        EXPECT_TRUE(oTable.Close(hFirst, eKind) && !oTable.Close(hFirst, eKind));
        EXPECT_EQ(poKept.use_count(), 2) << "somebody is still inside";
    }
    EXPECT_EQ(poKept.use_count(), 1) << "the last one has left";
    void* hLast = nullptr;
    for (uint32_t uiSlot = 0; uiSlot < 3; uiSlot++)
    {
        hLast = Open();
        ASSERT_FALSE(oTable.Enter(hLast, eKind) == nullptr);
    }
    EXPECT_EQ(Open(), nullptr);
    const auto uiLast = reinterpret_cast<uintptr_t>(hLast);
    for (const uintptr_t uiBad : {reinterpret_cast<uintptr_t>(hFirst), reinterpret_cast<uintptr_t>(&oTable), uiLast + 4,
                                  uiLast | 0x3FFC, uintptr_t{0}, uintptr_t{77}, ~uintptr_t{0}})
    {
        const void* hBad = reinterpret_cast<const void*>(uiBad);
        EXPECT_TRUE(oTable.Enter(hBad, eKind) == nullptr && !oTable.Close(hBad, eKind)) << hBad;
    }
    oTable.CloseAll();
    EXPECT_TRUE(oTable.Enter(hLast, eKind) == nullptr);
    EXPECT_EQ(poKept.use_count(), 1);
}
