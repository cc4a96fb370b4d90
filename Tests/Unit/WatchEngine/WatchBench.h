// The engine on a simulated board in stepped time: every stream's waits are made in the order of a real watch, with
// arrivals on a clock of the bench's own that the tests can disturb.
#ifndef WATCH_BENCH_H
#define WATCH_BENCH_H

#include <VtSimulatedBoard.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "StreamPort.h"
#include "WatchEngine.h"

// A stream of a chip; and what happens to it.
inline std::string In(const std::string& rszKeys = "", const char* szStandard = "1080p60")
{
    return std::string("[[chip.input]]\nstandard = '") + szStandard + "'\n" + rszKeys + "\n";
}
inline std::string Out(const std::string& rszKeys = "", const char* szStandard = "1080p60")
{
    return std::string("[[chip.output]]\nstandard = '") + szStandard + "'\n" + rszKeys + "\n";
}
inline std::string Event(const std::string& rszKeys)
{
    return "event = [{kind = " + rszKeys + "}]\n";
}

struct SBenchSetup
{
    SWatchSettings oSettings;
    uint64_t uiSeed = 1;
    double flLatencyNs = 20'000.0; // least delay of a wake-up
    double flSpreadNs = 10'000.0;  // mean of what comes on top
    int32_t iTaiOffsetSeconds = 37;
    uint64_t uiStartTick = 0; // of the chip, when that is not its frequency
};

class CWatchBench
{
public:
    /* rszChip: keys and tables behind [[chip]]. */
    explicit CWatchBench(const std::string& rszChip, const SBenchSetup& roSetup = {});
    ~CWatchBench();
    CWatchBench(const CWatchBench&) = delete;
    CWatchBench& operator=(const CWatchBench&) = delete;

    /* Watches on for whole seconds, with an analysis after each; fnSnapshot is called for what it makes. */
    void Run(uint32_t uiSeconds, const std::function<void()>& fnSnapshot = {});
    /* The thread does something else between its waits. */
    void Delay(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds);
    /* The thread is inside its wait and gets no processor from its next field on; uiRunDelayNs: what the kernel says.
     */
    void Starve(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds, uint64_t uiRunDelayNs);

    /* The same until a time from now on; the kernel does not know of it. */
    void StarveUntil(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds);

    const SStreamFigures& Get(EStreamDirection eDirection, uint32_t uiIndex) const
    {
        return oSnapshot.aoDirections[static_cast<size_t>(eDirection)].aoStreams[uiIndex];
    }
    const SStreamFigures& GetInput(uint32_t uiIndex) const { return Get(EStreamDirection::INPUT, uiIndex); }
    const SPairFigures& GetPair(uint32_t uiFirst, uint32_t uiSecond) const;
    /* Sum of the counts of all events of a kind of a stream, and how many there are. */
    uint64_t Sum(EWatchEventKind eKind, uint32_t uiIndex) const;
    uint64_t Count(EWatchEventKind eKind, uint32_t uiIndex) const;
    const SWatchEvent* Find(EWatchEventKind eKind, uint32_t uiIndex) const;
    static VtSim_Field GetTruth(EStreamDirection eDirection, uint32_t uiIndex, uint64_t uiField);
    int64_t ToUtcNs(uint64_t uiTick) const;
    /* Up to when the streams' waits have been made. */
    int64_t GetHandedInUtcNs() const;

    // Called after every second's analysis.
    std::function<void(const CWatchEngine& roEngine, std::span<const SWatchEvent> aoEvents)> fnSecond;
    // Called with everything that the engine is given, where somebody keeps it.
    std::function<void(const SStreamKey&, const SFieldRecord&)> fnField;
    std::function<void(const SStreamKey&, const SStreamDescription&)> fnDescription;
    SWatchSnapshot oSnapshot;
    std::vector<SWatchEvent> aoEvents;

private:
    struct SStream
    {
        EStreamDirection eDirection;
        uint32_t uiIndex;
        std::unique_ptr<CStreamPort> poPort;
        uint64_t uiWaitNs;         // when the next wait begins
        uint64_t uiRunDelayNs;     // for the next record
        uint64_t uiNotBeforeNs;    // the next arrival
        uint64_t uiAheadNs;        // start of the last field
        uint64_t uiPosition;       // of the board after the last wait
        VtVideo_VidParam oTimings; // as they were described

        SStreamKey GetKey() const { return {eDirection, uiIndex}; }
    };

    VtSim_Stream Name(const SStream& roStream) const;
    SStream& Find(EStreamDirection eDirection, uint32_t uiIndex);
    uint64_t ToMonotonicNs(uint64_t uiTick) const;
    uint64_t DrawLatency();
    uint64_t FindHang(SStream& roStream) const;
    uint64_t StepOver(const SStream& roStream, uint64_t uiUntilNs) const;
    void Step(SStream& roStream);
    void Describe(SStream& roStream, uint64_t uiMomentNs, bool bOnlyOtherTimings);

    SBenchSetup m_oSetup;
    std::unique_ptr<CWatchEngine> m_poEngine;
    std::vector<SStream> m_aoStreams;
    std::mt19937_64 m_oRandom;
    uint64_t m_uiStartTick = 0;
    uint64_t m_uiNowNs = 0;
};

#endif
