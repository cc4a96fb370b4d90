/*
 * A check against what was told, and by the watch's own judgement: what its incidents say, and every difference from
 * what is expected. No state.
 */
#ifndef CHECK_BASELINE_H
#define CHECK_BASELINE_H

#include "CheckVerdict.h"
#include "Fault.h"
#include "WatchExpectations.h"

/* What the judge of a check is told. */
CFault CheckBaseline_Read(const SCheckOptions& roOptions, SJudgeSettings& roSettings);

/* Adds what is found to a verdict; saves what is there when that was asked for. */
void CheckBaseline_Judge(const SCheckOptions& roOptions, const SWatchPublication& roPublication,
                         SCheckVerdict& roVerdict);

#endif
