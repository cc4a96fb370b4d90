// See ScenarioSource.h.
#include "ScenarioSource.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "ScenarioReader.h"
#include "TextFile.h"
#include "TextLine.h"
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

std::string FormatIntro(const std::string& rszFile, const SScenario& roScenario)
{
    const std::string szName = roScenario.szName.empty() ? std::string() : " \"" + roScenario.szName + "\"";
    return TextLine_Make("libVeltrano: this is a simulated board, scenario" + szName + " (" + rszFile + ")");
}

} // namespace

void ScenarioSource_Override(std::optional<std::string> szText)
{
    SOverride& roOverride = GetOverride();
    const std::lock_guard oGuard(roOverride.oMutex);
    roOverride.szText = std::move(szText);
}

// A recording is named as seen from the scenario.
ReplayReader ScenarioSource_GetReplayReader(const std::string& rszScenario)
{
    const size_t uiSlash = rszScenario.rfind('/');
    const std::string szFolder = uiSlash == std::string::npos ? std::string() : rszScenario.substr(0, uiSlash + 1);
    return [szFolder](const std::string& rszFile, SReplay& roReplay, std::string& rszWhy)
    { return Replay_Read(rszFile.starts_with('/') ? rszFile : szFolder + rszFile, roReplay, rszWhy); };
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
        if (!szFile.empty() && !TextFile_Read(szFile, uiTomlTextLimit, *szText, oFault))
        {
            szText->clear();
        }
        szFile = szFile.empty() ? szDefaultName : szFile;
    }
    if (oFault.IsSet() || !Scenario_Read(*szText, roScenario, oFault, ScenarioSource_GetReplayReader(szFile)))
    {
        (void)std::fprintf(stderr, "%s\n", TextLine_OfFault(szFile, oFault).c_str());
        return false;
    }
    if (const std::string szTruth = GetEnvironment(szTruthVariable); !szTruth.empty())
    {
        roScenario.szTruthFile = szTruth;
    }
    rszIntro = bOverride ? std::string() : FormatIntro(szFile, roScenario);
    return true;
}
