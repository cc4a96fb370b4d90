/*
 * Where those who ask for recordings, or for single fields, get them from. Whoever implements this is thread-safe.
 */
#ifndef RECORDING_SOURCE_H
#define RECORDING_SOURCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "Fault.h"
#include "FieldRecord.h"
#include "StreamKey.h"

struct SKeptRecording
{
    std::string szName;
    uint64_t uiBytes = 0;
};

// Fields of one stream, and one moment in all clocks.
struct SRecordedFields
{
    std::vector<SFieldRecord> aoFields; // in their order
    uint32_t uiTickFrequencyHz = 0;
    uint64_t uiMonotonicNs = 0;
    int64_t iUtcNs = 0;
};

class IRecordingSource
{
public:
    virtual ~IRecordingSource() = default;

    /* How far back one may reach, seconds. */
    virtual uint32_t GetMostSeconds() const = 0;

    /*
     * Makes a recording of the last seconds. Blocks for as long as that takes.
     *   uiSeconds  in   1 to GetMostSeconds()
     *   riFile     out  it, open for reading; who asks closes it, and it is gone
     * A fault may heal when nothing has been seen yet, or another one is being made.
     */
    virtual CFault MakeRecording(uint32_t uiSeconds, int& riFile) = 0;

    /* Those that are kept, newest first. */
    virtual std::vector<SKeptRecording> ListRecordings() = 0;

    /*
     * The fields of a stream, up to uiMost of them.
     *   rszRecording  in   one that is kept; empty: of the last seconds
     *   uiSeconds     in   how many, 1 to GetMostSeconds()
     * A fault may heal when nothing has been seen yet.
     */
    virtual CFault ReadFields(const std::string& rszRecording, const SStreamKey& roStream, uint32_t uiSeconds,
                              size_t uiMost, SRecordedFields& roFields) = 0;
};

#endif
