// The alignment of the rings: its rules on rings made by hand, then random rings against a second measurement that is
// written as plainly as can be.
#include "GenLockProcess.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <numeric>
#include <random>
#include <thread>

#include "LockTestStreams.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint64_t UINT64_LARGEST = std::numeric_limits<uint64_t>::max();
constexpr int32_t INT32_SMALLEST = std::numeric_limits<int32_t>::min();
constexpr int32_t INT32_LARGEST = std::numeric_limits<int32_t>::max();

void ExpectPair(const SFrameLockPairData& roPair, const SFrameLockPairData& roExpected)
{
    const auto Fields = [](const SFrameLockPairData& ro)
    {
        return std::vector<int64_t>{ro.uiVideoIndexA, ro.uiVideoIndexB, ro.iDeltaMin,
                                    ro.iDeltaMax,     ro.uiDeltaAbs,    ro.uiSampleCount};
    };
    EXPECT_EQ(Fields(roPair), Fields(roExpected));
}

} // namespace

TEST(GenLockProcess, CombinationsWrapAndNeverDivideByZero)
{
    EXPECT_EQ(Fact(0), 1U);
    EXPECT_EQ(Fact(13), 1932053504U);
    EXPECT_EQ(Fact(0xFFFFFFFF), 0U);
    EXPECT_EQ(NCR(10, 3), 120U);
    EXPECT_EQ(NCR(40, 2), 1U);
    constexpr uint32_t PAIRS[] = {1, 1, 1, 3, 6,  10, 15, 21, 28, 36, 45, 55, 66, 24, 1, 0, 0,
                                  0, 0, 0, 0, 14, 41, 0,  1,  1,  0,  0,  4,  1,  0,  0, 0};
    for (uint32_t uiN = 0; uiN < std::size(PAIRS); ++uiN)
    {
        EXPECT_EQ(NCR(uiN, 2), PAIRS[uiN]) << uiN;
    }
}

TEST(GenLockProcess, RefusesMissingArgumentsAndArraysInUse)
{
    SLockTestStreams oStreams({0, 5});
    CFrameLockVideoArray daoVideo;
    CFrameLockPairArray daoPair;
    EXPECT_FALSE(ProcessGenLock(2, nullptr, oStreams.dauiLast.data(), daoVideo, daoPair));
    EXPECT_FALSE(ProcessGenLock(2, oStreams.daoData.data(), nullptr, daoVideo, daoPair));
    EXPECT_FALSE(ProcessGenLock(0, oStreams.daoData.data(), oStreams.dauiLast.data(), daoVideo, daoPair));
    EXPECT_EQ(daoVideo.Add({}), 0);
    EXPECT_FALSE(ProcessGenLock(2, oStreams.daoData.data(), oStreams.dauiLast.data(), daoVideo, daoPair));
    EXPECT_EQ(daoVideo.GetSize(), 3);
    EXPECT_EQ(daoPair.GetSize(), 0);
}

TEST(GenLockProcess, OrdersSamplesAndKnowsWhoDelivers)
{
    const struct
    {
        const char* szCase;
        std::vector<std::pair<uint32_t, uint64_t>> daoPoke; // into a ring of 1000, 1001, ...
        uint64_t uiLast;
        uint32_t uiOldestSlot, uiSampleCount;
        Bool32 bActive;
        uint64_t uiNewLast;
    } aoRow[] = {
        {"empty slot 0", {{0, 0}}, 7, 0, 0, 0, 7},
        {"what is behind a hole does not count", {{50, 0}, {60, 1}, {61, 9999}}, 0, 0, 50, 1, 1049},
        {"all slots move, hole or not", {{20, 3}, {50, 0}}, 0, 20, 50, 1, 1049},
        {"equal oldest: the lower slot", {{4, 5}, {9, 5}}, 0, 4, 120, 1, 1119},
        {"nothing newer than seen", {}, 1119, 0, 120, 0, 1119},
        {"one newer than seen", {}, 1118, 0, 120, 1, 1119},
        {"counter fell behind", {}, 5000, 0, 120, 0, 5000},
        {"largest stamp", {{0, UINT64_LARGEST}}, 0, 1, 120, 1, UINT64_LARGEST},
    };
    for (const auto& roRow : aoRow)
    {
        SCOPED_TRACE(roRow.szCase);
        SLockTestStreams oStreams({0});
        uint64_t* pauiRing = oStreams.daoData[0].auiTickRefCounter;
        std::iota(pauiRing, pauiRing + NB_OF_SAMPLES, 1000);
        for (const auto& [uiSlot, uiStamp] : roRow.daoPoke)
        {
            pauiRing[uiSlot] = uiStamp;
        }
        oStreams.dauiLast[0] = roRow.uiLast;
        const SLockTestMeasurement oMeasurement(oStreams);
        EXPECT_TRUE(oMeasurement.bResult && oMeasurement.daoPair.IsEmpty());
        const SFrameLockVideoData& roVideo = oMeasurement.daoVideo[0];
        EXPECT_EQ(roVideo.uiSampleCount, roRow.uiSampleCount);
        EXPECT_EQ(roVideo.bActive, roRow.bActive);
        EXPECT_EQ(oStreams.dauiLast[0], roRow.uiNewLast);
        std::rotate(pauiRing, pauiRing + roRow.uiOldestSlot, pauiRing + NB_OF_SAMPLES);
        EXPECT_TRUE(std::equal(pauiRing, pauiRing + NB_OF_SAMPLES, roVideo.auiTimeStamp));
    }
}

TEST(GenLockProcess, LaysSamplesSideBySide)
{
    const struct
    {
        const char* szCase;
        uint64_t uiStartA, uiStepA;
        uint32_t uiCountA;
        uint64_t uiStartB, uiStepB;
        uint32_t uiCountB;
        SFrameLockPairData oExpected;
    } aoRow[] = {
        {"in step, B late", 1000, 1000, 120, 1300, 1000, 120, {0, 1, -300, -300, 300, 120}},
        {"B began a field later", 1000, 1000, 120, 2000, 1000, 120, {0, 1, 0, 0, 0, 119}},
        {"few samples against many", 101000, 1000, 5, 3000, 1000, 120, {0, 1, 0, 0, 0, 5}},
        {"beyond B's reach", 1000, 1000, 120, 90000, 1000, 10, {0, 1, -29000, -29000, 29000, 10}},
        {"equally near: the earlier", 1000, 0, 1, 900, 200, 2, {0, 1, 100, 100, 100, 1}},
        {"double rate", 100000, 2000, 10, 100000, 1000, 20, {0, 1, -5000, 4000, 5000, 10}},
        {"only the low 32 bits", 0x100000005, 0, 1, 5, 0, 1, {0, 1, 0, 0, 0, 1}},
        {"smallest number", 0x80000005, 0, 1, 5, 0, 1, {0, 1, INT32_SMALLEST, INT32_SMALLEST, 0x80000000, 1}},
        {"signed comparison", 0x80000005, 0x80000003, 2, 5, 0xFFFFFFFF, 2, {0, 1, INT32_SMALLEST, 4, 4, 2}},
    };
    for (const auto& roRow : aoRow)
    {
        SCOPED_TRACE(roRow.szCase);
        SLockTestStreams oStreams({0, 0});
        oStreams.daoData = std::vector<SMonitorUserData>(2);
        oStreams.Fill(0, roRow.uiStartA, roRow.uiStepA, 0, roRow.uiCountA);
        oStreams.Fill(1, roRow.uiStartB, roRow.uiStepB, 0, roRow.uiCountB);
        const SLockTestMeasurement oMeasurement(oStreams);
        ASSERT_EQ(oMeasurement.daoPair.GetSize(), 1);
        ExpectPair(oMeasurement.daoPair[0], roRow.oExpected);
    }
}

TEST(GenLockProcess, PairsOnlyWhatHasDeliveredSinceTheLastLook)
{
    SLockTestStreams oStreams({0, 10, 20, 30});
    oStreams.daoData[1].auiTickRefCounter[0] = 0;
    oStreams.daoData[2].uiHRate_KHz = 4294968;
    const SLockTestMeasurement oFirst(oStreams);
    ASSERT_EQ(oFirst.daoPair.GetSize(), 3);
    ExpectPair(oFirst.daoPair[0], {0, 2, -20, -20, 20, 120});
    ExpectPair(oFirst.daoPair[1], {0, 3, -30, -30, 30, 120});
    ExpectPair(oFirst.daoPair[2], {2, 3, -10, -10, 10, 120});
    EXPECT_EQ(oFirst.daoVideo[0].uiTickFreqHz, 100000000U);
    EXPECT_EQ(oFirst.daoVideo[2].uiLineFreqHz, 704U); // wraps

    oStreams.Fill(0, FIELD_TICKS, FIELD_TICKS, 170, 171);
    const SLockTestMeasurement oSecond(oStreams);
    EXPECT_TRUE(oSecond.bResult && oSecond.daoVideo[0].bActive && !oSecond.daoVideo[3].bActive);
    EXPECT_EQ(oSecond.daoPair.GetSize(), 0);
}

TEST(GenLockProcess, SnapshotIsOneMomentOfAllRings)
{
    SLockTestStreams oStreams({0, 0});
    std::atomic<bool> bStop = false;
    std::thread oWriter(
        [&]
        {
            for (uint32_t uiField = 170; !bStop; ++uiField)
            {
                OsMutexGuard oGuard(g_oMutex, OsServices_INFINITE);
                oStreams.Fill(0, FIELD_TICKS, FIELD_TICKS, uiField, uiField + 1);
                oStreams.Fill(1, FIELD_TICKS, FIELD_TICKS, uiField, uiField + 1);
            }
        });
    for (uint32_t uiLook = 0; uiLook < 200; ++uiLook)
    {
        const SLockTestMeasurement oMeasurement(oStreams);
        EXPECT_TRUE(std::ranges::equal(oMeasurement.daoVideo[0].auiTimeStamp, oMeasurement.daoVideo[1].auiTimeStamp));
    }
    bStop = true;
    oWriter.join();
}

namespace
{

// A ring such as streams leave behind, and some that no stream would.
void FillAtRandom(uint64_t* pauiRing, std::mt19937_64& roRandom)
{
    const auto Draw = [&roRandom](uint64_t uiBelow) { return roRandom() % uiBelow; };
    const uint64_t auiStep[] = {1, 1000, 1666667, 4000000, 0x20000000};
    const uint64_t uiStep = auiStep[Draw(5)];
    const uint64_t uiStart = 1 + Draw(5 * uiStep) + Draw(2) * 0x100000000;
    const uint64_t uiCount = Draw(Draw(2) == 0 ? 120 : 1000);
    for (uint64_t uiField = 0; uiField < uiCount; ++uiField)
    {
        pauiRing[uiField % NB_OF_SAMPLES] = uiStart + uiField * uiStep + Draw(uiStep / 8 + 1);
    }
    for (uint64_t uiFault = Draw(8); uiFault > 5; --uiFault)
    {
        const uint64_t auiFault[] = {0, pauiRing[Draw(NB_OF_SAMPLES)], roRandom(), UINT64_LARGEST};
        pauiRing[Draw(NB_OF_SAMPLES)] = auiFault[Draw(4)];
    }
}

SFrameLockVideoData NaiveVideo(const uint64_t* pauiRing, uint64_t& ruiLast)
{
    SFrameLockVideoData oVideo = {};
    const uint64_t* puiEnd = std::find(pauiRing, pauiRing + NB_OF_SAMPLES, 0);
    oVideo.uiSampleCount = static_cast<uint32_t>(puiEnd - pauiRing);
    const auto iOldest = oVideo.uiSampleCount == 0 ? 0 : std::min_element(pauiRing, puiEnd) - pauiRing;
    std::rotate_copy(pauiRing, pauiRing + iOldest, pauiRing + NB_OF_SAMPLES, oVideo.auiTimeStamp);
    oVideo.bActive = std::any_of(pauiRing, puiEnd, [&](uint64_t uiStamp) { return uiStamp > ruiLast; });
    ruiLast = oVideo.bActive ? *std::max_element(pauiRing, puiEnd) : ruiLast;
    return oVideo;
}

SFrameLockPairData NaivePair(const SFrameLockVideoData& roA, const SFrameLockVideoData& roB)
{
    const int32_t iCountA = static_cast<int32_t>(roA.uiSampleCount);
    const int32_t iCountB = static_cast<int32_t>(roB.uiSampleCount);
    const uint64_t uiAnchor = roA.auiTimeStamp[iCountA / 2];
    const auto Distance = [=](uint64_t uiStamp) { return std::max(uiAnchor, uiStamp) - std::min(uiAnchor, uiStamp); };
    const auto IsNearer = [&](uint64_t uiLeft, uint64_t uiRight) { return Distance(uiLeft) < Distance(uiRight); };
    const uint64_t* puiNearest = std::min_element(roB.auiTimeStamp, roB.auiTimeStamp + iCountB, IsNearer);
    const int32_t iShift = static_cast<int32_t>(puiNearest - roB.auiTimeStamp) - iCountA / 2;
    SFrameLockPairData oPair = {0, 0, INT32_LARGEST, INT32_SMALLEST, 0, 0};
    for (int32_t iA = std::max(-iShift, 0); iA < iCountA && iA + iShift < iCountB; ++iA, ++oPair.uiSampleCount)
    {
        const uint64_t uiLow = (roA.auiTimeStamp[iA] - roB.auiTimeStamp[iA + iShift]) % 0x100000000;
        const int64_t iDelta = static_cast<int64_t>(uiLow) - (uiLow < 0x80000000 ? 0 : 0x100000000);
        oPair.iDeltaMin = static_cast<int32_t>(std::min<int64_t>(oPair.iDeltaMin, iDelta));
        oPair.iDeltaMax = static_cast<int32_t>(std::max<int64_t>(oPair.iDeltaMax, iDelta));
    }
    const auto Abs = [](int64_t iDelta) { return iDelta == INT32_SMALLEST ? iDelta : std::abs(iDelta); };
    oPair.uiDeltaAbs = static_cast<uint32_t>(std::max(Abs(oPair.iDeltaMin), Abs(oPair.iDeltaMax)));
    return oPair;
}

} // namespace

TEST(GenLockProcess, AgreesWithThePlainMeasurementOnRandomRings)
{
    for (uint32_t uiSeed = 1; uiSeed <= 1000 && !testing::Test::HasFailure(); ++uiSeed)
    {
        SCOPED_TRACE("seed " + std::to_string(uiSeed));
        std::mt19937_64 oRandom(uiSeed);
        SLockTestStreams oStreams({0, oRandom() % 9000, 0, 0});
        std::vector<uint64_t> dauiLast = {0, 0, oRandom() % 2000000000, 0};
        oStreams.dauiLast = dauiLast;
        FillAtRandom(oStreams.daoData[2].auiTickRefCounter, oRandom);
        oStreams.daoData[3] = {};
        FillAtRandom(oStreams.daoData[3].auiTickRefCounter, oRandom);
        const SLockTestMeasurement oMeasurement(oStreams);
        std::vector<SFrameLockVideoData> daoVideo;
        int32_t iPair = 0;
        for (uint32_t uiVideo = 0; uiVideo < oStreams.Count(); ++uiVideo)
        {
            daoVideo.push_back(NaiveVideo(oStreams.daoData[uiVideo].auiTickRefCounter, dauiLast[uiVideo]));
            EXPECT_TRUE(std::ranges::equal(oMeasurement.daoVideo[uiVideo].auiTimeStamp, daoVideo.back().auiTimeStamp));
            EXPECT_EQ(oMeasurement.daoVideo[uiVideo].uiSampleCount, daoVideo.back().uiSampleCount);
            EXPECT_EQ(oMeasurement.daoVideo[uiVideo].bActive, daoVideo.back().bActive);
        }
        EXPECT_EQ(oStreams.dauiLast, dauiLast);
        for (uint32_t uiPair : {0x01U, 0x02U, 0x03U, 0x12U, 0x13U, 0x23U})
        {
            if (daoVideo[uiPair / 16].bActive && daoVideo[uiPair % 16].bActive)
            {
                SFrameLockPairData oExpected = NaivePair(daoVideo[uiPair / 16], daoVideo[uiPair % 16]);
                oExpected.uiVideoIndexA = uiPair / 16;
                oExpected.uiVideoIndexB = uiPair % 16;
                ExpectPair(oMeasurement.daoPair[iPair++], oExpected);
            }
        }
        EXPECT_EQ(oMeasurement.daoPair.GetSize(), iPair);
    }
}
