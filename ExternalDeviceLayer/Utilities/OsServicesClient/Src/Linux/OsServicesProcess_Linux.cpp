// Who started us: the command lines of the process and of its ancestors, from /proc.
#include "OsServicesClient.h"

#include "KrvTools.h"

#include <cstdio>
#include <memory>
#include <unistd.h>

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
void OsServices_GetProcessName(int iPid, char* pszName, uint32_t uiSize)
{
    char szPath[uiPathSize];
    std::snprintf(szPath, sizeof(szPath), "/proc/%d/cmdline", iPid);
    KrvTools_memset(pszName, 0, uiSize);
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
        pszName[uiIndex] = iCharacter == 0 ? ' ' : static_cast<char>(iCharacter);
    }
}

// Returns the length of the line, also of what found no room.
uint32_t WriteProcessLine(int iPid, char* pszDest, uint32_t uiDestSize)
{
    char szName[uiNameSize + 1] = {}; // the last one stays the terminator of a name that fills the rest
    OsServices_GetProcessName(iPid, szName, uiNameSize);
    return static_cast<uint32_t>(std::snprintf(pszDest, uiDestSize, "%s\n", szName));
}

} // namespace

VtStatus OsServices_GetProcessStack(char* pszProcessStack, uint32_t uiBufferSize)
{
    if (pszProcessStack == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    int iPid = getpid();
    uint32_t uiLength = WriteProcessLine(iPid, pszProcessStack, uiBufferSize);
    while (iPid >= 2 && uiLength + 1 < uiBufferSize)
    {
        iPid = OsServices_GetParentPid(iPid);
        uiLength += WriteProcessLine(iPid, pszProcessStack + uiLength, uiBufferSize - uiLength);
    }
    return VtStatus_INVALID_PARAM; // so also when all went well
}
