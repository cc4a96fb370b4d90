// The alignment of the rings: its rules on rings made by hand, then random rings against a second measurement that is
// written as plainly as can be.
#include "GenLockProcess.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <random>
#include <thread>
#include <tuple>

#include "LockTestStreams.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint64_t LARGEST = ~uint64_t{0};

TEST(GenLockProcess, CombinationsWrapAndNeverDivideByZero)
{
    EXPECT_EQ(Fact(0), 1U);
    EXPECT_EQ(Fact(13), 1932053504U);
    EXPECT_EQ(Fact(0xFFFFFFFF), 0U);
    std::string szPairs;
    for (const uint32_t uiN : {0U, 1U, 2U, 3U, 4U, 12U, 13U, 14U, 15U, 21U, 22U, 28U, 31U, 32U, 34U})
    {
        szPairs += std::to_string(NCR(uiN, 2)) + " ";
    }
    EXPECT_EQ(szPairs, "1 1 1 3 6 66 24 1 0 14 41 4 0 0 1 ");
}

TEST(GenLockProcess, OrdersSamplesAndKnowsWhoDelivers)
{
    using Row = std::tuple<std::vector<std::pair<uint32_t, uint64_t>>, uint64_t, uint32_t, uint32_t, Bool32, uint64_t>;
    // Stamps put into a ring of 1000, 1001, ... and what was seen before; oldest slot, samples, active, now seen.
    for (const auto& [daoPoke, uiLast, uiOldestSlot, uiSamples, bActive, uiNewLast] :
         std::vector<Row>{{{{0, 0}}, 7, 0, 0, 0, 7},
                          {{{50, 0}, {60, 1}, {61, 9999}}, 0, 0, 50, 1, 1049}, // nothing behind a hole counts
                          {{{20, 3}, {50, 0}}, 0, 20, 50, 1, 1049},            // but it moves
                          {{{4, 5}, {9, 5}}, 0, 4, 120, 1, 1119},              // of equal ones the lower slot
                          {{}, 1119, 0, 120, 0, 1119},
                          {{}, 1118, 0, 120, 1, 1119},
                          {{}, 5000, 0, 120, 0, 5000},
                          {{{0, LARGEST}}, 0, 1, 120, 1, LARGEST}})
    {
        SLockTestStreams oStreams({0});
        uint64_t* pauiRing = oStreams.daoData[0].auiTickRefCounter;
        std::iota(pauiRing, pauiRing + NB_OF_SAMPLES, 1000);
        std::ranges::for_each(daoPoke, [&](const auto& roPoke) { pauiRing[roPoke.first] = roPoke.second; });
        oStreams.dauiLast[0] = uiLast;
        EXPECT_TRUE(oStreams.Measure() && oStreams.daoPair.IsEmpty());
        const SFrameLockVideoData& roVideo = oStreams.daoVideo[0];
        EXPECT_EQ(std::tuple(roVideo.uiSampleCount, roVideo.bActive, oStreams.dauiLast[0]),
                  std::tuple(uiSamples, bActive, uiNewLast));
        std::rotate(pauiRing, pauiRing + uiOldestSlot, pauiRing + NB_OF_SAMPLES);
        EXPECT_TRUE(std::equal(pauiRing, pauiRing + NB_OF_SAMPLES, roVideo.auiTimeStamp)) << uiOldestSlot;
    }
}

TEST(GenLockProcess, PairsOnlyWhatHasDeliveredSinceTheLastLook)
{
    SLockTestStreams oStreams({0, 10, 20, 30});
    oStreams.daoData[1].auiTickRefCounter[0] = 0;
    oStreams.daoData[2].uiHRate_KHz = 4294968;
    EXPECT_TRUE(oStreams.Measure());
    EXPECT_EQ(oStreams.Pairs(), "0 2 -20 -20 20 120\n0 3 -30 -30 30 120\n2 3 -10 -10 10 120\n");
    EXPECT_EQ(oStreams.daoVideo[2].uiLineFreqHz, 704U); // wraps
    oStreams.Fill(0, FIELD_TICKS, FIELD_TICKS, 170, 171);
    EXPECT_TRUE(oStreams.Measure());
    EXPECT_TRUE(oStreams.daoVideo[0].bActive && !oStreams.daoVideo[3].bActive && oStreams.daoPair.IsEmpty());

    const auto Process = [&](uint32_t uiCount, const SMonitorUserData* paoData, uint64_t* pauiLast)
    { return ProcessGenLock(uiCount, paoData, pauiLast, oStreams.daoVideo, oStreams.daoPair); };
    EXPECT_FALSE(Process(4, nullptr, oStreams.dauiLast.data()) || Process(4, oStreams.daoData.data(), nullptr) ||
                 Process(0, oStreams.daoData.data(), oStreams.dauiLast.data()));
    EXPECT_EQ(oStreams.daoVideo.GetSize(), 4);
    EXPECT_FALSE(Process(4, oStreams.daoData.data(), oStreams.dauiLast.data())); // not empty
    EXPECT_EQ(oStreams.daoVideo.GetSize(), 8);
    EXPECT_FALSE(Process(0x80000000, oStreams.daoData.data(), oStreams.dauiLast.data())); // no array is that long
    EXPECT_EQ(oStreams.daoVideo.GetSize(), 8);
}

TEST(GenLockProcess, SnapshotIsOneMomentOfAllRings)
{
    SLockTestStreams oStreams({0, 0});
    std::atomic<bool> bIsDone = false;
    std::thread oWriter(
        [&]
        {
            for (uint32_t uiField = 170; uiField < 500; ++uiField)
            {
                OsMutexGuard oGuard(g_oMutex, OsServices_INFINITE);
                oStreams.Fill(0, FIELD_TICKS, FIELD_TICKS, uiField, uiField + 1);
                std::this_thread::yield();
                oStreams.Fill(1, FIELD_TICKS, FIELD_TICKS, uiField, uiField + 1);
            }
            bIsDone = true;
        });
    bool bIsOneMoment = true;
    while (!bIsDone)
    {
        oStreams.Measure();
        bIsOneMoment &= std::ranges::equal(oStreams.daoVideo[0].auiTimeStamp, oStreams.daoVideo[1].auiTimeStamp);
    }
    oWriter.join();
    EXPECT_TRUE(bIsOneMoment);
}

// A ring such as streams leave behind, and some that no stream would.
void FillAtRandom(uint64_t* pauiRing, std::mt19937_64& roRandom)
{
    const auto Draw = [&roRandom](uint64_t uiBelow) { return roRandom() % uiBelow; };
    const uint64_t uiStep = std::array<uint64_t, 4>{1, 1000, 1666667, 0x20000000}[Draw(4)];
    const uint64_t uiStart = 1 + Draw(5 * uiStep) + Draw(2) * 0x100000000;
    const uint64_t uiCount = Draw(Draw(2) == 0 ? 120 : 1000);
    for (uint64_t uiField = 0; uiField < uiCount; ++uiField)
    {
        pauiRing[uiField % NB_OF_SAMPLES] = uiStart + uiField * uiStep + Draw(uiStep / 8 + 1);
    }
    for (uint64_t uiFault = Draw(8); uiFault > 5; --uiFault)
    {
        const uint64_t auiFault[] = {0, pauiRing[Draw(NB_OF_SAMPLES)], roRandom(), LARGEST};
        pauiRing[Draw(NB_OF_SAMPLES)] = auiFault[Draw(4)];
    }
}

SFrameLockPairData NaivePair(const uint64_t* pauiA, int32_t iCountA, const uint64_t* pauiB, int32_t iCountB)
{
    const uint64_t uiAnchor = pauiA[iCountA / 2];
    const auto Distance = [=](uint64_t uiStamp) { return std::max(uiAnchor, uiStamp) - std::min(uiAnchor, uiStamp); };
    const auto IsNearer = [&](uint64_t uiLeft, uint64_t uiRight) { return Distance(uiLeft) < Distance(uiRight); };
    const int32_t iAnchorB = static_cast<int32_t>(std::min_element(pauiB, pauiB + iCountB, IsNearer) - pauiB);
    std::vector<int64_t> daiDelta;
    for (int32_t iA = 0; iA < iCountA; ++iA)
    {
        const int32_t iB = iA + iAnchorB - iCountA / 2;
        if (iB >= 0 && iB < iCountB)
        {
            const uint64_t uiLow = (pauiA[iA] - pauiB[iB]) % 0x100000000;
            daiDelta.push_back(static_cast<int64_t>(uiLow) - (uiLow < 0x80000000 ? 0 : 0x100000000));
        }
    }
    const auto [iMin, iMax] = std::ranges::minmax(daiDelta);
    const auto Abs = [](int64_t iDelta) { return iDelta == -0x80000000LL ? iDelta : std::abs(iDelta); };
    const auto uiWorst = static_cast<uint32_t>(std::max(Abs(iMin), Abs(iMax)));
    const auto uiSamples = static_cast<uint32_t>(daiDelta.size());
    return {0, 1, static_cast<int32_t>(iMin), static_cast<int32_t>(iMax), uiWorst, uiSamples};
}

TEST(GenLockProcess, AgreesWithThePlainMeasurementOnRandomRings)
{
    for (uint32_t uiSeed = 1; uiSeed <= 2000 && !testing::Test::HasFailure(); ++uiSeed)
    {
        SCOPED_TRACE("seed " + std::to_string(uiSeed));
        std::mt19937_64 oRandom(uiSeed);
        SLockTestStreams oStreams({oRandom() % 9000, 0});
        FillAtRandom(oStreams.daoData[1].auiTickRefCounter, oRandom);
        std::swap(oStreams.daoData[0], oStreams.daoData[oRandom() % 2]);
        EXPECT_TRUE(oStreams.Measure());
        int32_t aiSamples[2];
        std::vector<uint64_t> adauiStamp[2];
        for (uint32_t uiVideo = 0; uiVideo < 2; ++uiVideo)
        {
            const uint64_t* pauiRing = oStreams.daoData[uiVideo].auiTickRefCounter;
            aiSamples[uiVideo] = static_cast<int32_t>(std::find(pauiRing, pauiRing + NB_OF_SAMPLES, 0) - pauiRing);
            const uint64_t* puiOldest = std::min_element(pauiRing, pauiRing + aiSamples[uiVideo]);
            adauiStamp[uiVideo].assign(puiOldest, pauiRing + NB_OF_SAMPLES);
            adauiStamp[uiVideo].insert(adauiStamp[uiVideo].end(), pauiRing, puiOldest);
            EXPECT_TRUE(std::ranges::equal(oStreams.daoVideo[uiVideo].auiTimeStamp, adauiStamp[uiVideo]));
        }
        const bool bIsPair = aiSamples[0] > 0 && aiSamples[1] > 0;
        const SFrameLockPairData oPair =
            bIsPair ? NaivePair(adauiStamp[0].data(), aiSamples[0], adauiStamp[1].data(), aiSamples[1])
                    : SFrameLockPairData{};
        EXPECT_EQ(oStreams.Pairs(), SLockTestStreams::PairText(&oPair, &oPair + (bIsPair ? 1 : 0)));
    }
}

} // namespace
