#include "StreamId.h"

#include <cstdio>

std::string StreamId_Print(const SStreamKey& roKey)
{
    char szId[24];
    std::snprintf(szId, sizeof(szId), "%s_%02u", roKey.eDirection == EStreamDirection::INPUT ? "IN" : "OUT",
                  roKey.uiIndex);
    return szId;
}

const char* StreamId_GetDirection(EStreamDirection eDirection)
{
    return eDirection == EStreamDirection::INPUT ? "input" : "output";
}

std::optional<SStreamKey> StreamId_Find(std::string_view szId)
{
    for (const EStreamDirection eDirection : aeDirections)
    {
        for (uint32_t uiIndex = 0; uiIndex < uiMaxStreamsPerDirection; ++uiIndex)
        {
            if (StreamId_Print({eDirection, uiIndex}) == szId)
            {
                return SStreamKey{eDirection, uiIndex};
            }
        }
    }
    return std::nullopt;
}

std::vector<std::string> StreamId_PrintMembers(EStreamDirection eDirection, uint32_t uiMembers)
{
    std::vector<std::string> aszMembers;
    for (uint32_t uiIndex = 0; uiIndex < uiMaxStreamsPerDirection; ++uiIndex)
    {
        if ((uiMembers >> uiIndex & 1U) != 0)
        {
            aszMembers.push_back(StreamId_Print({eDirection, uiIndex}));
        }
    }
    return aszMembers;
}

std::string StreamId_PrintRanges(EStreamDirection eDirection, uint32_t uiMembers)
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
        const std::string szId = StreamId_Print({eDirection, uiIndex});
        szMembers += szMembers.empty() ? szId : ", " + szId.substr(szId.find('_') + 1);
        uint32_t uiLast = uiIndex;
        while (fnHas(uiLast + 1))
        {
            ++uiLast;
        }
        if (uiLast > uiIndex + 1)
        {
            const std::string szLast = StreamId_Print({eDirection, uiLast});
            szMembers += "-" + szLast.substr(szLast.find('_') + 1);
            uiIndex = uiLast;
        }
    }
    return szMembers;
}
