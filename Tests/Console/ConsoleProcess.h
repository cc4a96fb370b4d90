/*
 * The real tool in a pseudo terminal, as a user has it in front of him: its bytes are kept and shown on an emulated
 * screen, keys are typed, its end is awaited. Waiting reads what the tool prints, until a deadline that only a tool
 * that hangs ever meets. One thread.
 */
#ifndef CONSOLE_PROCESS_H
#define CONSOLE_PROCESS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include <vterm.h>

// A simulated board of streams in lock, with connectors that no format may swallow: "IN%n%s 0", "OUT%n%s 0" and so on.
// Ends in the table of the last stream.
std::string Scenario(int iNbOfInputs, int iNbOfOutputs);

// What was printed, without the erasing of line ends, and with "<time>" in the place of every time.
std::string Plain(const std::string& szOutput);

struct SConsoleSetup
{
    std::vector<std::string> aszArguments{};
    std::string szScenario{};
    std::string szRedirect{}; // what a shell is told behind the arguments
    std::string szBoardFolder = VT_BOARD_FOLDER;
    bool bIsShell = false; // an interactive shell in the place of the tool, which it knows as $TOOL
    uint16_t uiRows = 60;
    uint16_t uiColumns = 200;
};

class CConsoleProcess
{
public:
    explicit CConsoleProcess(const SConsoleSetup& roSetup);
    ~CConsoleProcess();
    CConsoleProcess(const CConsoleProcess&) = delete;
    CConsoleProcess& operator=(const CConsoleProcess&) = delete;

    // All that was printed so far, line ends as the tool wrote them.
    const std::string& Output() const { return m_szOutput; }
    // The same, from each cursor-home sequence to the next; what stands before the first is redraw 0.
    std::vector<std::string> Redraws() const;
    std::string Screen() const;

    void Type(std::string_view szKeys) const;
    void Resize(uint16_t uiRows, uint16_t uiColumns);
    bool Await(const std::function<bool()>& roIsReached);
    bool AwaitOutput(std::string_view szText);
    bool AwaitNewOutput(std::string_view szText);                 // printed since the last call of this kind
    bool AwaitInRedraw(size_t uiRedraw, std::string_view szText); // which may still be in the middle of its printing
    // What the tool ended with: its exit status, or minus the signal. Also checks that it left the terminal as found.
    int AwaitEnd();
    // Sends a signal in the middle of a key read. False when no such moment was met.
    bool KillInKeyRead(int iSignal) const;
    // Stops the tool at a moment of a key read, counted in begins and ends of system calls, and lets it go on. True
    // when the terminal was as found when the tool stood.
    bool StopInKeyRead(int iMoment) const;

private:
    [[noreturn]] void Lead(const SConsoleSetup& roSetup) const;
    [[noreturn]] void Exec(const SConsoleSetup& roSetup) const;
    void Read();
    bool Step(const std::function<bool(int)>& roIsReached) const;
    std::string TerminalState() const; // attributes and status flags, as bytes

    pid_t m_iProcess = -1; // the shell, or what stands in for one; the tool is its job
    int m_iProcessFile = -1;
    int m_iTerminal = -1; // the emulator's side
    int m_iSlave = -1;    // the tool's side
    std::string m_szScenarioFile;
    std::string m_szOutput;
    size_t m_uiAwaited = 0;
    std::string m_szFoundState;
    VTerm* m_poEmulator;
};

#endif
