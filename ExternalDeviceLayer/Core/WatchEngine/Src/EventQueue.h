/*
 * Events on their way out: collected as they are found, folded where they come in bursts, given their moment in UTC
 * and their number when an analysis ends.
 *
 * A kind of a stream that has happened is an episode until it has not happened for ten seconds. Of an episode the
 * first happenings become events at once: one of the kinds that fields and buffers cause (all of one analysis
 * together), ten of the others. The rest is folded into one event at a time: after a minute, then two, four and so on
 * up to an hour, and when the episode ends. The counts of all events together are those of the counters.
 */
#ifndef EVENT_QUEUE_H
#define EVENT_QUEUE_H

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ClockReading.h"
#include "TickClock.h"
#include "WatchEvent.h"
#include "WatchSettings.h"
#include "WatchSnapshot.h"

class CEventQueue
{
public:
    CEventQueue(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs);

    /*
     * Adds an event; kind, stream and figures are set. Its moment is its tick, or where that is 0 that of
     * CLOCK_MONOTONIC.
     */
    void Add(const SWatchEvent& roEvent, uint64_t uiMonotonicNs);
    /* Another clock has become the board's: events on their way are dated by their arrival. */
    void ForgetTicks();
    /* Makes what is due ready to be taken. */
    void Flush(const SClockReading& roClock, const CTickClock& roTicks);
    /* Ends all episodes: with the next flush everything is due. */
    void EndAll() { m_bEndAll = true; }
    /* What was added between the last two flushes, unfolded; see CWatchEngine::GetHappenings. */
    std::span<const SWatchEvent> GetHappenings() const { return m_aoHappenings; }
    /* What has become ready since the last call. */
    std::span<const SWatchEvent> Take();

    /* Gives an event that others have found the next number; it is the newest of its stream. */
    void Number(SWatchEvent& roEvent);
    const SLastEvent& GetLast(const SStreamKey& roKey) const { return m_aoLast[GetStream(roKey)]; }
    uint64_t GetDropped() const { return m_uiDropped; }

private:
    struct SPending
    {
        SWatchEvent oEvent;
        uint64_t uiMonotonicNs;
    };
    // What a kind of a stream is at.
    struct SEpisode
    {
        SPending oFolded = {};
        bool bHolds = false;
        uint32_t uiEmitted = 0;
        uint32_t uiHappened = 0; // since the last flush
        size_t uiHappening = 0;  // its place among what happened, from 1; 0: none
        uint64_t uiPauseNs = 0;  // until the next one
        uint64_t uiLastNs = 0;   // happened
        uint64_t uiEmittedNs = 0;
    };

    SEpisode& GetEpisode(const SWatchEvent& roEvent);
    size_t GetStream(const SStreamKey& roKey) const;
    static void Advance(SEpisode& roEpisode, uint64_t uiNowNs);
    bool IsDue(const SEpisode& roEpisode, uint64_t uiNowNs) const;
    void Push(const SPending& roPending);
    void AddHappening(const SPending& roPending);
    void SetMoment(SPending& roPending, const SClockReading& roClock, const CTickClock& roTicks) const;
    void MakeHappenings(const SClockReading& roClock, const CTickClock& roTicks);
    void ReleaseFolded(uint64_t uiNowNs);
    void SetMoments(const SClockReading& roClock, const CTickClock& roTicks);
    void MakeReady();

    uint32_t m_uiNbOfInputs;
    std::vector<SEpisode> m_aoEpisodes; // by stream, then kind
    std::vector<SLastEvent> m_aoLast;   // by stream
    std::vector<SPending> m_aoPending;
    std::vector<SPending> m_aoHappened; // since the last flush
    std::vector<SWatchEvent> m_aoHappenings;
    std::vector<SWatchEvent> m_aoReady;
    bool m_bTaken = false;
    bool m_bEndAll = false;
    std::shared_ptr<uint64_t> m_puiLastEvent; // its number
    uint64_t m_uiDropped = 0;
};

#endif
