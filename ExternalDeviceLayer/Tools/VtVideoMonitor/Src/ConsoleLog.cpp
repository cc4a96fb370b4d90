#include "ConsoleLog.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "Terminal.h"

namespace
{

constexpr uint32_t uiMessageWarning = 1000;
constexpr uint32_t uiTimeTextLength = 24;

// A time header stands at most once per second, and never because of a bare line end.
void WriteTimeHeader()
{
    // Shared by all threads without a lock: two threads may at worst write the same header twice.
    static VTSTR64 szLastTimeString;

    VTSTR64 szTimeString;
    GetTimeString(szTimeString);
    if (KrvTools_strcmp(szTimeString, szLastTimeString) == 0)
    {
        return;
    }
    KrvTools_strcpy_s(szLastTimeString, sizeof(szLastTimeString), szTimeString);
    VTSTR256 szMessageTime = {};
    std::snprintf(szMessageTime, sizeof(szMessageTime), "*** %s ***\n", szTimeString);
    WriteToFile(g_pszLogFileName, szMessageTime, static_cast<uint32_t>(KrvTools_strlen(szMessageTime)));
}

void LogToFile(const char* szMessage, uint32_t uiMessageLength, const char* szMessageWarning)
{
    // Of a redrawn screen only the first one, and the lines that ask for a time header, go to the file.
    if (!g_bMonitor && !g_bAddTimeStamp && !g_bInitialLaunch)
    {
        return;
    }
    if (g_bAddTimeStamp && !g_bInitialLaunch && uiMessageLength > 1)
    {
        WriteTimeHeader();
    }
    WriteToFile(g_pszLogFileName, szMessage, uiMessageLength);
    if (uiMessageLength > uiMessageWarning)
    {
        WriteToFile(g_pszLogFileName, szMessageWarning, static_cast<uint32_t>(KrvTools_strlen(szMessageWarning)));
    }
}

} // namespace

void Log(const char* pszFormat, ...)
{
    if (g_bStatus && g_bInitialLaunch)
    {
        return;
    }
    VTSTR4096 szMessage;
    szMessage[0] = '\0';
    va_list oArguments;
    va_start(oArguments, pszFormat);
    KrvTools_vsprintf_s(szMessage, sizeof(szMessage), pszFormat, oArguments);
    va_end(oArguments);

    const uint32_t uiMessageLength = static_cast<uint32_t>(KrvTools_strlen(szMessage));
    VTSTR256 szMessageWarning;
    szMessageWarning[0] = '\0';
    if (uiMessageLength > uiMessageWarning)
    {
        std::snprintf(szMessageWarning, sizeof(szMessageWarning),
                      "Warning, message length (%d) exceed the maximum expected (%d).\n", LowInt(uiMessageLength),
                      LowInt(uiMessageWarning));
    }
    PrintToTerminal({g_bStatus ? "" : szEraseToLineEnd, szMessage, szMessageWarning});
    if (g_bLog)
    {
        LogToFile(szMessage, uiMessageLength, szMessageWarning);
    }
}

void GetTimeString(VTSTR64& szTime)
{
    KrvTools_memset(szTime, 0, sizeof(szTime));
    const std::time_t iNow = std::time(nullptr);
    tm oLocalTime = {};
    if (localtime_r(&iNow, &oLocalTime) == nullptr)
    {
        return;
    }
    asctime_r(&oLocalTime, szTime);
    szTime[uiTimeTextLength] = '\0';
}

Bool32 CreateFile(const char* pszFilePathWithName)
{
    std::FILE* poFile = std::fopen(pszFilePathWithName, "w");
    if (poFile == nullptr)
    {
        return 0;
    }
    std::fclose(poFile);
    return 1;
}

Bool32 WriteToFile(const char* pszFilePathWithName, const char* pszStr, uint32_t uiSize)
{
    std::FILE* poFile = std::fopen(pszFilePathWithName, "a");
    if (poFile == nullptr)
    {
        return 0;
    }
    const Bool32 bSuccess = std::fwrite(pszStr, uiSize, 1, poFile) == 0 ? 1 : 0;
    std::fclose(poFile);
    return bSuccess;
}
