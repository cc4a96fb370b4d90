/*
 * What is followed field by field beside the moments themselves: where the buffers are, what an output is fed, the
 * order of the fields, and why some were not observed. Plain data.
 */
#ifndef STREAM_TRACKERS_H
#define STREAM_TRACKERS_H

#include <array>
#include <cstdint>

// Windows of the queues; the last whole seconds before the analysis.
enum class EQueueWindow : uint8_t
{
    SECONDS_1,
    SECONDS_10,
    SECONDS_60,
    COUNT
};
constexpr std::array<uint32_t, 3> auiQueueWindowSeconds = {1, 10, 60};

struct SQueueLevel
{
    double flMean = 0.0;
    uint32_t uiLeast = 0;
    uint32_t uiMost = 0;
};

struct SQueueWindow
{
    bool bIsKnown = false; // a field of these seconds told its buffers
    SQueueLevel oReady;    // filled, waiting for the application
    SQueueLevel oLoaned;   // in the application's hands
    SQueueLevel oInternal; // in the board's hands
};

// Buffers of an input.
struct SQueueFigures
{
    std::array<SQueueWindow, 3> aoWindows; // by EQueueWindow
    // How long a picture stays on its way through the queue, seconds: ready and loaned buffers of the last 10 s over
    // the rate at which pictures come (J. D. C. Little, "A Proof for the Queuing Formula L = lambda W", 1961).
    double flHeldSeconds = 0.0;
    bool bIsHeldKnown = false;
    bool bIsConsumerStalled = false;        // no buffer has been left for a second, and pictures went by
    int64_t iConsumerTookUtcNs = 0;         // the field with which the last stall ended; 0: there was none
    int64_t iConsumerStalledSinceUtcNs = 0; // the first field by which the queue filled, or went by if it was full
};

// In how many fields each picture of an output is shown: 3:2 is {3, 2}. Empty: no rule.
struct SCadence
{
    static constexpr uint32_t msc_uiMostRuns = 5;

    std::array<uint8_t, msc_uiMostRuns> auiRuns = {};
    uint8_t uiNbOfRuns = 0;

    bool operator==(const SCadence&) const = default;
    bool IsKnown() const { return uiNbOfRuns > 0; }
};

/* A cadence as one number and back, for events: runs of 8 bits each, the first one lowest. */
constexpr uint64_t Cadence_Pack(const SCadence& roCadence)
{
    uint64_t uiPacked = 0;
    for (uint32_t uiRun = 0; uiRun < roCadence.uiNbOfRuns; ++uiRun)
    {
        uiPacked |= uint64_t{roCadence.auiRuns[uiRun]} << (8 * uiRun);
    }
    return uiPacked;
}
constexpr SCadence Cadence_Unpack(uint64_t uiPacked)
{
    SCadence oCadence;
    for (; uiPacked != 0 && oCadence.uiNbOfRuns < SCadence::msc_uiMostRuns; uiPacked >>= 8)
    {
        oCadence.auiRuns[oCadence.uiNbOfRuns++] = static_cast<uint8_t>(uiPacked);
    }
    return oCadence;
}

// What an output is fed.
struct SFeedFigures
{
    bool bIsEstimated = false; // the board estimates how many buffers were set
    bool bHasFed = false;      // a buffer was set while it was watched
    SCadence oCadence;
    int64_t iCadenceSinceUtcNs = 0;
    bool bIsStalled = false;
    int64_t iStalledSinceUtcNs = 0; // the first field that should have shown another picture
};

struct SFieldOrderFigures
{
    bool bIsKnown = false;   // interlaced, and two fields have come
    bool bIsSwapped = false; // against the order at the signal's begin, and its description does not say so
    int64_t iSwappedUtcNs = 0;
};

enum class EUnobservedCause : uint8_t
{
    OUTSIDE_WAIT, // the thread was doing something else
    NO_PROCESSOR, // the kernel says that it stood ready
    MACHINE,      // the machine stood still
    NEIGHBOUR,    // another stream's wait was held up meanwhile
    COUNT
};
constexpr auto uiNbOfUnobservedCauses = static_cast<uint32_t>(EUnobservedCause::COUNT);

#endif
