// The words of a verdict: the line that monitoring systems read, and JSON.
#include <nlohmann/json.hpp>

#include "CheckVerdict.h"
#include "WatchJson.h"

namespace
{

// A line is one line, and the first bar in it begins the performance data.
std::string ForLine(const std::string& rszText)
{
    std::string szText = rszText;
    for (char& rcByte : szText)
    {
        rcByte = rcByte == '|' || rcByte == '\n' ? ' ' : rcByte;
    }
    return szText;
}

std::string PrintPerformance(const SPerformance& roPerformance)
{
    std::string szText = roPerformance.szLabel + "=" + roPerformance.szValue + ";" + roPerformance.szWarning + ";" +
                         roPerformance.szCritical + ";" + roPerformance.szLeast;
    // Empty places at the end are left out.
    szText.erase(szText.find_last_not_of(';') + 1);
    return szText;
}

std::string GetLowerName(EVerdict eVerdict)
{
    std::string szName = CheckVerdict_GetName(eVerdict);
    for (char& rcByte : szName)
    {
        rcByte = static_cast<char>(rcByte - 'A' + 'a');
    }
    return szName;
}

} // namespace

std::string CheckVerdict_Print(const SCheckVerdict& roVerdict)
{
    std::string szLine = std::string("VIDEO ") + CheckVerdict_GetName(roVerdict.eVerdict) + " - ";
    for (const SFinding& roFinding : roVerdict.aoFindings)
    {
        szLine += (&roFinding == &roVerdict.aoFindings.front() ? "" : "; ") + ForLine(roFinding.szText);
    }
    if (!roVerdict.aoPerformance.empty())
    {
        szLine += " |";
    }
    for (const SPerformance& roPerformance : roVerdict.aoPerformance)
    {
        szLine += " " + PrintPerformance(roPerformance);
    }
    return szLine;
}

std::string CheckVerdict_PrintJson(const SCheckVerdict& roVerdict, const SWatchPublication& roPublication)
{
    CJson oJson;
    oJson["verdict"] = GetLowerName(roVerdict.eVerdict);
    oJson["exit_status"] = static_cast<int>(roVerdict.eVerdict);
    oJson["line"] = CheckVerdict_Print(roVerdict);
    oJson["findings"] = CJson::array();
    for (const SFinding& roFinding : roVerdict.aoFindings)
    {
        oJson["findings"].push_back({{"verdict", GetLowerName(roFinding.eVerdict)}, {"text", roFinding.szText}});
    }
    oJson["figures"] = WatchJson_FromStreams(roPublication);
    oJson["pairs"] = WatchJson_FromPairs(roPublication);
    return WatchJson_Print(oJson);
}
