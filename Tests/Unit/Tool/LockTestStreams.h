// Streams whose timestamp rings a test fills by hand, and measures.
#ifndef LOCK_TEST_STREAMS_H
#define LOCK_TEST_STREAMS_H

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "GenLockProcess.h"

constexpr uint64_t FIELD_TICKS = 1666667; // about 60 fields a second at 100 MHz; a line of 68 kHz has 1470 ticks

struct SLockTestStreams
{
    // Fields 50 to 169 of one clock, each stream late by its offset.
    explicit SLockTestStreams(const std::vector<uint64_t>& rdauiOffset)
        : uiCount(static_cast<uint32_t>(rdauiOffset.size())), daoData(uiCount), dauiLast(uiCount)
    {
        for (uint32_t uiVideo = 0; uiVideo < uiCount; ++uiVideo)
        {
            daoData[uiVideo].uiTickRefFreq = 100000000;
            daoData[uiVideo].uiHRate_KHz = 68;
            Fill(uiVideo, FIELD_TICKS + rdauiOffset[uiVideo], FIELD_TICKS, 50, 170);
        }
    }
    // Stores fields uiFirst to uiEnd - 1 as a monitor thread does.
    void Fill(uint32_t uiVideo, uint64_t uiStart, uint64_t uiStep, uint32_t uiFirst, uint32_t uiEnd)
    {
        for (uint32_t uiField = uiFirst; uiField < uiEnd; ++uiField)
        {
            daoData[uiVideo].auiTickRefCounter[uiField % NB_OF_SAMPLES] = uiStart + uiField * uiStep;
        }
    }
    Bool32 Measure()
    {
        daoVideo.RemoveAll();
        daoPair.RemoveAll();
        return ProcessGenLock(uiCount, daoData.data(), dauiLast.data(), daoVideo, daoPair);
    }
    // "A B smallest largest worst samples", a line a pair.
    std::string Pairs() const { return PairText(daoPair.Begin(), daoPair.End()); }
    static std::string PairText(const SFrameLockPairData* poPair, const SFrameLockPairData* poEnd)
    {
        std::ostringstream oText;
        for (; poPair != poEnd; ++poPair)
        {
            oText << poPair->uiVideoIndexA << " " << poPair->uiVideoIndexB << " " << poPair->iDeltaMin << " "
                  << poPair->iDeltaMax << " " << poPair->uiDeltaAbs << " " << poPair->uiSampleCount << "\n";
        }
        return oText.str();
    }

    uint32_t uiCount;
    std::vector<SMonitorUserData> daoData;
    std::vector<uint64_t> dauiLast;
    CFrameLockVideoArray daoVideo;
    CFrameLockPairArray daoPair;
};

#endif
