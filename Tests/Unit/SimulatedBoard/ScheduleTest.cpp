// The closed forms of schedules against counting field by field.
#include "Schedule.h"

#include <gtest/gtest.h>

TEST(Schedule, ClosedFormsAgreeWithCounting)
{
    const std::array aoSchedules = {
        SSchedule{.uiFirst = 0, .uiLength = 1, .uiPeriod = 0},
        SSchedule{.uiFirst = 7, .uiLength = 5, .uiPeriod = 0},
        SSchedule{.uiFirst = 3, .uiLength = uiForEver, .uiPeriod = 0},
        SSchedule{.uiFirst = 2, .uiLength = 3, .uiPeriod = 10},
        SSchedule{.uiFirst = 0, .uiLength = 1, .uiPeriod = 2},
        SSchedule{.uiFirst = 2, .uiLength = 3, .uiPeriod = 10, .uiTimes = 3},
    };
    for (const SSchedule& roSchedule : aoSchedules)
    {
        SCOPED_TRACE(testing::Message() << roSchedule.uiFirst << " " << roSchedule.uiLength << " "
                                        << roSchedule.uiPeriod);
        uint64_t uiActiveBefore = 0;
        uint64_t uiOccurrences = 0;
        for (uint64_t uiField = 0; uiField < 60; ++uiField)
        {
            const uint64_t uiSince = uiField - roSchedule.uiFirst;
            const bool bAfter = uiField >= roSchedule.uiFirst;
            const bool bOver = roSchedule.uiPeriod != 0 && uiSince / roSchedule.uiPeriod >= roSchedule.uiTimes;
            const uint64_t uiOffset = roSchedule.uiPeriod == 0 ? uiSince
                                      : bOver                  ? roSchedule.uiLength
                                                               : uiSince % roSchedule.uiPeriod;
            uiOccurrences += bAfter && uiOffset == 0 ? 1U : 0U;
            EXPECT_EQ(roSchedule.ActiveBefore(uiField), uiActiveBefore) << uiField;
            EXPECT_EQ(roSchedule.Occurrences(uiField), uiOccurrences) << uiField;
            EXPECT_EQ(roSchedule.IsActive(uiField), bAfter && uiOffset < roSchedule.uiLength) << uiField;
            uiActiveBefore += roSchedule.IsActive(uiField) ? 1U : 0U;
        }
    }
}
