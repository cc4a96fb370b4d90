/*
 * How everything of the watch says that it could not do what it was to do: one line for whoever runs the program,
 * without a line end. What could be done returns none.
 */
#ifndef FAULT_H
#define FAULT_H

#include <string>
#include <utility>

class [[nodiscard]] CFault
{
public:
    CFault() = default;
    /* bMayHeal: time may heal it, so that another try later is worth it. */
    explicit CFault(std::string szText, bool bMayHeal = false) : m_szText(std::move(szText)), m_bMayHeal(bMayHeal) {}

    explicit operator bool() const { return !m_szText.empty(); }
    const std::string& GetText() const { return m_szText; }
    bool MayHeal() const { return m_bMayHeal; }

private:
    std::string m_szText;
    bool m_bMayHeal = false;
};

#endif
