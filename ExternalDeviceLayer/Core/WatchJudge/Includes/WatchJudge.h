/*
 * The one judgement of a watch: what its figures and events mean for those who depend on the streams. No I/O, no
 * texts, no clock of its own. One thread owns a judge and makes all calls.
 *
 * Every second each stream is asked five questions (EHealthDomain). An answer that is worse counts at once, one that is
 * better after a delay; each time that a fault comes back soon, the delay grows by half, up to a minute. What breaks
 * an expectation that was told is unhealthy, one that was learned partially healthy.
 *
 * Faults are joined to incidents:
 *  - all of one stream while one of them lasts;
 *  - those of one domain of streams that were in lock with each other, while one of them lasts;
 *  - those of the watcher itself, while one of them lasts;
 *  - any that begin within one field period of each other.
 */
#ifndef WATCH_JUDGE_H
#define WATCH_JUDGE_H

#include <memory>
#include <span>
#include <vector>

#include "WatchEngine.h"
#include "WatchExpectations.h"
#include "WatchHealth.h"

// What a second brought.
struct SJudgeInput
{
    const SWatchSnapshot& roSnapshot;
    std::span<const SWatchEvent> aoHappenings; // all that happened, unfolded
    std::span<const SWatchEvent> aoEvents;     // those that are told, with their numbers
};

struct SWatchJudgeState;

class CWatchJudge
{
public:
    explicit CWatchJudge(const SJudgeSettings& roSettings);
    ~CWatchJudge();

    /*
     * Judges a second.
     *   roJudgement  out  what it comes to; its vectors are reused
     * The incidents that began or ended with it, as events without numbers; valid until the next call.
     */
    std::span<const SWatchEvent> Take(const SJudgeInput& roInput, SJudgement& roJudgement);

    /* Ends what is open, for the watch ends here: as Take. */
    std::span<const SWatchEvent> End(int64_t iNowUtcNs, SJudgement& roJudgement);

private:
    std::unique_ptr<SWatchJudgeState> m_poState;
};

/* The begin or the end of an incident as an event, without a number. No state; any thread. */
SWatchEvent WatchJudge_MakeEvent(const SIncident& roIncident, EWatchEventKind eKind);

#endif
