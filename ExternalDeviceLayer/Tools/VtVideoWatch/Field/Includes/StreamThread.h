/*
 * One watched stream: a thread that waits for its fields, stamps them and hands them over through a ring, and that
 * reads once a second what the stream is. It keeps the stream's handle, and opens it again, at most once a second, when
 * the board refuses it or the device is gone.
 *
 * Threads: the stream's own one runs in here and makes every call to the board; one other thread drains. Field path:
 * no lock, no allocation. Moments are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef STREAM_THREAD_H
#define STREAM_THREAD_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "Fault.h"
#include "FieldRecord.h"
#include "KrvTypes.h"
#include "SpscRing.h"
#include "StreamKey.h"
#include "Veltrano.h"

// What a stream is, with the texts that only the board can tell.
struct SDescriptionRecord
{
    SStreamDescription oDescription;
    VTSTR64 szName;   // its connector's
    VTSTR64 szFormat; // pixel format's
};

// Whether the threads may preempt others, so that what they stamp is the signal's time and not the machine's.
enum class ERealTime : uint8_t
{
    OFF,
    WANTED,
    REFUSED // the system does not allow it
};

// What all streams of a watch have in common. Outlives their threads.
struct SStreamSetup
{
    VtDevice_Handle hDev = nullptr;
    uint32_t uiTickFrequencyHz = 0;
    std::atomic<ERealTime> eRealTime{ERealTime::WANTED};
    std::atomic<bool> bStop{false};
    std::atomic<uint32_t> uiRunning{0}; // threads that have not ended
};

struct SStreamChannel
{
    SStreamKey oKey;
    CSpscRing<SFieldRecord> oFields{1024}; // a second at 1000 Hz
    CSpscRing<SDescriptionRecord> oDescriptions{8};
};

/*
 * Starts the thread of one stream, detached: a board whose call never returns keeps its thread, and nobody has to wait
 * for it. It ends within two wait time-outs once bStop is set, and then counts itself out of uiRunning.
 *   poSetup    in  shared by all
 *   poChannel  in  where it hands over
 */
CFault StreamThread_Start(const std::shared_ptr<SStreamSetup>& rpoSetup,
                          const std::shared_ptr<SStreamChannel>& rpoChannel);

#endif
