/*
 * One stream: its records and descriptions in, its figures out. What is made of them lives in its parts.
 */
#ifndef STREAM_WATCH_H
#define STREAM_WATCH_H

#include <vector>

#include "FieldCount.h"
#include "FieldIntake.h"
#include "SignalState.h"
#include "StreamDescription.h"
#include "StreamGrid.h"
#include "StreamPhase.h"
#include "StreamPictures.h"

class CStreamWatch
{
public:
    CStreamWatch(SWatchContext& roContext, const SStreamKey& roKey);
    CStreamWatch(const CStreamWatch&) = delete;
    CStreamWatch& operator=(const CStreamWatch&) = delete;

    void TakeRecord(const SFieldRecord& roRecord);
    void TakeDescription(const SStreamDescription& roDescription);
    void TellEarlier(const SEarlierRun& roEarlier) { m_oSignal.TellEarlier(roEarlier); }
    /* Another clock has become the board's. */
    void ForgetTicks() { m_oSignal.ForgetTicks(); }
    /* Judges what is open; roClock: the clocks at the instant. */
    void AnalyseFields(const SInstant& roInstant, const SClockReading& roClock);
    /* Draws the figures for an instant. */
    void AnalysePhase(const SInstant& roInstant);
    /* Takes in what was handed in before its time and belongs before the next instant. */
    void Release();

    SStreamFigures& GetFigures() { return m_oOutput.GetFigures(); }
    const SStreamFigures& GetFigures() const { return m_oOutput.GetFigures(); }
    const SStreamPhase& GetPhase() const { return m_oPhase; }

private:
    static constexpr size_t msc_uiMostHeld = 4096;

    void Count(const STakenRecord& roTaken);
    void CountField(const STakenRecord& roTaken);
    void TakeGrid(const STakenRecord& roTaken, int64_t iFields);
    void JudgeStamps();
    void TakeNominal();

    CStreamOutput m_oOutput;
    CFieldIntake m_oIntake;
    CSignalState m_oSignal;
    CFieldCount m_oFields;
    CStreamGrid m_oGrid;
    CStreamPictures m_oPictures;
    CStreamDescription m_oDescription;
    SStreamPhase m_oPhase;
    std::vector<STakenRecord> m_aoHeld; // that belong behind the next instant, in order
    uint64_t m_uiLastTick = 0;          // of the last field
    uint32_t m_uiClockEpoch = 0;        // of the same
    int64_t m_iPassedOver = 0;          // fields since the last one on the grid whose stamps say nothing
    uint64_t m_uiForeignBefore = 0;     // counters at the last instant
    uint64_t m_uiObservedBefore = 0;
};

#endif
