#include "SpscRing.h"

#include <thread>

#include <gtest/gtest.h>

TEST(SpscRing, HandsOverInOrderWhileBothSidesRun)
{
    constexpr uint64_t uiCount = 20000;
    CSpscRing<uint64_t> oRing(8);
    std::thread oProducer(
        [&oRing]
        {
            for (uint64_t uiValue = 0; uiValue < uiCount;)
            {
                uiValue += oRing.Push(uiValue) ? 1U : 0U;
            }
        });
    uint64_t uiExpected = 0;
    bool bIsInOrder = true;
    while (uiExpected < uiCount)
    {
        oRing.Drain([&](uint64_t uiValue) { bIsInOrder = bIsInOrder && uiValue == uiExpected++; });
        std::this_thread::yield();
    }
    oProducer.join();
    EXPECT_TRUE(bIsInOrder);
    EXPECT_EQ(oRing.Drain([](uint64_t) {}), 0U);
}

TEST(SpscRing, CountsWhatFindsNoRoomAndGoesOnAfterwards)
{
    CSpscRing<int> oRing(3); // four fit: a power of two
    for (int iValue = 0; iValue < 6; ++iValue)
    {
        EXPECT_EQ(oRing.Push(iValue), iValue < 4);
    }
    EXPECT_EQ(oRing.GetOverruns(), 2U);
    int iSum = 0;
    EXPECT_EQ(oRing.Drain([&iSum](int iValue) { iSum += iValue; }), 4U);
    EXPECT_EQ(iSum, 0 + 1 + 2 + 3);
    EXPECT_TRUE(oRing.Push(7));
    EXPECT_EQ(oRing.GetOverruns(), 2U);
}
