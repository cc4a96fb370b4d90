/*
 * Prints what the board under test says of every field, for a comparison with what drivers and owners say of it.
 *   GuestFields <IN|OUT> <index>[,<index>] <milliseconds>
 * prints "hz <ticks a second>" and "clock <number> <ns at tick 0>", then "field <counter> <ticks> <top field> <skipped,
 * or set, buffers> <now in ns>" for each field of the first stream, and "status <number>" where a wait ends otherwise
 * for the first time in a row.
 */
#include <Veltrano.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace
{

using CClock = std::chrono::steady_clock;

struct SField
{
    uint64_t uiCounter = 0;
    uint64_t uiTicks = 0;
    uint64_t uiBuffers = 0;
    VtBool bTop = 0;
};

constexpr uint32_t TIME_OUT_MS = 200;

class CStream
{
public:
    CStream(bool bInput, uint32_t uiIndex) : m_uiIndex(uiIndex), m_hDev(Veltrano_GetDevice(0))
    {
        if (bInput)
        {
            VtVideoIn_GetHandle(m_hDev, uiIndex, VtAccessMode_READONLY, &m_hIn);
        }
        else
        {
            VtVideoOut_GetHandle(m_hDev, uiIndex, VtAccessMode_READONLY, &m_hOut);
        }
    }

    VtStatus Wait(SField& roField)
    {
        if (m_hIn == nullptr)
        {
            return VtVideoOut_WaitForFieldStart(m_hOut, TIME_OUT_MS, &roField.uiCounter, &roField.uiBuffers,
                                                &roField.uiTicks, &roField.bTop);
        }
        const VtStatus eStatus =
            VtVideoIn_WaitForFieldStart(m_hIn, TIME_OUT_MS, &roField.uiCounter, &roField.uiTicks, &roField.bTop);
        const VtBoard_CaptureSkipBufferCountIn oIn{m_uiIndex};
        VtBoard_CaptureSkipBufferCountOut oOut{};
        VtBoard_CustomCall(m_hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT, &oIn, sizeof(oIn), &oOut,
                           sizeof(oOut));
        roField.uiBuffers = oOut.uiSkipBuffCnt;
        return eStatus;
    }

    VtDevice_Handle Device() const { return m_hDev; }

private:
    uint32_t m_uiIndex;
    VtDevice_Handle m_hDev;
    VtVideoIn_Handle m_hIn = nullptr;
    VtVideoOut_Handle m_hOut = nullptr;
};

int64_t NowNs()
{
    return CClock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    if (iArguments != 4)
    {
        return 2;
    }
    Veltrano_LoadLite();
    const bool bInput = std::strcmp(pszArguments[1], "IN") == 0;
    CStream oStream(bInput, static_cast<uint32_t>(std::atoi(pszArguments[2])));
    const char* szSecond = std::strchr(pszArguments[2], ',');
    [[maybe_unused]] const std::optional<CStream> oSecond = // open for as long as the first
        szSecond == nullptr
            ? std::nullopt
            : std::optional<CStream>(std::in_place, bInput, static_cast<uint32_t>(std::atoi(szSecond + 1)));
    uint32_t uiHz = 0;
    VtBoard_GetTickReferenceFrequency(oStream.Device(), &uiHz);
    VtBoard_TickClockOut oClock{};
    VtBoard_CustomCall(oStream.Device(), VtBoard_CustomCallId_GET_TICK_CLOCK, nullptr, 0, &oClock, sizeof(oClock));
    std::printf("hz %u\nclock %u %lld\n", uiHz, oClock.uiClockId, static_cast<long long>(oClock.iOffsetNs));
    const int64_t iEndNs = NowNs() + std::atoll(pszArguments[3]) * 1000000;
    VtStatus eLast = VtStatus_OK;
    while (NowNs() < iEndNs)
    {
        SField oField;
        const VtStatus eStatus = oStream.Wait(oField);
        if (eStatus == VtStatus_OK)
        {
            std::printf("field %llu %llu %u %llu %lld\n", static_cast<unsigned long long>(oField.uiCounter),
                        static_cast<unsigned long long>(oField.uiTicks), oField.bTop,
                        static_cast<unsigned long long>(oField.uiBuffers), static_cast<long long>(NowNs()));
        }
        else if (eStatus != eLast)
        {
            std::printf("status %d\n", eStatus);
        }
        eLast = eStatus;
    }
    Veltrano_UnLoad();
    return 0;
}
