/*
 * Where those who ask for a recording get one from. Whoever implements this is thread-safe.
 */
#ifndef RECORDING_SOURCE_H
#define RECORDING_SOURCE_H

#include <cstdint>

#include "Fault.h"

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
};

#endif
