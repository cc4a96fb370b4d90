#include "StreamWatch.h"

#include "StreamFigures.h"

CStreamWatch::CStreamWatch(SWatchContext& roContext, const SStreamKey& roKey)
    : m_oOutput(roContext, roKey),
      m_oIntake(m_oOutput),
      m_oSignal(m_oOutput),
      m_oFields(m_oOutput),
      m_oGrid(m_oOutput),
      m_oPictures(m_oOutput),
      m_oDescription(m_oOutput)
{
    m_aoHeld.reserve(msc_uiMostHeld);
}

void CStreamWatch::TakeRecord(const SFieldRecord& roRecord)
{
    const STakenRecord oTaken = m_oIntake.Take(roRecord, m_oGrid.GetPeriod());
    if (m_aoHeld.empty() && !m_oOutput.GetContext().oNext.IsBefore(oTaken.oRecord))
    {
        Count(oTaken);
        return;
    }
    if (m_aoHeld.size() == msc_uiMostHeld)
    {
        // Nobody analyses. Counted too early is better than not at all.
        Count(m_aoHeld.front());
        m_aoHeld.erase(m_aoHeld.begin());
    }
    m_aoHeld.push_back(oTaken);
}

void CStreamWatch::Release()
{
    const SWatchContext& roContext = m_oOutput.GetContext();
    auto itTaken = m_aoHeld.begin();
    for (; itTaken != m_aoHeld.end(); ++itTaken)
    {
        const bool bIsOfClock = itTaken->uiClockEpoch == roContext.oClock.GetEpoch();
        if (bIsOfClock && roContext.oNext.IsBefore(itTaken->oRecord))
        {
            break;
        }
        Count(*itTaken);
    }
    m_aoHeld.erase(m_aoHeld.begin(), itTaken);
}

void CStreamWatch::Count(const STakenRecord& roTaken)
{
    const SFieldRecord& roRecord = roTaken.oRecord;
    const double flPeriod = m_oGrid.GetPeriod();
    m_oFields.TakeWait(roTaken, flPeriod);
    if (roRecord.eResult == EWaitResult::FIELD)
    {
        CountField(roTaken);
        return;
    }
    m_oOutput.GetCounters().uiWaitTimeOuts += roRecord.eResult == EWaitResult::TIMED_OUT ? 1 : 0;
    if (roRecord.eResult == EWaitResult::CANCELED && m_oSignal.IsPresent())
    {
        m_oFields.TakeLoss(roRecord, flPeriod);
    }
    m_oSignal.TakeOther(roRecord, flPeriod);
}

void CStreamWatch::CountField(const STakenRecord& roTaken)
{
    const SFieldRecord& roRecord = roTaken.oRecord;
    const double flPeriod = m_oGrid.GetPeriod();
    const bool bIsFirst = m_oSignal.TakeField(roRecord, flPeriod) || roRecord.uiTick < m_uiLastTick ||
                          roTaken.uiClockEpoch != m_uiClockEpoch;
    m_uiLastTick = roRecord.uiTick;
    m_uiClockEpoch = roTaken.uiClockEpoch;
    if (bIsFirst)
    {
        m_oGrid.Restart();
        m_iPassedOver = 0;
        m_oFields.TakeFirst(roRecord);
        TakeGrid(roTaken, 1);
        m_oPictures.TakeFirst(roRecord);
        return;
    }
    const int64_t iFields = m_oFields.TakeNext(roTaken, flPeriod);
    if (iFields > 0)
    {
        TakeGrid(roTaken, iFields);
        m_oPictures.TakeNext(roRecord, iFields);
    }
}

void CStreamWatch::TakeGrid(const STakenRecord& roTaken, int64_t iFields)
{
    m_iPassedOver += iFields;
    if (!roTaken.IsForeign())
    {
        m_oGrid.Take(roTaken.oRecord, m_iPassedOver);
        m_iPassedOver = 0;
    }
}

void CStreamWatch::TakeDescription(const SStreamDescription& roDescription)
{
    const bool bIsOtherSignal = m_oDescription.Take(roDescription, m_oPictures.TellsSkipped());
    m_oPictures.Describe(roDescription);
    TakeNominal();
    if (bIsOtherSignal)
    {
        m_oGrid.Restart();
    }
}

void CStreamWatch::TakeNominal()
{
    if (m_oPhase.oNominal != m_oDescription.GetNominal())
    {
        m_oPhase.oNominal = m_oDescription.GetNominal();
        m_oGrid.RestartTimeErrors();
    }
}

// One stamp that is none is a slip; a stream most of whose stamps are none has no grid that could be told.
void CStreamWatch::JudgeStamps()
{
    SStreamFigures& roFigures = GetFigures();
    const uint64_t uiForeign = roFigures.oCounters.uiForeignStamps - m_uiForeignBefore;
    const uint64_t uiObserved = roFigures.oCounters.uiFieldsObserved - m_uiObservedBefore;
    m_uiForeignBefore += uiForeign;
    m_uiObservedBefore += uiObserved;
    if (uiObserved > 0)
    {
        roFigures.bStampsAreForeign = 2 * uiForeign > uiObserved;
    }
    if (roFigures.bStampsAreForeign)
    {
        m_oGrid.Restart();
    }
}

void CStreamWatch::AnalyseFields(const SInstant& roInstant, const SClockReading& roClock)
{
    // What a signal that is away did not send is missing in no gap, whenever it comes back.
    m_oFields.Analyse(roInstant,
                      m_oSignal.IsPresent() ? std::span<const STakenRecord>(m_aoHeld) : std::span<const STakenRecord>(),
                      m_oGrid.GetPeriod());
    m_oSignal.Analyse(roClock);
    JudgeStamps();
    m_oPictures.Analyse(roClock);
    m_oGrid.Analyse(roClock);
}

void CStreamWatch::AnalysePhase(const SInstant& roInstant)
{
    m_oGrid.CloseBefore(roInstant.iSecond);
    const RateFits aoFits = StreamFigures_FitWindows(m_oGrid, roInstant);
    StreamFigures_FillRates(m_oOutput, m_oGrid, aoFits, roInstant);
    if (m_oDescription.IsAmbiguous())
    {
        m_oDescription.ChooseNominal();
        TakeNominal();
    }
    m_oPhase.bIsKnown = false;
    if (GetFigures().eState == EStreamState::RUNNING)
    {
        StreamPhase_Find(m_oPhase, m_oGrid.GetHistory(), roInstant, aoFits, m_oOutput.GetContext().uiTickFrequencyHz);
    }
    m_oGrid.TakeTimeErrors(roInstant.iSecond, aoFits[0].oLine.flSlope);
    StreamFigures_FillGrid(m_oOutput, m_oGrid, m_oPhase);
    StreamFigures_FillJitter(m_oOutput, m_oGrid, aoFits[0].oLine, roInstant);
}
