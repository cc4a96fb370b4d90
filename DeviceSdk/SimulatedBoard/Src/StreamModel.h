/*
 * What a stream does, as a function of the field number: when each field starts, what its counters say, what is lost.
 *
 * Knows no clock, no caller and no lock: everything is a function of the scenario and of the field number alone, so any
 * field can be asked for without those before it. Times are ticks of the chip's counter. Immutable after construction,
 * so any number of threads may ask at once.
 */
#ifndef SIMULATED_BOARD_STREAM_MODEL_H
#define SIMULATED_BOARD_STREAM_MODEL_H

#include "CaptureQueue.h"
#include "Scenario.h"

enum class EFieldFate : uint8_t
{
    STARTED,
    LOST,   // no signal: a wait is cancelled
    MISSED, // the board never reports it
    // Of a replay, where the recorded wait ended so.
    TIMED_OUT,
    FAILED
};

struct SFieldStart
{
    uint64_t uiField = 0;
    EFieldFate eFate = EFieldFate::STARTED;
    uint64_t uiStamp = 0;
    uint64_t uiDue = 0; // when a wait for it returns: the stamp, but that of a replay never goes back
    uint64_t uiFieldCounter = 0;
    uint64_t uiSetBufferCounter = 0;
    bool bIsTopField = false;
};

struct SCaptureState
{
    uint32_t uiTotal = 0;
    uint32_t uiReady = 0;
    uint32_t uiLoan = 0;
    uint32_t uiInternal = 0;
};

class CStreamModel
{
public:
    // Field numbers of 2^40 and above are beyond what the arithmetic carries.
    static constexpr uint64_t msc_uiFieldLimit = uint64_t{1} << 40;

    explicit CStreamModel(const SStream& roStream);

    /* The start of a field without jitter. */
    FixedTicks GetExactTicks(uint64_t uiField) const;
    /* The start of a field as the board stamps it. */
    uint64_t GetStamp(uint64_t uiField) const;
    /* When a wait for it returns. */
    uint64_t GetDue(uint64_t uiField) const;
    EFieldFate GetFate(uint64_t uiField) const;
    SFieldStart GetField(uint64_t uiField) const;

    /* First field from uiFrom on that is due after uiTicks. */
    uint64_t FindFirstAfter(uint64_t uiTicks, uint64_t uiFrom) const;
    /* First field from uiFrom on that is not missed; stops at uiEnd. */
    uint64_t FindReported(uint64_t uiFrom, uint64_t uiEnd) const;
    /* One behind the last field of uiFrom to uiEnd - 1 that is not missed; uiFrom when there is none. */
    uint64_t FindLastReported(uint64_t uiFrom, uint64_t uiEnd) const;

    /* What the board says at a field; the timings are all 0 when it is lost. */
    SStreamDescription GetDescription(uint64_t uiField) const;
    VtVideoOut_PowerState GetPowerState(uint64_t uiField) const;
    SCaptureState GetCaptureState(uint64_t uiField) const;
    /* Whether the board can tell it. */
    bool HasSkipCount(uint64_t uiField) const;
    uint64_t GetSkipCount(uint64_t uiField) const;
    uint32_t GetNbOfBuffers(uint64_t uiField) const;
    uint64_t GetFilledCount(uint64_t uiField) const;
    uint64_t GetSetBufferCount(uint64_t uiField) const;
    /* How late the recorded wait for a field returned, with others passing meanwhile; milliseconds. */
    uint32_t GetLateMs(uint64_t uiField) const;
    /* How long the wait that delivers a field hangs, milliseconds. */
    uint32_t GetHangMs(uint64_t uiField) const;

    const SStream& GetStream() const { return m_oStream; }
    FixedTicks GetFieldTicks() const { return m_iFieldTicks; }

private:
    struct SFormat
    {
        SSchedule oWhen;
        SVideoTiming oTiming;
        VtVideo_VidParam oVidParam{};
        FixedTicks iFieldTicks = 0;
        uint64_t uiWanderIncrement = 0; // a field, of 2^64 a turn
    };

    SFormat MakeFormat(const SSchedule& roWhen, const SVideoTiming& roTiming) const;
    void AddEvent(const SEvent& roEvent);
    const SFormat& GetFormat(uint64_t uiField) const;
    bool IsTopField(uint64_t uiField) const;
    FixedTicks GetEventTicks(uint64_t uiField) const;
    double GetWander(uint64_t uiField) const;
    uint64_t CountFilledBefore(uint64_t uiField) const;
    uint32_t GetRoom() const;
    EFieldFate GetReplayedFate(uint64_t uiField) const;
    SFieldStart GetReplayedField(uint64_t uiField) const;
    SStreamDescription GetReplayedDescription(uint64_t uiField) const;
    uint64_t CountJumps(uint64_t uiField) const;
    uint64_t CountSkips(uint64_t uiField) const;

    FixedTicks m_iFieldTicks = 0;
    const CReplayTrack* const m_poReplay; // null: the stream is made up
    const bool m_bEvents;                 // false: the vectors of events need no look, and their cache lines none
    bool m_bInterlaced = false;           // in the first format
    const SStream m_oStream;
    SFormat m_oFormat;            // the stream's first; its schedule does not count
    uint64_t m_uiWanderStart = 0; // of 2^64, a turn
    const CBufferFeed m_oFeed;

    std::vector<SFormat> m_aoFormats;
    std::vector<SSchedule> m_aoLosses;
    std::vector<SSchedule> m_aoMissed;
    std::vector<SSchedule> m_aoDoubled;
    std::vector<SSchedule> m_aoRunOuts;
    std::vector<SEvent> m_aoJumps;
    std::vector<SEvent> m_aoSkips;
    std::vector<SEvent> m_aoSteps;
    std::vector<SEvent> m_aoPowers;
    std::vector<SEvent> m_aoHangs;
    struct SDrift
    {
        SSchedule oWhen;
        FixedTicks iTicksAField = 0;
    };
    std::vector<SDrift> m_aoDrifts;
    std::vector<SEvent> m_aoDescriptions;
    std::vector<SSchedule> m_aoSwaps;
    struct SCadence
    {
        SSchedule oWhen;
        CBufferFeed oFeed;
    };
    std::vector<SCadence> m_aoCadences;
    std::vector<SSlowConsumer> m_aoSlow;
};

#endif
