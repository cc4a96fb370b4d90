/*
 * A recording in the forms of other programs: Perfetto's trace format, and CSV. Made piece by piece, so that a
 * recording of any length needs no memory. One thread at a time.
 */
#ifndef RECORDING_EXPORT_H
#define RECORDING_EXPORT_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Recording.h"
#include "WatchEvent.h"

/* Takes what has been made; false: it can take no more. */
using ExportSink = std::function<bool(std::string_view)>;

// Streams one after the other: begin, fields in their order, events, end.
class IRecordingExport
{
public:
    virtual ~IRecordingExport() = default;

    /* Before everything else. */
    virtual bool Begin(const SRecordingAbout& roAbout, const SRecordedClock& roClock) = 0;
    /* szName: the connector's; may be empty. */
    virtual bool BeginStream(const SStreamKey& roStream, const std::string& rszName) = 0;
    /* roField: of the stream that began last. */
    virtual bool AddField(const SFieldRecord& roField) = 0;
    /* Likewise. */
    virtual bool AddEvent(const SWatchEvent& roEvent) = 0;
    virtual bool EndStream() = 0;
};

/* When a tick was, CLOCK_MONOTONIC nanoseconds, by one known moment. */
uint64_t RecordingExport_GetMonotonicNs(uint64_t uiTick, const SRecordedClock& roClock, uint32_t uiTickFrequencyHz);

#endif
