/*
 * What a stream's thread does for as long as it lives: wait, stamp, hand over; once a second a look at what the stream
 * is; and where the board refuses the stream, another try every second. Belongs to one thread.
 */
#ifndef STREAM_LOOP_H
#define STREAM_LOOP_H

#include <cstdint>

#include "RunDelay.h"
#include "StreamPort.h"
#include "StreamThread.h"

class CStreamLoop
{
public:
    /* Both outlive the loop. */
    CStreamLoop(SStreamSetup& roSetup, SStreamChannel& roChannel);

    /* Runs until the setup says that it is to stop. */
    void Run();

    /* One turn of an open stream: waits for a field and hands over what came of it. */
    void TakeField();
    /* One turn of a stream that is not open: opens it, at most once a second, or says that it is gone. */
    void Reopen();

private:
    void ReportGone();
    bool NeedsRunDelay(const SFieldRecord& roRecord) const;
    void Describe();

    SStreamSetup& m_roSetup;
    SStreamChannel& m_roChannel;
    CStreamPort m_oPort;
    CRunDelay m_oRunDelay;
    const double m_flNsPerTick;
    SFieldRecord m_oRecord = {};
    uint64_t m_uiLastArrivalNs = 0; // of a field; 0: none since the stream was opened
    uint64_t m_uiLastTick = 0;
    uint64_t m_uiLastCounter = 0;
    uint64_t m_uiNextDescriptionNs = 0;
    uint64_t m_uiNextOpenNs = 0;
};

#endif
