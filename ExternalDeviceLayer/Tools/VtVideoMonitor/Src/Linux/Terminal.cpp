#include "Terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

#include "ConsoleLog.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"

namespace
{

// What ends or stops the process, and has to wait until a key read has put the terminal back.
constexpr int aiEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP};

void HandleSignal(int iSignal);

void CatchSignal(int iSignal)
{
    struct sigaction oAction = {};
    oAction.sa_handler = HandleSignal;
    oAction.sa_flags = SA_RESTART | SA_NODEFER;
    sigaction(iSignal, &oAction, nullptr);
}

// Does what the signal does by default, but on the main thread alone: there it waits for the end of a key read.
void HandleSignal(int iSignal)
{
    const int iErrno = errno;
    if (gettid() != getpid())
    {
        syscall(SYS_tgkill, getpid(), getpid(), iSignal);
        errno = iErrno;
        return;
    }
    // The handler does not block its own signal (SA_NODEFER), so this takes effect at once. A stopped process comes
    // back from it.
    std::signal(iSignal, SIG_DFL);
    std::raise(iSignal);
    CatchSignal(iSignal);
    errno = iErrno;
}

sigset_t ResizeSignal()
{
    sigset_t oSignals;
    sigemptyset(&oSignals);
    sigaddset(&oSignals, SIGWINCH);
    return oSignals;
}

// The terminal for the length of one key read: raw and non-blocking, then as it was found. Signals that would end or
// stop the process in between wait, so that no shell finds it raw. SIGTTIN and SIGTTOU are for a process that has been
// put into the background since it looked: it must not stop.
class CRawTerminal
{
public:
    CRawTerminal()
    {
        sigset_t oSignals;
        sigemptyset(&oSignals);
        for (const int iSignal : aiEndingSignals)
        {
            sigaddset(&oSignals, iSignal);
        }
        sigaddset(&oSignals, SIGTTIN);
        sigaddset(&oSignals, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &oSignals, &m_oFoundMask);
        m_bHasAttributes = tcgetattr(STDIN_FILENO, &m_oFoundAttributes) == 0;
        m_iFoundFlags = fcntl(STDIN_FILENO, F_GETFL);
        if (m_bHasAttributes)
        {
            termios oRaw = m_oFoundAttributes;
            oRaw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            tcsetattr(STDIN_FILENO, TCSANOW, &oRaw);
        }
        if (m_iFoundFlags != -1)
        {
            fcntl(STDIN_FILENO, F_SETFL, m_iFoundFlags | O_NONBLOCK);
        }
    }

    ~CRawTerminal()
    {
        if (m_bHasAttributes)
        {
            tcsetattr(STDIN_FILENO, TCSANOW, &m_oFoundAttributes);
        }
        if (m_iFoundFlags != -1)
        {
            fcntl(STDIN_FILENO, F_SETFL, m_iFoundFlags);
        }
        pthread_sigmask(SIG_SETMASK, &m_oFoundMask, nullptr);
    }

    CRawTerminal(const CRawTerminal&) = delete;
    CRawTerminal& operator=(const CRawTerminal&) = delete;

private:
    sigset_t m_oFoundMask;
    termios m_oFoundAttributes;
    int m_iFoundFlags;
    bool m_bHasAttributes;
};

// Whether keys are meant for others: a job in the background that touches its terminal is stopped.
bool IsInBackground()
{
    // No answer means no terminal, or one without job control for this process.
    const pid_t iForeground = tcgetpgrp(STDIN_FILENO);
    return iForeground != -1 && iForeground != getpgrp();
}

// Waits until standard output takes more. The key read makes the terminal non-blocking for a moment, and standard
// output is mostly the same terminal. False when waiting cannot help.
bool WaitForTerminal()
{
    if (errno == EINTR)
    {
        return true;
    }
    if (errno != EAGAIN)
    {
        return false;
    }
    pollfd oPoll = {STDOUT_FILENO, POLLOUT, 0};
    return poll(&oPoll, 1, -1) >= 0 || errno == EINTR;
}

} // namespace

void PrintToTerminal(std::initializer_list<const char*> oTexts)
{
    constexpr size_t uiMaxTexts = 4;
    std::array<iovec, uiMaxTexts> aoPieces;
    size_t uiNbOfPieces = 0;
    for (const char* szText : oTexts)
    {
        if (szText[0] != '\0' && uiNbOfPieces < uiMaxTexts)
        {
            const size_t uiLength = static_cast<size_t>(KrvTools_strlen(szText));
            aoPieces[uiNbOfPieces++] = {const_cast<char*>(szText), uiLength};
        }
    }
    std::fflush(stdout);
    iovec* poPiece = aoPieces.data();
    while (uiNbOfPieces > 0)
    {
        ssize_t iWritten = writev(STDOUT_FILENO, poPiece, static_cast<int>(uiNbOfPieces));
        if (iWritten < 0)
        {
            if (!WaitForTerminal())
            {
                return;
            }
            continue;
        }
        for (; uiNbOfPieces > 0 && static_cast<size_t>(iWritten) >= poPiece->iov_len; ++poPiece, --uiNbOfPieces)
        {
            iWritten -= static_cast<ssize_t>(poPiece->iov_len);
        }
        if (uiNbOfPieces > 0)
        {
            poPiece->iov_base = static_cast<char*>(poPiece->iov_base) + iWritten;
            poPiece->iov_len -= static_cast<size_t>(iWritten);
        }
    }
}

int32_t getch()
{
    if (IsInBackground())
    {
        return -1;
    }
    const CRawTerminal oRaw;
    const int32_t iKey = std::getchar();
    // End of input and "nothing there" are not for ever: a pipe may get a new writer.
    std::clearerr(stdin);
    return iKey;
}

void ClearScreen()
{
    if (!g_bStatus)
    {
        PrintToTerminal({"\033[2J"});
    }
}

void SetCursorPosition(uint32_t uiXPos, uint32_t uiYPos)
{
    if (g_bStatus)
    {
        return;
    }
    VTSTR64 szSequence;
    std::snprintf(szSequence, sizeof(szSequence), "\033[%d;%dH", LowInt(uiYPos + 1), LowInt(uiXPos + 1));
    PrintToTerminal({szSequence});
}

bool TakeScreenResize()
{
    const sigset_t oSignals = ResizeSignal();
    const timespec oNoWait = {};
    return sigtimedwait(&oSignals, nullptr, &oNoWait) == SIGWINCH;
}

void PrepareTerminal()
{
    for (int iStream = STDIN_FILENO; iStream <= STDERR_FILENO; ++iStream)
    {
        if (fcntl(iStream, F_GETFD) == -1 && errno == EBADF)
        {
            // The lowest free descriptor is this one.
            static_cast<void>(open("/dev/null", O_RDWR));
        }
    }
    for (const int iSignal : aiEndingSignals)
    {
        struct sigaction oFound = {};
        // A signal that the caller has had ignored stays ignored.
        if (sigaction(iSignal, nullptr, &oFound) == 0 && oFound.sa_handler != SIG_IGN)
        {
            CatchSignal(iSignal);
        }
    }
    // Kept until it is asked for, and not handled: a handler would end the pause of the moment before its time.
    const sigset_t oSignals = ResizeSignal();
    pthread_sigmask(SIG_BLOCK, &oSignals, nullptr);
}
