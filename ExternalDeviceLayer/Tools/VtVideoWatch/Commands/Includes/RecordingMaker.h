/*
 * One recording out of one or more copies of the recorder: what several copies share is written once. One thread.
 */
#ifndef RECORDING_MAKER_H
#define RECORDING_MAKER_H

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "FieldRecorder.h"
#include "RecordingFile.h"
#include "WatchPublication.h"

class CRecordingMaker
{
public:
    /*
     *   rszFile        in   name of the recording
     *   roPublication  in   any moment of the watch
     *   rszReason      in   why it is made, one line
     *   uiFromNs       in   fields from here on, CLOCK_MONOTONIC
     */
    CFault Begin(const std::string& rszFile, const SWatchPublication& roPublication, const std::string& rszReason,
                 uint64_t uiFromNs);

    /*
     * Adds what a copy holds and no earlier one did. False when the disk refuses it: the recording is lost then.
     *   roPublication  in  the newest moment: how the clocks stand to each other
     */
    bool AddCut(const CRecorderCut& roCut, const SWatchPublication& roPublication);
    bool AddEvents(std::span<const SWatchEvent> aoEvents);

    /* Makes it whole. On a fault nothing is left. */
    CFault Finish() { return m_oWriter.Finish(); }
    /* Gives it up; Fail() says why it could not be written. */
    void Discard() { m_oWriter.Discard(); }
    CFault Fail() { return m_oWriter.Fail(); }

    uint64_t GetFieldCount() const { return m_oWriter.GetFieldCount(); }
    uint64_t GetBytes() const { return m_oWriter.GetBytes(); }

private:
    CRecordingWriter m_oWriter;
    uint64_t m_uiFromNs = 0;
    std::map<SStreamKey, uint64_t> m_oArrivals;     // of the last field of each that was written
    std::map<SStreamKey, uint64_t> m_oDescriptions; // likewise, when it was read
};

#endif
