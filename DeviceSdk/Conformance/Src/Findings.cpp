#include "Findings.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace
{

constexpr size_t uiFaultsShown = 4;

std::string Format(const char* szFormat, va_list oArguments)
{
    std::array<char, 512> szText{};
    std::vsnprintf(szText.data(), szText.size(), szFormat, oArguments);
    return szText.data();
}

std::string NameOf(VtStatus eStatus)
{
    constexpr std::array aoNames = {
        std::pair{VtStatus_OK, "VtStatus_OK"},
        std::pair{VtStatus_FAIL, "VtStatus_FAIL"},
        std::pair{VtStatus_INVALID_PARAM, "VtStatus_INVALID_PARAM"},
        std::pair{VtStatus_TIMEOUT, "VtStatus_TIMEOUT"},
        std::pair{VtStatus_RESOURCES_BUSY, "VtStatus_RESOURCES_BUSY"},
        std::pair{VtStatus_ACCESS_DENIED, "VtStatus_ACCESS_DENIED"},
        std::pair{VtStatus_UNSUPPORTED, "VtStatus_UNSUPPORTED"},
        std::pair{VtStatus_CANCELED, "VtStatus_CANCELED"},
        std::pair{VtStatus_CONNECTION_LOST, "VtStatus_CONNECTION_LOST"},
        std::pair{VtStatus_HARDWARE_MALFUNCTION, "VtStatus_HARDWARE_MALFUNCTION"},
    };
    const auto* const poName = std::ranges::find(aoNames, eStatus, &std::pair<VtStatus, const char*>::first);
    return poName != aoNames.end() ? poName->second : "the status " + std::to_string(eStatus);
}

} // namespace

bool CFindings::Expect(bool bHolds, const char* szFormat, ...)
{
    if (bHolds)
    {
        return true;
    }
    va_list oArguments;
    va_start(oArguments, szFormat);
    const std::string sFault = Format(szFormat, oArguments);
    va_end(oArguments);
    const std::lock_guard oGuard(m_oMutex);
    ++m_uiFaults;
    if (m_asFaults.size() < uiFaultsShown && std::ranges::find(m_asFaults, sFault) == m_asFaults.end())
    {
        m_asFaults.push_back(sFault);
    }
    return false;
}

bool CFindings::ExpectStatus(VtStatus eGot, VtStatus eExpected, const std::string& rsCall)
{
    return Expect(eGot == eExpected, "%s answered %s, not %s", rsCall.c_str(), NameOf(eGot).c_str(),
                  NameOf(eExpected).c_str());
}

void CFindings::Skip(const char* szFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, szFormat);
    const std::lock_guard oGuard(m_oMutex);
    m_asSkipped.push_back(Format(szFormat, oArguments));
    va_end(oArguments);
}

void CFindings::Checked()
{
    const std::lock_guard oGuard(m_oMutex);
    m_bChecked = true;
}

EOutcome CFindings::Outcome() const
{
    if (m_uiFaults != 0)
    {
        return EOutcome::FAILS;
    }
    return m_bChecked || m_asSkipped.empty() ? EOutcome::HOLDS : EOutcome::SKIPPED;
}

std::vector<std::string> CFindings::Lines() const
{
    std::vector<std::string> asLines = m_asFaults;
    if (m_uiFaults > m_asFaults.size())
    {
        asLines.push_back("(and " + std::to_string(m_uiFaults - m_asFaults.size()) + " more)");
    }
    for (const std::string& rsSkipped : m_asSkipped)
    {
        asLines.push_back("skipped: " + rsSkipped);
    }
    return asLines;
}
