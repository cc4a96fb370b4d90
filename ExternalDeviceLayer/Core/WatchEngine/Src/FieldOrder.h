/*
 * The order of an interlaced signal's fields: which field is the top one, against the counter. Two fields in a row that
 * say the opposite are a swap; a counter that jumps, and fields that are missing, say nothing.
 */
#ifndef FIELD_ORDER_H
#define FIELD_ORDER_H

#include <cstdint>

class CFieldOrder
{
public:
    /* The signal begins anew: its order is whatever comes. */
    void Restart() { *this = {}; }
    /* What the description says of the order. */
    void Describe(bool bBottomFirst)
    {
        m_bDescribedSwap ^= m_bIsDescribed && bBottomFirst != m_bBottomFirst;
        m_bBottomFirst = bBottomFirst;
        m_bIsDescribed = true;
    }
    /*
     * Takes in a field.
     *   bFollows  in  its counter is the next one
     * True when the order has been swapped: with the second field of the new order.
     */
    bool Take(uint64_t uiFieldCounter, bool bIsTop, bool bFollows, uint64_t uiTick)
    {
        const bool bTopWhenOdd = bIsTop == ((uiFieldCounter / 16) % 2 != 0);
        if (!bFollows || !m_bIsKnown)
        {
            m_bIsKnown = true;
            m_bTopWhenOdd = bTopWhenOdd;
            m_uiOther = 0;
            return false;
        }
        if (bTopWhenOdd == m_bTopWhenOdd)
        {
            m_uiOther = 0;
            return false;
        }
        m_uiOtherTick = m_uiOther == 0 ? uiTick : m_uiOtherTick;
        if (++m_uiOther < 2)
        {
            return false;
        }
        m_bTopWhenOdd = bTopWhenOdd;
        m_uiOther = 0;
        m_bIsSwapped = !m_bIsSwapped;
        return true;
    }

    bool IsKnown() const { return m_bIsKnown; }
    /* Other than at the begin, and the description does not account for it. */
    bool IsSwapped() const { return m_bIsSwapped != m_bDescribedSwap; }
    /* The first field of the last swap. */
    uint64_t GetSwapTick() const { return m_uiOtherTick; }

private:
    bool m_bIsKnown = false;
    bool m_bTopWhenOdd = false;
    bool m_bIsSwapped = false;
    bool m_bIsDescribed = false;
    bool m_bBottomFirst = false;
    bool m_bDescribedSwap = false;
    uint32_t m_uiOther = 0;
    uint64_t m_uiOtherTick = 0;
};

#endif
