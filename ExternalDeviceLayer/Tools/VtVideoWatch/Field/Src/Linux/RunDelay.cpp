#include "RunDelay.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

CRunDelay::CRunDelay() : m_iFile(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC)) {}

CRunDelay::~CRunDelay()
{
    if (m_iFile >= 0)
    {
        close(m_iFile);
    }
}

// "<time on a processor> <time ready without one> <number of turns>", nanoseconds.
uint64_t CRunDelay::ReadGrowthNs()
{
    std::array<char, 96> szText = {};
    if (m_iFile < 0 || pread(m_iFile, szText.data(), szText.size() - 1, 0) <= 0)
    {
        return 0;
    }
    char* szRest = nullptr;
    static_cast<void>(std::strtoull(szText.data(), &szRest, 10));
    const uint64_t uiNowNs = std::strtoull(szRest, nullptr, 10);
    const uint64_t uiGrowthNs = uiNowNs - m_uiLastNs;
    m_uiLastNs = uiNowNs;
    return uiGrowthNs;
}
