/*
 * Handles of the interface are tokens that are never reused, not addresses: a null, stale or invented one, or one of
 * another kind, is told from a good one without touching memory. Looking one up takes no lock; adding and removing do.
 * The interface forbids to release a handle that another thread is using, and only that keeps a found object alive.
 */
#ifndef LINUX_BOARD_HANDLE_TABLE_H
#define LINUX_BOARD_HANDLE_TABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

/* Numbers the handles of all tables, so that none is good for two; goes on over unloading and loading. */
inline std::atomic<uintptr_t> g_uiLastHandle{0};

template <typename THandle, typename TObject> class CHandleTable
{
public:
    static constexpr size_t msc_uiSlots = 256;

    /* Null when all slots are taken; the object is then freed. */
    THandle Add(std::unique_ptr<TObject> poObject)
    {
        const std::lock_guard oGuard(m_oMutex);
        for (size_t uiSlot = 0; uiSlot < msc_uiSlots; uiSlot++)
        {
            SSlot& roSlot = m_aoSlots[uiSlot];
            if (roSlot.uiToken.load(std::memory_order_relaxed) != 0)
            {
                continue;
            }
            const uintptr_t uiToken = ++g_uiLastHandle * msc_uiSlots + uiSlot;
            roSlot.poObject = std::move(poObject);
            roSlot.uiToken.store(uiToken, std::memory_order_release);
            return reinterpret_cast<THandle>(uiToken);
        }
        return nullptr;
    }

    /* Null for a handle that is not of this table. */
    TObject* Find(THandle hHandle) const
    {
        const auto uiToken = reinterpret_cast<uintptr_t>(hHandle);
        const SSlot& roSlot = m_aoSlots[uiToken % msc_uiSlots];
        return uiToken != 0 && roSlot.uiToken.load(std::memory_order_acquire) == uiToken ? roSlot.poObject.get()
                                                                                         : nullptr;
    }

    bool Remove(THandle hHandle)
    {
        const auto uiToken = reinterpret_cast<uintptr_t>(hHandle);
        const std::lock_guard oGuard(m_oMutex);
        return uiToken != 0 && Empty(m_aoSlots[uiToken % msc_uiSlots], uiToken);
    }

    void Clear()
    {
        const std::lock_guard oGuard(m_oMutex);
        for (SSlot& roSlot : m_aoSlots)
        {
            Empty(roSlot, roSlot.uiToken.load(std::memory_order_relaxed));
        }
    }

private:
    struct SSlot
    {
        std::atomic<uintptr_t> uiToken{0}; /* 0 while the slot is free */
        std::unique_ptr<TObject> poObject;
    };

    static bool Empty(SSlot& roSlot, uintptr_t uiToken)
    {
        if (uiToken == 0 || roSlot.uiToken.load(std::memory_order_relaxed) != uiToken)
        {
            return false;
        }
        roSlot.uiToken.store(0, std::memory_order_release);
        roSlot.poObject.reset();
        return true;
    }

    std::mutex m_oMutex;
    std::array<SSlot, msc_uiSlots> m_aoSlots;
};

#endif
