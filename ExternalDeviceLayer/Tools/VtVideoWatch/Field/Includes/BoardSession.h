/*
 * The board as one watch has it open: its chips, and of each of them counts, clocks, and the channels that its streams'
 * threads fill.
 *
 * One thread owns a session; the SDK wants loading, unloading and its devices asked for on the main one. Where several
 * chips are watched each is opened by a thread of its own, so that one that hangs delays no other.
 */
#ifndef BOARD_SESSION_H
#define BOARD_SESSION_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "StreamThread.h"

struct SBoardOptions
{
    std::vector<uint32_t> auiChips = {0}; // their numbers, ascending; none: all that the board has
    bool bRealTime = true;                // ask for it; go on without where it is refused
};

struct SBoardFacts
{
    std::string szLibrary; // file of the libVeltrano.so in use
    uint64_t uiVersion = 0;
    bool bIsSimulated = false;
    uint32_t uiTickFrequencyHz = 0;
    bool bTicksAreMonotonic = false; // the board says so, and then:
    int64_t iTickOffsetNs = 0;       // CLOCK_MONOTONIC at tick 0
    bool bSetsAreEstimated = false;  // the set-buffer counters of its outputs, the board says
    uint32_t uiSharedClock = 0;      // number of the clock that other chips tick on too; 0: on one of its own
    int64_t iSharedOffsetNs = 0;     // what that showed at tick 0
};

// The channels of one direction, by index.
using StreamChannels = std::vector<std::shared_ptr<SStreamChannel>>;

// Everything about one chip. Threads that open it and wait for its fields hold it.
class CBoardChip
{
public:
    CBoardChip(uint32_t uiNumber, uint32_t uiKey) : m_uiNumber(uiNumber), m_uiKey(uiKey) {}

    /* Asks for its clock and counts its streams; then it is open, unless there is a fault. */
    CFault Open();
    /* Has the thread of every stream be started: now, or once it is open. Any thread. */
    CFault Start();
    /* Starts them if that is asked for, and it is open. Any thread. */
    CFault StartIfAsked();

    /* Of the board, as it counts them; as in SStreamKey. */
    uint32_t GetNumber() const { return m_uiNumber; }
    uint32_t GetKey() const { return m_uiKey; }
    /* Whether it is open: before that there are neither facts nor channels. Any thread. */
    bool IsOpen() const { return m_bIsOpen.load(std::memory_order_acquire); }
    const SBoardFacts& GetFacts() const { return m_oFacts; }
    /* By EStreamDirection. */
    const std::array<StreamChannels, 2>& GetChannels() const { return m_aoChannels; }
    const std::shared_ptr<SStreamSetup>& GetSetup() const { return m_poSetup; }

private:
    CFault CountStreams();
    void ReadFacts();

    const uint32_t m_uiNumber;
    const uint32_t m_uiKey;
    std::shared_ptr<SStreamSetup> m_poSetup = std::make_shared<SStreamSetup>();
    SBoardFacts m_oFacts;
    std::array<StreamChannels, 2> m_aoChannels;
    std::atomic<bool> m_bIsOpen{false};
    std::mutex m_oStartMutex; // guards the next two
    bool m_bIsToStart = false;
    bool m_bHasStarted = false;
};
using BoardChips = std::vector<std::shared_ptr<CBoardChip>>;

class CBoardSession
{
public:
    CBoardSession() = default;
    ~CBoardSession() { static_cast<void>(Stop(0)); }
    CBoardSession(const CBoardSession&) = delete;
    CBoardSession& operator=(const CBoardSession&) = delete;

    /*
     * Loads the SDK, opens the chips and counts their streams. A chip that is not there is a fault; of several, one
     * that cannot be opened is said in a line and never opens, and one that does not answer in time is waited for no
     * longer: it is watched from when it does.
     */
    CFault Open(const SBoardOptions& roOptions);

    /* What a stream's timings are now; all 0 without a signal. A call to the board, which may block. */
    VtVideo_VidParam ReadTimings(const SStreamKey& roKey) const;

    /* Starts the thread of every stream; those of a chip that is not open yet start when it is. */
    CFault Start();

    /*
     * Ends all threads and unloads the SDK.
     *   uiTimeOutMs  in  how long to wait for threads that are inside a call to the board
     * False when one of them has not come back: the SDK is still loaded then, and the process has to end without it.
     */
    bool Stop(uint32_t uiTimeOutMs);

    /* By their numbers; those that are not open too. */
    const BoardChips& GetChips() const { return m_apoChips; }
    /* Whether there is such a stream; of a chip that is not open yet there may be. */
    bool MayHave(const SStreamKey& roStream) const;
    /* Whether the threads got their real-time priority; the answer stands once they have begun. */
    ERealTime GetRealTime() const;

private:
    CFault FindChips(const SBoardOptions& roOptions);
    CFault OpenSeveral();
    BoardChips::const_iterator FindChip(const SStreamKey& roStream) const;

    BoardChips m_apoChips;
    bool m_bIsLoaded = false;
};

#endif
