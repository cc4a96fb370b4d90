/*
 * Loaded before a program in the guest (LD_PRELOAD), makes one kind of its requests to devices slow, or fail:
 *   GUEST_FAULT="<getcrtc|getfmt|dqbuf|querytimings|mkdir> <delay|error> <ms, or errno> <from> <to>"
 * from and to: ms since the program's start. With GUEST_LOG=<file> it writes there at the end how often each request
 * was made: "<V: video, d: display> <number> <times>", and as "P 0" how often a video node was polled for data.
 */
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <drm.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

using CClock = std::chrono::steady_clock;

struct SFault
{
    unsigned long uiRequest = 0; // 0 for mkdir
    bool bMkdir = false;
    bool bDelay = false;
    int iValue = 0;
    long iFromMs = 0;
    long iToMs = 0;
    CClock::time_point oStart = CClock::now();
};

struct SLog
{
    std::array<std::array<std::atomic<unsigned int>, 256>, 3> aaTimes{};

    ~SLog()
    {
        const char* szFile = std::getenv("GUEST_LOG");
        std::FILE* poFile = szFile == nullptr ? nullptr : std::fopen(szFile, "we");
        for (size_t uiKind = 0; poFile != nullptr && uiKind < aaTimes.size(); uiKind++)
        {
            for (size_t uiNumber = 0; uiNumber < aaTimes[uiKind].size(); uiNumber++)
            {
                if (aaTimes[uiKind][uiNumber] != 0)
                {
                    std::fprintf(poFile, "%c %zu %u\n", "VdP"[uiKind], uiNumber, aaTimes[uiKind][uiNumber].load());
                }
            }
        }
        if (poFile != nullptr)
        {
            std::fclose(poFile);
        }
    }
};

SLog g_oLog;

void Note(unsigned long uiRequest)
{
    if (_IOC_TYPE(uiRequest) == 'V' || _IOC_TYPE(uiRequest) == 'd')
    {
        g_oLog.aaTimes[_IOC_TYPE(uiRequest) == 'V' ? 0 : 1][_IOC_NR(uiRequest)]++;
    }
}

unsigned long RequestOf(const char* szName)
{
    static constexpr std::pair<const char*, unsigned long> aoNames[] = {{"getcrtc", DRM_IOCTL_MODE_GETCRTC},
                                                                        {"getfmt", VIDIOC_G_FMT},
                                                                        {"dqbuf", VIDIOC_DQBUF},
                                                                        {"querytimings", VIDIOC_QUERY_DV_TIMINGS}};
    for (const auto& [szKnown, uiRequest] : aoNames)
    {
        if (std::strcmp(szKnown, szName) == 0)
        {
            return uiRequest;
        }
    }
    return 0;
}

SFault ReadFault()
{
    SFault oFault;
    char acName[16] = {};
    char acKind[16] = {};
    const char* szFault = std::getenv("GUEST_FAULT");
    if (szFault != nullptr && std::sscanf(szFault, "%15s %15s %d %ld %ld", acName, acKind, &oFault.iValue,
                                          &oFault.iFromMs, &oFault.iToMs) == 5)
    {
        oFault.uiRequest = RequestOf(acName);
        oFault.bMkdir = std::strcmp(acName, "mkdir") == 0;
        oFault.bDelay = std::strcmp(acKind, "delay") == 0;
    }
    return oFault;
}

} // namespace

extern "C" int ioctl(int iFd, unsigned long uiRequest, ...) noexcept
{
    static const SFault s_oFault = ReadFault();
    va_list oArguments;
    va_start(oArguments, uiRequest);
    void* pvArgument = va_arg(oArguments, void*);
    va_end(oArguments);
    Note(uiRequest);
    const long iMs = (CClock::now() - s_oFault.oStart) / std::chrono::milliseconds(1);
    if (uiRequest == s_oFault.uiRequest && iMs >= s_oFault.iFromMs && iMs < s_oFault.iToMs)
    {
        if (!s_oFault.bDelay)
        {
            errno = s_oFault.iValue;
            return -1;
        }
        poll(nullptr, 0, s_oFault.iValue);
    }
    return static_cast<int>(syscall(SYS_ioctl, iFd, uiRequest, pvArgument));
}

extern "C" int ppoll(pollfd* poPolled, nfds_t uiCount, const timespec* poTimeOut, const sigset_t* poMask)
{
    constexpr unsigned int uiVideoMajor = 81;
    for (nfds_t uiIndex = 0; uiIndex < uiCount; uiIndex++)
    {
        struct stat oStat = {};
        const bool bForData = poPolled[uiIndex].fd >= 0 && (poPolled[uiIndex].events & POLLIN) != 0;
        if (bForData && fstat(poPolled[uiIndex].fd, &oStat) == 0 && S_ISCHR(oStat.st_mode) &&
            major(oStat.st_rdev) == uiVideoMajor)
        {
            g_oLog.aaTimes[2][0]++;
        }
    }
    timespec oTimeOut = poTimeOut == nullptr ? timespec{} : *poTimeOut; // the kernel writes into it
    return static_cast<int>(
        syscall(SYS_ppoll, poPolled, uiCount, poTimeOut == nullptr ? nullptr : &oTimeOut, poMask, size_t{8}));
}

extern "C" int mkdir(const char* szPath, mode_t uiMode) noexcept
{
    static const SFault s_oFault = ReadFault();
    if (s_oFault.bMkdir)
    {
        errno = s_oFault.iValue;
        return -1;
    }
    return static_cast<int>(syscall(SYS_mkdir, szPath, uiMode));
}
