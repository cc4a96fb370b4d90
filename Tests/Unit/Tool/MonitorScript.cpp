#include "MonitorScript.h"

#include <cstddef>
#include <unistd.h>

uint64_t g_uiAllocations = 0;
uint64_t g_uiPausedUs = 0;

// Linked with --wrap=usleep.
extern "C" int WrappedPause(useconds_t uiUs) asm("__wrap_usleep");
int WrappedPause(useconds_t uiUs)
{
    g_uiPausedUs += uiUs;
    return 0;
}

// The sanitizers have a malloc of their own, and nothing is counted with them.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(size_t uiSize);
extern "C" void* malloc(size_t uiSize) noexcept
{
    ++g_uiAllocations;
    return __libc_malloc(uiSize);
}
#endif

std::string SMonitorScript::Run(const std::string& szStream, uint64_t uiWaits, const std::string& szFaults)
{
    const std::string szWait = "VtVideo" + szDirection + "_WaitForFieldStart";
    const std::string szTable = szDirection == "In" ? "[[chip.input" : "[[chip.output";
    std::string szText = szHead + "[time]\nmode = 'stepped'\n[[chip]]\n" + szChip + "\n" + szTable +
                         "]]\nconnector = 'SDI A'\n" + szStream + "\n" + szFaults +
                         FailingCall(szWait, "FAIL", "call = " + std::to_string(uiWaits + 1));
    for (size_t uiEvent = 0; (uiEvent = szText.find("[[event", uiEvent)) != std::string::npos;)
    {
        szText.replace(uiEvent, 2, szTable + ".");
    }
    oData.hDev = LoadScenario(szText);
    uint64_t uiAllocations = 0;
    const auto RunThread = [&]
    {
        uiAllocations = g_uiAllocations;
        uiResult = pfnThread(&oData);
        uiAllocations = g_uiAllocations - uiAllocations;
    };
    std::string szPrinted = Printed(RunThread);
    EXPECT_TRUE(uiAllocations == 0 || bMayAllocate) << uiAllocations << " allocations";
    EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
    const std::string szEnd =
        "Error " + szWait + " un-expected return value\nVideo" + szDirection + "Monitor.cpp Assertion failed\n";
    if (szPrinted.ends_with(szEnd))
    {
        EXPECT_EQ(uiResult, 1U);
        EXPECT_EQ(VtSim_GetCallCount(szWait.c_str()), uiWaits + 1);
        szPrinted.resize(szPrinted.size() - szEnd.size());
    }
    return szPrinted;
}
