#include "VideoDescription.h"

#include "AssertReport.h"
#include "ConnectorNames.h"
#include "ConsoleLog.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"

void GetVideoParamString(const VtVideo_VidParam* poVideoParam, VTSTR256& szVideoParam)
{
    FormatVideoParam(poVideoParam, g_bExtendVidTimingDetails, szVideoParam);
}

VtStatus GetVideoNameString(VtDevice_Handle hDev, uint32_t uiVideoIndex, Bool32 bIsVideoInput, VTSTR64& szVideoName)
{
    const SConnectorSearch oSearch = FindConnectorName(hDev, uiVideoIndex, bIsVideoInput, szVideoName);
    switch (oSearch.eOutcome)
    {
    case EConnectorSearch::FOUND:
        break;
    case EConnectorSearch::COUNT_FAILED:
        ReportFailedAssert();
        break;
    case EConnectorSearch::NO_CONNECTORS:
        Log("Error : No connector found!\n");
        ReportFailedAssert();
        break;
    case EConnectorSearch::QUERY_FAILED:
        Log("Error : VtBoard_GetConnectorInfo failed!\n");
        break;
    case EConnectorSearch::NO_MATCH:
        Log("Error : Video %s [%02d] does not have name\n", bIsVideoInput ? "input" : "output", LowInt(uiVideoIndex));
        break;
    }
    return oSearch.eStatus;
}
