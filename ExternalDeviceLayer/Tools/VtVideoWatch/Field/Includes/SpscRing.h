/*
 * A ring between one thread that pushes and one that drains. No lock, no allocation after it has been made; what finds
 * no room is counted and dropped, so that the pushing side never waits.
 */
#ifndef SPSC_RING_H
#define SPSC_RING_H

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

// Two lines: processors fetch them in pairs.
constexpr std::size_t uiCacheLineBytes = 128;

template <typename T> class CSpscRing
{
public:
    /*
     * Makes an empty ring.
     *   uiCapacity  in  how many elements fit; rounded up to a power of two
     */
    explicit CSpscRing(std::size_t uiCapacity)
        : m_uiMask(std::bit_ceil(uiCapacity) - 1), m_paoSlots(std::make_unique<T[]>(m_uiMask + 1))
    {
    }
    CSpscRing(const CSpscRing&) = delete;
    CSpscRing& operator=(const CSpscRing&) = delete;

    /* Adds an element; false, and one more overrun, when the ring is full. The pushing thread only. */
    bool Push(const T& roElement) noexcept
    {
        const uint64_t uiHead = m_oProducer.uiIndex.load(std::memory_order_relaxed);
        if (uiHead - m_oProducer.uiOtherIndex > m_uiMask)
        {
            m_oProducer.uiOtherIndex = m_oConsumer.uiIndex.load(std::memory_order_acquire);
            if (uiHead - m_oProducer.uiOtherIndex > m_uiMask)
            {
                m_oProducer.uiOverruns.fetch_add(1, std::memory_order_relaxed);
                return false;
            }
        }
        m_paoSlots[uiHead & m_uiMask] = roElement;
        m_oProducer.uiIndex.store(uiHead + 1, std::memory_order_release);
        return true;
    }

    /*
     * Hands over everything that has been pushed so far, oldest first. The draining thread only.
     *   fnTake  in  called with each element
     * How many there were.
     */
    template <typename TTake> std::size_t Drain(TTake fnTake)
    {
        const uint64_t uiHead = m_oProducer.uiIndex.load(std::memory_order_acquire);
        const uint64_t uiTail = m_oConsumer.uiIndex.load(std::memory_order_relaxed);
        for (uint64_t uiSlot = uiTail; uiSlot != uiHead; ++uiSlot)
        {
            fnTake(static_cast<const T&>(m_paoSlots[uiSlot & m_uiMask]));
        }
        m_oConsumer.uiIndex.store(uiHead, std::memory_order_release);
        return uiHead - uiTail;
    }

    /* How many elements found no room. Any thread. */
    uint64_t GetOverruns() const noexcept { return m_oProducer.uiOverruns.load(std::memory_order_relaxed); }

private:
    // What one side writes shares no cache line with what the other one does.
    struct alignas(uiCacheLineBytes) SSide
    {
        std::atomic<uint64_t> uiIndex{0};
        uint64_t uiOtherIndex = 0; // the other side's index as this side saw it last
        std::atomic<uint64_t> uiOverruns{0};
    };

    const std::size_t m_uiMask;
    const std::unique_ptr<T[]> m_paoSlots;
    SSide m_oProducer;
    SSide m_oConsumer;
};

#endif
