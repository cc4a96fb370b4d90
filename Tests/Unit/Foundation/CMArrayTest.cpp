#include "CMArray.h"

#include "CMString.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace
{

using CArray = CMArray<uint64_t, uint64_t>;
using CStringArray = CMArray<CMString, const CMString&>;

// Runs with the reports captured; returns the numbers that they carry, as "4309 5051 ".
template <class RUN> std::string Reported(RUN fnRun)
{
    testing::internal::CaptureStdout();
    fnRun();
    std::istringstream oText(testing::internal::GetCapturedStdout());
    const std::string szBefore = "qz2(4.1.0.146)[0]: (Error) KrvMFCTypes(";
    std::string szNumbers;
    for (std::string szLine; std::getline(oText, szLine);)
    {
        EXPECT_EQ(szLine.substr(0, szBefore.size()), szBefore);
        EXPECT_EQ(szLine.substr(szLine.find(')', szBefore.size())), ") Assertion failed");
        szNumbers += szLine.substr(szBefore.size(), szLine.find(')', szBefore.size()) - szBefore.size()) + " ";
    }
    return szNumbers;
}

template <class ARRAY> std::string Shape(const ARRAY& roArray)
{
    return std::to_string(roArray.GetSize()) + "/" + std::to_string(roArray.GetAllocSize());
}

struct SAllocator final : CMAllocator
{
    SAllocator() { SetGlobalAllocator(this); }
    ~SAllocator() override { SetGlobalAllocator(nullptr); }
    void* Alloc(uint64_t uiSize) override
    {
        void* const pvBlock = CMAllocator::Alloc(uiSize);
        auiLive[pvBlock] = uiSize;
        return pvBlock;
    }
    void Free(const void* pvBlock) override
    {
        EXPECT_EQ(auiLive.erase(pvBlock), 1u);
        CMAllocator::Free(pvBlock);
    }
    std::map<const void*, uint64_t> auiLive;
};

// An element that counts its lives, and whose constructor leaves a part to the zero below it.
struct SLiving
{
    SLiving() { ++ms_iLives; }
    SLiving(const SLiving& roOther) : iValue(roOther.iValue)
    {
        ++ms_iLives;
        ++ms_iCopies;
    }
    SLiving& operator=(const SLiving&) = default;
    ~SLiving() { --ms_iLives; }
    int iValue = 0;
    static inline int ms_iLives = 0;
    static inline int ms_iCopies = 0;
};

} // namespace

TEST(CMArrayGrowth, StepIsComputedOnceAndStaysFrozen)
{
    CArray auiArray;
    auiArray.SetAtGrow(0, 1);
    EXPECT_EQ(Shape(auiArray), "1/1");
    auiArray.SetAtGrow(1, 2);
    EXPECT_EQ(Shape(auiArray), "2/5");
    auiArray.SetSize(10000);
    auiArray.SetSize(10001);
    EXPECT_EQ(Shape(auiArray), "10001/10004");
    auiArray.SetSize(10001, 0);
    auiArray.SetSize(10005, -1);
    EXPECT_EQ(Shape(auiArray), "10005/11028") << "an eighth is too much, 1024 is added";

    CArray auiMiddle;
    auiMiddle.SetSize(800);
    auiMiddle.Add(1);
    EXPECT_EQ(Shape(auiMiddle), "801/900");
    auiMiddle.SetSize(901, -7);
    EXPECT_EQ(Shape(auiMiddle), "901/901") << "a negative step other than -1 is taken, and adds nothing";
}

TEST(CMArrayGrowth, ShrinkingKeepsTheBlockAndFreeExtraGivesItBack)
{
    SAllocator oAllocator;
    CArray auiArray;
    auiArray.SetSize(10, 6);
    auiArray.SetSize(11);
    EXPECT_EQ(oAllocator.auiLive.at(auiArray.GetData()), 16 * sizeof(uint64_t));
    auiArray[2] = 7;
    auiArray.SetSize(3);
    EXPECT_EQ(Shape(auiArray), "3/16");
    auiArray.FreeExtra();
    EXPECT_EQ(Shape(auiArray), "3/3");
    EXPECT_EQ(oAllocator.auiLive.at(auiArray.GetData()), 3 * sizeof(uint64_t));
    auiArray.SetSize(5);
    EXPECT_EQ(std::vector(auiArray.Begin(), auiArray.End()), (std::vector<uint64_t>{0, 0, 7, 0, 0}));
    auiArray.RemoveAll();
    EXPECT_EQ(auiArray.GetData(), nullptr);
    EXPECT_TRUE(oAllocator.auiLive.empty());
    auiArray.FreeExtra();
    EXPECT_EQ(Shape(auiArray), "0/0");
}

TEST(CMArrayAccess, BadIndexIsReportedAndTouchesOnlyAZeroedScratchElement)
{
    CArray auiArray;
    EXPECT_EQ(Reported([&] { auiArray[0] = 5; }), "4309 ");
    auiArray.SetSize(2);
    EXPECT_EQ(Reported([&] { EXPECT_EQ(auiArray[2], 0u) << "what was written before is gone"; }), "4309 ");
    EXPECT_EQ(Reported([&] { auiArray.SetAt(-1, 9); }), "4309 ");
    EXPECT_EQ(Reported([&] { EXPECT_EQ(std::as_const(auiArray).GetAt(0xFFFFFFFFu), 0u); }), "4309 ");
    EXPECT_EQ(Reported([&] { auiArray[uint64_t{1} << 32] = 9; }), "4309 ");
    EXPECT_EQ(Reported([&] { auiArray.SetAtGrow(-1, 9); }), "5051 4309 ");
    EXPECT_EQ(Reported([&] { auiArray.SetAtGrow(0x80000000u, 9); }), "5051 4309 ");
    EXPECT_EQ(Reported([&] { auiArray.SetAtGrow(0x7FFFFFFF, 9); }), "4816 4309 ");
    EXPECT_EQ(Reported([&] { auiArray.SetSize(-1, 3); }), "4816 ");
    EXPECT_EQ(Reported([&] { auiArray.SetCount(0x80000000u); }), "4816 ");
    EXPECT_EQ(Reported([&] { auiArray.RemoveAt(1, 2); }), "4309 ");
    EXPECT_EQ(Reported([] { MConstructElements<uint64_t>(nullptr, 3); }), "110 ");
    EXPECT_EQ(std::vector(auiArray.Begin(), auiArray.End()), (std::vector<uint64_t>{0, 0}));
    CStringArray aszTexts;
    EXPECT_EQ(Reported([&] { aszTexts[3].Format("%d", 3); }), "4309 ");
    EXPECT_EQ(Reported([&] { EXPECT_EQ(aszTexts[3], ""); }), "4309 ");
}

TEST(CMArrayGrowth, CapacityIsCheckedBeforeTheBlockIsReplaced)
{
    struct SBroken : CArray
    {
        void Break(int32_t iSize) { m_iSize = iSize; }
    } auiArray;
    auiArray.SetSize(2);
    auiArray.Break(9);
    EXPECT_EQ(Reported([&] { auiArray.SetSize(5); }), "4898 ");
    EXPECT_EQ(Shape(auiArray), "9/2");
    auiArray.Break(2);
}

TEST(CMArrayElements, AreRelocatedRawAndEndExactlyOnce)
{
    {
        CMArray<SLiving, const SLiving&> aoArray;
        aoArray.SetSize(3);
        aoArray[2].iValue = 7;
        aoArray.SetSize(50);
        EXPECT_EQ(aoArray[2].iValue, 7);
        EXPECT_EQ(SLiving::ms_iLives, 50);
        aoArray.SetSize(5);
        aoArray.FreeExtra();
        EXPECT_EQ(SLiving::ms_iLives, 5);
        EXPECT_EQ(SLiving::ms_iCopies, 0);
        aoArray.RemoveAll();
        EXPECT_EQ(SLiving::ms_iLives, 0);
        aoArray.SetSize(2);
    }
    EXPECT_EQ(SLiving::ms_iLives, 0);
}

TEST(CMArrayElements, ArraysOfArraysAndAnElementAddedToItsOwnArray)
{
    CMArray<CArray, const CArray&> aauiArrays;
    for (uint64_t uiValue = 0; uiValue < 20; ++uiValue)
    {
        CArray auiInner;
        auiInner.SetSize(3);
        auiInner[1] = uiValue;
        aauiArrays.Add(auiInner);
    }
    EXPECT_EQ(aauiArrays[19][1], 19u);
    aauiArrays.FreeExtra();
    aauiArrays.Add(aauiArrays[7]); // the block moves under the value
    EXPECT_EQ(aauiArrays[20][1], 7u);
    aauiArrays.InsertAt(0, aauiArrays[19]);
    EXPECT_EQ(aauiArrays[0][1], 19u);
    EXPECT_EQ(aauiArrays.GetSize(), 22);
}

TEST(CMArrayVirtual, OverridesAreHonouredByTheOperationsThatUseThem)
{
    struct SWatched : CArray
    {
        void SetSize(int32_t iNewSize, int32_t iGrowBy) override
        {
            ++iSetSize;
            CArray::SetSize(iNewSize, iGrowBy);
        }
        void SetAtGrow(int32_t iIndex, uint64_t uiValue) override { CArray::SetAtGrow(iIndex, uiValue + 1); }
        void SetAtGrow(uint32_t uiIndex, uint64_t uiValue) override { CArray::SetAtGrow(uiIndex, uiValue); }
        int iSetSize = 0;
    } auiWatched;
    CArray& rauiArray = auiWatched;
    rauiArray.SetCount(2);
    rauiArray.SetAtGrow(2u, 10);
    EXPECT_EQ(rauiArray.Add(20), 3);
    EXPECT_EQ(auiWatched.iSetSize, 3);
    EXPECT_EQ(rauiArray[2], 11u);
    EXPECT_EQ(rauiArray[3], 21u);
}

TEST(CMArrayOperations, SetsAndSearches)
{
    const uint64_t auiValues[] = {3, 1, 3, 2, 1};
    CArray auiArray(auiValues, 5);
    CArray auiOther(auiValues, 2u);
    EXPECT_EQ(auiArray.Find(3, 1), 2);
    EXPECT_EQ(auiArray.Find(9), -1);
    auiArray.RemoveDuplicates();
    EXPECT_EQ(auiArray, CArray(std::data({3ul, 1ul, 2ul}), 3));
    EXPECT_EQ(auiArray.AddIfNotPresent(2), 0u);
    EXPECT_EQ(auiOther.AddIfNotPresent(5), 1u);
    EXPECT_EQ(auiOther |= auiArray, CArray(std::data({3ul, 1ul, 5ul, 2ul}), 4));
    EXPECT_EQ(auiOther &= auiArray, CArray(std::data({3ul, 1ul, 2ul}), 3));
    auiOther.SortElements();
    EXPECT_EQ(auiOther, CArray(std::data({1ul, 2ul, 3ul}), 3));
    EXPECT_NE(auiOther, auiArray);
}

TEST(CMArrayOperations, RandomSequenceAgreesWithAModel)
{
    const unsigned uiSeed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(uiSeed));
    std::mt19937 oRandom(uiSeed);
    CStringArray aszArray;
    std::vector<std::string> aszModel;
    for (int iStep = 0; iStep < 5000; ++iStep)
    {
        const int iSize = aszArray.GetSize();
        const int iIndex = static_cast<int>(oRandom() % static_cast<unsigned>(iSize + 1));
        const auto uiIndex = static_cast<size_t>(iIndex);
        const auto iAt = static_cast<std::ptrdiff_t>(iIndex);
        const std::string szValue = std::to_string(iStep);
        switch (oRandom() % 8)
        {
        case 0:
            aszArray.Add(szValue.c_str());
            aszModel.push_back(szValue);
            break;
        case 1:
            aszArray.SetSize(iIndex + 2);
            aszModel.resize(uiIndex + 2);
            break;
        case 2:
            aszArray.SetAtGrow(iSize + 3, szValue.c_str());
            aszModel.resize(aszModel.size() + 4);
            aszModel.back() = szValue;
            break;
        case 3:
            aszArray.InsertAt(iIndex, szValue.c_str(), 2);
            aszModel.insert(aszModel.begin() + iAt, 2, szValue);
            break;
        case 4:
            aszArray.RemoveAt(iIndex, iSize - iIndex > 3 ? 3 : 0);
            aszModel.erase(aszModel.begin() + iAt, aszModel.begin() + iAt + (iSize - iIndex > 3 ? 3 : 0));
            break;
        case 5:
            aszArray.Append(CStringArray(aszArray.Begin(), std::min(iIndex, 9)));
            aszModel.reserve(aszModel.size() + 9);
            aszModel.insert(aszModel.end(), aszModel.begin(), aszModel.begin() + std::min<std::ptrdiff_t>(iAt, 9));
            break;
        case 6:
        {
            aszArray.InsertAt(iIndex, aszArray);
            const std::vector<std::string> aszCopy = aszModel;
            aszModel.insert(aszModel.begin() + iAt, aszCopy.begin(), aszCopy.end());
            break;
        }
        default:
            aszArray.FreeExtra();
            aszArray.SetSize(std::min(iSize, 40));
            aszModel.resize(std::min<size_t>(aszModel.size(), 40));
            break;
        }
        ASSERT_GE(aszArray.GetAllocSize(), aszArray.GetSize());
        ASSERT_TRUE(std::equal(aszArray.Begin(), aszArray.End(), aszModel.begin(), aszModel.end(),
                               [](const CMString& roLeft, const std::string& roRight)
                               { return roLeft == roRight.c_str(); }));
    }
}
