// Who started us: the command lines of the process and of its ancestors, from /proc.
#include "OsServicesClient.h"

#include <cstdio>
#include <memory>
#include <unistd.h>

#include "KrvTools.h"

namespace
{

constexpr uint32_t uiNameSize = 512;
constexpr uint32_t uiPathSize = 8192;

struct SFileCloser
{
    void operator()(std::FILE* poFile) const { std::fclose(poFile); }
};
using UniqueFile = std::unique_ptr<std::FILE, SFileCloser>;

// 0 if it cannot be told, also for a process whose name has a blank in it.
int OsServices_GetParentPid(int iPid)
{
    char szPath[uiPathSize];
    std::snprintf(szPath, sizeof(szPath), "/proc/%d/stat", iPid);
    int iParentPid = 0;
    const UniqueFile poFile(std::fopen(szPath, "r"));
    if (poFile == nullptr || std::fscanf(poFile.get(), "%*d %*s %*c %d", &iParentPid) != 1)
    {
        return 0;
    }
    return iParentPid;
}

// The arguments with blanks between them; a line that fills the buffer comes without a terminator.
void OsServices_GetProcessName(int iPid, char* szName, uint32_t uiSize)
{
    char szPath[uiPathSize];
    std::snprintf(szPath, sizeof(szPath), "/proc/%d/cmdline", iPid);
    KrvTools_memset(szName, 0, uiSize);
    const UniqueFile poFile(std::fopen(szPath, "r"));
    if (poFile == nullptr)
    {
        return;
    }
    for (uint32_t uiIndex = 0; uiIndex < uiSize; ++uiIndex)
    {
        const int iCharacter = std::fgetc(poFile.get());
        if (iCharacter == EOF)
        {
            return;
        }
        szName[uiIndex] = iCharacter == 0 ? ' ' : static_cast<char>(iCharacter);
    }
}

// Appends the name as a line behind uiLength characters, as far as there is room. Returns the length that the text
// would have with all of it.
uint32_t AppendProcessLine(int iPid, char* szText, uint32_t uiTextSize, uint32_t uiLength)
{
    char szName[uiNameSize + 1] = {}; // the last one stays the terminator of a name that fills the rest
    OsServices_GetProcessName(iPid, szName, uiNameSize);
    const uint32_t uiRoom = uiLength < uiTextSize ? uiTextSize - uiLength : 0;
    char* const pszDest = uiRoom > 0 ? szText + uiLength : nullptr;
    return uiLength + static_cast<uint32_t>(std::snprintf(pszDest, uiRoom, "%s\n", szName));
}

} // namespace

VtStatus OsServices_GetProcessStack(char* pszProcessStack, uint32_t uiBufferSize)
{
    if (pszProcessStack == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    int iPid = getpid();
    uint32_t uiLength = AppendProcessLine(iPid, pszProcessStack, uiBufferSize, 0);
    do
    {
        iPid = OsServices_GetParentPid(iPid);
        uiLength = AppendProcessLine(iPid, pszProcessStack, uiBufferSize, uiLength);
    } while (iPid >= 2 && uiLength + 1 < uiBufferSize);
    return VtStatus_INVALID_PARAM; // so also when all went well
}
