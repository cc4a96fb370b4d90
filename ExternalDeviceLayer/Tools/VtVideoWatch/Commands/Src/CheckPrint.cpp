#include "CheckPrint.h"

#include <nlohmann/json.hpp>

#include "StreamId.h"
#include "WatchJson.h"
#include "WatchTexts.h"

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

CJson ToJson(const SFinding& roFinding)
{
    CJson oJson;
    oJson["condition"] = roFinding.szCondition;
    oJson["status"] = GetLowerName(roFinding.eVerdict);
    oJson["text"] = roFinding.szText;
    oJson["streams"] = CJson::array();
    for (const SStreamKey& roStream : roFinding.aoStreams)
    {
        oJson["streams"].push_back(StreamId_Print(roStream));
    }
    return oJson;
}

void AddFigures(CJson& roJson, const SCheckVerdict& roVerdict, const SWatchPublication& roPublication)
{
    roJson["streams"] = CJson::array();
    roJson["pairs"] = CJson::array();
    for (size_t uiSlot = 0; uiSlot < roPublication.oSnapshot.aoDirections.size(); ++uiSlot)
    {
        const SDirectionFigures& roDirection = roPublication.oSnapshot.aoDirections[uiSlot];
        for (const SStreamFigures& roStream : roDirection.aoStreams)
        {
            const SStreamTexts& roTexts = WatchPublication_GetTexts(roPublication, roStream.oKey);
            roJson["streams"].push_back(WatchJson_FromStream(roStream, roTexts));
        }
        for (const SPairFigures& roPair : roDirection.aoPairs)
        {
            roJson["pairs"].push_back(WatchJson_FromPair(StreamKey_FromSlot(uiSlot, roPair.uiFirst),
                                                         StreamKey_FromSlot(uiSlot, roPair.uiSecond), roPair));
        }
    }
    for (const SAcrossFigures& roPair : roVerdict.aoAcross)
    {
        roJson["pairs"].push_back(WatchJson_FromPair(roPair.oFirst, roPair.oSecond, roPair.oPair));
    }
}

} // namespace

std::string CheckPrint_Line(const SCheckVerdict& roVerdict)
{
    std::string szLine = std::string("VIDEO ") + CheckVerdict_GetName(roVerdict.eVerdict) + " - " +
                         ForLine(roVerdict.aoFindings.front().szText);
    const size_t uiMore = roVerdict.aoFindings.size() - 1;
    szLine += uiMore == 0 ? "" : " (" + std::to_string(uiMore) + " more)";
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

std::string CheckPrint_Lines(const SCheckVerdict& roVerdict)
{
    std::string szText = CheckPrint_Line(roVerdict);
    for (size_t uiFinding = 0; uiFinding < roVerdict.aoFindings.size() && roVerdict.aoFindings.size() > 1; ++uiFinding)
    {
        const SFinding& roFinding = roVerdict.aoFindings[uiFinding];
        szText += std::string("\n") + CheckVerdict_GetName(roFinding.eVerdict) + ": " + ForLine(roFinding.szText);
    }
    return szText;
}

std::string CheckPrint_Json(const SCheckVerdict& roVerdict, const SWatchPublication& roPublication, uint32_t uiSeconds)
{
    CJson oJson;
    oJson["status"] = GetLowerName(roVerdict.eVerdict);
    oJson["exit"] = static_cast<int>(roVerdict.eVerdict);
    oJson["text"] = CheckPrint_Line(roVerdict);
    oJson["host"] = roPublication.szHost;
    oJson["seconds"] = uiSeconds;
    oJson["utc"] = WatchTexts_GetUtc(roPublication.oSnapshot.oClock.iUtcNs);
    oJson["conditions"] = CJson::array();
    for (const SFinding& roFinding : roVerdict.aoFindings)
    {
        oJson["conditions"].push_back(ToJson(roFinding));
    }
    AddFigures(oJson, roVerdict, roPublication);
    return WatchJson_Print(oJson);
}
