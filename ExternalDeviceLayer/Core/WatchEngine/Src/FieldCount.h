/*
 * Counts a stream's fields by what they carry: which came, how late the waits that brought them returned, what became
 * of those that are missing (FieldAccounting.h), and the buffers that outputs showed.
 */
#ifndef FIELD_COUNT_H
#define FIELD_COUNT_H

#include <array>
#include <span>

#include "BufferVerdict.h"
#include "FieldAccounting.h"
#include "FieldIntake.h"
#include "Instant.h"

class CFieldCount
{
public:
    explicit CFieldCount(CStreamOutput& roOutput)
        : m_roOutput(roOutput), m_oRepeats(roOutput.GetContext().uiTickFrequencyHz)
    {
    }

    /* Takes in the end of a wait, before anything else is made of it. */
    void TakeWait(const STakenRecord& roTaken, double flPeriod);
    /* A field with nothing before it that it could be compared with. */
    void TakeFirst(const SFieldRecord& roRecord);
    /*
     * A field that comes after another one.
     * Fields from the one before to it: 0 when it is no field of its own.
     */
    int64_t TakeNext(const STakenRecord& roTaken, double flPeriod);
    /* A wait was cancelled: what the thread was away for and did not see is unobserved. */
    void TakeLoss(const SFieldRecord& roRecord, double flPeriod);
    /*
     * Judges what is open; the arrivals of all streams up to now are in.
     *   aoLater  in  ends of waits behind the instant: a gap that they end may begin before it
     */
    void Analyse(const SInstant& roInstant, std::span<const STakenRecord> aoLater, double flPeriod);

private:
    static constexpr size_t msc_uiMostGaps = 32;

    void TakeWake(double flLateNs, double flPeriod);
    int64_t TakeRepeated(const SFieldRecord& roRecord, double flPeriod);
    void TakeJump(const SFieldRecord& roRecord);
    void TakeGap(const SFieldRecord& roRecord, int64_t iMissing, double flPeriod);
    void TakeBuffers(const SFieldRecord& roRecord, int64_t iFields);
    SFieldGap MakeGap(const SFieldRecord& roRecord, int64_t iMissing, const CWaitTrace& roTrace, double flPeriod) const;
    void Foresee(const SInstant& roInstant, std::span<const STakenRecord> aoLater, double flPeriod);
    bool HasWitnesses(const SFieldGap& roGap, uint64_t uiNowNs) const;
    void JudgeGap(const SFieldGap& roGap);
    void AddUnobserved(uint64_t uiCount, uint64_t uiTick, uint64_t uiArrivalNs);
    void End(const SFieldRecord& roRecord);

    CStreamOutput& m_roOutput;
    SFieldRecord m_oLast = {}; // field
    CWaitTrace m_oTrace;
    CEstimatedRepeats m_oRepeats;
    int64_t m_iForeseen = 0; // missing fields behind the last one that have been judged before what ends their gap
    size_t m_uiNbOfGaps = 0;
    std::array<SFieldGap, msc_uiMostGaps> m_aoGaps = {};
};

#endif
