#include "ConnectorNames.h"

#include <algorithm>

#include "BoardText.h"
#include "KrvTools.h"
#include "VtBoard.h"

namespace
{

bool IsConnectorOf(const VtBoard_ConnectorInfo& roConnector, uint32_t uiVideoIndex, Bool32 bIsVideoInput)
{
    return bIsVideoInput ? roConnector.bVideoInput && roConnector.uiVideoInIndex == uiVideoIndex
                         : roConnector.bVideoOutput && roConnector.uiVideoOutIndex == uiVideoIndex;
}

} // namespace

SConnectorSearch FindConnectorName(VtDevice_Handle hDev, uint32_t uiVideoIndex, Bool32 bIsVideoInput,
                                   VTSTR64& szVideoName)
{
    KrvTools_memset(szVideoName, 0, sizeof(szVideoName));
    VtBoard_ConnectorInfo oConnectorInfo = {};
    uint32_t uiConnectorCount = 0;
    if (VtBoard_GetConnectorCount(hDev, &uiConnectorCount) < 0)
    {
        return {EConnectorSearch::COUNT_FAILED, VtStatus_FAIL};
    }
    if (uiConnectorCount == 0)
    {
        return {EConnectorSearch::NO_CONNECTORS, VtStatus_FAIL};
    }
    uiConnectorCount = std::min(uiConnectorCount, uiMaxNbOfConnectors);
    VtStatus eStatus = VtStatus_OK;
    for (uint32_t uiConnectorIndex = 0; uiConnectorIndex < uiConnectorCount; ++uiConnectorIndex)
    {
        oConnectorInfo.uiSize = sizeof(oConnectorInfo);
        eStatus = VtBoard_GetConnectorInfo(hDev, uiConnectorIndex, &oConnectorInfo);
        if (eStatus < 0)
        {
            return {EConnectorSearch::QUERY_FAILED, eStatus};
        }
        if (IsConnectorOf(oConnectorInfo, uiVideoIndex, bIsVideoInput))
        {
            CopyBoardText(oConnectorInfo.szName, szVideoName);
            return {EConnectorSearch::FOUND, VtStatus_OK};
        }
    }
    return {EConnectorSearch::NO_MATCH, eStatus};
}
