// Promises of video inputs and outputs. What both must do is written once, over two descriptions of the operations.
//
// Times are those of the board's stamps; of the machine's own clock nothing is asked but that a wait keeps its
// time-out.
#include "StreamChecks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <optional>
#include <span>
#include <thread>

#include "OpenStreams.h"

namespace
{

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Fields that one wait after the other delivered.
template <typename TStreams>
std::vector<SWaited> Watch(CFindings& roFindings, const std::string& rszName, typename TStreams::THandle h,
                           size_t uiFields, Milliseconds oAtMost)
{
    std::vector<SWaited> aoFields;
    for (const auto oEnd = Clock::now() + oAtMost; aoFields.size() < uiFields && Clock::now() < oEnd;)
    {
        SWaited oWaited;
        oWaited.eStatus = TStreams::Wait(h, 50, oWaited);
        if (oWaited.eStatus == VtStatus_OK)
        {
            aoFields.push_back(oWaited);
            continue;
        }
        roFindings.Expect(oWaited.eStatus == VtStatus_TIMEOUT || oWaited.eStatus == VtStatus_CANCELED,
                          "%s: %s answered %d, neither OK, TIMEOUT nor CANCELED", rszName.c_str(), TStreams::msc_szWait,
                          oWaited.eStatus);
        if (oWaited.eStatus == VtStatus_CANCELED)
        {
            std::this_thread::sleep_for(Milliseconds(5)); // as a caller would: it may come back at once
        }
    }
    return aoFields;
}

void ExpectToAdvance(CFindings& roFindings, const std::string& rszName, const std::vector<SWaited>& raoFields)
{
    for (size_t uiField = 1; uiField < raoFields.size(); ++uiField)
    {
        const SWaited& roOld = raoFields[uiField - 1];
        const SWaited& roNew = raoFields[uiField];
        roFindings.Expect(roNew.uiField > roOld.uiField, "%s: the field counter goes from %llu to %llu",
                          rszName.c_str(), static_cast<unsigned long long>(roOld.uiField),
                          static_cast<unsigned long long>(roNew.uiField));
        roFindings.Expect(roNew.uiTicks >= roOld.uiTicks, "%s: the stamp goes back from %llu to %llu", rszName.c_str(),
                          static_cast<unsigned long long>(roOld.uiTicks),
                          static_cast<unsigned long long>(roNew.uiTicks));
        roFindings.Expect(roNew.uiSet >= roOld.uiSet, "%s: the set-buffer counter goes back from %llu to %llu",
                          rszName.c_str(), static_cast<unsigned long long>(roOld.uiSet),
                          static_cast<unsigned long long>(roNew.uiSet));
        roFindings.Expect(roNew.bTop <= 1, "%s: the top-field flag is %u", rszName.c_str(), roNew.bTop);
    }
}

template <typename TStreams> void BadArguments(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    const std::string szOpen = TStreams::msc_szOpen;
    typename TStreams::THandle h = nullptr;
    roFindings.ExpectStatus(TStreams::Open(hDev, oStreams.Count(), &h), VtStatus_INVALID_PARAM,
                            szOpen + " beyond the last");
    roFindings.Expect(h == nullptr, "%s beyond the last one gives a handle", TStreams::msc_szOpen);
    roFindings.ExpectStatus(TStreams::Open(nullptr, 0, &h), VtStatus_INVALID_PARAM, szOpen + " of a null device");
    if (oStreams.All().empty())
    {
        return;
    }
    roFindings.Checked();
    const auto& roFirst = oStreams.All().front();
    roFindings.ExpectStatus(TStreams::Open(hDev, roFirst.uiIndex, nullptr), VtStatus_INVALID_PARAM,
                            szOpen + " without an output");
    for (const auto& [szCall, eStatus] : TStreams::CallWithNulls(roFirst.h))
    {
        roFindings.ExpectStatus(eStatus, VtStatus_INVALID_PARAM, szCall);
    }
    for (const auto& [szCall, eStatus] : TStreams::CallAll(nullptr))
    {
        roFindings.ExpectStatus(eStatus, VtStatus_INVALID_PARAM, szCall + std::string(" of a null handle"));
    }
    if (roFindings.ExpectStatus(TStreams::Open(hDev, roFirst.uiIndex, &h), VtStatus_OK, szOpen + " a second time"))
    {
        roFindings.ExpectStatus(TStreams::Release(h), VtStatus_OK, TStreams::msc_szRelease);
        for (const auto& [szCall, eStatus] : TStreams::CallAll(h))
        {
            roFindings.ExpectStatus(eStatus, VtStatus_INVALID_PARAM, szCall + std::string(" of a released handle"));
        }
    }
}

// Rate of the fields by their own stamps, against the rate that the timings tell: within 10 percent.
void ExpectRate(CFindings& roFindings, const std::string& rszName, const std::vector<SWaited>& raoFields,
                uint32_t uiFreqHz, const VtVideo_VidParam& roParam)
{
    const double flFields =
        static_cast<double>(static_cast<int64_t>(raoFields.back().uiField - raoFields.front().uiField)) / 16.0;
    const double flSeconds = static_cast<double>(raoFields.back().uiTicks - raoFields.front().uiTicks) / uiFreqHz;
    const double flRate = flFields / flSeconds;
    roFindings.Expect(std::abs(flRate / roParam.uiVRate_Hz - 1.0) < 0.1,
                      "%s: by counter and stamps there are %.2f fields per second, by the timings %u", rszName.c_str(),
                      flRate, roParam.uiVRate_Hz);
    roFindings.Expect(roParam.bInterlaced != 0 ||
                          std::ranges::none_of(raoFields, [](const SWaited& ro) { return ro.bTop != 0; }),
                      "%s: a progressive signal has top fields", rszName.c_str());
}

// Ticks that go on in steps are coarser than their frequency tells. Neighbouring fields of an even duration say nothing
// of it, so what counts is by how much durations differ, and only where many do.
void ExpectFineTicks(CFindings& roFindings, const std::string& rszName, const std::vector<SWaited>& raoFields,
                     uint32_t uiFreqHz)
{
    constexpr uint32_t uiEnough = 6;
    constexpr double flMostGrainUs = 20.0;
    int64_t iGrain = 0;
    uint32_t uiUneven = 0;
    for (size_t uiField = 2; uiField < raoFields.size(); ++uiField)
    {
        const std::span<const SWaited, 3> aoThree(&raoFields[uiField - 2], 3);
        const bool bInRow =
            aoThree[1].uiField - aoThree[0].uiField == 16 && aoThree[2].uiField - aoThree[1].uiField == 16;
        const auto iUneven = static_cast<int64_t>(aoThree[2].uiTicks - 2 * aoThree[1].uiTicks + aoThree[0].uiTicks);
        if (bInRow && iUneven != 0)
        {
            iGrain = std::gcd(iGrain, iUneven);
            ++uiUneven;
        }
    }
    const double flGrainUs = static_cast<double>(iGrain) * 1e6 / uiFreqHz;
    roFindings.Expect(uiUneven < uiEnough || flGrainUs <= flMostGrainUs,
                      "%s: all durations of fields differ by multiples of %.0f us: the ticks go on in such steps",
                      rszName.c_str(), flGrainUs);
}

template <typename TStreams> void CountersAndStamps(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    uint32_t uiFreqHz = 0;
    roFindings.ExpectStatus(VtBoard_GetTickReferenceFrequency(hDev, &uiFreqHz), VtStatus_OK,
                            "VtBoard_GetTickReferenceFrequency()");
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    for (const auto& ro : oStreams.All())
    {
        VtVideo_VidParam oBefore{};
        VtVideo_VidParam oAfter{};
        roFindings.ExpectStatus(TStreams::Param(ro.h, oBefore), VtStatus_OK, ro.szName + ": " + TStreams::msc_szParam);
        const std::vector<SWaited> aoFields = Watch<TStreams>(roFindings, ro.szName, ro.h, 25, Milliseconds(1000));
        roFindings.ExpectStatus(TStreams::Param(ro.h, oAfter), VtStatus_OK, ro.szName + ": " + TStreams::msc_szParam);
        ExpectToAdvance(roFindings, ro.szName, aoFields);
        if (aoFields.size() < 25 || std::memcmp(&oBefore, &oAfter, sizeof(oBefore)) != 0 || oBefore.uiVRate_Hz == 0)
        {
            roFindings.Skip("%s needs a steady signal", ro.szName.c_str());
            continue;
        }
        roFindings.Checked();
        ExpectRate(roFindings, ro.szName, aoFields, uiFreqHz, oBefore);
        ExpectFineTicks(roFindings, ro.szName, aoFields, uiFreqHz);
    }
}

// How late a wait of this length comes back when nothing came, milliseconds; empty when something did.
template <typename TStreams>
std::optional<int64_t> WaitInVain(CFindings& roFindings, const typename COpenStreams<TStreams>::SStream& roStream,
                                  uint32_t uiTimeOutMs)
{
    SWaited oWaited;
    const auto oStart = Clock::now();
    const VtStatus eStatus = TStreams::Wait(roStream.h, uiTimeOutMs, oWaited);
    const auto iMs = std::chrono::duration_cast<Milliseconds>(Clock::now() - oStart).count();
    roFindings.Expect(iMs < 2000, "%s: a wait of at most %u ms took %lld ms", roStream.szName.c_str(), uiTimeOutMs,
                      static_cast<long long>(iMs));
    if (eStatus != VtStatus_TIMEOUT)
    {
        return std::nullopt;
    }
    roFindings.Expect(iMs + 1 >= uiTimeOutMs, "%s: a wait of %u ms timed out after %lld ms", roStream.szName.c_str(),
                      uiTimeOutMs, static_cast<long long>(iMs));
    roFindings.Expect((oWaited.uiField | oWaited.uiTicks) == 0, "%s: a wait that timed out wrote its outputs",
                      roStream.szName.c_str());
    return iMs - uiTimeOutMs;
}

// A millisecond is the grain of a time-out's unit; 2 seconds are beyond what any machine takes to wake a thread up, and
// 100 ms beyond what it takes each time.
template <typename TStreams> void TimeOuts(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    for (const auto& ro : oStreams.All())
    {
        roFindings.Checked();
        for (const uint32_t uiTimeOutMs : {0U, 2U, 50U})
        {
            int64_t iLeastMs = INT64_MAX;
            for (int iWait = 0; iWait < 5; ++iWait)
            {
                iLeastMs = std::min(iLeastMs, WaitInVain<TStreams>(roFindings, ro, uiTimeOutMs).value_or(INT64_MAX));
            }
            roFindings.Expect(iLeastMs < 100 || iLeastMs == INT64_MAX,
                              "%s: time-outs of %u ms pass at least %lld ms late", ro.szName.c_str(), uiTimeOutMs,
                              static_cast<long long>(iLeastMs));
        }
    }
}

// Gives whoever was asked for it the time to pull a cable.
template <typename TStreams> void AwaitLoss(const COpenStreams<TStreams>& roStreams)
{
    if (g_uiLossAtMostS == 0 || roStreams.All().empty())
    {
        return;
    }
    std::printf("now take the signal away from one of %s00 to %s, for some seconds (%u s are left for it)\n",
                TStreams::msc_szPrefix, roStreams.All().back().szName.c_str(), g_uiLossAtMostS);
    std::fflush(stdout);
    for (const auto oEnd = Clock::now() + std::chrono::seconds(g_uiLossAtMostS); Clock::now() < oEnd;)
    {
        for (const auto& ro : roStreams.All())
        {
            SWaited oWaited;
            if (TStreams::Wait(ro.h, 50, oWaited) == VtStatus_CANCELED)
            {
                return;
            }
        }
    }
}

// Whoever is cancelled finds no timings, unless the signal is back by then: one time in ten is let pass.
template <typename TStreams> void CancelledWaits(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    AwaitLoss(oStreams);
    for (const auto& ro : oStreams.All())
    {
        int iWithTimings = 0;
        int iCancelled = 0;
        for (const auto oEnd = Clock::now() + Milliseconds(600); Clock::now() < oEnd;)
        {
            SWaited oWaited;
            if (TStreams::Wait(ro.h, 50, oWaited) != VtStatus_CANCELED)
            {
                continue;
            }
            VtVideo_VidParam oParam{};
            roFindings.ExpectStatus(TStreams::Param(ro.h, oParam), VtStatus_OK,
                                    ro.szName + ": " + TStreams::msc_szParam);
            roFindings.Expect(oWaited.uiTicks == 0, "%s: a cancelled wait wrote its outputs", ro.szName.c_str());
            ++iCancelled;
            iWithTimings += oParam.uiHActive != 0 || oParam.uiVActive != 0 ? 1 : 0;
            std::this_thread::sleep_for(Milliseconds(5));
        }
        roFindings.Expect(iWithTimings <= (iCancelled + 9) / 10,
                          "%s: after %d of %d cancelled waits the timings were not 0", ro.szName.c_str(), iWithTimings,
                          iCancelled);
        iCancelled != 0 ? roFindings.Checked() : roFindings.Skip("%s needs a signal that goes away", ro.szName.c_str());
    }
}

// Opens, watches and releases one stream over and over, while others are watched.
template <typename TStreams>
void ComeAndGo(CFindings& roFindings, VtDevice_Handle hDev, const typename COpenStreams<TStreams>::SStream& ro,
               const std::atomic<bool>& rbStop)
{
    while (!rbStop.load())
    {
        typename TStreams::THandle h = nullptr;
        if (TStreams::Open(hDev, ro.uiIndex, &h) == VtStatus_OK)
        {
            ExpectToAdvance(roFindings, ro.szName, Watch<TStreams>(roFindings, ro.szName, h, 2, Milliseconds(50)));
            roFindings.ExpectStatus(TStreams::Release(h), VtStatus_OK, ro.szName + ": " + TStreams::msc_szRelease);
        }
    }
}

template <typename TStreams> void ManyThreads(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    if (oStreams.All().empty())
    {
        return;
    }
    roFindings.Checked();
    std::atomic<bool> bStop{false};
    std::thread oOther([&] { ComeAndGo<TStreams>(roFindings, hDev, oStreams.All().front(), bStop); });
    std::vector<std::thread> aoThreads;
    for (const auto& ro : oStreams.All())
    {
        aoThreads.emplace_back(
            [&roFindings, &ro] {
                ExpectToAdvance(roFindings, ro.szName,
                                Watch<TStreams>(roFindings, ro.szName, ro.h, 20, Milliseconds(1000)));
            });
    }
    for (std::thread& ro : aoThreads)
    {
        ro.join();
    }
    bStop.store(true);
    oOther.join();
}

void CaptureState(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<SInputs> oStreams(roFindings, hDev);
    for (const auto& ro : oStreams.All())
    {
        roFindings.Checked();
        VtVideoIn_State eState = VtVideoIn_State_INVALID;
        std::array<uint32_t, 4> aui{};
        VtPixelFormat eFormat = VtPixelFormat_FORCE32;
        roFindings.ExpectStatus(VtVideoIn_GetCaptureState(ro.h, &eState, &aui[0], &aui[1], &aui[2], &aui[3]),
                                VtStatus_OK, ro.szName + ": VtVideoIn_GetCaptureState()");
        roFindings.Expect(eState <= VtVideoIn_State_STARTED || eState == VtVideoIn_State_STOPPED,
                          "%s: the capture state is %u, which is none", ro.szName.c_str(), eState);
        roFindings.Expect(uint64_t{aui[1]} + aui[2] + aui[3] <= aui[0],
                          "%s: %u ready, %u loaned and %u internal buffers are more than %u in all", ro.szName.c_str(),
                          aui[1], aui[2], aui[3], aui[0]);
        roFindings.ExpectStatus(VtVideoIn_GetBufferAttributes(ro.h, &aui[0], &aui[1], &eFormat, &aui[2]), VtStatus_OK,
                                ro.szName + ": VtVideoIn_GetBufferAttributes()");
        roFindings.Expect(eFormat != VtPixelFormat_FORCE32, "%s: the pixel format was not written", ro.szName.c_str());
    }
}

void PowerState(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<SOutputs> oStreams(roFindings, hDev);
    for (const auto& ro : oStreams.All())
    {
        roFindings.Checked();
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_FORCE32;
        roFindings.ExpectStatus(VtVideoOut_GetPowerState(ro.h, &ePower), VtStatus_OK,
                                ro.szName + ": VtVideoOut_GetPowerState()");
        roFindings.Expect((ePower & (ePower - 1)) == 0 && ePower <= VtVideoOut_PowerState_OFF,
                          "%s: the power state is %u, which is none", ro.szName.c_str(), ePower);
    }
}

} // namespace

std::span<const SCheck> StreamChecks()
{
    static constexpr std::array aoChecks = {
        SCheck{"inputs refuse bad indices, null outputs, null and released handles", BadArguments<SInputs>},
        SCheck{"inputs: counters and stamps only advance, together, at the rate of the timings",
               CountersAndStamps<SInputs>},
        SCheck{"inputs: waits keep their time-out and leave their outputs alone when it passes", TimeOuts<SInputs>},
        SCheck{"inputs: a cancelled wait means that there are no timings", CancelledWaits<SInputs>},
        SCheck{"inputs: threads watch all of them while handles come and go", ManyThreads<SInputs>},
        SCheck{"inputs: buffers add up, the capture state is one that there is", CaptureState},
        SCheck{"outputs refuse bad indices, null outputs, null and released handles", BadArguments<SOutputs>},
        SCheck{"outputs: counters and stamps only advance, together, at the rate of the timings",
               CountersAndStamps<SOutputs>},
        SCheck{"outputs: waits keep their time-out and leave their outputs alone when it passes", TimeOuts<SOutputs>},
        SCheck{"outputs: a cancelled wait means that there are no timings", CancelledWaits<SOutputs>},
        SCheck{"outputs: threads watch all of them while handles come and go", ManyThreads<SOutputs>},
        SCheck{"outputs: the power state is one that there is", PowerState},
    };
    return aoChecks;
}
