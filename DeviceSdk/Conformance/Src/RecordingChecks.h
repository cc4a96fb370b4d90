// The promises that can be judged by a recording of what a board did.
#ifndef RECORDING_CHECKS_H
#define RECORDING_CHECKS_H

#include "Findings.h"
#include "Replay.h"

struct SRecordingCheck
{
    const char* szPromise; // as it stands among those that a board is asked
    void (*fnCheck)(CFindings& roFindings, const SReplay& roReplay);
};

/* How a promise is judged; null for one that no recording tells about. */
const SRecordingCheck* RecordingChecks_Find(std::string_view szPromise);

#endif
