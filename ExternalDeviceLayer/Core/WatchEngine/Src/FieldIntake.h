/*
 * What is made of the end of a wait as soon as it is handed in, whichever instant it belongs to: how late it came, who
 * else was held up with it, and whether its stamp is of the board's clock at all.
 */
#ifndef FIELD_INTAKE_H
#define FIELD_INTAKE_H

#include "StreamOutput.h"

struct STakenRecord
{
    SFieldRecord oRecord;  // a foreign stamp is replaced by what the arrival says
    double flLateNs;       // of fields; negative: the stamp is foreign
    uint32_t uiClockEpoch; // of the clock that its tick is of

    bool IsForeign() const { return flLateNs < 0.0; }
};

class CFieldIntake
{
public:
    explicit CFieldIntake(CStreamOutput& roOutput);

    /* Takes in the end of a wait; flPeriod: in ticks, 0: not known. */
    STakenRecord Take(const SFieldRecord& roRecord, double flPeriod);

private:
    void TakeStall(const SFieldRecord& roRecord, double flLateNs, double flPeriod);

    CStreamOutput& m_roOutput;
    uint64_t m_uiStream;       // as a bit
    uint64_t m_uiLastTick = 0; // of the last field
    uint64_t m_uiLastCounter = 0;
    uint64_t m_uiLastArrivalNs = 0; // of any end of a wait
    double m_flUsualLateNs = 0.0;
};

#endif
