/*
 * One stream of a recording, as the board plays it: its waits numbered from 0 like fields, once or for ever in a loop.
 *
 * A wait that gave no field is one of a kind of its own, whose moment comes from when it returned. Behind the end of a
 * recording that is played once there is no signal. Immutable after construction.
 */
#ifndef SIMULATED_BOARD_REPLAY_TRACK_H
#define SIMULATED_BOARD_REPLAY_TRACK_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Replay.h"

class CReplayTrack
{
public:
    /*
     *   oStream         in  its waits and descriptions are taken over
     *   roReplay        in  clock and frequency
     *   bKeepsTimeOuts  in  false: waits that timed out are left out; in real time they come by themselves
     */
    CReplayTrack(SReplayStream oStream, const SReplay& roReplay, bool bKeepsTimeOuts);
    /* Plays it in a loop; uiTicks from one pass to the next. Once, before it is asked for anything below. */
    void SetLoop(uint64_t uiTicks);

    bool IsEmpty() const { return m_aoWaits.empty(); }
    uint64_t GetFirstDue() const { return m_auiDue.front(); }
    /* When the field behind the last one would start. */
    uint64_t GetEndDue() const { return m_auiDue.back() + m_uiFieldTicks; }
    /* Ticks of a field, as counters and stamps have it; never 0. */
    uint64_t GetFieldTicks() const { return m_uiFieldTicks; }
    /* The first that tells timings, or else the first; null without any. */
    const SReplayDescription* FindTimings() const;
    const std::string& GetName() const { return m_szName; }

    /* Whether wait n is behind the end. */
    bool IsBehind(uint64_t uiWait) const { return m_uiLoopTicks == 0 && uiWait >= m_aoWaits.size(); }
    /* When it returns: never before the one before it. */
    uint64_t GetDue(uint64_t uiWait) const;
    /* The stamp that it tells; GetDue() where it tells none. */
    uint64_t GetStamp(uint64_t uiWait) const;
    /* It, with counts as of this pass; behind the end the last one. */
    SReplayWait GetWait(uint64_t uiWait) const;
    /* How much too late its caller came to the one behind it: fields between had passed unseen. Milliseconds. */
    uint32_t GetLateMs(uint64_t uiWait) const;
    /* What the stream is said to be behind it. */
    const SReplayDescription& GetDescription(uint64_t uiWait) const;
    /* The first that is due at a moment or later. */
    uint64_t FindFirst(uint64_t uiTicks) const;

private:
    struct SDescribed
    {
        uint64_t uiFrom = 0; // first wait that it holds for
        SReplayDescription oDescription;
    };
    void FindFieldTicks(uint32_t uiTickFreqHz);
    void FindDue(const SReplay& roReplay);
    void TakeLateness(size_t uiWait, uint64_t uiArrival, uint32_t uiTickFreqHz);
    void PlaceDescriptions(const std::vector<SReplayDescription>& raoDescriptions);
    size_t GetRow(uint64_t uiWait) const;
    uint64_t GetBehindTicks(uint64_t uiWait) const;
    uint64_t GetPass(uint64_t uiWait) const { return m_uiLoopTicks == 0 ? 0 : uiWait / m_aoWaits.size(); }

    std::string m_szName;
    std::vector<SReplayWait> m_aoWaits;
    std::vector<uint64_t> m_auiDue;                    // by wait
    std::vector<std::pair<size_t, uint32_t>> m_aoLate; // waits that came too late, and by how much; by wait
    std::vector<SDescribed> m_aoDescribed;
    uint64_t m_uiFieldTicks = 1;
    uint64_t m_uiLoopTicks = 0;
    SReplayWait m_oGain; // what the counts of a pass are more than those of the pass before
};

#endif
