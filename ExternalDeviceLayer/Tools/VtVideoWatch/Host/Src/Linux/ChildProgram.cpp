#include "ChildProgram.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiNsPerMs = 1'000'000;
constexpr int iTurnMs = 100;

class CFile
{
public:
    explicit CFile(int iFile) : m_iFile(iFile) {}
    ~CFile() { Close(); }
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    int Get() const { return m_iFile; }
    void Close()
    {
        if (m_iFile >= 0)
        {
            close(m_iFile);
        }
        m_iFile = -1;
    }

private:
    int m_iFile;
};

// Waits in short turns, so that the end of the watch is seen.
bool Await(int iFile, short iEvents, uint64_t uiUntilNs, const std::atomic<bool>& rbIsToEnd)
{
    while (!rbIsToEnd.load() && ReadMonotonicNs() < uiUntilNs)
    {
        pollfd oPoll = {iFile, iEvents, 0};
        if (poll(&oPoll, 1, iTurnMs) > 0)
        {
            return true;
        }
    }
    return false;
}

// Hands over as much as it wants to read; a socket, so that one that ends early is no signal.
void Feed(const CFile& roInput, const std::string& rszInput, uint64_t uiUntilNs, const std::atomic<bool>& rbIsToEnd)
{
    size_t uiSent = 0;
    while (uiSent < rszInput.size() && Await(roInput.Get(), POLLOUT, uiUntilNs, rbIsToEnd))
    {
        const ssize_t iSent =
            send(roInput.Get(), rszInput.data() + uiSent, rszInput.size() - uiSent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (iSent < 0 && errno != EINTR && errno != EAGAIN)
        {
            return;
        }
        uiSent += iSent > 0 ? static_cast<size_t>(iSent) : 0;
    }
}

// In a group of its own, with the default answer to every signal and none blocked.
int Spawn(const std::string& rszProgram, int iInput, pid_t& riChild)
{
    posix_spawnattr_t oAttributes;
    posix_spawn_file_actions_t oActions;
    posix_spawnattr_init(&oAttributes);
    posix_spawn_file_actions_init(&oActions);
    sigset_t oSignals;
    sigfillset(&oSignals);
    posix_spawnattr_setsigdefault(&oAttributes, &oSignals);
    sigemptyset(&oSignals);
    posix_spawnattr_setsigmask(&oAttributes, &oSignals);
    posix_spawnattr_setpgroup(&oAttributes, 0);
    posix_spawnattr_setflags(&oAttributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_adddup2(&oActions, iInput, STDIN_FILENO);
    // What it prints must not come between the lines of a journal on standard output.
    posix_spawn_file_actions_adddup2(&oActions, STDERR_FILENO, STDOUT_FILENO);
    std::string szName = rszProgram;
    std::array<char*, 2> aszArguments = {szName.data(), nullptr};
    const int iError =
        posix_spawnp(&riChild, rszProgram.c_str(), &oActions, &oAttributes, aszArguments.data(), environ);
    posix_spawn_file_actions_destroy(&oActions);
    posix_spawnattr_destroy(&oAttributes);
    return iError;
}

} // namespace

CFault ChildProgram_Run(const std::string& rszProgram, const std::string& rszInput, uint32_t uiTimeOutMs,
                        const std::atomic<bool>& rbIsToEnd)
{
    std::array<int, 2> aiPair = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair.data()) != 0)
    {
        return CFault(std::strerror(errno));
    }
    CFile oOurs(aiPair[0]);
    CFile oTheirs(aiPair[1]);
    pid_t iChild = -1;
    if (const int iError = Spawn(rszProgram, oTheirs.Get(), iChild); iError != 0)
    {
        return CFault(std::strerror(iError));
    }
    oTheirs.Close();
    const uint64_t uiUntilNs = ReadMonotonicNs() + uiTimeOutMs * uiNsPerMs;
    Feed(oOurs, rszInput, uiUntilNs, rbIsToEnd);
    oOurs.Close();
    const CFile oProcess(static_cast<int>(syscall(SYS_pidfd_open, iChild, 0)));
    const bool bHasEnded = Await(oProcess.Get(), POLLIN, uiUntilNs, rbIsToEnd);
    if (!bHasEnded && rbIsToEnd.load())
    {
        return CFault("the watch ended first");
    }
    if (!bHasEnded)
    {
        kill(-iChild, SIGKILL);
    }
    int iStatus = 0;
    waitpid(iChild, &iStatus, 0);
    if (!bHasEnded)
    {
        return CFault("took longer than " + std::to_string(uiTimeOutMs / 1000) + " s");
    }
    if (WIFSIGNALED(iStatus))
    {
        return CFault("ended by signal " + std::to_string(WTERMSIG(iStatus)));
    }
    return WEXITSTATUS(iStatus) == 0 ? CFault() : CFault("ended with " + std::to_string(WEXITSTATUS(iStatus)));
}
