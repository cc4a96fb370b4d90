#include "Terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
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

// Bytes of keys that have been read and not been asked for yet.
struct SKeyBytes
{
    std::array<unsigned char, 1024> aucBytes;
    size_t uiNext = 0;
    size_t uiCount = 0;
};

// Standard input is asked for a key a hundred times a second, so each kind of it is asked in as few calls as it takes.
enum class EInputKind
{
    TERMINAL,
    STREAM, // a pipe, a socket, a device: may have nothing for now
    REGULAR // has its bytes at once, or none
};

EInputKind FindInputKind()
{
    struct stat oStat = {};
    if (isatty(STDIN_FILENO) != 0)
    {
        return EInputKind::TERMINAL;
    }
    const bool bIsFile = fstat(STDIN_FILENO, &oStat) == 0 && S_ISREG(oStat.st_mode);
    return bIsFile ? EInputKind::REGULAR : EInputKind::STREAM;
}

// Signals that would end or stop the process wait for as long as the object lives, so that nothing stays as no shell
// wants to find it. SIGTTIN and SIGTTOU are for a process that has been put into the background since it looked: it
// must not stop.
class CHeldSignals
{
public:
    CHeldSignals()
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
    }
    ~CHeldSignals() { pthread_sigmask(SIG_SETMASK, &m_oFoundMask, nullptr); }
    CHeldSignals(const CHeldSignals&) = delete;
    CHeldSignals& operator=(const CHeldSignals&) = delete;

private:
    sigset_t m_oFoundMask;
};

// The terminal for the length of one key read: raw, then as it was found.
class CRawTerminal
{
public:
    CRawTerminal()
    {
        m_bHasAttributes = tcgetattr(STDIN_FILENO, &m_oFoundAttributes) == 0;
        if (m_bHasAttributes)
        {
            termios oRaw = m_oFoundAttributes;
            oRaw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            // One byte is enough to be told of, whatever others have set.
            oRaw.c_cc[VMIN] = 1;
            oRaw.c_cc[VTIME] = 0;
            tcsetattr(STDIN_FILENO, TCSANOW, &oRaw);
        }
    }

    ~CRawTerminal()
    {
        if (m_bHasAttributes)
        {
            tcsetattr(STDIN_FILENO, TCSANOW, &m_oFoundAttributes);
        }
    }

    CRawTerminal(const CRawTerminal&) = delete;
    CRawTerminal& operator=(const CRawTerminal&) = delete;

private:
    CHeldSignals m_oHeldSignals; // until the terminal is back
    termios m_oFoundAttributes;
    bool m_bHasAttributes;
};

// Standard input for the length of one read: it does not wait, for another reader may take what there was.
class CUnwaitingInput
{
public:
    CUnwaitingInput() : m_iFoundFlags(fcntl(STDIN_FILENO, F_GETFL))
    {
        if (m_iFoundFlags != -1)
        {
            fcntl(STDIN_FILENO, F_SETFL, m_iFoundFlags | O_NONBLOCK);
        }
    }
    ~CUnwaitingInput()
    {
        if (m_iFoundFlags != -1)
        {
            fcntl(STDIN_FILENO, F_SETFL, m_iFoundFlags);
        }
    }
    CUnwaitingInput(const CUnwaitingInput&) = delete;
    CUnwaitingInput& operator=(const CUnwaitingInput&) = delete;

private:
    CHeldSignals m_oHeldSignals;
    int m_iFoundFlags;
};

bool IsInputReady()
{
    pollfd oPoll = {STDIN_FILENO, POLLIN, 0};
    return poll(&oPoll, 1, 0) > 0 && (oPoll.revents & POLLIN) != 0;
}

void ReadBytes(SKeyBytes& roBytes)
{
    // End of input and "nothing there" are not for ever: a pipe may get a new writer.
    const ssize_t iCount = read(STDIN_FILENO, roBytes.aucBytes.data(), roBytes.aucBytes.size());
    roBytes.uiNext = 0;
    roBytes.uiCount = iCount > 0 ? static_cast<size_t>(iCount) : 0;
}

void ReadWhatIsThere(EInputKind eKind, SKeyBytes& roBytes)
{
    switch (eKind)
    {
    case EInputKind::TERMINAL:
    {
        const CRawTerminal oRaw;
        if (IsInputReady())
        {
            const CUnwaitingInput oUnwaiting;
            ReadBytes(roBytes);
        }
        break;
    }
    case EInputKind::STREAM:
        if (IsInputReady())
        {
            const CUnwaitingInput oUnwaiting;
            ReadBytes(roBytes);
        }
        break;
    case EInputKind::REGULAR:
        ReadBytes(roBytes);
        break;
    }
}

// Whether keys are meant for others: a job in the background that touches its terminal is stopped.
bool IsInBackground()
{
    static const pid_t s_iOwnGroup = getpgrp(); // a shell gives a job its group before the job begins
    // No answer means no terminal, or one without job control for this process.
    const pid_t iForeground = tcgetpgrp(STDIN_FILENO);
    return iForeground != -1 && iForeground != s_iOwnGroup;
}

// Waits until standard output takes more. Reading a key makes the terminal non-blocking for a moment, and standard
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
    static const EInputKind s_eKind = FindInputKind();
    static SKeyBytes s_oBytes;
    if (s_eKind == EInputKind::TERMINAL && IsInBackground())
    {
        return -1;
    }
    if (s_oBytes.uiNext == s_oBytes.uiCount)
    {
        ReadWhatIsThere(s_eKind, s_oBytes);
    }
    return s_oBytes.uiNext < s_oBytes.uiCount ? s_oBytes.aucBytes[s_oBytes.uiNext++] : -1;
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
