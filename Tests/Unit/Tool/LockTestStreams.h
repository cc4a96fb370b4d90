// Streams whose timestamp rings a test fills by hand, and what messages look like on the terminal.
#ifndef LOCK_TEST_STREAMS_H
#define LOCK_TEST_STREAMS_H

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "GenLockProcess.h"

constexpr uint64_t FIELD_TICKS = 1666667; // about 60 fields a second at 100 MHz; a line of 68 kHz has 1470 ticks

struct SLockTestStreams
{
    // Fields 50 to 169 of one clock, each stream late by its offset.
    explicit SLockTestStreams(const std::vector<uint64_t>& rdauiOffset)
        : daoData(rdauiOffset.size()), dauiLast(rdauiOffset.size())
    {
        for (uint32_t uiVideo = 0; uiVideo < rdauiOffset.size(); ++uiVideo)
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
    uint32_t Count() const { return static_cast<uint32_t>(daoData.size()); }

    std::vector<SMonitorUserData> daoData;
    std::vector<uint64_t> dauiLast;
};

struct SLockTestMeasurement
{
    explicit SLockTestMeasurement(SLockTestStreams& roStreams)
        : bResult(
              ProcessGenLock(roStreams.Count(), roStreams.daoData.data(), roStreams.dauiLast.data(), daoVideo, daoPair))
    {
    }
    CFrameLockVideoArray daoVideo;
    CFrameLockPairArray daoPair;
    Bool32 bResult;
};

// What an action prints, with a '|' for the sequence that erases a line's tail, with which every message begins.
template <class ACTION> std::string CaptureTerminal(ACTION oAction)
{
    testing::internal::CaptureStdout();
    oAction();
    return std::regex_replace(testing::internal::GetCapturedStdout(), std::regex("\033\\[K"), "|");
}

#endif
