// See RecordingChecks.h. Where a recording gives no occasion, that is said, as of a board.
#include "RecordingChecks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

namespace
{

using Streams = std::vector<SReplayStream>;
using Long = unsigned long long;

constexpr size_t uiLeastFields = 25;

void SkipNone(CFindings& roFindings, const Streams& raoStreams)
{
    if (raoStreams.empty())
    {
        roFindings.Skip("the recording has none");
    }
}

bool IsField(const SReplayWait& roWait)
{
    return roWait.eResult == EReplayResult::FIELD;
}

std::string GetName(const SReplayStream& roStream)
{
    return (roStream.bIsInput ? "IN_" : "OUT_") + std::string(roStream.uiIndex < 10 ? "0" : "") +
           std::to_string(roStream.uiIndex);
}

std::vector<SReplayWait> GetFields(const SReplayStream& roStream)
{
    std::vector<SReplayWait> aoFields;
    std::ranges::copy_if(roStream.aoWaits, std::back_inserter(aoFields), IsField);
    return aoFields;
}

void Frequency(CFindings& roFindings, const SReplay& roReplay)
{
    roFindings.Expect(roReplay.uiTickFreqHz >= 1'000'000, "the ticks are of %u Hz", roReplay.uiTickFreqHz);
    roFindings.Note("of its steadiness a recording does not tell");
}

void Counts(CFindings& roFindings, const SReplay& roReplay)
{
    roFindings.Expect(roReplay.aoInputs.size() <= 32 && roReplay.aoOutputs.size() <= 32, "%zu inputs, %zu outputs",
                      roReplay.aoInputs.size(), roReplay.aoOutputs.size());
}

void Skipped(CFindings& roFindings, const SReplay& roReplay)
{
    for (const SReplayStream& roStream : roReplay.aoInputs)
    {
        uint64_t uiBefore = 0;
        for (const SReplayWait& roField : GetFields(roStream))
        {
            if (roField.bHasSkipped)
            {
                roFindings.Checked();
                roFindings.Expect(roField.uiSkipped >= uiBefore, "%s: skipped buffers go from %llu to %llu",
                                  GetName(roStream).c_str(), Long{uiBefore}, Long{roField.uiSkipped});
                uiBefore = roField.uiSkipped;
            }
        }
    }
    roFindings.Skip("of the calls themselves a recording does not tell");
}

void ExpectToAdvance(CFindings& roFindings, const std::string& rszName, const std::vector<SReplayWait>& raoFields)
{
    for (size_t uiField = 1; uiField < raoFields.size(); ++uiField)
    {
        const SReplayWait& roOld = raoFields[uiField - 1];
        const SReplayWait& roNew = raoFields[uiField];
        roFindings.Expect(roNew.uiFieldCounter > roOld.uiFieldCounter, "%s: the field counter goes from %llu to %llu",
                          rszName.c_str(), Long{roOld.uiFieldCounter}, Long{roNew.uiFieldCounter});
        roFindings.Expect(roNew.uiTick > roOld.uiTick, "%s: the stamp goes from %llu to %llu", rszName.c_str(),
                          Long{roOld.uiTick}, Long{roNew.uiTick});
        roFindings.Expect(roNew.uiSetBufferCounter >= roOld.uiSetBufferCounter,
                          "%s: the set-buffer counter goes back from %llu to %llu", rszName.c_str(),
                          Long{roOld.uiSetBufferCounter}, Long{roNew.uiSetBufferCounter});
    }
}

// Within 10 percent of what the timings say, where these were the same all the time.
void ExpectRate(CFindings& roFindings, const SReplayStream& roStream, const std::vector<SReplayWait>& raoFields,
                uint32_t uiFreqHz)
{
    const auto fnGetRate = [](const SReplayDescription& ro) { return ro.oVidParam.uiVRate_Hz; };
    const uint32_t uiRate = roStream.aoDescriptions.empty() ? 0 : fnGetRate(roStream.aoDescriptions.front());
    const bool bIsSteady = std::ranges::all_of(roStream.aoDescriptions,
                                               [&](const SReplayDescription& ro) { return fnGetRate(ro) == uiRate; });
    if (raoFields.size() < uiLeastFields || uiRate == 0 || !bIsSteady)
    {
        roFindings.Skip("%s needs a steady signal", GetName(roStream).c_str());
        return;
    }
    roFindings.Checked();
    const double flFields =
        static_cast<double>(raoFields.back().uiFieldCounter - raoFields.front().uiFieldCounter) / 16.0;
    const double flSeconds = static_cast<double>(raoFields.back().uiTick - raoFields.front().uiTick) / uiFreqHz;
    roFindings.Expect(std::abs(flFields / flSeconds / uiRate - 1.0) < 0.1,
                      "%s: by counter and stamps there are %.2f fields per second, by the timings %u",
                      GetName(roStream).c_str(), flFields / flSeconds, uiRate);
}

template <Streams SReplay::*Direction> void Advance(CFindings& roFindings, const SReplay& roReplay)
{
    SkipNone(roFindings, roReplay.*Direction);
    for (const SReplayStream& roStream : roReplay.*Direction)
    {
        const std::vector<SReplayWait> aoFields = GetFields(roStream);
        ExpectToAdvance(roFindings, GetName(roStream), aoFields);
        ExpectRate(roFindings, roStream, aoFields, roReplay.uiTickFreqHz);
    }
}

// The last wait that had returned when a description was read, and whether the next one was cancelled too: by then
// the signal had not come back.
bool IsWithinLoss(const SReplayStream& roStream, int64_t iMomentNs)
{
    const auto itNext = std::ranges::upper_bound(roStream.aoWaits, iMomentNs, {}, &SReplayWait::iArrivalNs);
    const auto fnIsCancelled = [](const SReplayWait& ro) { return ro.eResult == EReplayResult::CANCELED; };
    return itNext != roStream.aoWaits.begin() && itNext != roStream.aoWaits.end() && fnIsCancelled(*itNext) &&
           fnIsCancelled(*std::prev(itNext));
}

template <Streams SReplay::*Direction> void CancelledWaits(CFindings& roFindings, const SReplay& roReplay)
{
    SkipNone(roFindings, roReplay.*Direction);
    for (const SReplayStream& roStream : roReplay.*Direction)
    {
        int iCancelled = 0;
        for (const SReplayDescription& roDescription : roStream.aoDescriptions)
        {
            if (IsWithinLoss(roStream, roDescription.iMomentNs))
            {
                ++iCancelled;
                roFindings.Expect(roDescription.oVidParam.uiHActive == 0 && roDescription.oVidParam.uiVActive == 0,
                                  "%s: between cancelled waits the timings were not 0", GetName(roStream).c_str());
            }
        }
        iCancelled != 0 ? roFindings.Checked()
                        : roFindings.Skip("%s needs a signal that goes away", GetName(roStream).c_str());
    }
}

void Buffers(CFindings& roFindings, const SReplay& roReplay)
{
    SkipNone(roFindings, roReplay.aoInputs);
    for (const SReplayStream& roStream : roReplay.aoInputs)
    {
        for (const SReplayDescription& roDescription : roStream.aoDescriptions)
        {
            roFindings.Checked();
            roFindings.Expect(roDescription.uiCaptureState <= VtVideoIn_State_STOPPED, "%s: the capture state is %u",
                              GetName(roStream).c_str(), roDescription.uiCaptureState);
        }
        const bool bHasNumber = roStream.aoDescriptions.size() == 1 && roStream.aoDescriptions[0].uiBuffers > 0;
        for (const SReplayWait& roField : GetFields(roStream))
        {
            const uint32_t uiAll = uint32_t{roField.uiReady} + roField.uiLoaned + roField.uiInternal;
            roFindings.Expect(!bHasNumber || !roField.bHasBuffers || uiAll == roStream.aoDescriptions[0].uiBuffers,
                              "%s: %u + %u + %u buffers of %u", GetName(roStream).c_str(), roField.uiReady,
                              roField.uiLoaned, roField.uiInternal,
                              bHasNumber ? roStream.aoDescriptions[0].uiBuffers : 0);
        }
    }
}

void Power(CFindings& roFindings, const SReplay& roReplay)
{
    SkipNone(roFindings, roReplay.aoOutputs);
    for (const SReplayStream& roStream : roReplay.aoOutputs)
    {
        for (const SReplayDescription& roDescription : roStream.aoDescriptions)
        {
            roFindings.Checked();
            roFindings.Expect(roDescription.uiPowerState <= VtVideoOut_PowerState_OFF, "%s: the power state is %u",
                              GetName(roStream).c_str(), roDescription.uiPowerState);
        }
    }
}

int64_t ToNs(uint64_t uiTick, uint32_t uiFreqHz)
{
    return std::llround(static_cast<double>(uiTick) * 1e9 / uiFreqHz);
}

// What the machine's clock is ahead of a stream's stamps by, and the delay that no wait undercuts.
int64_t GetLeastDelayNs(const std::vector<SReplayWait>& raoFields, uint32_t uiFreqHz)
{
    int64_t iLeast = std::numeric_limits<int64_t>::max();
    for (const SReplayWait& roField : raoFields)
    {
        iLeast = std::min(iLeast, roField.iArrivalNs - ToNs(roField.uiTick, uiFreqHz));
    }
    return iLeast;
}

void OneCounter(CFindings& roFindings, const SReplay& roReplay)
{
    std::vector<int64_t> aiDelays;
    for (const Streams* paoStreams : {&roReplay.aoInputs, &roReplay.aoOutputs})
    {
        for (const SReplayStream& roStream : *paoStreams)
        {
            const std::vector<SReplayWait> aoFields = GetFields(roStream);
            if (aoFields.size() >= uiLeastFields)
            {
                aiDelays.push_back(GetLeastDelayNs(aoFields, roReplay.uiTickFreqHz));
            }
        }
    }
    if (aiDelays.size() < 2)
    {
        roFindings.Skip("needs two streams with a signal");
        return;
    }
    const auto [itLeast, itMost] = std::ranges::minmax_element(aiDelays);
    const double flApartMs = static_cast<double>(*itMost - *itLeast) * 1e-6;
    roFindings.Expect(flApartMs < 300.0, "stamps are %.0f ms apart at one moment: not one counter", flApartMs);
}

// How old the field is that a wait gave that began more than two fields behind the one before, in fields.
std::vector<double> GetLateAges(const std::vector<SReplayWait>& raoFields, uint32_t uiFreqHz)
{
    std::vector<double> aflAges;
    const int64_t iLeastNs = GetLeastDelayNs(raoFields, uiFreqHz);
    const double flFields =
        static_cast<double>(raoFields.back().uiFieldCounter - raoFields.front().uiFieldCounter) / 16.0;
    const double flPeriodNs =
        static_cast<double>(ToNs(raoFields.back().uiTick, uiFreqHz) - ToNs(raoFields.front().uiTick, uiFreqHz)) /
        flFields;
    for (size_t uiField = 1; uiField < raoFields.size(); ++uiField)
    {
        const int64_t iBeganNs = raoFields[uiField].iWaitBeginNs - iLeastNs; // by the stamps
        const auto flSince = static_cast<double>(iBeganNs - ToNs(raoFields[uiField - 1].uiTick, uiFreqHz));
        if (flSince > 2.25 * flPeriodNs)
        {
            aflAges.push_back(static_cast<double>(iBeganNs - ToNs(raoFields[uiField].uiTick, uiFreqHz)) / flPeriodNs);
        }
    }
    return aflAges;
}

template <Streams SReplay::*Direction> void LateCallers(CFindings& roFindings, const SReplay& roReplay)
{
    SkipNone(roFindings, roReplay.*Direction);
    for (const SReplayStream& roStream : roReplay.*Direction)
    {
        const std::vector<SReplayWait> aoFields = GetFields(roStream);
        const bool bGoesOn =
            aoFields.size() >= uiLeastFields && aoFields.back().uiFieldCounter > aoFields.front().uiFieldCounter;
        const std::vector<double> aflAges =
            bGoesOn ? GetLateAges(aoFields, roReplay.uiTickFreqHz) : std::vector<double>();
        if (aflAges.empty())
        {
            roFindings.Skip("%s needs a caller that came late", GetName(roStream).c_str());
            continue;
        }
        roFindings.Checked();
        for (const double flAge : aflAges)
        {
            roFindings.Expect(flAge < 1.25, "%s: a late caller got a field that was %.2f fields old",
                              GetName(roStream).c_str(), flAge);
        }
    }
}

constexpr std::array aoChecks = {
    SRecordingCheck{"the frequency of the ticks is known, steady and at least 1 MHz", Frequency},
    SRecordingCheck{"inputs and outputs are counted, at most 32 of each", Counts},
    SRecordingCheck{"custom calls check number, blocks and sizes; the count of skipped buffers never goes back",
                    Skipped},
    SRecordingCheck{"inputs: counters and stamps only advance, together, at the rate of the timings",
                    Advance<&SReplay::aoInputs>},
    SRecordingCheck{"inputs: a cancelled wait means that there are no timings", CancelledWaits<&SReplay::aoInputs>},
    SRecordingCheck{"inputs: buffers add up, the capture state is one that there is", Buffers},
    SRecordingCheck{"inputs: a late caller gets the newest field, with the stamp of its start",
                    LateCallers<&SReplay::aoInputs>},
    SRecordingCheck{"outputs: counters and stamps only advance, together, at the rate of the timings",
                    Advance<&SReplay::aoOutputs>},
    SRecordingCheck{"outputs: a cancelled wait means that there are no timings", CancelledWaits<&SReplay::aoOutputs>},
    SRecordingCheck{"outputs: the power state is one that there is", Power},
    SRecordingCheck{"outputs: a late caller gets the newest field, with the stamp of its start",
                    LateCallers<&SReplay::aoOutputs>},
    SRecordingCheck{"all inputs and outputs are stamped by one counter", OneCounter},
};

} // namespace

const SRecordingCheck* RecordingChecks_Find(std::string_view szPromise)
{
    const auto* poCheck =
        std::ranges::find_if(aoChecks, [szPromise](const SRecordingCheck& ro) { return szPromise == ro.szPromise; });
    return poCheck == aoChecks.end() ? nullptr : poCheck;
}
