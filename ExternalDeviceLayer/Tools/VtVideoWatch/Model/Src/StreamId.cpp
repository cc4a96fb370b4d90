#include "StreamId.h"

#include <cstdio>

std::string StreamId_Print(const SStreamKey& roKey)
{
    char szId[24];
    std::snprintf(szId, sizeof(szId), "%s_%02u", roKey.eDirection == EStreamDirection::INPUT ? "IN" : "OUT",
                  roKey.uiIndex);
    return roKey.uiChip == 0 ? szId : std::to_string(roKey.uiChip - 1) + ":" + szId;
}

const char* StreamId_GetDirection(EStreamDirection eDirection)
{
    return eDirection == EStreamDirection::INPUT ? "input" : "output";
}

std::optional<SStreamKey> StreamId_Find(std::string_view szId)
{
    const size_t uiColon = szId.find(':');
    uint32_t uiChip = 0;
    while (uiColon != std::string_view::npos && uiChip < uiMaxChips &&
           szId.substr(0, uiColon) != std::to_string(uiChip))
    {
        ++uiChip;
    }
    SStreamKey oKey;
    oKey.uiChip = uiColon == std::string_view::npos ? 0 : uiChip + 1;
    for (const EStreamDirection eDirection : aeDirections)
    {
        oKey.eDirection = eDirection;
        for (oKey.uiIndex = 0; oKey.uiIndex < uiMaxStreamsPerDirection; ++oKey.uiIndex)
        {
            if (uiChip < uiMaxChips && StreamId_Print(oKey) == szId)
            {
                return oKey;
            }
        }
    }
    return std::nullopt;
}

std::vector<std::string> StreamId_PrintMembers(const SStreamKey& roOf, uint32_t uiMembers)
{
    std::vector<std::string> aszMembers;
    for (uint32_t uiIndex = 0; uiIndex < uiMaxStreamsPerDirection; ++uiIndex)
    {
        if ((uiMembers >> uiIndex & 1U) != 0)
        {
            aszMembers.push_back(StreamId_Print(StreamKey_GetNeighbour(roOf, uiIndex)));
        }
    }
    return aszMembers;
}

std::string StreamId_PrintRanges(const SStreamKey& roOf, uint32_t uiMembers)
{
    const auto fnHas = [uiMembers](uint32_t uiIndex)
    { return uiIndex < uiMaxStreamsPerDirection && (uiMembers >> uiIndex & 1U) != 0; };
    std::string szMembers;
    for (uint32_t uiIndex = 0; uiIndex < uiMaxStreamsPerDirection; ++uiIndex)
    {
        if (!fnHas(uiIndex))
        {
            continue;
        }
        const std::string szId = StreamId_Print(StreamKey_GetNeighbour(roOf, uiIndex));
        szMembers += szMembers.empty() ? szId : ", " + szId.substr(szId.find('_') + 1);
        uint32_t uiLast = uiIndex;
        while (fnHas(uiLast + 1))
        {
            ++uiLast;
        }
        if (uiLast > uiIndex + 1)
        {
            const std::string szLast = StreamId_Print(StreamKey_GetNeighbour(roOf, uiLast));
            szMembers += "-" + szLast.substr(szLast.find('_') + 1);
            uiIndex = uiLast;
        }
    }
    return szMembers;
}
