#include "Terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
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

// How the terminal was found. Written by getch, read by the signal handler, both on the main thread.
struct SKeptTerminal
{
    termios oAttributes;
    int iStatusFlags;
    Bool32 bHasAttributes;
};
SKeptTerminal g_oKeptTerminal;
volatile sig_atomic_t g_bIsKeyRead = 0;

void RestoreTerminal()
{
    if (g_oKeptTerminal.bHasAttributes)
    {
        tcsetattr(STDIN_FILENO, TCSANOW, &g_oKeptTerminal.oAttributes);
    }
    if (g_oKeptTerminal.iStatusFlags != -1)
    {
        fcntl(STDIN_FILENO, F_SETFL, g_oKeptTerminal.iStatusFlags);
    }
}

void MakeRaw()
{
    g_oKeptTerminal.bHasAttributes = tcgetattr(STDIN_FILENO, &g_oKeptTerminal.oAttributes) == 0 ? 1 : 0;
    g_oKeptTerminal.iStatusFlags = fcntl(STDIN_FILENO, F_GETFL);
    g_bIsKeyRead = 1;
    if (g_oKeptTerminal.bHasAttributes)
    {
        termios oRaw = g_oKeptTerminal.oAttributes;
        oRaw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &oRaw);
    }
    if (g_oKeptTerminal.iStatusFlags != -1)
    {
        fcntl(STDIN_FILENO, F_SETFL, g_oKeptTerminal.iStatusFlags | O_NONBLOCK);
    }
}

void HandleSignal(int iSignal);

void CatchSignal(int iSignal)
{
    struct sigaction oAction = {};
    oAction.sa_handler = HandleSignal;
    oAction.sa_flags = SA_RESTART | SA_NODEFER;
    sigaction(iSignal, &oAction, nullptr);
}

// Does what the signal does by default, on a terminal as it was found. A stopped process comes back from it.
void HandleSignal(int iSignal)
{
    const int iErrno = errno;
    // Only the main thread knows whether it is in the middle of a key read.
    if (gettid() != getpid())
    {
        syscall(SYS_tgkill, getpid(), getpid(), iSignal);
        errno = iErrno;
        return;
    }
    const bool bIsKeyRead = g_bIsKeyRead != 0;
    if (bIsKeyRead)
    {
        RestoreTerminal();
    }
    // The handler does not block its own signal (SA_NODEFER), so this takes effect at once.
    signal(iSignal, SIG_DFL);
    raise(iSignal);
    CatchSignal(iSignal);
    if (bIsKeyRead)
    {
        MakeRaw();
    }
    errno = iErrno;
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
    for (const char* pszText : oTexts)
    {
        if (pszText[0] != '\0' && uiNbOfPieces < uiMaxTexts)
        {
            const size_t uiLength = static_cast<size_t>(KrvTools_strlen(pszText));
            aoPieces[uiNbOfPieces++] = {const_cast<char*>(pszText), uiLength};
        }
    }
    fflush(stdout);
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
    MakeRaw();
    const int32_t iKey = getchar();
    RestoreTerminal();
    g_bIsKeyRead = 0;
    // End of input and "nothing there" are not for ever: a pipe may get a new writer.
    clearerr(stdin);
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
    snprintf(szSequence, sizeof(szSequence), "\033[%d;%dH", LowInt(uiYPos + 1), LowInt(uiXPos + 1));
    PrintToTerminal({szSequence});
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
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP})
    {
        struct sigaction oFound = {};
        // A signal that the caller has had ignored stays ignored.
        if (sigaction(iSignal, nullptr, &oFound) == 0 && oFound.sa_handler != SIG_IGN)
        {
            CatchSignal(iSignal);
        }
    }
}
