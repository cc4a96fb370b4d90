/*
 * The analysis behind the watch: field accounting, rates, phases, locks, all of it with its uncertainty.
 *
 * No I/O, no texts, no clock of its own: records and moments are handed in, figures and events come out. One thread
 * owns an engine and makes all calls. Nothing is allocated after the streams have been added, but for the snapshot that
 * the caller keeps.
 */
#ifndef WATCH_ENGINE_H
#define WATCH_ENGINE_H

#include <cstdint>
#include <memory>
#include <span>

#include "ClockReading.h"
#include "EarlierRun.h"
#include "FieldRecord.h"
#include "WatchEvent.h"
#include "WatchSettings.h"
#include "WatchSnapshot.h"

struct SWatchEngineState;

class CWatchEngine
{
public:
    /*
     * Makes an engine for a fixed number of streams.
     *   roSettings    in  its tick frequency is not 0
     *   uiNbOfInputs  in  0 to uiMaxStreamsPerDirection
     *   uiNbOfOutputs in  likewise
     */
    CWatchEngine(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs);
    ~CWatchEngine();

    /* Takes in what a stream's thread saw. Records of one stream come in the order in which they were made. */
    void TakeRecord(const SStreamKey& roKey, const SFieldRecord& roRecord);

    /*
     * Takes in that the caller itself was due and did not run: a witness that the machine was late, not a signal.
     *   uiBeginNs, uiEndNs  in  CLOCK_MONOTONIC
     */
    void TakeStall(uint64_t uiBeginNs, uint64_t uiEndNs);

    /*
     * Takes in a description of a stream. One that is read after a canceled wait tells an output that was switched off
     * from a signal that was lost, if it is there by the next analysis.
     */
    void TakeDescription(const SStreamKey& roKey, const SStreamDescription& roDescription);

    /*
     * Tells what earlier runs knew of a stream, before its first record: one that ran then and is found without a
     * signal now has lost it.
     */
    void TellEarlier(const SStreamKey& roKey, const SEarlierRun& roEarlier);

    /*
     * Analyses the next instant: the next whole second of the chip's clock (of CLOCK_MONOTONIC until that is known),
     * once it lies far enough back for everything about it to have been handed in. After a stall it is called until it
     * has nothing more to tell; what a stall of more than a minute passed over is left out.
     *   roClock     in   the clocks now; all records handed in so far lie before
     *   roSnapshot  out  the figures of the instant; its vectors are reused
     * True when there is a new instant; false when it is not due, and nothing has changed.
     */
    bool Analyse(const SClockReading& roClock, SWatchSnapshot& roSnapshot);

    /* When the next instant is due, CLOCK_MONOTONIC; 0: at once. */
    uint64_t GetDueNs() const;

    /*
     * The watch ends: the next analysis is the last one. It takes in all that was handed in, for the moment at which it
     * is called, and hands out what is held back of bursts that go on.
     */
    void End();

    /*
     * All that the last analysis found, for who judges it: nothing is held back, what fields and buffers cause is one
     * per kind and stream, with the moment of its first and the count of all. Without numbers; valid until the next
     * analysis.
     */
    std::span<const SWatchEvent> GetHappenings() const;

    /* Gives an event that somebody else has found the next number. */
    void Number(SWatchEvent& roEvent);

    /* The events since the last call, oldest first; valid until the next call of any operation. */
    std::span<const SWatchEvent> TakeEvents();

private:
    std::unique_ptr<SWatchEngineState> m_poState;
};

#endif
