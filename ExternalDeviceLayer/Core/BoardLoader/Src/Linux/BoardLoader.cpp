#include "BoardLoader.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <memory>
#include <string>
#include <system_error>

#include "BoardOperations.h"

namespace
{

constexpr char szLibrary[] = "libVeltrano.so";

// Beside the program: in the build tree, then as installed.
constexpr const char* aszOwnFolders[] = {"../lib/simulated", "../lib/vt"};

struct SSearch
{
    void* pvLibrary;
    std::string szProblem; // empty when the library is only not there
};

SSearch Open(const std::string& szFile)
{
    // Global, as a linked library is: one that loads parts of its own may count on it.
    if (void* pvLibrary = dlopen(szFile.c_str(), RTLD_NOW | RTLD_GLOBAL))
    {
        return {pvLibrary, {}};
    }
    const char* szError = dlerror();
    const std::string szReason = szError != nullptr ? szError : "cannot be loaded";
    // Of a library that is missing another one only the other one is named.
    return {nullptr, szReason.find(szLibrary) != std::string::npos ? szReason : szFile + ": " + szReason};
}

// The first file of the library in the folders that the loader searches; empty when there is none.
std::string FindPassedOver()
{
    void* pvProgram = dlopen(nullptr, RTLD_LAZY);
    Dl_serinfo oSize = {};
    if (pvProgram == nullptr || dlinfo(pvProgram, RTLD_DI_SERINFOSIZE, &oSize) != 0)
    {
        return {};
    }
    const std::unique_ptr<void, void (*)(void*)> poMemory(std::calloc(1, oSize.dls_size), std::free);
    Dl_serinfo* poFolders = static_cast<Dl_serinfo*>(poMemory.get());
    if (poFolders == nullptr || dlinfo(pvProgram, RTLD_DI_SERINFOSIZE, poFolders) != 0 ||
        dlinfo(pvProgram, RTLD_DI_SERINFO, poFolders) != 0)
    {
        return {};
    }
    for (unsigned int uiFolder = 0; uiFolder < poFolders->dls_cnt; ++uiFolder)
    {
        const std::filesystem::path oFile =
            std::filesystem::path(poFolders->dls_serpath[uiFolder].dls_name) / szLibrary;
        std::error_code oError;
        if (std::filesystem::exists(oFile, oError))
        {
            return oFile.string();
        }
    }
    return {};
}

// What the loader finds by the library's name.
SSearch OpenFromSystem()
{
    SSearch oSearch = Open(szLibrary);
    const bool bIsNotThere = oSearch.szProblem.starts_with(std::string(szLibrary) + ": cannot open shared object file");
    if (oSearch.pvLibrary == nullptr && bIsNotThere)
    {
        // The loader passes over a file that it may not read or that is made for another machine.
        const std::string szFile = FindPassedOver();
        oSearch.szProblem =
            szFile.empty() ? std::string() : szFile + ": the loader does not take it (wrong machine, or not readable)";
    }
    return oSearch;
}

SSearch OpenOwn()
{
    std::error_code oError;
    const std::filesystem::path oProgram = std::filesystem::read_symlink("/proc/self/exe", oError);
    if (oError)
    {
        // What is left would be a folder beside the current one, which is anybody's.
        return {nullptr, std::string(szLibrary) + ": there is none in the system, and where the program is cannot be " +
                             "found out (/proc/self/exe: " + oError.message() + ")"};
    }
    for (const char* szFolder : aszOwnFolders)
    {
        const std::filesystem::path oFile = oProgram.parent_path() / szFolder / szLibrary;
        if (std::filesystem::exists(oFile, oError))
        {
            return Open(oFile.string());
        }
    }
    return {nullptr, std::string(szLibrary) + ": there is none, neither in the system nor beside the program"};
}

std::string FileOf(void* pvLibrary)
{
    const link_map* poMap = nullptr;
    return dlinfo(pvLibrary, RTLD_DI_LINKMAP, &poMap) == 0 && poMap->l_name[0] != '\0' ? poMap->l_name : szLibrary;
}

} // namespace

Bool32 BoardLoader_Load(VTSTR4096& szError)
{
    SSearch oSearch = OpenFromSystem();
    if (oSearch.pvLibrary == nullptr && oSearch.szProblem.empty())
    {
        oSearch = OpenOwn();
    }
    if (oSearch.pvLibrary != nullptr)
    {
        if (const char* szMissing = BindBoardOperations(oSearch.pvLibrary))
        {
            oSearch.szProblem = FileOf(oSearch.pvLibrary) + ": it has no " + szMissing;
        }
    }
    std::snprintf(szError, sizeof(szError), "%s", oSearch.szProblem.c_str());
    return oSearch.szProblem.empty() ? 1 : 0;
}
