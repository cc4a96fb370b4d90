/*
 * The handles that callers hold: opaque values that name a slot and the generation of its use, never addresses.
 *
 * A null, stale or foreign handle therefore finds no slot. Looking one up takes no lock: a caller announces itself in
 * the slot and then checks that the slot still has its handle; whoever closes a handle clears it first and then sees
 * who is inside. Opening and closing take a mutex. Slots are never freed.
 */
#ifndef SIMULATED_BOARD_HANDLE_TABLE_H
#define SIMULATED_BOARD_HANDLE_TABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "Stream.h"

class CChip;

enum class EHandleKind : uint8_t
{
    DEVICE = 1,
    INPUT = 2,
    OUTPUT = 3
};

// On cache lines of its own, so that callers of different handles do not disturb each other.
struct alignas(64) SHandleSlot
{
    std::atomic<uint64_t> uiHandle{0}; // 0: closed
    std::atomic<uint32_t> uiInside{0}; // callers inside an operation
    bool bWriter = false;              // set before uiHandle, as the following
    CChip* poChip = nullptr;
    CStream* poStream = nullptr; // null for a device
    SReader oReader;
};

class CHandleTable
{
public:
    static constexpr size_t msc_uiSlots = 2048;

    /* 0 when every slot is taken. poStream null: a device. */
    uint64_t Open(EHandleKind eKind, CChip* poChip, CStream* poStream, bool bWriter);
    /* Closes a handle that the caller is inside of; false when somebody else just did. */
    bool Close(SHandleSlot& roSlot, uint64_t uiHandle);
    /* Closes every handle, ends their waits and comes back when no caller is inside any more. */
    void CloseAll();
    /* Ends the sleep of every wait on a chip. */
    void Interrupt(const CChip& roChip);

    /* The slot of a handle, with the caller announced in it; null for a handle that is none of this kind. */
    SHandleSlot* Enter(uint64_t uiHandle, EHandleKind eKind);
    static void Leave(SHandleSlot& roSlot) { roSlot.uiInside.fetch_sub(1, std::memory_order_release); }

    uint32_t CountOpenStreams();

private:
    static void EndWaits(SHandleSlot& roSlot);

    std::array<SHandleSlot, msc_uiSlots> m_aoSlots{};
    std::mutex m_oMutex;
    uint64_t m_uiGeneration = 0; // guarded by m_oMutex
    size_t m_uiNextSlot = 0;     // guarded by m_oMutex
};

#endif
