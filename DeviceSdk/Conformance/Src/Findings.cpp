#include "Findings.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace
{

constexpr size_t uiFaultsShown = 4;

[[gnu::format(printf, 1, 0)]] std::string Format(const char* szFormat, va_list oArguments)
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
    const std::string szFault = Format(szFormat, oArguments);
    va_end(oArguments);
    const std::lock_guard oGuard(m_oMutex);
    ++m_uiFaults;
    if (m_aszFaults.size() < uiFaultsShown && std::ranges::find(m_aszFaults, szFault) == m_aszFaults.end())
    {
        m_aszFaults.push_back(szFault);
    }
    return false;
}

bool CFindings::ExpectStatus(VtStatus eGot, VtStatus eExpected, const std::string& rszCall)
{
    return Expect(eGot == eExpected, "%s answered %s, not %s", rszCall.c_str(), NameOf(eGot).c_str(),
                  NameOf(eExpected).c_str());
}

void CFindings::Skip(const char* szFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, szFormat);
    const std::lock_guard oGuard(m_oMutex);
    m_aszSkipped.push_back(Format(szFormat, oArguments));
    va_end(oArguments);
}

void CFindings::Note(const char* szFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, szFormat);
    const std::lock_guard oGuard(m_oMutex);
    m_aszNotes.push_back(Format(szFormat, oArguments));
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
    return m_bChecked || m_aszSkipped.empty() ? EOutcome::HOLDS : EOutcome::SKIPPED;
}

std::vector<std::string> CFindings::Lines() const
{
    std::vector<std::string> aszLines = m_aszFaults;
    if (m_uiFaults > m_aszFaults.size())
    {
        aszLines.push_back("(and " + std::to_string(m_uiFaults - m_aszFaults.size()) + " more)");
    }
    aszLines.insert(aszLines.end(), m_aszNotes.begin(), m_aszNotes.end());
    for (const std::string& rszSkipped : m_aszSkipped)
    {
        aszLines.push_back("skipped: " + rszSkipped);
    }
    return aszLines;
}
