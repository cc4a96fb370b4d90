#include "MetricFamilies.h"

#include <cmath>

#include "StreamId.h"
#include "WatchTexts.h"

bool MetricDetail_Tells(EMetricDetail eDetail, ETold eTold, double flValue)
{
    const bool bWhenMoved = eTold == ETold::MOVED || (eTold == ETold::BEYOND && eDetail != EMetricDetail::FLEET);
    return eDetail == EMetricDetail::FULL || eTold == ETold::ALWAYS || (bWhenMoved && flValue != 0.0);
}

CFamily::CFamily(CFamilies& raoFamilies, const char* szName, const char* szHelp, prometheus::MetricType eType)
    : m_roFamily(raoFamilies.emplace_back())
{
    m_roFamily.name = szName;
    m_roFamily.help = szHelp;
    m_roFamily.type = eType;
}

void CFamily::Add(CLabels oLabels, double flValue)
{
    prometheus::ClientMetric& roMetric = m_roFamily.metric.emplace_back();
    roMetric.label = std::move(oLabels);
    // The one of both that the family's type takes.
    roMetric.counter.value = flValue;
    roMetric.gauge.value = flValue;
}

void CFamily::AddKnown(CLabels oLabels, bool bIsKnown, double flValue)
{
    if (bIsKnown && std::isfinite(flValue))
    {
        Add(std::move(oLabels), flValue);
    }
}

CLabels MetricLabels_Get(const SStreamFigures& roStream, const char* szName, const char* szValue)
{
    CLabels oLabels;
    oLabels.reserve(szName == nullptr ? 3 : 4);
    oLabels.push_back({"chip", std::to_string(roStream.uiChip)});
    oLabels.push_back({"direction", StreamId_GetDirection(roStream.oKey.eDirection)});
    oLabels.push_back({"index", std::to_string(roStream.oKey.uiIndex)});
    if (szName != nullptr)
    {
        oLabels.push_back({szName, szValue});
    }
    return oLabels;
}
