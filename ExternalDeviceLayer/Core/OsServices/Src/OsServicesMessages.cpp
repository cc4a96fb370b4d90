// Messages: levels, prefix and the one line format of all kinds.
#include "OsServices.h"

#include <algorithm>

#include "KrvTools.h"

constinit Bool32 OsServices::ms_bIsMessagePrefixEnabled = 1;
constinit VTSTR64 OsServices::ms_szMsgPrefix = "qz2";
constinit uint64_t OsServices::ms_uiReferenceId = 0;
constinit Bool32 OsServices::ms_bEnableErrorMsg = 1;
constinit Bool32 OsServices::ms_bEnableUserMsg = 1;
constinit Bool32 OsServices::ms_bEnableInfo = 0;

namespace
{

constexpr uint32_t uiLineSize = 256;

// The text as a format that prints it: every "%" that does not start a "%%" is doubled.
void MakeFormat(char (&rszFormat)[2 * uiLineSize], const char* szText)
{
    char* pszDest = rszFormat;
    while (*szText != '\0')
    {
        const char cCharacter = *szText++;
        *pszDest++ = cCharacter;
        if (cCharacter != '%')
        {
            continue;
        }
        *pszDest++ = '%';
        if (*szText == '%')
        {
            ++szText;
        }
    }
    *pszDest = '\0';
}

} // namespace

void OsServices::WriteMsg(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    if (ms_bEnableInfo)
    {
        WriteLine("Debug", pszFormat, oArguments);
    }
    va_end(oArguments);
}

void OsServices::WriteUserMsg(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    if (ms_bEnableUserMsg)
    {
        WriteLine("Info", pszFormat, oArguments);
    }
    va_end(oArguments);
}

void OsServices::WriteErrorMsg(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    if (ms_bEnableErrorMsg)
    {
        WriteLine("Error", pszFormat, oArguments);
    }
    va_end(oArguments);
}

void OsServices::WriteLine(const char* szKind, const char* pszFormat, va_list oArguments)
{
    VTSTR256 szLine = {};
    uint32_t uiLength = 0;
    if (ms_bIsMessagePrefixEnabled)
    {
        const int32_t iLength = FormatString(szLine, uiLineSize, "%s(%d.%d.%d.%d)[%llu]: (%s) ", ms_szMsgPrefix,
                                             msc_uiMajorVer, msc_uiMinorVer, msc_uiPatchVer, msc_uiBuildVer,
                                             static_cast<unsigned long long>(ms_uiReferenceId), szKind);
        uiLength = static_cast<uint32_t>(std::clamp<int32_t>(iLength, 0, uiLineSize - 1));
    }
    KrvTools_vsprintf_s(szLine + uiLength, uiLineSize - uiLength, pszFormat, oArguments);
    // The line is formatted once more: a "%%" in it comes out as "%". There are no arguments left to convert, so any
    // other "%" stays what it is.
    char szFormat[2 * uiLineSize];
    MakeFormat(szFormat, szLine);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    WriteMsgInternal(szFormat);
#pragma GCC diagnostic pop
}

int32_t OsServices::FormatString(char* pszDest, uint32_t uiDestSize, const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    const int32_t iLength = KrvTools_vsprintf_s(pszDest, uiDestSize, pszFormat, oArguments);
    va_end(oArguments);
    return iLength;
}

void OsServices::WriteMsgInternal(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    OsServices_WriteMsg(pszFormat, oArguments);
    va_end(oArguments);
}

void OsServices::SetMsgPrefix(const char* szMsgPrefix)
{
    KrvTools_strcpy_s(ms_szMsgPrefix, sizeof(ms_szMsgPrefix), szMsgPrefix);
}

void OsServices::SetMsgReferenceId(uint64_t uiReferenceId)
{
    ms_uiReferenceId = uiReferenceId;
}

void OsServices::SetMsgLevel(Bool32 bEnableErrorMsg, Bool32 bEnableUserMsg, Bool32 bEnableInfo)
{
    ms_bEnableErrorMsg = bEnableErrorMsg;
    ms_bEnableUserMsg = bEnableUserMsg;
    ms_bEnableInfo = bEnableInfo;
}

void OsServices::GetMsgLevel(int* piEnableErrorMsg, int* piEnableUserMsg, int* piEnableInfo)
{
    const auto Write = [](int* piDest, Bool32 bValue)
    {
        if (piDest != nullptr)
        {
            *piDest = static_cast<int>(bValue);
        }
    };
    Write(piEnableErrorMsg, ms_bEnableErrorMsg);
    Write(piEnableUserMsg, ms_bEnableUserMsg);
    Write(piEnableInfo, ms_bEnableInfo);
}

void OsServices::SetMsgPrefixEnable(Bool32 bIsMessagePrefixEnabled)
{
    ms_bIsMessagePrefixEnabled = bIsMessagePrefixEnabled;
}
