#include "ConsoleProcess.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <utmp.h>

#include <gtest/gtest.h>

namespace
{

constexpr std::chrono::seconds DEADLINE{30};
constexpr std::string_view HOME = "\033[1;1H";

// Eight fields a second: a stream that a busy machine does not make the tool miss fields of.
constexpr char TIMING[] = "timing = { h_active = 1920, h_front_porch = 88, h_sync = 44, h_back_porch = 148, "
                          "v_active = 1080, v_front_porch = 4, v_sync = 5, v_back_porch = 36, "
                          "pixel_clock_hz = 19800000, h_sync_positive = true }\n";

} // namespace

std::string Scenario(int iNbOfInputs, int iNbOfOutputs)
{
    std::string szScenario = "[[chip]]\n[[chip.lock_group]]\nname = \"all\"\n";
    for (const auto& [szTable, szName, iCount] :
         {std::tuple("input", "IN", iNbOfInputs), {"output", "OUT", iNbOfOutputs}})
    {
        for (int iStream = 0; iStream < iCount; ++iStream)
        {
            szScenario += std::string("[[chip.") + szTable + "]]\nlock_group = \"all\"\n" + TIMING + "connector = \"" +
                          szName + "%n%s " + std::to_string(iStream) + "\"\n";
            szScenario += szName[0] == 'O' && iStream == 0
                              ? "[[chip.output.event]]\nkind = \"power_state\"\nat_s = 1.5\nstate = \"BLANKED\"\n"
                              : "";
        }
    }
    return szScenario;
}

bool STerminalState::operator==(const STerminalState& roOther) const
{
    const termios& roAttributes = roOther.oAttributes;
    return oAttributes.c_iflag == roAttributes.c_iflag && oAttributes.c_oflag == roAttributes.c_oflag &&
           oAttributes.c_cflag == roAttributes.c_cflag && oAttributes.c_lflag == roAttributes.c_lflag &&
           std::ranges::equal(oAttributes.c_cc, roAttributes.c_cc) && iStatusFlags == roOther.iStatusFlags;
}

CConsoleProcess::CConsoleProcess(const SConsoleSetup& roSetup)
    : m_poEmulator(vterm_new(roSetup.uiRows, roSetup.uiColumns))
{
    vterm_set_utf8(m_poEmulator, 1);
    vterm_screen_reset(vterm_obtain_screen(m_poEmulator), 1);
    char szName[] = "/tmp/VtConsoleXXXXXX";
    close(mkstemp(szName));
    m_szScenarioFile = szName;
    std::ofstream(m_szScenarioFile) << roSetup.szScenario;

    const winsize oSize = {roSetup.uiRows, roSetup.uiColumns, 0, 0};
    int aiPipe[2] = {-1, -1};
    if (openpty(&m_iTerminal, &m_iSlave, nullptr, nullptr, &oSize) != 0 || pipe2(aiPipe, O_CLOEXEC) != 0)
    {
        abort();
    }
    for (const int iFile : {m_iTerminal, m_iSlave})
    {
        fcntl(iFile, F_SETFD, FD_CLOEXEC); // a tool that runs beside this one must not keep it open
    }
    m_oFound = Terminal();
    m_iProcess = fork();
    if (m_iProcess == 0)
    {
        Exec(roSetup, aiPipe);
    }
    m_iProcessFile = static_cast<int>(syscall(SYS_pidfd_open, m_iProcess, 0));
    close(aiPipe[1]);
    m_iOutput = roSetup.bOutputIsPipe ? aiPipe[0] : m_iTerminal;
    for (const int iFile : {m_iTerminal, aiPipe[0]})
    {
        fcntl(iFile, F_SETFL, O_NONBLOCK);
    }
    if (!roSetup.bOutputIsPipe)
    {
        close(aiPipe[0]);
    }
}

void CConsoleProcess::Exec(const SConsoleSetup& roSetup, const int (&raiPipe)[2]) const
{
    const int iSlave = dup(m_iSlave);
    login_tty(iSlave);
    if (roSetup.bOutputIsPipe)
    {
        dup2(raiPipe[1], STDOUT_FILENO);
    }
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO); // the board's own notices
    int aiEmptyPipe[2];
    switch (roSetup.eInput)
    {
    case EConsoleInput::TERMINAL:
        break;
    case EConsoleInput::EMPTY_PIPE: // its writer stays open for as long as the tool runs
        if (pipe(aiEmptyPipe) == 0)
        {
            dup2(aiEmptyPipe[0], STDIN_FILENO);
        }
        break;
    case EConsoleInput::NULL_DEVICE:
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        break;
    case EConsoleInput::CLOSED:
        close(STDIN_FILENO);
        break;
    }
    setenv("VELTRANO_SCENARIO", m_szScenarioFile.c_str(), 1);
    setenv("LD_LIBRARY_PATH", VT_BOARD_FOLDER, 1);
    std::vector<char*> apszArguments = {const_cast<char*>("VtVideoMonitor")};
    for (const std::string& roArgument : roSetup.aszArguments)
    {
        apszArguments.push_back(const_cast<char*>(roArgument.c_str()));
    }
    apszArguments.push_back(nullptr);
    execv(VT_MONITOR_FILE, apszArguments.data());
    _exit(127);
}

CConsoleProcess::~CConsoleProcess()
{
    if (m_iProcess > 0)
    {
        Kill(SIGKILL);
        waitpid(m_iProcess, nullptr, 0);
    }
    for (const int iFile : {m_iTerminal, m_iSlave, m_iProcessFile, m_iOutput == m_iTerminal ? -1 : m_iOutput})
    {
        close(iFile);
    }
    unlink(m_szScenarioFile.c_str());
    vterm_free(m_poEmulator);
}

void CConsoleProcess::Read(int iFile)
{
    std::array<char, 4096> acBytes;
    for (ssize_t iRead = 0; (iRead = read(iFile, acBytes.data(), acBytes.size())) > 0;)
    {
        const std::string_view szBytes(acBytes.data(), static_cast<size_t>(iRead));
        if (iFile == m_iTerminal)
        {
            vterm_input_write(m_poEmulator, szBytes.data(), szBytes.size());
        }
        if (iFile == m_iOutput)
        {
            std::ranges::copy_if(szBytes, std::back_inserter(m_szOutput), [](char cByte) { return cByte != '\r'; });
        }
    }
}

bool CConsoleProcess::Await(const std::function<bool()>& roIsReached)
{
    const auto oDeadline = std::chrono::steady_clock::now() + DEADLINE;
    while (!roIsReached())
    {
        pollfd aoFiles[] = {{m_iTerminal, POLLIN, 0}, {m_iOutput, POLLIN, 0}, {m_iProcessFile, POLLIN, 0}};
        const auto oLeft = std::chrono::ceil<std::chrono::milliseconds>(oDeadline - std::chrono::steady_clock::now());
        if (oLeft.count() <= 0 || poll(aoFiles, std::size(aoFiles), static_cast<int>(oLeft.count())) <= 0)
        {
            return false;
        }
        Read(m_iTerminal);
        Read(m_iOutput);
        if ((aoFiles[2].revents & POLLIN) != 0 && (aoFiles[0].revents & POLLIN) == 0)
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
        return -1000;
    }
    m_iProcess = -1;
    m_oLeft = Terminal();
    // With the last one on the tool's side gone, the emulator's side reports an end behind the last byte.
    close(std::exchange(m_iSlave, -1));
    pollfd oTerminal = {m_iTerminal, POLLIN, 0};
    while (poll(&oTerminal, 1, -1) > 0 && (oTerminal.revents & POLLIN) != 0)
    {
        Read(m_iTerminal);
    }
    Read(m_iOutput);
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
}

void CConsoleProcess::Type(std::string_view szKeys) const
{
    EXPECT_EQ(write(m_iTerminal, szKeys.data(), szKeys.size()), static_cast<ssize_t>(szKeys.size()));
}

void CConsoleProcess::Kill(int iSignal) const
{
    kill(m_iProcess, iSignal);
}

bool CConsoleProcess::KillInKeyRead(int iSignal)
{
    const auto oDeadline = std::chrono::steady_clock::now() + DEADLINE;
    bool bIsMet = false;
    while (!bIsMet && std::chrono::steady_clock::now() < oDeadline)
    {
        Kill(SIGSTOP);
        waitpid(m_iProcess, nullptr, WUNTRACED);
        Read(m_iTerminal);
        const STerminalState oNow = Terminal();
        bIsMet = !(oNow == m_oFound);
        if (bIsMet)
        {
            Kill(iSignal);
        }
        Kill(SIGCONT);
    }
    return bIsMet;
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
    int iRows = 0;
    int iColumns = 0;
    vterm_get_size(m_poEmulator, &iRows, &iColumns);
    std::string szScreen;
    for (int iRow = 0; iRow < iRows; ++iRow)
    {
        std::string szRow(static_cast<size_t>(iColumns) * 4, '\0');
        const VTermRect oRect = {iRow, iRow + 1, 0, iColumns};
        szRow.resize(vterm_screen_get_text(vterm_obtain_screen(m_poEmulator), szRow.data(), szRow.size(), oRect));
        szRow.resize(szRow.find_last_not_of(" \n") + 1);
        szScreen += szRow + '\n';
    }
    return szScreen;
}

STerminalState CConsoleProcess::Terminal() const
{
    if (m_iSlave == -1)
    {
        return m_oLeft;
    }
    STerminalState oState;
    tcgetattr(m_iSlave, &oState.oAttributes);
    oState.iStatusFlags = fcntl(m_iSlave, F_GETFL);
    return oState;
}
