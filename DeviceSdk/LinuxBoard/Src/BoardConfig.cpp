#include "BoardConfig.h"

#include <algorithm>
#include <fnmatch.h>

#include "TomlTree.h"
#include "VtTypes.h"

namespace
{

constexpr size_t uiMaxRules = 256;
constexpr size_t uiMaxText = 1024;

bool Refuse(SConfigFault& roFault, const STomlNode& roWhere, std::string szText)
{
    roFault.Set(roWhere.uiLine, std::move(szText));
    return false;
}

bool ReadText(const STomlNode& roValue, size_t uiMost, std::string& rszText, SConfigFault& roFault)
{
    if (roValue.eKind != STomlNode::EKind::TEXT || roValue.szText.empty() || roValue.szText.size() > uiMost ||
        roValue.szText.find('\0') != std::string::npos)
    {
        return Refuse(roFault, roValue,
                      roValue.szKey + ": must be a text of 1 to " + std::to_string(uiMost) + " characters");
    }
    rszText = roValue.szText;
    return true;
}

bool ReadWord(const STomlNode& roValue, std::string_view szNo, std::string_view szYes, std::optional<bool>& rbValue,
              SConfigFault& roFault)
{
    if (roValue.eKind != STomlNode::EKind::TEXT || (roValue.szText != szNo && roValue.szText != szYes))
    {
        return Refuse(roFault, roValue,
                      roValue.szKey + ": must be \"" + std::string(szNo) + "\" or \"" + std::string(szYes) + "\"");
    }
    rbValue = roValue.szText == szYes;
    return true;
}

bool ReadKey(const STomlNode& roValue, bool bInput, SDeviceRule& roRule, SConfigFault& roFault)
{
    const std::string& rszKey = roValue.szKey;
    if (rszKey == "device")
    {
        return ReadText(roValue, uiMaxText, roRule.szDevice, roFault);
    }
    if (rszKey == "bus")
    {
        return ReadText(roValue, uiMaxText, roRule.szBus, roFault);
    }
    if (rszKey == "driver")
    {
        return ReadText(roValue, uiMaxText, roRule.szDriver, roFault);
    }
    if (rszKey == "name")
    {
        return ReadText(roValue, VtTextSize_CONNECTOR_NAME - 1, roRule.szName, roFault);
    }
    if (bInput && rszKey == "mode")
    {
        return ReadWord(roValue, "observe", "own", roRule.bOwn, roFault);
    }
    if (bInput && rszKey == "format")
    {
        return ReadWord(roValue, "keep", "smallest", roRule.bSmallest, roFault);
    }
    return Refuse(roFault, roValue, "unknown key " + rszKey);
}

bool ReadRule(const STomlNode& roTable, bool bInput, std::vector<SDeviceRule>& raoRules, SConfigFault& roFault)
{
    SDeviceRule& roRule = raoRules.emplace_back();
    roRule.uiLine = roTable.uiLine;
    for (const STomlNode& roValue : roTable.aoChildren)
    {
        if (!ReadKey(roValue, bInput, roRule, roFault))
        {
            return false;
        }
    }
    if (roRule.szDevice.empty() && roRule.szBus.empty() && roRule.szDriver.empty())
    {
        return Refuse(roFault, roTable, "one of device, bus and driver must say which devices are meant");
    }
    return true;
}

bool ReadRules(const STomlNode& roNode, std::vector<SDeviceRule>& raoRules, SConfigFault& roFault)
{
    const auto IsTable = [](const STomlNode& roElement) { return roElement.eKind == STomlNode::EKind::TABLE; };
    if (roNode.eKind != STomlNode::EKind::ARRAY || roNode.aoChildren.empty() || roNode.aoChildren.size() > uiMaxRules ||
        !std::ranges::all_of(roNode.aoChildren, IsTable))
    {
        return Refuse(roFault, roNode, roNode.szKey + ": must be 1 to " + std::to_string(uiMaxRules) + " tables");
    }
    return std::ranges::all_of(roNode.aoChildren, [&](const STomlNode& roTable)
                               { return ReadRule(roTable, roNode.szKey == "input", raoRules, roFault); });
}

bool Fits(const std::string& rszPattern, const std::string& rszText)
{
    return rszPattern.empty() || fnmatch(rszPattern.c_str(), rszText.c_str(), 0) == 0;
}

bool Fits(const SDeviceRule& roRule, const SDeviceFacts& roDevice)
{
    return Fits(roRule.szDevice, roDevice.szName) && Fits(roRule.szDriver, roDevice.szDriver) &&
           (roRule.szBus.empty() ||
            std::any_of(roDevice.aszBusPaths.begin(), roDevice.aszBusPaths.end(),
                        [&roRule](const std::string& rszPath) { return Fits(roRule.szBus, rszPath); }));
}

/* Names the choices of one rule, from uiFirst on. */
void Name(std::vector<SDeviceChoice>& raoChoices, size_t uiFirst, const std::string& rszName)
{
    if (rszName.empty())
    {
        return;
    }
    const bool bNumbered = raoChoices.size() > uiFirst + 1;
    for (size_t uiChoice = uiFirst; uiChoice < raoChoices.size(); uiChoice++)
    {
        raoChoices[uiChoice].szName = rszName + (bNumbered ? " " + std::to_string(uiChoice - uiFirst + 1) : "");
    }
}

} // namespace

bool BoardConfig_Parse(std::string_view szText, SBoardConfig& roConfig, SConfigFault& roFault)
{
    roConfig = {};
    STomlNode oRoot;
    if (!TomlTree_Parse(szText, oRoot, roFault))
    {
        return false;
    }
    for (const STomlNode& roNode : oRoot.aoChildren)
    {
        const bool bInput = roNode.szKey == "input";
        if (!bInput && roNode.szKey != "output")
        {
            return Refuse(roFault, roNode, "unknown key " + roNode.szKey);
        }
        if (!ReadRules(roNode, bInput ? roConfig.aoInputs : roConfig.aoOutputs, roFault))
        {
            return false;
        }
    }
    return true;
}

std::vector<SDeviceChoice> BoardConfig_Choose(std::span<const SDeviceRule> aoRules,
                                              std::span<const SDeviceFacts> aoDevices)
{
    std::vector<SDeviceChoice> aoChoices;
    if (aoRules.empty())
    {
        for (size_t uiDevice = 0; uiDevice < aoDevices.size(); uiDevice++)
        {
            aoChoices.push_back({uiDevice, nullptr, aoDevices[uiDevice].szName});
        }
    }
    std::vector<bool> abTaken(aoDevices.size(), false);
    for (const SDeviceRule& roRule : aoRules)
    {
        const size_t uiFirst = aoChoices.size();
        for (size_t uiDevice = 0; uiDevice < aoDevices.size(); uiDevice++)
        {
            if (abTaken[uiDevice] || !Fits(roRule, aoDevices[uiDevice]))
            {
                continue;
            }
            abTaken[uiDevice] = true;
            aoChoices.push_back({uiDevice, &roRule, aoDevices[uiDevice].szName});
        }
        Name(aoChoices, uiFirst, roRule.szName);
    }
    return aoChoices;
}
