#include "Guardian.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "InputSettings.h"
#include "V4l2Node.h"

namespace
{

constexpr std::string_view szChildName = "vt-give-back";
constexpr int iAttempts = 20;
constexpr timespec oPause = {0, 50000000};

// In the child only what needs no memory and no lock: another thread may have held any lock when it was born.

bool IsDeviceOf(int iFd, const SGiveBackNote& roNote)
{
    v4l2_capability oCapability{};
    return V4l2_Ioctl(iFd, VIDIOC_QUERYCAP, &oCapability) == 0 &&
           std::memcmp(oCapability.driver, roNote.szDriver, sizeof(roNote.szDriver)) == 0 &&
           std::memcmp(oCapability.bus_info, roNote.szBus, sizeof(roNote.szBus)) == 0;
}

int GiveBackInput(const SGiveBackNote& roNote)
{
    const CFileDescriptor oNode(open(roNote.szPath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!oNode.IsOpen() || !IsDeviceOf(oNode.Get(), roNote))
    {
        return 0;
    }
    v4l2_format oNow{};
    oNow.type = roNote.oFound.oFormat.type;
    // Without a type we were ended while we set it.
    const bool bOurs = roNote.oOurs.type == 0 || (V4l2_Ioctl(oNode.Get(), VIDIOC_G_FMT, &oNow) == 0 &&
                                                  InputSettings_IsSameFormat(oNow, roNote.oOurs));
    return bOurs ? InputSettings_Write(oNode.Get(), roNote.oFound) : 0;
}

void IgnoreSignals()
{
    struct sigaction oIgnore = {};
    oIgnore.sa_handler = SIG_IGN;
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP, SIGALRM, SIGUSR1, SIGUSR2})
    {
        sigaction(iSignal, &oIgnore, nullptr);
    }
}

void CloseRange(unsigned int uiFirst, unsigned int uiLast)
{
    if (uiFirst > uiLast)
    {
        return;
    }
#ifdef SYS_close_range
    if (syscall(SYS_close_range, uiFirst, uiLast, 0) == 0)
    {
        return;
    }
#endif
    rlimit oLimit{};
    getrlimit(RLIMIT_NOFILE, &oLimit);
    for (unsigned int uiFd = uiFirst; uiFd <= uiLast && uiFd < oLimit.rlim_cur; uiFd++)
    {
        close(static_cast<int>(uiFd));
    }
}

/* A descriptor that the child keeps holds a device, a terminal or a pipe for as long as the child lives. */
void CloseAllBut(int iOne, int iOther)
{
    unsigned int uiFirst = 0;
    for (const int iKept : {std::min(iOne, iOther), std::max(iOne, iOther)})
    {
        if (iKept < 0)
        {
            continue;
        }
        if (iKept > 0)
        {
            CloseRange(uiFirst, static_cast<unsigned int>(iKept) - 1);
        }
        uiFirst = static_cast<unsigned int>(iKept) + 1;
    }
    CloseRange(uiFirst, UINT_MAX);
}

/* So that who lists or ends processes by name does not take the child for the tool. */
void TakeName()
{
    prctl(PR_SET_NAME, szChildName.data());
    // The terminator behind it stays.
    for (char* pcRoom = program_invocation_name; *pcRoom != '\0'; pcRoom++)
    {
        *pcRoom = static_cast<size_t>(pcRoom - program_invocation_name) < szChildName.size()
                      ? szChildName[static_cast<size_t>(pcRoom - program_invocation_name)]
                      : ' ';
    }
}

[[noreturn]] void RunChild(SGiveBackTable& roTable, const char* szNoteFile, int iNoteFd, int iLifeline)
{
    setsid();
    IgnoreSignals();
    CloseAllBut(iLifeline, iNoteFd);
    TakeName();
    if (chdir("/") != 0)
    {
        _exit(1);
    }
    char cNothing = 0;
    while (read(iLifeline, &cNothing, 1) < 0 && errno == EINTR)
    {
        ;
    }
    Guardian_GiveBack(roTable);
    if (szNoteFile != nullptr)
    {
        unlink(szNoteFile);
    }
    _exit(0);
}

} // namespace

int Guardian_Follow(const SGiveBackNote& roNote)
{
    if (roNote.eKind == ENoteKind::INPUT)
    {
        return GiveBackInput(roNote);
    }
    return rmdir(roNote.szPath) == 0 ? 0 : -errno;
}

void Guardian_GiveBack(SGiveBackTable& roTable)
{
    for (SGiveBackNote& roNote : roTable.aoNotes)
    {
        const std::atomic_ref<ENoteKind> eKind(roNote.eKind);
        if (eKind.load(std::memory_order_acquire) == ENoteKind::FREE)
        {
            continue;
        }
        // A process that ends closes one descriptor after the other. Who is busy for longer is another program.
        for (int iAttempt = 0; iAttempt < iAttempts && Guardian_Follow(roNote) == -EBUSY; iAttempt++)
        {
            nanosleep(&oPause, nullptr);
        }
        eKind.store(ENoteKind::FREE, std::memory_order_release);
    }
}

bool CGuardian::Start(SGiveBackTable& roTable, const char* szNoteFile, int iNoteFd)
{
    std::array<int, 2> aiPipe{};
    if (pipe2(aiPipe.data(), O_CLOEXEC) != 0)
    {
        return false;
    }
    CFileDescriptor oRead(aiPipe[0]);
    m_oLifeline = CFileDescriptor(aiPipe[1]);
    // Not fork(): no signal tells of this child's end, and a program that waits for its own children never meets it.
    const long iPid = syscall(SYS_clone, 0UL, nullptr, nullptr, nullptr, nullptr);
    if (iPid == 0)
    {
        RunChild(roTable, szNoteFile, iNoteFd, oRead.Get());
    }
    m_iPid = static_cast<pid_t>(iPid);
    return IsRunning();
}

void CGuardian::End()
{
    m_oLifeline.Close();
    if (IsRunning())
    {
        while (waitpid(m_iPid, nullptr, static_cast<int>(__WCLONE)) < 0 && errno == EINTR)
        {
            ;
        }
    }
    m_iPid = -1;
}
