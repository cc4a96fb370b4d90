#include "FieldIntake.h"

#include <algorithm>

namespace
{

constexpr double flMostUsualNs = 500e3;  // nothing later is usual
constexpr double flUsualLateGain = 0.02; // of the running mean of latenesses

} // namespace

CFieldIntake::CFieldIntake(CStreamOutput& roOutput)
    : m_roOutput(roOutput),
      m_uiStream(1ULL << (roOutput.GetFigures().oKey.uiIndex + (roOutput.IsOutput() ? uiMaxStreamsPerDirection : 0)))
{
}

STakenRecord CFieldIntake::Take(const SFieldRecord& roRecord, double flPeriod)
{
    CTickClock& roClock = m_roOutput.GetContext().oClock;
    const uint64_t uiSinceNs = m_uiLastArrivalNs == 0 ? roRecord.uiWaitBeginNs : m_uiLastArrivalNs;
    m_uiLastArrivalNs = roRecord.uiArrivalNs;
    STakenRecord oTaken = {roRecord, 0.0, roClock.GetEpoch()};
    if (roRecord.eResult != EWaitResult::FIELD)
    {
        return oTaken;
    }
    // A field that is handed out has not started before the last wait ended.
    const auto flWaitedNs = static_cast<double>(static_cast<int64_t>(roRecord.uiArrivalNs - uiSinceNs));
    oTaken.flLateNs = roClock.Take(roRecord.uiTick, roRecord.uiArrivalNs, m_uiStream, flWaitedNs);
    if (oTaken.IsForeign())
    {
        oTaken.oRecord.uiTick = roClock.ToTick(roRecord.uiArrivalNs - static_cast<uint64_t>(m_flUsualLateNs));
    }
    else
    {
        TakeStall(roRecord, oTaken.flLateNs, flPeriod);
        m_flUsualLateNs += flUsualLateGain * (std::min(oTaken.flLateNs, flMostUsualNs) - m_flUsualLateNs);
    }
    m_uiLastTick = oTaken.oRecord.uiTick;
    m_uiLastCounter = roRecord.uiFieldCounter;
    return oTaken;
}

// A wait that was held up is a witness, for this stream and all others.
void CFieldIntake::TakeStall(const SFieldRecord& roRecord, double flLateNs, double flPeriod)
{
    SWatchContext& roContext = m_roOutput.GetContext();
    const double flPeriodNs = flPeriod * roContext.oClock.GetNsPerTick();
    if (!FieldGap_IsNotablyLate(flLateNs, m_flUsualLateNs, flPeriodNs))
    {
        return;
    }
    SFieldRecord oLast = {};
    oLast.uiTick = m_uiLastTick;
    oLast.uiFieldCounter = m_uiLastCounter;
    const int64_t iFields = std::max<int64_t>(1, CounterStep_Get(oLast, roRecord, flPeriod).iFields);
    const SStallLength oLength = FieldGap_GetStall(roRecord, iFields, flLateNs, flPeriodNs);
    const auto uiStallNs = static_cast<uint64_t>(oLength.flNs);
    if (uiStallNs > 0)
    {
        SStall oStall;
        oStall.oStretch = {roRecord.uiArrivalNs - uiStallNs, roRecord.uiArrivalNs};
        (oLength.bIsExplained ? oStall.uiReady : oStall.uiHeld) = m_roOutput.GetBit();
        roContext.oStalls.Add(oStall);
    }
}
