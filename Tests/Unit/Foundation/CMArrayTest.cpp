#include "CMArray.h"

#include <gtest/gtest.h>
#include <random>
#include <regex>

#include "CMString.h"
#include "PlatformSeams.h"

namespace
{

using CArray = CMArray<uint64_t, uint64_t>;
using CStringArray = CMArray<CMString, const CMString&>;

// Size and capacity.
template <typename ARRAY> std::string Shape(const ARRAY& roArray)
{
    return std::to_string(roArray.GetSize()) + "/" + std::to_string(roArray.GetAllocSize());
}

} // namespace

TEST(CMArrayGrowth, StepIsComputedOnceAndStaysFrozen)
{
    CArray auiArray;
    auiArray.SetAtGrow(0, 1);
    EXPECT_EQ(Shape(auiArray), "1/1");
    auiArray.SetAtGrow(1, 2);
    EXPECT_EQ(Shape(auiArray), "2/5");
    auiArray.SetSize(10000);
    auiArray.SetSize(10001, -1);
    EXPECT_EQ(Shape(auiArray), "10001/10004");
    auiArray.SetSize(10001, 0);
    auiArray.SetSize(10005);
    EXPECT_EQ(Shape(auiArray), "10005/11028") << "an eighth is too much, 1024 is added";
    auiArray.SetSize(11029, -7);
    EXPECT_EQ(Shape(auiArray), "11029/11029") << "a negative step other than -1 is taken, and adds nothing";

    CArray auiMiddle;
    auiMiddle.SetSize(800);
    auiMiddle.SetSize(80);
    auiMiddle.SetSize(801);
    EXPECT_EQ(Shape(auiMiddle), "801/810") << "an eighth of the size, not of the capacity";
}

TEST(CMArrayGrowth, ShrinkingKeepsTheBlockAndFreeExtraGivesItBack)
{
    SCountingAllocator oAllocator;
    CArray auiArray;
    auiArray.SetSize(10, 6);
    auiArray.SetSize(11);
    EXPECT_EQ(oAllocator.uiLastSize, 16 * sizeof(uint64_t));
    auiArray[2] = 7;
    auiArray[4] = 9;
    auiArray.SetSize(3);
    EXPECT_EQ(Shape(auiArray), "3/16");
    auiArray.SetSize(5);
    EXPECT_EQ(auiArray[4], 0u) << "elements begin as zero, each time";
    auiArray.FreeExtra();
    EXPECT_EQ(Shape(auiArray), "5/5");
    EXPECT_EQ(oAllocator.uiLastSize, 5 * sizeof(uint64_t));
    EXPECT_EQ(auiArray[2], 7u);
    CMAllocator oBase;
    oBase.Free(oBase.Alloc(3));
    EXPECT_EQ(oAllocator.uiLastSize, 3u) << "the base forwards";
    auiArray.RemoveAll();
    EXPECT_EQ(Shape(auiArray), "0/0");
    EXPECT_EQ(oAllocator.iLive, 0);
}

TEST(CMArrayAccess, BadIndexIsReportedAndReachesOnlyAZeroedScratchElement)
{
    testing::internal::CaptureStdout();
    CArray auiArray;
    auiArray[0] = 5;
    auiArray.SetSize(2);
    EXPECT_EQ(auiArray[2], 0u) << "what was written before is gone";
    auiArray.SetAt(-1, 9);
    auiArray[uint64_t{1} << 32] = 9;
    auiArray.SetAtGrow(-1, 9);
    auiArray.SetAtGrow(0x80000000u, 9);
    auiArray.SetAtGrow(int64_t{-1} << 32, 9);
    auiArray.SetAtGrow(0x7FFFFFFF, 9);
    auiArray.SetCount(0x80000000u, 3);
    auiArray.RemoveAt(1, 2);
    MConstructElements<uint64_t>(nullptr, 3);
    EXPECT_EQ(std::vector(auiArray.Begin(), auiArray.End()), (std::vector<uint64_t>{0, 0}));
    CStringArray aszTexts;
    aszTexts[3].Format("%d", 3);
    EXPECT_EQ(aszTexts[3], "");
    const std::regex oReport(R"(qz2\(4\.1\.0\.146\)\[0\]: \(Error\) KrvMFCTypes\((\d+)\) Assertion failed\n)");
    EXPECT_EQ(std::regex_replace(testing::internal::GetCapturedStdout(), oReport, "$1 "),
              "4309 4309 4309 4309 5051 4309 5051 4309 5051 4309 4816 4309 4816 4309 110 4309 4309 ");
}

TEST(CMArrayOperations, SetsSearchesAndOwnElements)
{
    const auto Of = [](std::vector<uint64_t> auiValues)
    { return CArray(auiValues.data(), static_cast<uint32_t>(auiValues.size())); };
    CArray auiArray = Of({3, 1, 3, 2, 1});
    EXPECT_EQ(auiArray.Find(3, 1), 2);
    EXPECT_EQ(auiArray.IsPresent(9), 0u);
    EXPECT_EQ(auiArray.Append(auiArray), 5);
    auiArray.RemoveDuplicates();
    EXPECT_EQ(auiArray, Of({3, 1, 2}));
    CArray auiOther = Of({3, 5});
    EXPECT_EQ(auiOther |= auiArray, Of({3, 5, 1, 2}));
    EXPECT_EQ(auiOther &= auiArray, Of({3, 1, 2}));

    CMArray<CArray, const CArray&> aauiArrays; // grows under a value that is its own element
    for (uint64_t uiValue = 0; uiValue < 20; ++uiValue)
    {
        aauiArrays.Add(Of({uiValue}));
    }
    aauiArrays.FreeExtra();
    aauiArrays.Add(aauiArrays[7]);
    aauiArrays.InsertAt(0, aauiArrays[19]);
    EXPECT_EQ(aauiArrays[21][0] * 100 + aauiArrays[0][0], 719u);
}

// Texts share blocks that are counted: one that ends twice, or never, leaves a wrong number of blocks.
TEST(CMArrayOperations, RandomSequenceAgreesWithAModelAndEndsEachElementOnce)
{
    const unsigned uiSeed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(uiSeed));
    std::mt19937 oRandom(uiSeed);
    SCountingAllocator oAllocator;
    CStringArray aszArray;
    std::vector<std::string> aszModel;
    for (int iStep = 0; iStep < 5000; ++iStep)
    {
        const size_t uiIndex = oRandom() % (aszModel.size() + 1);
        const size_t uiBeyond = uiIndex + oRandom() % 3;
        const int iIndex = static_cast<int>(uiIndex);
        const int iCount = std::min(aszArray.GetSize() - iIndex, 3);
        const auto poAt = aszModel.begin() + iIndex;
        const std::string szValue = std::to_string(iStep);
        switch (oRandom() % 5)
        {
        case 0:
            aszArray.SetAtGrow(iIndex, szValue.c_str());
            aszModel.resize(std::max(aszModel.size(), uiIndex + 1));
            aszModel[uiIndex] = szValue;
            break;
        case 1:
            aszArray.SetSize(iIndex + 2);
            aszModel.resize(uiIndex + 2);
            break;
        case 2:
            aszModel.resize(std::max(aszModel.size(), uiBeyond));
            aszArray.InsertAt(static_cast<int>(uiBeyond), szValue.c_str(), 2);
            aszModel.insert(aszModel.begin() + static_cast<int>(uiBeyond), 2, szValue);
            break;
        case 3:
            aszArray.RemoveAt(iIndex, iCount);
            aszModel.erase(poAt, poAt + iCount);
            break;
        default:
            aszArray.FreeExtra();
        }
        ASSERT_TRUE(std::equal(aszArray.Begin(), aszArray.End(), aszModel.begin(), aszModel.end(),
                               [](const CMString& rsz, const std::string& rszModel)
                               { return rsz == rszModel.c_str(); }))
            << iStep;
    }
    aszArray.RemoveAll();
    EXPECT_EQ(oAllocator.iLive, 0);
}
