/*
 * The real tool in a pseudo terminal, as a user has it in front of him: its bytes are kept and shown on an emulated
 * screen, keys are typed, its end is awaited. One thread; every wait reads what the tool prints and has a deadline that
 * only a tool that hangs ever reaches.
 */
#ifndef CONSOLE_PROCESS_H
#define CONSOLE_PROCESS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

#include <vterm.h>

// A simulated board of streams in lock, with connectors "IN%n%s 0", "OUT%n%s 0" and so on. Output 0 is blanked
// after 1.5 s.
std::string Scenario(int iNbOfInputs, int iNbOfOutputs);

enum class EConsoleInput
{
    TERMINAL,
    EMPTY_PIPE,
    NULL_DEVICE,
    CLOSED
};

struct SConsoleSetup
{
    std::vector<std::string> aszArguments{};
    std::string szScenario{};
    EConsoleInput eInput = EConsoleInput::TERMINAL;
    bool bOutputIsPipe = false;
    uint16_t uiRows = 60;
    uint16_t uiColumns = 200;
};

// Where a terminal stands between two programs: what one leaves behind, the next one gets.
struct STerminalState
{
    termios oAttributes{};
    int iStatusFlags = 0;
    bool operator==(const STerminalState& roOther) const;
};

class CConsoleProcess
{
public:
    explicit CConsoleProcess(const SConsoleSetup& roSetup);
    ~CConsoleProcess();
    CConsoleProcess(const CConsoleProcess&) = delete;
    CConsoleProcess& operator=(const CConsoleProcess&) = delete;

    bool Await(const std::function<bool()>& roIsReached);
    bool AwaitOutput(std::string_view szText); // anywhere in the output
    // In the redraw of that number, the first being 1, also while it is still being printed.
    bool AwaitInRedraw(size_t uiRedraw, std::string_view szText);
    // What the tool ended with: its exit status, or minus the signal; -1000 when it hangs.
    int AwaitEnd();
    void Type(std::string_view szKeys) const;
    void Kill(int iSignal) const;
    // Ends the tool with a signal that comes in the middle of a key read. False when no such moment was met.
    bool KillInKeyRead(int iSignal);

    // All bytes so far, line ends as the tool wrote them; and those of the terminal alone when the output is a pipe.
    const std::string& Output() const { return m_szOutput; }
    // The output from each cursor-home sequence to the next, the first being what stands before any.
    std::vector<std::string> Redraws() const;
    std::string Screen() const; // the emulated screen, rows cut behind their last character
    const STerminalState& FoundTerminal() const { return m_oFound; }
    STerminalState Terminal() const;

private:
    [[noreturn]] void Exec(const SConsoleSetup& roSetup, const int (&raiPipe)[2]) const;
    void Read(int iFile);

    pid_t m_iProcess = -1;
    int m_iProcessFile = -1;
    int m_iTerminal = -1; // the emulator's side
    int m_iSlave = -1;    // the tool's side
    int m_iOutput = -1;   // where the output comes from: the terminal or a pipe
    std::string m_szScenarioFile;
    std::string m_szOutput;
    STerminalState m_oFound;
    STerminalState m_oLeft;
    VTerm* m_poEmulator;
};

#endif
