/*
 * The board as one watch has it open: chip, counts, clocks, and the channels that its streams' threads fill.
 *
 * One thread owns a session; the SDK wants loading and unloading on the main one.
 */
#ifndef BOARD_SESSION_H
#define BOARD_SESSION_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "StreamThread.h"

struct SBoardOptions
{
    uint32_t uiChip = 0;
    bool bRealTime = true; // ask for it; go on without where it is refused
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
};

// The channels of one direction, by index.
using StreamChannels = std::vector<std::shared_ptr<SStreamChannel>>;

class CBoardSession
{
public:
    CBoardSession() = default;
    ~CBoardSession() { static_cast<void>(Stop(0)); }
    CBoardSession(const CBoardSession&) = delete;
    CBoardSession& operator=(const CBoardSession&) = delete;

    /* Loads the SDK, opens the chip and counts its streams. */
    CFault Open(const SBoardOptions& roOptions);

    /* What a stream's timings are now; all 0 without a signal. A call to the board, which may block. */
    VtVideo_VidParam ReadTimings(const SStreamKey& roKey) const;

    /* Starts the thread of every stream. */
    CFault Start();

    /*
     * Ends all threads and unloads the SDK.
     *   uiTimeOutMs  in  how long to wait for threads that are inside a call to the board
     * False when one of them has not come back: the SDK is still loaded then, and the process has to end without it.
     */
    bool Stop(uint32_t uiTimeOutMs);

    const SBoardFacts& GetFacts() const { return m_oFacts; }
    /* By EStreamDirection. */
    const std::array<StreamChannels, 2>& GetChannels() const { return m_aoChannels; }
    /* Whether the threads got their real-time priority; the answer stands once they have begun. */
    ERealTime GetRealTime() const { return m_poSetup->eRealTime.load(); }

private:
    CFault CountStreams();
    void ReadFacts();

    std::shared_ptr<SStreamSetup> m_poSetup = std::make_shared<SStreamSetup>();
    SBoardFacts m_oFacts;
    std::array<StreamChannels, 2> m_aoChannels;
    bool m_bIsLoaded = false;
};

#endif
