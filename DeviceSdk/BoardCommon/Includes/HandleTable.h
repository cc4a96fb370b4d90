/*
 * The handles that callers hold: opaque values that name a slot and the generation of its use, never addresses.
 *
 * A null, stale or invented handle, or one of another kind, therefore finds nothing. Looking one up takes no lock: a
 * caller announces itself in the slot and then checks that the slot still has its handle; whoever closes a handle
 * clears it first and then sees who is inside. What a handle stands for lives until the last caller has left. Opening
 * and closing take a mutex. Any thread.
 */
#ifndef BOARD_COMMON_HANDLE_TABLE_H
#define BOARD_COMMON_HANDLE_TABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

enum class EHandleKind : uint8_t
{
    DEVICE = 1,
    INPUT = 2,
    OUTPUT = 3
};

// From the highest bit: 16 bits that no address of this machine has, 34 of generation, 12 of slot, 2 of kind.
static_assert(sizeof(void*) == sizeof(uint64_t), "a handle fills a pointer of 64 bits");
inline constexpr uint64_t uiHandleMark = uint64_t{0x5E1D} << 48;
inline constexpr uint64_t uiHandleGenerationMask = (uint64_t{1} << 34) - 1;
inline constexpr size_t uiMostHandleSlots = size_t{1} << 12;

template <typename TObject, size_t uiSlots> class CHandleTable
{
    static_assert(uiSlots <= uiMostHandleSlots);

    // On cache lines of its own, so that callers of different handles do not disturb each other.
    struct alignas(64) SSlot
    {
        std::atomic<uint64_t> uiHandle{0}; // 0: closed
        std::atomic<uint32_t> uiInside{0}; // callers inside an operation
        std::unique_ptr<TObject> poObject; // set before uiHandle
    };

public:
    // A caller inside of a handle, for as long as this lives. Points to what the handle stands for, if it is one.
    class CEntry
    {
    public:
        CEntry(CHandleTable& roTable, SSlot* poSlot) : m_roTable(roTable), m_poSlot(poSlot) {}
        ~CEntry()
        {
            if (m_poSlot != nullptr)
            {
                m_roTable.Leave(*m_poSlot);
            }
        }
        CEntry(const CEntry&) = delete;
        CEntry& operator=(const CEntry&) = delete;

        bool operator==(std::nullptr_t) const { return m_poSlot == nullptr; }
        TObject& operator*() const { return *m_poSlot->poObject; }
        TObject* operator->() const { return m_poSlot->poObject.get(); }

    private:
        CHandleTable& m_roTable;
        SSlot* m_poSlot;
    };

    /* Null when every slot is taken; the object is freed then. */
    void* Open(EHandleKind eKind, std::unique_ptr<TObject> poObject)
    {
        const std::lock_guard oGuard(m_oMutex);
        for (size_t uiTry = 0; uiTry < uiSlots; ++uiTry)
        {
            const size_t uiSlot = (m_uiNextSlot + uiTry) % uiSlots;
            SSlot& roSlot = m_aoSlots[uiSlot];
            if (roSlot.uiHandle.load() != 0 || roSlot.uiInside.load() != 0)
            {
                continue;
            }
            m_uiNextSlot = uiSlot + 1;
            roSlot.poObject = std::move(poObject);
            const uint64_t uiHandle = uiHandleMark | (++m_uiGeneration & uiHandleGenerationMask) << 14 | uiSlot << 2 |
                                      static_cast<uint64_t>(eKind);
            roSlot.uiHandle.store(uiHandle);
            return reinterpret_cast<void*>(uiHandle);
        }
        return nullptr;
    }

    CEntry Enter(const void* hHandle, EHandleKind eKind)
    {
        const auto uiHandle = reinterpret_cast<uint64_t>(hHandle);
        if ((uiHandle & uiHandleMark) != uiHandleMark || (uiHandle & 3U) != static_cast<uint64_t>(eKind))
        {
            return CEntry(*this, nullptr);
        }
        SSlot& roSlot = GetSlot(uiHandle);
        // Both sequentially consistent: either the closer sees the caller inside, or the caller sees the handle gone.
        roSlot.uiInside.fetch_add(1);
        if (roSlot.uiHandle.load() != uiHandle)
        {
            Leave(roSlot);
            return CEntry(*this, nullptr);
        }
        return CEntry(*this, &roSlot);
    }

    /*
     * Closes a handle; false when it is none, or somebody else just did.
     *   fnEnd  in  told what it stood for, to end what sleeps inside
     */
    template <typename TFunction> bool Close(const void* hHandle, EHandleKind eKind, TFunction fnEnd)
    {
        const CEntry oEntry = Enter(hHandle, eKind);
        const std::lock_guard oGuard(m_oMutex);
        auto uiHandle = reinterpret_cast<uint64_t>(hHandle);
        if (oEntry == nullptr || !GetSlot(uiHandle).uiHandle.compare_exchange_strong(uiHandle, 0))
        {
            return false;
        }
        fnEnd(*oEntry);
        return true;
    }

    bool Close(const void* hHandle, EHandleKind eKind)
    {
        return Close(hHandle, eKind, [](TObject&) {});
    }

    /* Closes every handle, as Close, and comes back when no caller is inside any more. */
    template <typename TFunction> void CloseAll(TFunction fnEnd)
    {
        {
            const std::lock_guard oGuard(m_oMutex);
            for (SSlot& roSlot : m_aoSlots)
            {
                if (roSlot.uiHandle.exchange(0) != 0)
                {
                    fnEnd(*roSlot.poObject);
                }
            }
        }
        for (SSlot& roSlot : m_aoSlots)
        {
            while (roSlot.uiInside.load() != 0)
            {
                std::this_thread::yield(); // what slept has been woken
            }
            Free(roSlot);
        }
    }

    void CloseAll()
    {
        CloseAll([](TObject&) {});
    }

    /* What every open handle stands for; none is opened or closed meanwhile. */
    template <typename TFunction> void ForEach(TFunction fnDo)
    {
        const std::lock_guard oGuard(m_oMutex);
        for (SSlot& roSlot : m_aoSlots)
        {
            if (roSlot.uiHandle.load() != 0)
            {
                fnDo(*roSlot.poObject);
            }
        }
    }

private:
    SSlot& GetSlot(uint64_t uiHandle) { return m_aoSlots[(uiHandle >> 2 & (uiMostHandleSlots - 1)) % uiSlots]; }

    void Leave(SSlot& roSlot)
    {
        if (roSlot.uiInside.fetch_sub(1) == 1 && roSlot.uiHandle.load() == 0)
        {
            Free(roSlot);
        }
    }

    void Free(SSlot& roSlot)
    {
        const std::lock_guard oGuard(m_oMutex);
        if (roSlot.uiHandle.load() == 0 && roSlot.uiInside.load() == 0)
        {
            roSlot.poObject.reset();
        }
    }

    std::array<SSlot, uiSlots> m_aoSlots{};
    std::mutex m_oMutex;
    uint64_t m_uiGeneration = 0; // guarded by m_oMutex
    size_t m_uiNextSlot = 0;     // guarded by m_oMutex
};

#endif
