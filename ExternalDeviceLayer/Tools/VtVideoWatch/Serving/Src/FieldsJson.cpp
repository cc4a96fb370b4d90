#include "FieldsJson.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

#include "FieldUnits.h"
#include "StreamId.h"

namespace
{

constexpr double flMsPerNs = 1e-6;

// Ticks as moments of CLOCK_MONOTONIC: by the wait that returned soonest behind its stamp.
class CTickMoments
{
public:
    explicit CTickMoments(const SRecordedFields& roFields) : m_flNsPerTick(1e9 / roFields.uiTickFrequencyHz)
    {
        for (const SFieldRecord& roField : roFields.aoFields)
        {
            if (roField.eResult == EWaitResult::FIELD)
            {
                m_uiFirstTick = m_bHasTick ? m_uiFirstTick : roField.uiTick;
                m_bHasTick = true;
                const auto flArrival = static_cast<double>(roField.uiArrivalNs);
                m_flFirstNs = std::min(m_flFirstNs, flArrival - GetSinceNs(roField.uiTick));
            }
        }
    }
    double GetSinceNs(uint64_t uiTick) const
    {
        return static_cast<double>(static_cast<int64_t>(uiTick - m_uiFirstTick)) * m_flNsPerTick;
    }
    double GetNs(uint64_t uiTick) const { return m_flFirstNs + GetSinceNs(uiTick); }

private:
    const double m_flNsPerTick;
    bool m_bHasTick = false;
    uint64_t m_uiFirstTick = 0;
    double m_flFirstNs = std::numeric_limits<double>::max();
};

double CountFields(const SFieldRecord& roFrom, const SFieldRecord& roTo)
{
    return static_cast<double>(static_cast<int64_t>(roTo.uiFieldCounter - roFrom.uiFieldCounter)) / uiCountsPerField;
}

// Fields that are missing between two: not looked for when the next wait began too late for the first of them.
const char* GetGapKind(const SFieldRecord& roBefore, const SFieldRecord& roNext, bool bWasCancelled,
                       const CTickMoments& roMoments, double flPeriodNs)
{
    const double flFirstMissingNs = roMoments.GetNs(roBefore.uiTick) + flPeriodNs;
    const bool bWasLate = static_cast<double>(roNext.uiWaitBeginNs) > flFirstMissingNs && !bWasCancelled;
    return bWasCancelled ? "no_signal" : bWasLate ? "unobserved" : "lost";
}

} // namespace

CJson FieldsJson_FromFields(const SStreamKey& roStream, const SRecordedFields& roFields)
{
    const CTickMoments oMoments(roFields);
    std::vector<const SFieldRecord*> apoFields;
    CJson oGaps = CJson::array();
    for (const SFieldRecord& roField : roFields.aoFields)
    {
        if (roField.eResult == EWaitResult::FIELD)
        {
            apoFields.push_back(&roField);
        }
    }
    const double flFields = apoFields.size() < 2 ? 0.0 : CountFields(*apoFields.front(), *apoFields.back());
    const double flPeriodNs = flFields > 0.0 ? oMoments.GetSinceNs(apoFields.back()->uiTick) / flFields : 0.0;
    const auto fnGetMs = [&](double flMonotonicNs)
    {
        const double flSince = flMonotonicNs - static_cast<double>(roFields.uiMonotonicNs);
        return (static_cast<double>(roFields.iUtcNs) + flSince) * flMsPerNs;
    };
    CJson oTimes = CJson::array();
    CJson oOff = CJson::array();
    const SFieldRecord* poBefore = nullptr;
    bool bWasCancelled = false;
    for (const SFieldRecord& roField : roFields.aoFields)
    {
        bWasCancelled = bWasCancelled || roField.eResult == EWaitResult::CANCELED;
        if (roField.eResult != EWaitResult::FIELD)
        {
            continue;
        }
        const double flMissing = poBefore == nullptr ? 0.0 : CountFields(*poBefore, roField) - 1.0;
        if (poBefore != nullptr && flMissing > 0.5)
        {
            oGaps.push_back({{"from", fnGetMs(oMoments.GetNs(poBefore->uiTick))},
                             {"to", fnGetMs(oMoments.GetNs(roField.uiTick))},
                             {"fields", std::llround(flMissing)},
                             {"kind", GetGapKind(*poBefore, roField, bWasCancelled, oMoments, flPeriodNs)}});
        }
        oTimes.push_back(fnGetMs(oMoments.GetNs(roField.uiTick)));
        const double flEvenNs = CountFields(*apoFields.front(), roField) * flPeriodNs;
        oOff.push_back((oMoments.GetSinceNs(roField.uiTick) - flEvenNs) * 1e-9);
        poBefore = &roField;
        bWasCancelled = false;
    }
    return {{"stream", StreamId_Print(roStream)},
            {"period_seconds", flPeriodNs > 0.0 ? CJson(flPeriodNs * 1e-9) : CJson()},
            {"t", std::move(oTimes)},
            {"off", std::move(oOff)},
            {"gaps", std::move(oGaps)}};
}
