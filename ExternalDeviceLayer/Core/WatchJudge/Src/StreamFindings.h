/*
 * The five questions: what one second says to each of them. Pure functions of figures, news, expectation and habits.
 */
#ifndef STREAM_FINDINGS_H
#define STREAM_FINDINGS_H

#include "DomainHealth.h"
#include "StreamHabits.h"
#include "WatchExpectations.h"

// The lock of a stream against those that it should be in lock with.
struct SLockFinding
{
    bool bIsMissing = false; // it is in lock with none of those that it used to be with, or not with all that were told
    bool bDrifts = false;    // it only passes
    bool bIsTold = false;
    bool bIsLocked = false;
    uint32_t uiPeer = 0;
    bool bIsAcross = false; // that is of the other direction
    int64_t iSinceUtcNs = 0;
};

struct SStreamCase
{
    const SStreamFigures& roFigures;
    const SStreamNews& roNews;
    const SStreamExpectation& roTold;
    const SStreamHabits& roHabits;
    const SLockFinding& roLock;
    const SJudgeSettings& roSettings;
    int64_t iNowUtcNs;
    uint64_t uiBeyond; // fields of this second that repeated a picture beyond the cadence
};

SDomainFinding StreamFindings_GetSignal(const SStreamCase& roCase);
SDomainFinding StreamFindings_GetDelivery(const SStreamCase& roCase);
SDomainFinding StreamFindings_GetFeed(const SStreamCase& roCase);
SDomainFinding StreamFindings_GetSynchronisation(const SStreamCase& roCase);
SDomainFinding StreamFindings_GetObservation(const SStreamCase& roCase);

#endif
