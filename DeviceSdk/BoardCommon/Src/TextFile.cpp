// See TextFile.h.
#include "TextFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

bool TextFile_Read(const std::string& rszFile, size_t uiMostBytes, std::string& rszText, STextFault& roFault)
{
    std::error_code oError;
    if (!std::filesystem::is_regular_file(rszFile, oError))
    {
        roFault.Set(1, "cannot be read: " + (oError ? oError.message() : std::string("not a regular file")));
        return false;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pFile(std::fopen(rszFile.c_str(), "re"), &std::fclose);
    if (pFile == nullptr)
    {
        roFault.Set(1, "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    rszText.resize(uiMostBytes + 1);
    rszText.resize(std::fread(rszText.data(), 1, rszText.size(), pFile.get()));
    if (std::ferror(pFile.get()) != 0)
    {
        roFault.Set(1, "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    return true;
}
