// See HandleTable.h.
//
// A handle, from the highest bit: 16 bits that no address of this machine has, 34 of generation, 12 of slot, 2 of kind.
#include "HandleTable.h"

#include <thread>

namespace
{

constexpr uint64_t uiMark = uint64_t{0x5E1D} << 48;
constexpr uint64_t uiGenerationMask = (uint64_t{1} << 34) - 1;
constexpr uint64_t uiSlotMask = (uint64_t{1} << 12) - 1;

static_assert(CHandleTable::msc_uiSlots <= uiSlotMask + 1);
static_assert(sizeof(void*) == sizeof(uint64_t), "a handle fills a pointer of 64 bits");

constexpr uint64_t MakeHandle(uint64_t uiGeneration, size_t uiSlot, EHandleKind eKind)
{
    return uiMark | (uiGeneration & uiGenerationMask) << 14 | uiSlot << 2 | static_cast<uint64_t>(eKind);
}

} // namespace

uint64_t CHandleTable::Open(EHandleKind eKind, CChip* poChip, CStream* poStream, bool bWriter)
{
    const std::lock_guard oGuard(m_oMutex);
    for (size_t uiTry = 0; uiTry < msc_uiSlots; ++uiTry)
    {
        const size_t uiSlot = (m_uiNextSlot + uiTry) % msc_uiSlots;
        SHandleSlot& roSlot = m_aoSlots[uiSlot];
        if (roSlot.uiHandle.load() != 0 || roSlot.uiInside.load() != 0)
        {
            continue;
        }
        m_uiNextSlot = uiSlot + 1;
        roSlot.bWriter = bWriter;
        roSlot.poChip = poChip;
        roSlot.poStream = poStream;
        roSlot.oReader.oSleeper.Reset();
        if (poStream != nullptr)
        {
            roSlot.oReader.uiNext.store(poStream->GetOpeningField(), std::memory_order_relaxed);
            poStream->GetOpenCount().fetch_add(1);
        }
        const uint64_t uiHandle = MakeHandle(++m_uiGeneration, uiSlot, eKind);
        roSlot.uiHandle.store(uiHandle);
        return uiHandle;
    }
    return 0;
}

void CHandleTable::EndWaits(SHandleSlot& roSlot)
{
    roSlot.oReader.oSleeper.Interrupt();
    if (roSlot.poStream != nullptr)
    {
        roSlot.poStream->Wake();
    }
}

bool CHandleTable::Close(SHandleSlot& roSlot, uint64_t uiHandle)
{
    const std::lock_guard oGuard(m_oMutex);
    if (!roSlot.uiHandle.compare_exchange_strong(uiHandle, 0))
    {
        return false;
    }
    roSlot.poStream->GetOpenCount().fetch_sub(1);
    if (roSlot.bWriter)
    {
        roSlot.poStream->GetWriterCount().fetch_sub(1);
    }
    EndWaits(roSlot);
    return true;
}

void CHandleTable::CloseAll()
{
    const std::lock_guard oGuard(m_oMutex);
    for (SHandleSlot& roSlot : m_aoSlots)
    {
        if (roSlot.uiHandle.exchange(0) != 0)
        {
            EndWaits(roSlot);
        }
    }
    for (const SHandleSlot& roSlot : m_aoSlots)
    {
        while (roSlot.uiInside.load(std::memory_order_acquire) != 0)
        {
            std::this_thread::yield(); // its wait has been ended, so it leaves at once
        }
    }
}

void CHandleTable::Interrupt(const CChip& roChip)
{
    const std::lock_guard oGuard(m_oMutex);
    for (SHandleSlot& roSlot : m_aoSlots)
    {
        if (roSlot.uiHandle.load() != 0 && roSlot.poChip == &roChip)
        {
            EndWaits(roSlot);
        }
    }
}

SHandleSlot* CHandleTable::Enter(uint64_t uiHandle, EHandleKind eKind)
{
    if ((uiHandle & uiMark) != uiMark || (uiHandle & 3U) != static_cast<uint64_t>(eKind))
    {
        return nullptr;
    }
    const size_t uiSlot = uiHandle >> 2 & uiSlotMask;
    if (uiSlot >= msc_uiSlots)
    {
        return nullptr;
    }
    SHandleSlot& roSlot = m_aoSlots[uiSlot];
    // Both sequentially consistent: either the closer sees the caller inside, or the caller sees the handle gone.
    roSlot.uiInside.fetch_add(1);
    if (roSlot.uiHandle.load() != uiHandle)
    {
        Leave(roSlot);
        return nullptr;
    }
    return &roSlot;
}

uint32_t CHandleTable::CountOpenStreams()
{
    const std::lock_guard oGuard(m_oMutex);
    uint32_t uiOpen = 0;
    for (const SHandleSlot& roSlot : m_aoSlots)
    {
        uiOpen += roSlot.uiHandle.load() != 0 && roSlot.poStream != nullptr ? 1U : 0U;
    }
    return uiOpen;
}
