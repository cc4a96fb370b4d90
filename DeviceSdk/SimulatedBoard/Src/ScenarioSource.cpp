// See ScenarioSource.h.
#include "ScenarioSource.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <system_error>

#include "ScenarioReader.h"
#include "TomlTree.h"

namespace
{

constexpr const char* szDefaultName = "built-in default";
constexpr const char* szScenarioVariable = "VELTRANO_SCENARIO";
constexpr const char* szTruthVariable = "VELTRANO_TRUTH";

struct SOverride
{
    std::mutex oMutex;
    std::optional<std::string> szText; // guarded by oMutex
};

SOverride& GetOverride()
{
    static SOverride oOverride;
    return oOverride;
}

std::string GetEnvironment(const char* szName)
{
    const char* szValue = std::getenv(szName); // NOLINT(concurrency-mt-unsafe)
    return szValue == nullptr ? std::string() : std::string(szValue);
}

bool ReadFile(const std::string& rszFile, std::string& rszText, SScenarioFault& roFault)
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
    rszText.resize(uiTomlTextLimit + 1);
    rszText.resize(std::fread(rszText.data(), 1, rszText.size(), pFile.get()));
    if (std::ferror(pFile.get()) != 0)
    {
        roFault.Set(1, "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    return true;
}

// Names come from outside: what would break a line or move a cursor becomes a blank.
std::string OneLine(std::string szLine)
{
    for (char& rcCharacter : szLine)
    {
        const auto ucCharacter = static_cast<unsigned char>(rcCharacter);
        rcCharacter = ucCharacter < 0x20 || ucCharacter == 0x7F ? ' ' : rcCharacter;
    }
    return szLine;
}

std::string FormatIntro(const std::string& rszFile, const SScenario& roScenario)
{
    const std::string szName = roScenario.szName.empty() ? std::string() : " \"" + roScenario.szName + "\"";
    return OneLine("libVeltrano: this is a simulated board, scenario" + szName + " (" + rszFile + ")");
}

} // namespace

void ScenarioSource_Override(std::optional<std::string> szText)
{
    SOverride& roOverride = GetOverride();
    const std::lock_guard oGuard(roOverride.oMutex);
    roOverride.szText = std::move(szText);
}

std::string ScenarioFault_Format(const std::string& rszFile, const SScenarioFault& roFault)
{
    return OneLine(rszFile + ":" + std::to_string(roFault.uiLine) + ": " + roFault.szText);
}

bool ScenarioSource_Load(SScenario& roScenario, std::string& rszIntro)
{
    std::string szFile = szOverrideName;
    std::optional<std::string> szText;
    {
        SOverride& roOverride = GetOverride();
        const std::lock_guard oGuard(roOverride.oMutex);
        szText = roOverride.szText;
    }
    const bool bOverride = szText.has_value();
    SScenarioFault oFault;
    if (!bOverride)
    {
        szFile = GetEnvironment(szScenarioVariable);
        szText = g_szDefaultScenario;
        if (!szFile.empty() && !ReadFile(szFile, *szText, oFault))
        {
            szText->clear();
        }
        szFile = szFile.empty() ? szDefaultName : szFile;
    }
    if (oFault.IsSet() || !Scenario_Read(*szText, roScenario, oFault))
    {
        (void)std::fprintf(stderr, "%s\n", ScenarioFault_Format(szFile, oFault).c_str());
        return false;
    }
    if (const std::string szTruth = GetEnvironment(szTruthVariable); !szTruth.empty())
    {
        roScenario.szTruthFile = szTruth;
    }
    rszIntro = bOverride ? std::string() : FormatIntro(szFile, roScenario);
    return true;
}
