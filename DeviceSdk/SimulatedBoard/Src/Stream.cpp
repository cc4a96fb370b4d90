// See Stream.h.
#include "Stream.h"

#include <chrono>

namespace
{

// A caller that was away for longer is not told of fields before.
constexpr uint64_t uiLatchFields = 1U << 16;
// Missed fields that one stepped wait passes over at most.
constexpr uint64_t uiMissedFields = 1U << 16;

std::string StreamColumns(const SStreamSetup& roSetup, EDirection eDirection)
{
    return std::to_string(roSetup.uiChip) + (eDirection == EDirection::INPUT ? ",in," : ",out,") +
           std::to_string(roSetup.uiIndex);
}

std::chrono::steady_clock::time_point ToTimePoint(int64_t iMonotonicNs)
{
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(iMonotonicNs));
}

int64_t DeadlineIn(int64_t iNowNs, uint32_t uiTimeOutMs)
{
    return iNowNs + int64_t{uiTimeOutMs} * 1'000'000;
}

// The oldest field that a caller is still told of who has seen those before uiUnseen.
uint64_t GetOldest(uint64_t uiUnseen, uint64_t uiNext)
{
    return std::max(uiUnseen, uiNext - std::min(uiNext, uiLatchFields));
}

// Fields that last as long as uiMs.
uint64_t FieldsIn(uint32_t uiMs, FixedTicks iFieldTicks, uint32_t uiTickFreqHz)
{
    // Less a tick, so that a field duration rounded downward does not cost another field.
    const FixedTicks iTicks = static_cast<FixedTicks>((UInt128{uiMs} * uiTickFreqHz << 64) / 1000) - iOneTick;
    return static_cast<uint64_t>((std::max<FixedTicks>(iTicks, 0) + iFieldTicks - 1) / iFieldTicks);
}

} // namespace

CStream::CStream(const SStream& roStream, const SStreamSetup& roSetup)
    : m_oModel(roStream),
      m_oSetup(roSetup),
      m_uiRemovalTicks(roSetup.uiRemovalTicks),
      m_oTruth(roSetup.pTruth, StreamColumns(roSetup, roStream.eDirection), m_oModel)
{
}

VtStatus CStream::Wait(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField)
{
    VtStatus eStatus = VtStatus_FAIL;
    switch (m_oSetup.eTimeMode)
    {
    case ETimeMode::REAL:
        CountEntered();
        eStatus = WaitReal(roReader, uiTimeOutMs, roField);
        break;
    case ETimeMode::STEPPED:
        CountEntered();
        eStatus = Step(roReader, uiTimeOutMs, roField);
        break;
    case ETimeMode::GRANTED:
        eStatus = WaitGranted(roReader, uiTimeOutMs, roField);
        break;
    }
    CountReturned(eStatus);
    return eStatus;
}

VtStatus CStream::WaitReal(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField)
{
    const int64_t iNowNs = MonotonicClock_GetNs();
    const uint64_t uiNow = m_oSetup.oClock.ToTicks(iNowNs);
    if (uiNow >= GetRemovalTicks())
    {
        return VtStatus_FAIL;
    }
    const uint64_t uiUnseen = roReader.uiNext.load(std::memory_order_relaxed);
    SFieldStart oComing = m_oModel.GetField(uiUnseen);
    if (oComing.uiDue <= uiNow)
    {
        const uint64_t uiComing = m_oModel.FindFirstAfter(uiNow, uiUnseen);
        const uint64_t uiEnd = m_oModel.FindLastReported(GetOldest(uiUnseen, uiComing), uiComing);
        if (uiEnd > GetOldest(uiUnseen, uiComing))
        {
            Pass(roReader, uiUnseen, uiEnd - 1, uiComing);
            Hang(roReader, uiEnd - 1, iNowNs);
            return Deliver(m_oModel.GetField(uiEnd - 1), roField);
        }
        oComing = m_oModel.GetField(uiComing);
    }
    const int64_t iDeadlineNs = DeadlineIn(iNowNs, uiTimeOutMs);
    const uint64_t uiCurrent = oComing.uiField > 0 ? oComing.uiField - 1 : 0;
    if (oComing.eFate == EFieldFate::MISSED)
    {
        const uint64_t uiEnd = m_oModel.FindFirstAfter(m_oSetup.oClock.ToTicks(iDeadlineNs), oComing.uiField);
        oComing = m_oModel.GetField(m_oModel.FindReported(oComing.uiField, uiEnd));
    }
    const VtStatus eStatus = SleepThenDeliver(roReader, uiUnseen, oComing, iDeadlineNs, roField);
    // While the signal is lost, nothing to deliver is no time-out.
    const bool bLost = eStatus == VtStatus_TIMEOUT && m_oModel.GetFate(uiCurrent) == EFieldFate::LOST;
    return bLost ? VtStatus_CANCELED : eStatus;
}

VtStatus CStream::SleepThenDeliver(SReader& roReader, uint64_t uiUnseen, const SFieldStart& roComing,
                                   int64_t iDeadlineNs, SFieldStart& roField)
{
    const int64_t iStartNs = m_oSetup.oClock.ToNs(roComing.uiDue);
    if (iStartNs > iDeadlineNs || roComing.uiDue >= GetRemovalTicks())
    {
        return SleepInVain(roReader, iDeadlineNs);
    }
    if (!roReader.oSleeper.SleepUntil(iStartNs))
    {
        return IsGone() ? VtStatus_FAIL : VtStatus_INVALID_PARAM;
    }
    Pass(roReader, uiUnseen, roComing.uiField, roComing.uiField + 1);
    Hang(roReader, roComing.uiField, iStartNs);
    return Deliver(roComing, roField);
}

// Notes that a wait has gone from uiUnseen to uiNext and reports one of the fields between.
void CStream::Pass(SReader& roReader, uint64_t uiUnseen, uint64_t uiReported, uint64_t uiNext)
{
    roReader.uiNext.store(uiNext, std::memory_order_relaxed);
    m_uiPosition.store(uiNext, std::memory_order_relaxed);
    if (m_oSetup.pTruth != nullptr)
    {
        m_oTruth.Add(uiUnseen, uiReported, uiNext);
    }
}

void CStream::Hang(SReader& roReader, uint64_t uiField, int64_t iFromNs) const
{
    if (const uint32_t uiHangMs = m_oModel.GetHangMs(uiField) + m_oModel.GetLateMs(uiField); uiHangMs > 0)
    {
        (void)roReader.oSleeper.SleepUntil(iFromNs + m_oSetup.oClock.ToRealNs(uiHangMs));
    }
}

// No field comes before iDeadlineNs; at most the device goes away.
VtStatus CStream::SleepInVain(SReader& roReader, int64_t iDeadlineNs)
{
    const uint64_t uiRemoval = GetRemovalTicks();
    if (uiRemoval != uiForEver)
    {
        iDeadlineNs = std::min(iDeadlineNs, m_oSetup.oClock.ToNs(uiRemoval));
    }
    const bool bReached = roReader.oSleeper.SleepUntil(iDeadlineNs);
    if (IsGone())
    {
        return VtStatus_FAIL;
    }
    return bReached ? VtStatus_TIMEOUT : VtStatus_INVALID_PARAM;
}

VtStatus CStream::Deliver(const SFieldStart& roReported, SFieldStart& roField)
{
    switch (roReported.eFate)
    {
    case EFieldFate::LOST:
        return VtStatus_CANCELED;
    case EFieldFate::TIMED_OUT:
        return VtStatus_TIMEOUT;
    case EFieldFate::FAILED:
        return VtStatus_FAIL;
    case EFieldFate::STARTED:
    case EFieldFate::MISSED:
        break;
    }
    roField = roReported;
    return VtStatus_OK;
}

VtStatus CStream::Step(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField)
{
    const uint64_t uiUnseen = roReader.uiNext.load(std::memory_order_relaxed);
    uint64_t uiPosition = m_uiPosition.load(std::memory_order_acquire);
    while (!IsGone())
    {
        if (uiUnseen < uiPosition)
        {
            const uint64_t uiEnd = m_oModel.FindLastReported(GetOldest(uiUnseen, uiPosition), uiPosition);
            if (uiEnd > GetOldest(uiUnseen, uiPosition))
            {
                roReader.uiNext.store(uiPosition, std::memory_order_relaxed);
                m_oTruth.Add(uiUnseen, uiEnd - 1, uiPosition);
                return Deliver(m_oModel.GetField(uiEnd - 1), roField);
            }
        }
        uint64_t uiField = uiPosition;
        uint64_t uiNext = uiPosition + 1;
        const bool bMissed = m_oModel.GetFate(uiPosition) == EFieldFate::MISSED;
        bool bReported = true;
        if (bMissed)
        {
            const uint64_t uiFields =
                FieldsIn(uiTimeOutMs, m_oModel.GetFieldTicks(), m_oModel.GetStream().uiTickFreqHz);
            const uint64_t uiEnd = uiPosition + std::clamp<uint64_t>(uiFields, 1, uiMissedFields);
            uiField = m_oModel.FindReported(uiPosition, uiEnd);
            bReported = uiField < uiEnd;
            uiNext = bReported ? uiField + 1 : uiField;
        }
        uiNext = bReported ? std::max(uiNext, GetFieldAfterHang(uiField)) : uiNext;
        if (m_uiPosition.compare_exchange_weak(uiPosition, uiNext, std::memory_order_acq_rel))
        {
            roReader.uiNext.store(bReported ? uiField + 1 : uiNext, std::memory_order_relaxed);
            m_oTruth.Add(uiUnseen, bReported ? uiField : uiForEver, bReported ? uiField + 1 : uiNext);
            return bReported ? Deliver(m_oModel.GetField(uiField), roField) : VtStatus_TIMEOUT;
        }
    }
    return VtStatus_FAIL;
}

// First field that starts after the wait that delivers uiField comes back; 0 when that wait does not hang.
uint64_t CStream::GetFieldAfterHang(uint64_t uiField) const
{
    const uint32_t uiHangMs = m_oModel.GetHangMs(uiField);
    if (uiHangMs == 0)
    {
        return 0;
    }
    const uint64_t uiHangTicks = uint64_t{uiHangMs} * m_oModel.GetStream().uiTickFreqHz / 1000;
    return m_oModel.FindFirstAfter(m_oModel.GetStamp(uiField) + uiHangTicks, uiField + 1);
}

VtStatus CStream::WaitGranted(SReader& roReader, uint32_t uiTimeOutMs, SFieldStart& roField)
{
    const auto oDeadline = ToTimePoint(DeadlineIn(MonotonicClock_GetNs(), uiTimeOutMs));
    std::unique_lock oLock(m_oMutex);
    CountEntered();
    m_oIdle.notify_all();
    bool bTimedOut = false;
    while (!roReader.oSleeper.IsInterrupted())
    {
        if (IsGone())
        {
            return VtStatus_FAIL;
        }
        if (m_uiTimeOutGrants > 0)
        {
            --m_uiTimeOutGrants;
            return VtStatus_TIMEOUT;
        }
        if (m_uiGrants > 0)
        {
            --m_uiGrants;
            return Step(roReader, uiTimeOutMs, roField);
        }
        if (bTimedOut)
        {
            return VtStatus_TIMEOUT;
        }
        ++m_uiWaiting;
        m_oIdle.notify_all();
        if (m_oSetup.bHold)
        {
            m_oGranted.wait(oLock);
        }
        else
        {
            bTimedOut = m_oGranted.wait_until(oLock, oDeadline) == std::cv_status::timeout;
        }
        --m_uiWaiting;
    }
    return IsGone() ? VtStatus_FAIL : VtStatus_INVALID_PARAM;
}

uint64_t CStream::GetOpeningField() const
{
    if (m_oSetup.eTimeMode != ETimeMode::REAL)
    {
        return m_uiPosition.load(std::memory_order_acquire);
    }
    return m_oModel.FindFirstAfter(m_oSetup.oClock.ToTicks(MonotonicClock_GetNs()), 0);
}

uint64_t CStream::GetCurrentField(uint64_t uiHint) const
{
    uint64_t uiNext = m_uiPosition.load(std::memory_order_acquire);
    if (m_oSetup.eTimeMode == ETimeMode::REAL)
    {
        uiNext = m_oModel.FindFirstAfter(m_oSetup.oClock.ToTicks(MonotonicClock_GetNs()), uiHint);
    }
    return uiNext > 0 ? uiNext - 1 : 0;
}

uint64_t CStream::GetLatestField() const
{
    const uint64_t uiPosition = m_uiPosition.load(std::memory_order_acquire);
    return GetCurrentField(uiPosition > 0 ? uiPosition - 1 : 0);
}

bool CStream::IsGone() const
{
    const uint64_t uiRemoval = GetRemovalTicks();
    if (uiRemoval == uiForEver)
    {
        return false;
    }
    if (m_oSetup.eTimeMode == ETimeMode::REAL)
    {
        return m_oSetup.oClock.ToTicks(MonotonicClock_GetNs()) >= uiRemoval;
    }
    return m_oModel.GetStamp(m_uiPosition.load(std::memory_order_acquire)) >= uiRemoval;
}

void CStream::Wake()
{
    const std::lock_guard oGuard(m_oMutex);
    m_oGranted.notify_all();
    m_oIdle.notify_all();
}

void CStream::Grant(uint64_t uiFields, uint64_t uiTimeOuts)
{
    const std::lock_guard oGuard(m_oMutex);
    m_uiGrants += uiFields;
    m_uiTimeOutGrants += uiTimeOuts;
    m_oGranted.notify_all();
}

bool CStream::AwaitIdle(int64_t iDeadlineNs)
{
    std::unique_lock oLock(m_oMutex);
    return m_oIdle.wait_until(oLock, ToTimePoint(iDeadlineNs),
                              [this] { return m_uiGrants == 0 && m_uiTimeOutGrants == 0 && m_uiWaiting > 0; });
}

bool CStream::AwaitEntered(uint64_t uiEntered, int64_t iDeadlineNs)
{
    std::unique_lock oLock(m_oMutex);
    return m_oIdle.wait_until(oLock, ToTimePoint(iDeadlineNs),
                              [this, uiEntered] { return m_uiEntered.load() >= uiEntered; });
}

void CStream::StepOver(uint64_t uiFields)
{
    m_uiPosition.fetch_add(uiFields, std::memory_order_acq_rel);
}

void CStream::CountFailedWait()
{
    {
        const std::lock_guard oGuard(m_oMutex);
        CountEntered();
        m_oIdle.notify_all();
    }
    m_uiOther.fetch_add(1, std::memory_order_relaxed);
}

void CStream::CountEntered()
{
    m_uiEntered.fetch_add(1, std::memory_order_relaxed);
}

void CStream::CountReturned(VtStatus eStatus)
{
    std::atomic<uint64_t>& ruiCount = eStatus == VtStatus_OK         ? m_uiOk
                                      : eStatus == VtStatus_CANCELED ? m_uiCanceled
                                      : eStatus == VtStatus_TIMEOUT  ? m_uiTimedOut
                                                                     : m_uiOther;
    ruiCount.fetch_add(1, std::memory_order_relaxed);
}

SWaitCounts CStream::GetWaitCounts() const
{
    return {.uiEntered = m_uiEntered.load(),
            .uiOk = m_uiOk.load(),
            .uiCanceled = m_uiCanceled.load(),
            .uiTimedOut = m_uiTimedOut.load(),
            .uiOther = m_uiOther.load()};
}
