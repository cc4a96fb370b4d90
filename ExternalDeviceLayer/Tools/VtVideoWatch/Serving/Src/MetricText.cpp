#include "MetricText.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace
{

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

constexpr std::string_view szTotal = "_total";
constexpr std::string_view szInfo = "_info";

void AddNumber(std::string& rszText, double flNumber)
{
    if (!std::isfinite(flNumber))
    {
        rszText += std::isnan(flNumber) ? "NaN" : flNumber > 0.0 ? "+Inf" : "-Inf";
        return;
    }
    char achNumber[32];
    const auto oResult = std::to_chars(achNumber, achNumber + sizeof(achNumber), flNumber);
    rszText.append(achNumber, oResult.ptr);
}

void AddEscaped(std::string& rszText, std::string_view szRaw, bool bQuotes)
{
    for (const char ch : szRaw)
    {
        if (ch == '\n')
        {
            rszText += "\\n";
            continue;
        }
        rszText += ch == '\\' || (bQuotes && ch == '"') ? "\\" : "";
        rszText += ch;
    }
}

// What a family's samples are told under, and how the family itself is called.
class CPrinter
{
public:
    CPrinter(std::string& rszText, const MetricFamily& roFamily, EMetricFormat eFormat)
        : m_rszText(rszText), m_roFamily(roFamily), m_bIsOpen(eFormat == EMetricFormat::OPENMETRICS)
    {
    }

    void Print() const
    {
        PrintHead();
        for (const ClientMetric& roMetric : m_roFamily.metric)
        {
            PrintMetric(roMetric);
        }
    }

private:
    bool IsInfo() const { return m_roFamily.type == MetricType::Gauge && m_roFamily.name.ends_with(szInfo); }

    const char* GetType() const
    {
        switch (m_roFamily.type)
        {
        case MetricType::Counter:
            return "counter";
        case MetricType::Summary:
            return "summary";
        case MetricType::Histogram:
            return "histogram";
        default:
            return m_bIsOpen && IsInfo() ? "info" : "gauge";
        }
    }

    // In OpenMetrics a suffix belongs to the sample.
    std::string_view GetFamilyName() const
    {
        std::string_view szName = m_roFamily.name;
        if (m_bIsOpen && m_roFamily.type == MetricType::Counter && szName.ends_with(szTotal))
        {
            szName.remove_suffix(szTotal.size());
        }
        if (m_bIsOpen && IsInfo())
        {
            szName.remove_suffix(szInfo.size());
        }
        return szName;
    }

    void PrintHead() const
    {
        const std::string szName(GetFamilyName());
        m_rszText += "# HELP " + szName + " ";
        AddEscaped(m_rszText, m_roFamily.help, m_bIsOpen);
        m_rszText += "\n# TYPE " + szName + " " + GetType() + "\n";
        for (const char* szUnit : {"seconds", "bytes", "hertz", "ratio"})
        {
            if (m_bIsOpen && szName.ends_with(std::string("_") + szUnit))
            {
                m_rszText += "# UNIT " + szName + " " + szUnit + "\n";
            }
        }
    }

    void PrintSample(const ClientMetric& roMetric, const char* szSuffix, double flValue, const double* pflBound) const
    {
        m_rszText += m_roFamily.name;
        m_rszText += szSuffix;
        char chBefore = '{';
        for (const ClientMetric::Label& roLabel : roMetric.label)
        {
            m_rszText += chBefore + roLabel.name + "=\"";
            AddEscaped(m_rszText, roLabel.value, true);
            m_rszText += '"';
            chBefore = ',';
        }
        if (pflBound != nullptr)
        {
            m_rszText += chBefore;
            m_rszText += "le=\"";
            AddNumber(m_rszText, *pflBound);
            m_rszText += '"';
            chBefore = ',';
        }
        m_rszText += chBefore == ',' ? "} " : " ";
        AddNumber(m_rszText, flValue);
        m_rszText += '\n';
    }

    void PrintMetric(const ClientMetric& roMetric) const
    {
        switch (m_roFamily.type)
        {
        case MetricType::Counter:
            PrintSample(roMetric, "", roMetric.counter.value, nullptr);
            return;
        case MetricType::Summary:
            PrintSample(roMetric, "_count", static_cast<double>(roMetric.summary.sample_count), nullptr);
            PrintSample(roMetric, "_sum", roMetric.summary.sample_sum, nullptr);
            return;
        case MetricType::Histogram:
            for (const auto& roBucket : roMetric.histogram.bucket)
            {
                PrintSample(roMetric, "_bucket", static_cast<double>(roBucket.cumulative_count), &roBucket.upper_bound);
            }
            PrintSample(roMetric, "_count", static_cast<double>(roMetric.histogram.sample_count), nullptr);
            // A sum of what is negative as well is no counter: there is none then.
            if (roMetric.histogram.bucket.front().upper_bound >= 0.0)
            {
                PrintSample(roMetric, "_sum", roMetric.histogram.sample_sum, nullptr);
            }
            return;
        default:
            PrintSample(roMetric, "", roMetric.gauge.value, nullptr);
        }
    }

    std::string& m_rszText;
    const MetricFamily& m_roFamily;
    const bool m_bIsOpen;
};

} // namespace

std::string MetricText_Print(const CFamilies& raoFamilies, EMetricFormat eFormat)
{
    std::string szText;
    for (const MetricFamily& roFamily : raoFamilies)
    {
        // A family without samples would be two lines that say nothing.
        if (!roFamily.metric.empty())
        {
            CPrinter(szText, roFamily, eFormat).Print();
        }
    }
    return eFormat == EMetricFormat::OPENMETRICS ? szText + "# EOF\n" : szText;
}
