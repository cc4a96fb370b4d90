// Promises of time: whose stamps, which field a late caller gets, how late a wait comes back.
//
// The machine may be loaded, and then everything is late that it runs. So stamps are compared with stamps; lateness
// with that of a timer of the same thread at the same time, and of what a machine does to a single wait only the middle
// of many counts. Moments are nanoseconds of the steady clock, stamps are turned into nanoseconds by the chip's
// frequency.
#include "TimingChecks.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <map>
#include <optional>
#include <thread>

#include "OpenStreams.h"

namespace
{

using Clock = std::chrono::steady_clock;

constexpr uint32_t uiCallersTimeOutMs = 50;
constexpr int64_t iNsPerMs = 1'000'000;

int64_t NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

void SleepUntil(int64_t iNs)
{
    std::this_thread::sleep_until(Clock::time_point(std::chrono::nanoseconds(iNs)));
}

// One field, when the wait for it was called and when it came back.
struct SSeen
{
    SWaited oField;
    int64_t iStampNs = 0;
    int64_t iCalledNs = 0;
    int64_t iBackNs = 0;
};

double GetNsPerTick(CFindings& roFindings, VtDevice_Handle hDev)
{
    uint32_t uiFreqHz = 0;
    roFindings.ExpectStatus(VtBoard_GetTickReferenceFrequency(hDev, &uiFreqHz), VtStatus_OK,
                            "VtBoard_GetTickReferenceFrequency()");
    return uiFreqHz == 0 ? 1.0 : 1e9 / uiFreqHz;
}

template <typename TStreams> std::optional<SSeen> WaitOnce(typename TStreams::THandle hStream, double flNsPerTick)
{
    SSeen oSeen;
    oSeen.iCalledNs = NowNs();
    const VtStatus eStatus = TStreams::Wait(hStream, uiCallersTimeOutMs, oSeen.oField);
    oSeen.iBackNs = NowNs();
    oSeen.iStampNs = static_cast<int64_t>(static_cast<double>(oSeen.oField.uiTicks) * flNsPerTick);
    if (eStatus == VtStatus_CANCELED)
    {
        SleepUntil(oSeen.iBackNs + 5 * iNsPerMs); // as a caller would: it may come back at once
    }
    return eStatus == VtStatus_OK ? std::optional(oSeen) : std::nullopt;
}

template <typename TStreams>
std::vector<SSeen> WatchFor(typename TStreams::THandle hStream, double flNsPerTick, size_t uiFields, int64_t iAtMostMs)
{
    std::vector<SSeen> aoSeen;
    for (const int64_t iEnd = NowNs() + iAtMostMs * iNsPerMs; aoSeen.size() < uiFields && NowNs() < iEnd;)
    {
        if (const auto oSeen = WaitOnce<TStreams>(hStream, flNsPerTick))
        {
            aoSeen.push_back(*oSeen);
        }
    }
    return aoSeen;
}

double CountFields(const SSeen& roFrom, const SSeen& roTo)
{
    return static_cast<double>(static_cast<int64_t>(roTo.oField.uiField - roFrom.oField.uiField)) / 16.0;
}

// Duration of a field by counter and stamps; 0 when nothing went on.
double GetPeriodNs(const std::vector<SSeen>& raoSeen)
{
    const double flFields = CountFields(raoSeen.front(), raoSeen.back());
    return flFields <= 0.0 ? 0.0 : static_cast<double>(raoSeen.back().iStampNs - raoSeen.front().iStampNs) / flFields;
}

// What the steady clock is ahead of the stamps by, and the delay that no wait undercuts.
int64_t GetLeastDelayNs(const std::vector<SSeen>& raoSeen)
{
    int64_t iLeast = INT64_MAX;
    for (const SSeen& roSeen : raoSeen)
    {
        iLeast = std::min(iLeast, roSeen.iBackNs - roSeen.iStampNs);
    }
    return iLeast;
}

// The value below which so much of them lies.
double GetQuantile(std::vector<double> aflValues, double flShare)
{
    const auto itAt = aflValues.begin() + static_cast<std::ptrdiff_t>(flShare * static_cast<double>(aflValues.size()));
    std::ranges::nth_element(aflValues, itAt);
    return *itAt;
}

struct SLateCalls
{
    std::vector<double> aflAges;    // of the field that came, before the call, in fields
    std::vector<double> aflOffGrid; // its distance from the next one, against that of their counters, in fields
};

// Calls that come three fields and a half or so after the last one.
template <typename TStreams>
SLateCalls CallLate(typename TStreams::THandle hStream, double flNsPerTick, double flPeriodNs, int64_t iLeastDelayNs)
{
    SLateCalls oCalls;
    for (const double flFields : {3.3, 3.5, 3.7, 3.4, 3.6, 3.5, 3.3, 3.6, 3.4})
    {
        SleepUntil(NowNs() + static_cast<int64_t>(flFields * flPeriodNs));
        const auto oLate = WaitOnce<TStreams>(hStream, flNsPerTick);
        const auto oNext = WaitOnce<TStreams>(hStream, flNsPerTick);
        if (oLate && oNext)
        {
            const auto flAge = static_cast<double>(oLate->iCalledNs - oLate->iStampNs - iLeastDelayNs);
            const auto flApart = static_cast<double>(oNext->iStampNs - oLate->iStampNs);
            oCalls.aflAges.push_back(flAge / flPeriodNs);
            oCalls.aflOffGrid.push_back(std::abs(flApart / flPeriodNs - CountFields(*oLate, *oNext)));
        }
    }
    return oCalls;
}

template <typename TStreams> void LateCallers(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const double flNsPerTick = GetNsPerTick(roFindings, hDev);
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    for (const auto& ro : oStreams.All())
    {
        const std::vector<SSeen> aoSeen = WatchFor<TStreams>(ro.h, flNsPerTick, 12, 1000);
        const double flPeriodNs = aoSeen.size() < 12 ? 0.0 : GetPeriodNs(aoSeen);
        const SLateCalls oCalls = flPeriodNs <= 0.0
                                      ? SLateCalls{}
                                      : CallLate<TStreams>(ro.h, flNsPerTick, flPeriodNs, GetLeastDelayNs(aoSeen));
        if (oCalls.aflAges.size() < 6)
        {
            roFindings.Skip("%s needs a steady signal", ro.szName.c_str());
            continue;
        }
        roFindings.Checked();
        const double flAge = GetQuantile(oCalls.aflAges, 0.5);
        roFindings.Expect(flAge < 1.6, "%s: a late caller gets a field that began %.1f fields before, not the newest",
                          ro.szName.c_str(), flAge);
        const double flOffGrid = GetQuantile(oCalls.aflOffGrid, 0.5);
        roFindings.Expect(flOffGrid < 1.0 / 6.0,
                          "%s: stamps of late callers lie off the grid of the fields by %.2f of one: taken at wake-up?",
                          ro.szName.c_str(), flOffGrid);
    }
}

// Two handles watch at the same time; what they both saw must be the same to the tick.
template <typename TStreams> void TwoHandles(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    COpenStreams<TStreams> oOthers(roFindings, hDev);
    for (size_t uiStream = 0; uiStream < std::min(oStreams.All().size(), oOthers.All().size()); ++uiStream)
    {
        const auto& ro = oStreams.All()[uiStream];
        std::vector<SSeen> aoOthers;
        std::thread oThread([&] { aoOthers = WatchFor<TStreams>(oOthers.All()[uiStream].h, 1.0, 20, 600); });
        const std::vector<SSeen> aoSeen = WatchFor<TStreams>(ro.h, 1.0, 20, 600);
        oThread.join();
        std::map<uint64_t, SWaited> oByCounter;
        for (const SSeen& roSeen : aoSeen)
        {
            oByCounter[roSeen.oField.uiField] = roSeen.oField;
        }
        size_t uiCommon = 0;
        for (const SSeen& roOther : aoOthers)
        {
            const auto itSame = oByCounter.find(roOther.oField.uiField);
            uiCommon += itSame == oByCounter.end() ? 0U : 1U;
            roFindings.Expect(itSame == oByCounter.end() || (itSame->second.uiTicks == roOther.oField.uiTicks &&
                                                             itSame->second.bTop == roOther.oField.bTop),
                              "%s: two handles give the field of counter %llu different stamps or flags",
                              ro.szName.c_str(), static_cast<unsigned long long>(roOther.oField.uiField));
        }
        uiCommon > 0 ? roFindings.Checked() : roFindings.Skip("%s needs a steady signal", ro.szName.c_str());
    }
}

struct SOffset
{
    std::string szName;
    int64_t iNs = 0; // of the steady clock against its stamps
};

// Opens one stream after the other, so that counters that begin with their handle are apart.
template <typename TStreams>
void MeasureOffsets(CFindings& roFindings, VtDevice_Handle hDev, double flNsPerTick, std::vector<SOffset>& raoOffsets)
{
    uint32_t uiCount = 0;
    roFindings.ExpectStatus(TStreams::GetCount(hDev, uiCount), VtStatus_OK, TStreams::msc_szGetCount);
    for (uint32_t uiIndex = 0; uiIndex < uiCount; ++uiIndex)
    {
        const int64_t iNextNs = NowNs() + 600 * iNsPerMs;
        typename TStreams::THandle hStream = nullptr;
        if (TStreams::Open(hDev, uiIndex, &hStream) != VtStatus_OK)
        {
            continue;
        }
        const std::string szName = StreamName<TStreams>(uiIndex);
        const std::vector<SSeen> aoSeen = WatchFor<TStreams>(hStream, flNsPerTick, 25, 500);
        roFindings.ExpectStatus(TStreams::Release(hStream), VtStatus_OK, szName + ": " + TStreams::msc_szRelease);
        if (aoSeen.size() >= 5)
        {
            raoOffsets.push_back({szName, GetLeastDelayNs(aoSeen)});
            SleepUntil(iNextNs);
        }
    }
}

// Neither a loaded machine nor a camera that hands its pictures over late comes near the 300 ms.
void OneCounter(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const double flNsPerTick = GetNsPerTick(roFindings, hDev);
    std::vector<SOffset> aoOffsets;
    MeasureOffsets<SInputs>(roFindings, hDev, flNsPerTick, aoOffsets);
    MeasureOffsets<SOutputs>(roFindings, hDev, flNsPerTick, aoOffsets);
    if (aoOffsets.size() < 2)
    {
        roFindings.Skip("two streams with a steady signal are needed");
        return;
    }
    roFindings.Checked();
    const auto [itLeast, itMost] = std::ranges::minmax_element(aoOffsets, {}, &SOffset::iNs);
    const double flApartMs = static_cast<double>(itMost->iNs - itLeast->iNs) / iNsPerMs;
    roFindings.Expect(flApartMs < 300.0, "the stamps of %s and %s are %.0f ms apart at one moment: not one counter",
                      itLeast->szName.c_str(), itMost->szName.c_str(), flApartMs);
}

// Milliseconds: of waits against the least late tenth of them, of a timer against its moment.
struct SLateness
{
    std::string szName;
    std::vector<double> aflWaits{};
    std::vector<double> aflTimers{};

    double GetWaits(double flShare) const { return GetQuantile(aflWaits, flShare) - GetQuantile(aflWaits, 0.1); }
    double GetTimers(double flShare) const { return GetQuantile(aflTimers, flShare); }
    // As late as a timer here, or twice that, is the scheduler's doing; a millisecond is let pass.
    double GetExcess() const { return GetWaits(0.5) - 2.0 * GetTimers(0.5) - 1.0; }
};

// Waits and timers in turn, so that whatever else the machine does meets both.
template <typename TStreams>
SLateness MeasureLateness(const typename COpenStreams<TStreams>::SStream& roStream, double flNsPerTick)
{
    SLateness oLateness{.szName = roStream.szName};
    for (const int64_t iEnd = NowNs() + 1500 * iNsPerMs; NowNs() < iEnd && oLateness.aflWaits.size() < 60;)
    {
        const auto oSeen = WaitOnce<TStreams>(roStream.h, flNsPerTick);
        if (oSeen && oSeen->iBackNs - oSeen->iCalledNs > iNsPerMs / 4)
        {
            oLateness.aflWaits.push_back(static_cast<double>(oSeen->iBackNs - oSeen->iStampNs) / iNsPerMs);
        }
        const int64_t iTimerNs = NowNs() + 2 * iNsPerMs;
        SleepUntil(iTimerNs);
        oLateness.aflTimers.push_back(static_cast<double>(NowNs() - iTimerNs) / iNsPerMs);
    }
    return oLateness;
}

template <typename TStreams> void Lateness(CFindings& roFindings, VtDevice_Handle hDev, uint32_t)
{
    const double flNsPerTick = GetNsPerTick(roFindings, hDev);
    COpenStreams<TStreams> oStreams(roFindings, hDev);
    std::optional<SLateness> oLatest;
    for (const auto& ro : oStreams.All())
    {
        SLateness oLateness = MeasureLateness<TStreams>(ro, flNsPerTick);
        if (oLateness.aflWaits.size() < 20)
        {
            roFindings.Skip("%s needs a steady signal", ro.szName.c_str());
            continue;
        }
        if (oLateness.GetExcess() > 0.0)
        {
            oLateness = MeasureLateness<TStreams>(ro, flNsPerTick); // it may have been the machine
        }
        roFindings.Checked();
        roFindings.Expect(oLateness.aflWaits.size() < 20 || oLateness.GetExcess() <= 0.0,
                          "%s: half of the waits come back more than %.2f ms later than others, a timer %.2f ms late",
                          ro.szName.c_str(), oLateness.GetWaits(0.5), oLateness.GetTimers(0.5));
        if (!oLatest || oLateness.GetWaits(0.5) > oLatest->GetWaits(0.5))
        {
            oLatest = oLateness;
        }
    }
    if (oLatest)
    {
        roFindings.Note("the latest, %s: half within %.2f ms, 9 in 10 within %.2f ms, all within %.2f ms; "
                        "a timer of this machine: %.2f, %.2f, %.2f ms",
                        oLatest->szName.c_str(), oLatest->GetWaits(0.5), oLatest->GetWaits(0.9),
                        oLatest->GetWaits(0.999), oLatest->GetTimers(0.5), oLatest->GetTimers(0.9),
                        oLatest->GetTimers(0.999));
    }
}

} // namespace

std::span<const SCheck> TimingChecks()
{
    static constexpr std::array aoChecks = {
        // The first that opens a stream: a counter may begin when its stream is opened for the first time.
        SCheck{"all inputs and outputs are stamped by one counter", OneCounter},
        SCheck{"inputs: a late caller gets the newest field, with the stamp of its start", LateCallers<SInputs>},
        SCheck{"inputs: two handles of one stream give one stamp for one counter", TwoHandles<SInputs>},
        SCheck{"inputs: a wait is late only by what the scheduler costs", Lateness<SInputs>},
        SCheck{"outputs: a late caller gets the newest field, with the stamp of its start", LateCallers<SOutputs>},
        SCheck{"outputs: two handles of one stream give one stamp for one counter", TwoHandles<SOutputs>},
        SCheck{"outputs: a wait is late only by what the scheduler costs", Lateness<SOutputs>},
    };
    return aoChecks;
}
