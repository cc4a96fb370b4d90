// See ReferenceModel.h.
#include "ReferenceModel.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace
{

constexpr size_t gc_uiGridFields = 32;
constexpr size_t gc_uiSearchFields = 7;
constexpr size_t gc_uiStepFields = 4;

struct SPoint
{
    double flX, flY, flWeight;
};

struct SFit
{
    double flMeanX = 0.0, flMeanY = 0.0, flSlope = 0.0, flXX = 0.0, flRest = 0.0;
};

SFit FitPoints(std::span<const SPoint> aoPoints)
{
    SFit oFit;
    double flWeight = 0.0;
    for (const SPoint& roPoint : aoPoints)
    {
        flWeight += roPoint.flWeight;
        oFit.flMeanX += roPoint.flWeight * roPoint.flX;
        oFit.flMeanY += roPoint.flWeight * roPoint.flY;
    }
    oFit.flMeanX /= flWeight;
    oFit.flMeanY /= flWeight;
    double flXY = 0.0;
    for (const SPoint& roPoint : aoPoints)
    {
        oFit.flXX += roPoint.flWeight * std::pow(roPoint.flX - oFit.flMeanX, 2);
        flXY += roPoint.flWeight * (roPoint.flX - oFit.flMeanX) * (roPoint.flY - oFit.flMeanY);
    }
    oFit.flSlope = flXY / oFit.flXX;
    for (const SPoint& roPoint : aoPoints)
    {
        const double flOff = roPoint.flY - oFit.flMeanY - oFit.flSlope * (roPoint.flX - oFit.flMeanX);
        oFit.flRest += roPoint.flWeight * flOff * flOff;
    }
    return oFit;
}

SPoint ToPoint(const SModelField& roField, uint64_t uiOrigin)
{
    return {roField.flNumber, static_cast<double>(static_cast<int64_t>(roField.uiTick - uiOrigin)), 1.0};
}

std::vector<SPoint> ToPoints(std::span<const SModelField> aoFields, uint64_t uiOrigin)
{
    std::vector<SPoint> aoPoints;
    for (const SModelField& roField : aoFields)
    {
        aoPoints.push_back(ToPoint(roField, uiOrigin));
    }
    return aoPoints;
}

std::vector<SPoint> GetMeans(std::span<const SModelField> aoFields, uint64_t uiOrigin, uint64_t uiBlocks,
                             const auto& rfnGetBlock)
{
    std::vector<SPoint> aoMeans;
    for (uint64_t uiBlock = 0; uiBlock < uiBlocks; ++uiBlock)
    {
        SPoint oSum = {};
        for (const SModelField& roField : aoFields)
        {
            const SPoint oPoint = ToPoint(roField, uiOrigin);
            const double flIn = rfnGetBlock(roField) == uiBlock ? 1.0 : 0.0;
            oSum = {oSum.flX + flIn * oPoint.flX, oSum.flY + flIn * oPoint.flY, oSum.flWeight + flIn};
        }
        if (oSum.flWeight > 0.0)
        {
            aoMeans.push_back({oSum.flX / oSum.flWeight, oSum.flY / oSum.flWeight, oSum.flWeight});
        }
    }
    return aoMeans;
}

// Student's t for 99.73 % by degrees of freedom.
double GetStudent(size_t uiFreedom)
{
    constexpr std::array<double, 9> aflTable = {0.0, 235.8, 19.21, 9.22, 6.62, 5.51, 4.90, 4.53, 4.28};
    return aflTable[uiFreedom];
}

bool IsFolded(EWatchEventKind eKind)
{
    return eKind == EWatchEventKind::FIELDS_LOST || eKind == EWatchEventKind::FIELDS_UNOBSERVED ||
           eKind == EWatchEventKind::COUNTER_REPEATED || eKind == EWatchEventKind::FIELD_EARLY ||
           eKind == EWatchEventKind::FIELD_LATE;
}

uint64_t Count(const auto& raoAll, uint64_t uiEndTick, const auto& rfnFits)
{
    return static_cast<uint64_t>(
        std::ranges::count_if(raoAll, [&](const auto& ro) { return ro.uiTick < uiEndTick && rfnFits(ro); }));
}

} // namespace

CReferenceModel::CReferenceModel(const SScene& roScene, const SSceneStream& roStream)
    : m_roScene(roScene), m_flPeriod(roScene.oSettings.uiTickFrequencyHz / roStream.flNominalHz)
{
    m_aoTaken.reserve(roStream.aoRecords.size());
    for (const SFieldRecord& roRecord : roStream.aoRecords)
    {
        m_aoTaken.push_back(roRecord);
        if (roRecord.eResult == EWaitResult::FIELD)
        {
            TakeField(m_aoTaken.back());
        }
        else if (roRecord.eResult != EWaitResult::TIMED_OUT)
        {
            TakeEnd(roRecord);
        }
    }
}

void CReferenceModel::ChangeState(EStreamState eState, uint64_t uiTick)
{
    m_aoFacts.push_back(
        {EWatchEventKind::STATE_CHANGED, uiTick, 1, static_cast<uint64_t>(m_eState), static_cast<uint64_t>(eState)});
    m_eState = eState;
}

void CReferenceModel::TakeEnd(const SFieldRecord& roRecord)
{
    if (roRecord.eResult == EWaitResult::GONE && m_eState == EStreamState::RUNNING)
    {
        ChangeState(EStreamState::GONE, Scene_ToTick(m_roScene, roRecord.uiArrivalNs));
    }
    else if (roRecord.eResult == EWaitResult::CANCELED && m_eState == EStreamState::RUNNING)
    {
        ChangeState(EStreamState::LOST, m_poLast->uiTick);
        m_aoFacts.push_back({EWatchEventKind::SIGNAL_LOST, m_poLast->uiTick});
    }
}

void CReferenceModel::TakeField(const SFieldRecord& roRecord)
{
    const bool bCameBack = m_eState != EStreamState::RUNNING;
    if (bCameBack)
    {
        if (m_eState == EStreamState::LOST)
        {
            const double flAway = static_cast<double>(roRecord.uiTick - m_poLast->uiTick) - m_flPeriod;
            m_aoFacts.push_back({EWatchEventKind::SIGNAL_BACK, roRecord.uiTick, 1, 0, 0, ToSeconds(flAway)});
        }
        ChangeState(EStreamState::RUNNING, roRecord.uiTick);
        ++m_uiRegime;
        m_aflOff.clear();
        m_flNumber = 0.0;
        m_uiSearched = 0;
    }
    else
    {
        TakeCounter(roRecord);
    }
    TakeGrid(roRecord);
    m_poLast = &roRecord;
}

void CReferenceModel::TakeCounter(const SFieldRecord& roRecord)
{
    const auto flPeriods = static_cast<double>(roRecord.uiTick - m_poLast->uiTick) / m_flPeriod;
    const auto iElapsed = std::llround(flPeriods);
    const auto iCounted = static_cast<int64_t>(roRecord.uiFieldCounter - m_poLast->uiFieldCounter) / 16;
    m_flNumber += static_cast<double>(iElapsed);
    if (iCounted == 0)
    {
        m_aoFacts.push_back({EWatchEventKind::COUNTER_REPEATED, roRecord.uiTick, 1});
    }
    else if (iCounted < 0 || iCounted > iElapsed)
    {
        m_aoFacts.push_back({iCounted < 0 ? EWatchEventKind::COUNTER_BACKWARD : EWatchEventKind::COUNTER_FORWARD,
                             roRecord.uiTick, 1, m_poLast->uiFieldCounter, roRecord.uiFieldCounter});
        TakeMissing(roRecord, static_cast<uint64_t>(iElapsed - 1));
    }
    else
    {
        TakeMissing(roRecord, static_cast<uint64_t>(iCounted - 1));
    }
}

bool CReferenceModel::IsOutside(uint64_t uiMomentNs) const
{
    const double flGraceNs = ToSeconds(m_flPeriod) * 1e9 / 16.0;
    return std::ranges::none_of(m_aoTaken,
                                [&](const SFieldRecord& roWait)
                                {
                                    return static_cast<double>(uiMomentNs) >=
                                               static_cast<double>(roWait.uiWaitBeginNs) + flGraceNs &&
                                           uiMomentNs <= roWait.uiArrivalNs;
                                });
}

void CReferenceModel::TakeMissing(const SFieldRecord& roRecord, uint64_t uiMissing)
{
    double flRunTicks = 0.0;
    for (uint64_t uiBack = uiMissing; uiBack > 0; --uiBack)
    {
        const uint64_t uiTick = roRecord.uiTick - static_cast<uint64_t>(m_flPeriod * static_cast<double>(uiBack));
        const bool bOutside = IsOutside(Scene_ToNs(m_roScene, uiTick));
        flRunTicks = bOutside ? 0.0 : flRunTicks + m_flPeriod;
        m_aoFacts.push_back({bOutside ? EWatchEventKind::FIELDS_UNOBSERVED : EWatchEventKind::FIELDS_LOST, uiTick, 1, 0,
                             0, ToSeconds(flRunTicks)});
    }
}

// The line of the last 32 fields, field by field.
void CReferenceModel::TakeGrid(const SFieldRecord& roRecord)
{
    std::vector<SModelField> aoGrid;
    for (auto it = m_aoFields.rbegin();
         it != m_aoFields.rend() && it->uiRegime == m_uiRegime && aoGrid.size() < gc_uiGridFields; ++it)
    {
        if (it->bOnGrid)
        {
            aoGrid.push_back(*it);
        }
    }
    const SModelField oField = {roRecord.uiTick, m_flNumber, m_uiRegime, true, m_uiSearched >= gc_uiSearchFields};
    ++m_uiSearched;
    m_aoFields.push_back(oField);
    if (aoGrid.size() <= gc_uiSearchFields)
    {
        return;
    }
    const std::vector<SPoint> aoPoints = ToPoints(aoGrid, oField.uiTick);
    const SFit oFit = FitPoints(aoPoints);
    const double flRms = std::sqrt(oFit.flRest / static_cast<double>(aoPoints.size() - 2));
    const double flGap = static_cast<double>(oField.uiTick - aoGrid.front().uiTick);
    const double flTolerance =
        std::clamp(8.0 * flRms, std::max(2.0, 1e-6 * m_roScene.oSettings.uiTickFrequencyHz), m_flPeriod / 8.0) +
        (flGap > 1.5 * m_flPeriod ? 2e-6 * flGap : 0.0);
    const double flDeviation = -(oFit.flMeanY + oFit.flSlope * (oField.flNumber - oFit.flMeanX));
    if (std::abs(flDeviation) <= flTolerance)
    {
        m_aflOff.clear();
        return;
    }
    TakeOffGrid(flDeviation);
}

void CReferenceModel::TakeOffGrid(double flDeviation)
{
    m_aflOff.push_back(flDeviation);
    m_aoFields.back().bOnGrid = m_aoFields.back().bCounts = false;
    const auto eKind = flDeviation < 0.0 ? EWatchEventKind::FIELD_EARLY : EWatchEventKind::FIELD_LATE;
    if (std::abs(flDeviation) > m_flPeriod / 256.0)
    {
        m_aoFacts.push_back({eKind, m_aoFields.back().uiTick, 1, 0, 0, ToSeconds(flDeviation)});
    }
    if (m_aflOff.size() < gc_uiStepFields)
    {
        return;
    }
    double flSum = 0.0;
    ++m_uiRegime;
    const std::span<SModelField> aoNew = std::span(m_aoFields).last(gc_uiStepFields);
    for (SModelField& roField : aoNew)
    {
        flSum += m_aflOff[static_cast<size_t>(&roField - aoNew.data())];
        roField.uiRegime = m_uiRegime;
        roField.bOnGrid = true;
    }
    std::erase_if(m_aoFacts, [&](const SModelFact& roFact)
                  { return roFact.eKind == eKind && roFact.uiTick >= aoNew.front().uiTick; });
    m_aoFacts.push_back({EWatchEventKind::PHASE_STEPPED, aoNew.front().uiTick, 1, 0, 0,
                         ToSeconds(flSum / static_cast<double>(gc_uiStepFields))});
    m_aflOff.clear();
    m_uiSearched = gc_uiStepFields;
}

uint64_t CReferenceModel::CountFacts(EWatchEventKind eKind, uint64_t uiEndTick) const
{
    return Count(m_aoFacts, uiEndTick, [=](const SModelFact& roFact) { return roFact.eKind == eKind; });
}

uint64_t CReferenceModel::CountFields(uint64_t uiEndTick) const
{
    return Count(m_aoFields, uiEndTick, [](const SModelField&) { return true; });
}

uint64_t CReferenceModel::CountLateWakes(uint64_t uiEndTick) const
{
    const auto IsLate = [this](const SFieldRecord& ro)
    {
        return ro.eResult == EWaitResult::FIELD &&
               static_cast<double>(ro.uiArrivalNs - Scene_ToNs(m_roScene, ro.uiTick)) > 0.5e9 * ToSeconds(m_flPeriod);
    };
    return Count(m_aoTaken, uiEndTick, IsLate);
}

EStreamState CReferenceModel::GetState(uint64_t uiEndTick) const
{
    auto eState = EStreamState::IDLE;
    for (const SModelFact& roFact : m_aoFacts)
    {
        eState = roFact.eKind == EWatchEventKind::STATE_CHANGED && roFact.uiTick < uiEndTick
                     ? static_cast<EStreamState>(roFact.uiAfter)
                     : eState;
    }
    return eState;
}

std::vector<SModelFact> CReferenceModel::FoldEvents(uint64_t uiEndTick) const
{
    const uint64_t uiSecond = m_roScene.oSettings.uiTickFrequencyHz;
    std::vector<SModelFact> aoEvents;
    for (uint8_t uiKind = 0; uiKind < static_cast<uint8_t>(EWatchEventKind::COUNT); ++uiKind)
    {
        uint64_t uiFirst = 0; // of the episode
        uint64_t uiLast = 0;
        bool bOpen = false; // what comes is held back with what came
        for (const SModelFact& roFact : m_aoFacts)
        {
            if (static_cast<uint8_t>(roFact.eKind) != uiKind || roFact.uiTick >= uiEndTick)
            {
                continue;
            }
            const bool bNew = uiLast == 0 || roFact.uiTick - uiLast > 10 * uiSecond;
            const bool bSameSecond = roFact.uiTick / uiSecond == uiFirst / uiSecond;
            uiLast = roFact.uiTick;
            if (!IsFolded(roFact.eKind) || bNew || (!bSameSecond && !bOpen))
            {
                uiFirst = bNew ? roFact.uiTick : uiFirst;
                bOpen = !bNew;
                aoEvents.push_back(roFact);
                continue;
            }
            SModelFact& roEvent = aoEvents.back();
            roEvent.uiCount += roFact.uiCount;
            roEvent.flSeconds =
                std::abs(roFact.flSeconds) > std::abs(roEvent.flSeconds) ? roFact.flSeconds : roEvent.flSeconds;
        }
    }
    return aoEvents;
}

std::vector<SModelField> CReferenceModel::GetWindow(uint64_t uiBegin, uint64_t uiEnd) const
{
    uint32_t uiRegime = 0;
    for (const SModelField& roField : m_aoFields)
    {
        uiRegime = roField.uiTick < uiEnd ? roField.uiRegime : uiRegime;
    }
    std::vector<SModelField> aoWindow;
    for (const SModelField& roField : m_aoFields)
    {
        if (roField.uiRegime == uiRegime && roField.bCounts && roField.uiTick >= uiBegin && roField.uiTick < uiEnd)
        {
            aoWindow.push_back(roField);
        }
    }
    return aoWindow;
}

SModelLine CReferenceModel::Fit(uint64_t uiInstant, uint64_t uiSeconds) const
{
    const uint64_t uiSecond = m_roScene.oSettings.uiTickFrequencyHz;
    const uint64_t uiBlock = uiSeconds == 1 ? uiSecond / 8 : uiSeconds * uiSecond / 10;
    const uint64_t uiBlocks = uiSeconds == 1 ? 8 : 10;
    const uint64_t uiEnd = uiSeconds <= 10 ? uiInstant : uiInstant / uiBlock * uiBlock + uiBlock;
    const uint64_t uiBegin = uiEnd - uiBlocks * uiBlock;
    const std::vector<SModelField> aoWindow = GetWindow(uiBegin, uiInstant);
    const auto fnGetBlock = [&](const SModelField& roField)
    {
        return uiSeconds > 1 ? (roField.uiTick - uiBegin) / uiBlock
                             : static_cast<uint64_t>((roField.flNumber - aoWindow.front().flNumber) * 8.0 /
                                                     (aoWindow.back().flNumber - aoWindow.front().flNumber + 1.0));
    };
    const std::vector<SPoint> aoMeans = GetMeans(aoWindow, uiInstant, uiBlocks, fnGetBlock);
    SModelLine oLine;
    oLine.flPart = static_cast<double>(aoWindow.size()) * m_flPeriod / static_cast<double>(uiInstant - uiBegin);
    if (aoMeans.size() < (uiSeconds == 1 ? 6 : 8))
    {
        return oLine;
    }
    const SFit oFit = FitPoints(ToPoints(aoWindow, uiInstant));
    const SFit oOfMeans = FitPoints(aoMeans);
    const double flVariance = std::max(oFit.flRest / static_cast<double>(aoWindow.size() - 2), 1.0 / 12.0);
    const size_t uiFreedom = aoMeans.size() - 2;
    const double flByFields = std::sqrt(flVariance / oFit.flXX);
    const double flByBlocks =
        std::sqrt(oOfMeans.flRest / static_cast<double>(uiFreedom) / oOfMeans.flXX) * GetStudent(uiFreedom) / 3.0;
    oLine.oSlope = {oFit.flSlope, std::max(flByFields, flByBlocks), true};
    oLine.flMeanX = oFit.flMeanX;
    oLine.flMeanY = oFit.flMeanY;
    return oLine;
}

double CReferenceModel::GetMoment(const SModelLine& roLine) const
{
    const double flField = std::round(roLine.flMeanX - roLine.flMeanY / roLine.oSlope.flValue);
    return ToSeconds(roLine.flMeanY + roLine.oSlope.flValue * (flField - roLine.flMeanX));
}

void SModelPair::Step(const SPairFigures& roPair, double flThreshold)
{
    if (!roPair.oOffsetSeconds.bIsValid || !roPair.oDriftRatio.bIsValid)
    {
        *this = {};
        return;
    }
    bIsWithin = std::abs(roPair.oOffsetSeconds.flValue) <= flThreshold * (bIsWithin ? 1.1 : 1.0);
    bIsPassing = bIsPassing && bIsWithin;
    const double flSigmas = std::abs(roPair.oDriftRatio.flValue) / roPair.oDriftRatio.flStdErr;
    bIsPassing = bIsPassing || (bIsWithin && flSigmas > 4.0);
    uiLeft = !bIsPassing ? 0 : flSigmas >= 3.0 ? std::min(uiLeft + 2, 60U) : uiLeft - 1;
    bIsPassing = uiLeft > 0;
    eLock = !bIsWithin ? ELockState::FREE : bIsPassing ? ELockState::PASSING : ELockState::LOCKED;
}
