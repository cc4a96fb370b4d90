#include "ConsoleProcess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <regex>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <utmp.h>

#include <gtest/gtest.h>

namespace
{

constexpr std::chrono::seconds DEADLINE{30};
constexpr std::string_view HOME = "\033[1;1H";

// Eight fields a second: a busy machine does not make the tool miss one.
constexpr char STREAM[] = "lock_group = \"all\"\ntiming = { h_active = 1920, h_front_porch = 88, h_sync = 44, "
                          "h_back_porch = 148, v_active = 1080, v_front_porch = 4, v_sync = 5, v_back_porch = 36, "
                          "pixel_clock_hz = 19800000, h_sync_positive = true }\nconnector = \"";
constexpr char BLANKED_LATER[] = "[[chip.output.event]]\nkind = \"power_state\"\nat_s = 1.5\nstate = \"BLANKED\"\n";

} // namespace

std::string Scenario(int iNbOfInputs, int iNbOfOutputs)
{
    std::string szScenario = "[[chip]]\n[[chip.lock_group]]\nname = \"all\"\n";
    for (int iIn = 0; iIn < iNbOfInputs; ++iIn)
    {
        szScenario += std::string("[[chip.input]]\n") + STREAM + "IN%n%s " + std::to_string(iIn) + "\"\n";
    }
    for (int iOut = 0; iOut < iNbOfOutputs; ++iOut)
    {
        szScenario += std::string("[[chip.output]]\n") + STREAM + "OUT%n%s " + std::to_string(iOut) + "\"\n" +
                      (iOut == 0 ? BLANKED_LATER : "");
    }
    return szScenario;
}

std::string Plain(const std::string& szOutput)
{
    static const std::regex s_oTime("[A-Za-z]{3} [A-Za-z]{3} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}");
    static const std::regex s_oErase("\033\\[K");
    return std::regex_replace(std::regex_replace(szOutput, s_oTime, "<time>"), s_oErase, "");
}

CConsoleProcess::CConsoleProcess(const SConsoleSetup& roSetup)
    : m_poEmulator(vterm_new(roSetup.uiRows, roSetup.uiColumns))
{
    vterm_screen_reset(vterm_obtain_screen(m_poEmulator), 1);
    const winsize oSize = {roSetup.uiRows, roSetup.uiColumns, 0, 0};
    EXPECT_EQ(openpty(&m_iTerminal, &m_iSlave, nullptr, nullptr, &oSize), 0);
    fcntl(m_iTerminal, F_SETFL, O_NONBLOCK);
    m_szFoundState = TerminalState();
    m_szScenarioFile = testing::TempDir() + "VtConsole" + std::to_string(getpid()) + "." + std::to_string(m_iTerminal);
    std::ofstream(m_szScenarioFile) << roSetup.szScenario;
    m_iProcess = fork();
    if (m_iProcess == 0)
    {
        Lead(roSetup);
    }
    m_iProcessFile = static_cast<int>(syscall(SYS_pidfd_open, m_iProcess, 0));
}

// Does what a shell does: the tool is a job of its own in the foreground, and its end is passed on.
void CConsoleProcess::Lead(const SConsoleSetup& roSetup) const
{
    login_tty(dup(m_iSlave));
    close_range(STDERR_FILENO + 1, ~0U, 0); // a tool that runs beside this one must not be kept open
    const pid_t iJob = roSetup.bIsShell ? 0 : fork();
    if (iJob == 0)
    {
        std::signal(SIGTTOU, SIG_IGN);
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpid());
        std::signal(SIGTTOU, SIG_DFL);
        Exec(roSetup);
    }
    int iStatus = 0;
    waitpid(iJob, &iStatus, 0);
    if (WIFSIGNALED(iStatus))
    {
        kill(getpid(), WTERMSIG(iStatus));
    }
    _exit(WEXITSTATUS(iStatus));
}

void CConsoleProcess::Exec(const SConsoleSetup& roSetup) const
{
    setenv("VELTRANO_SCENARIO", m_szScenarioFile.c_str(), 1);
    setenv("LD_LIBRARY_PATH", roSetup.szBoardFolder.c_str(), 1);
    setenv("TOOL", VT_MONITOR_FILE, 1);
    // The board's own notices go nowhere.
    std::string szCommand = "set -o pipefail; exec \"$TOOL\" \"$@\" 2>/dev/null " + roSetup.szRedirect;
    std::vector<std::string> aszArguments = {"bash", "-c", szCommand, "tool"};
    if (roSetup.bIsShell)
    {
        aszArguments = {"bash", "--norc", "--noprofile", "--noediting", "-i"};
    }
    aszArguments.insert(aszArguments.end(), roSetup.aszArguments.begin(), roSetup.aszArguments.end());
    std::vector<char*> apszArguments;
    for (std::string& roArgument : aszArguments)
    {
        apszArguments.push_back(roArgument.data());
    }
    apszArguments.push_back(nullptr);
    execv("/bin/bash", apszArguments.data());
    _exit(127);
}

CConsoleProcess::~CConsoleProcess()
{
    if (m_iProcess > 0)
    {
        kill(m_iProcess, SIGKILL);
        waitpid(m_iProcess, nullptr, 0);
    }
    for (const int iFile : {m_iTerminal, m_iSlave, m_iProcessFile})
    {
        close(iFile);
    }
    unlink(m_szScenarioFile.c_str());
    vterm_free(m_poEmulator);
}

void CConsoleProcess::Read()
{
    std::string szBytes(4096, '\0');
    for (ssize_t iRead = 0; (iRead = read(m_iTerminal, szBytes.data(), szBytes.size())) > 0;)
    {
        vterm_input_write(m_poEmulator, szBytes.data(), static_cast<size_t>(iRead));
        m_szOutput.append(szBytes, 0, static_cast<size_t>(iRead));
        std::erase(m_szOutput, '\r');
    }
}

bool CConsoleProcess::Await(const std::function<bool()>& roIsReached)
{
    const auto oDeadline = std::chrono::steady_clock::now() + DEADLINE;
    while (!roIsReached())
    {
        pollfd aoFiles[] = {{m_iTerminal, POLLIN, 0}, {m_iProcessFile, POLLIN, 0}};
        const auto oLeft = std::chrono::ceil<std::chrono::milliseconds>(oDeadline - std::chrono::steady_clock::now());
        if (oLeft.count() <= 0 || poll(aoFiles, std::size(aoFiles), static_cast<int>(oLeft.count())) <= 0)
        {
            return false;
        }
        Read();
        if (aoFiles[1].revents != 0 && aoFiles[0].revents == 0)
        {
            return roIsReached(); // ended, and all is read
        }
    }
    return true;
}

bool CConsoleProcess::AwaitOutput(std::string_view szText)
{
    return Await([&] { return m_szOutput.find(szText) != std::string::npos; });
}

bool CConsoleProcess::AwaitNewOutput(std::string_view szText)
{
    const bool bIsThere = Await([&] { return m_szOutput.find(szText, m_uiAwaited) != std::string::npos; });
    m_uiAwaited = m_szOutput.size();
    return bIsThere;
}

bool CConsoleProcess::AwaitInRedraw(size_t uiRedraw, std::string_view szText)
{
    return Await(
        [&]
        {
            const std::vector<std::string> aszRedraws = Redraws();
            return aszRedraws.size() > uiRedraw && aszRedraws[uiRedraw].find(szText) != std::string::npos;
        });
}

int CConsoleProcess::AwaitEnd()
{
    pollfd oProcess = {m_iProcessFile, POLLIN, 0};
    int iStatus = 0;
    if (!Await([&] { return poll(&oProcess, 1, 0) > 0; }) || waitpid(m_iProcess, &iStatus, 0) < 0)
    {
        ADD_FAILURE() << "hangs, behind\n" << m_szOutput;
        return -SIGKILL;
    }
    m_iProcess = -1;
    EXPECT_EQ(TerminalState(), m_szFoundState);
    // With the last one on the tool's side gone, the emulator's side reports an end behind the last byte.
    close(std::exchange(m_iSlave, -1));
    pollfd oTerminal = {m_iTerminal, POLLIN, 0};
    while (poll(&oTerminal, 1, -1) > 0 && (oTerminal.revents & POLLIN) != 0)
    {
        Read();
    }
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
}

void CConsoleProcess::Type(std::string_view szKeys) const
{
    EXPECT_EQ(write(m_iTerminal, szKeys.data(), szKeys.size()), static_cast<ssize_t>(szKeys.size()));
}

void CConsoleProcess::Resize(uint16_t uiRows, uint16_t uiColumns)
{
    const winsize oSize = {uiRows, uiColumns, 0, 0};
    ioctl(m_iTerminal, TIOCSWINSZ, &oSize);
    vterm_set_size(m_poEmulator, uiRows, uiColumns);
}

// From one stop of the tool's main thread to the next, at the begin and the end of every system call.
bool CConsoleProcess::Step(const std::function<bool(int)>& roIsReached) const
{
    const pid_t iTool = tcgetpgrp(m_iTerminal);
    constexpr int iMostStops = 20000;
    int iStatus = 0;
    for (int iStop = 0; iStop < iMostStops && waitpid(iTool, &iStatus, __WALL) > 0; ++iStop)
    {
        if (roIsReached(iStatus))
        {
            return true;
        }
        const bool bIsSignal = iStatus >> 16 == 0 && WSTOPSIG(iStatus) != (SIGTRAP | 0x80);
        ptrace(PTRACE_SYSCALL, iTool, nullptr, bIsSignal ? WSTOPSIG(iStatus) : 0);
    }
    return false;
}

bool CConsoleProcess::KillInKeyRead(int iSignal) const
{
    const pid_t iTool = tcgetpgrp(m_iTerminal);
    ptrace(PTRACE_SEIZE, iTool, nullptr, PTRACE_O_TRACESYSGOOD);
    ptrace(PTRACE_INTERRUPT, iTool, nullptr, nullptr);
    const bool bIsMet = Step([&](int) { return TerminalState() != m_szFoundState; });
    kill(iTool, iSignal);
    return ptrace(PTRACE_DETACH, iTool, nullptr, nullptr) == 0 && bIsMet;
}

bool CConsoleProcess::StopInKeyRead(int iMoment) const
{
    const pid_t iTool = tcgetpgrp(m_iTerminal);
    ptrace(PTRACE_SEIZE, iTool, nullptr, PTRACE_O_TRACESYSGOOD);
    ptrace(PTRACE_INTERRUPT, iTool, nullptr, nullptr);
    int iMomentsIn = 0;
    const bool bIsMet =
        Step([&](int) { return (iMomentsIn > 0 || TerminalState() != m_szFoundState) && iMomentsIn++ == iMoment; });
    kill(-iTool, SIGTSTP);
    ptrace(PTRACE_SYSCALL, iTool, nullptr, nullptr);
    const bool bIsStopped = Step([](int iStatus) { return iStatus >> 8 == (SIGTSTP | PTRACE_EVENT_STOP << 8); });
    const bool bIsAsFound = TerminalState() == m_szFoundState;
    ptrace(PTRACE_DETACH, iTool, nullptr, nullptr);
    kill(iTool, SIGCONT);
    return bIsMet && bIsStopped && bIsAsFound;
}

std::vector<std::string> CConsoleProcess::Redraws() const
{
    std::vector<std::string> aszRedraws;
    size_t uiFrom = 0;
    for (size_t uiHome = m_szOutput.find(HOME); uiHome != std::string::npos; uiHome = m_szOutput.find(HOME, uiFrom))
    {
        aszRedraws.push_back(m_szOutput.substr(uiFrom, uiHome - uiFrom));
        uiFrom = uiHome + HOME.size();
    }
    aszRedraws.push_back(m_szOutput.substr(uiFrom));
    return aszRedraws;
}

std::string CConsoleProcess::Screen() const
{
    VTermRect oRect = {};
    vterm_get_size(m_poEmulator, &oRect.end_row, &oRect.end_col);
    std::string szScreen(static_cast<size_t>(oRect.end_row) * static_cast<size_t>(oRect.end_col + 1), '\0');
    const VTermScreen* poScreen = vterm_obtain_screen(m_poEmulator);
    szScreen.resize(vterm_screen_get_text(poScreen, szScreen.data(), szScreen.size(), oRect));
    return szScreen;
}

std::string CConsoleProcess::TerminalState() const
{
    termios oAttributes = {};
    tcgetattr(m_iSlave, &oAttributes);
    return std::string(reinterpret_cast<const char*>(&oAttributes), sizeof(oAttributes)) +
           std::to_string(fcntl(m_iSlave, F_GETFL));
}
