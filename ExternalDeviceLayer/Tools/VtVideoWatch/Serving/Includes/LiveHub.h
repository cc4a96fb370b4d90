/*
 * The live stream: every snapshot and the events that came with it, as server-sent events. One thread makes the text
 * once a second, and only while somebody listens; the server's threads send it. A listener that does not keep up misses
 * snapshots, never events, and costs the others nothing.
 */
#ifndef LIVE_HUB_H
#define LIVE_HUB_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "HttpServer.h"
#include "WatchReader.h"

// Listeners at once; the next one is told to come back later.
constexpr uint32_t uiMostListeners = 16;

// Thread-safe. What it answers must have ended before it is destroyed.
class CLiveHub
{
public:
    explicit CLiveHub(IWatchReader& roReader);
    ~CLiveHub();
    CLiveHub(const CLiveHub&) = delete;
    CLiveHub& operator=(const CLiveHub&) = delete;

    /* False when the system has no thread to give. */
    bool Start();

    SHttpAnswer Answer(const SHttpRequest& roRequest);
    uint32_t GetListeners() const;

    // Lets every listener go; none comes any more.
    void End();

private:
    struct SMessage
    {
        uint64_t uiNumber = 0;      // of its snapshot
        uint64_t uiEventsAfter = 0; // its events are the newer ones
        uint64_t uiNewestEvent = 0;
        std::string szSnapshot; // both ready to be sent
        std::string szEvents;
    };
    using MessagePtr = std::shared_ptr<const SMessage>;
    class CListener;

    void Run();
    MessagePtr Make(const SWatchPublication& roPublication, uint64_t uiEventsAfter);
    void Publish(MessagePtr poMessage);
    bool Enter(CListener& roListener);
    void Leave(CListener& roListener);
    void WakeAll();
    std::string PrintEvents(uint64_t uiAfter, uint64_t& ruiNewest) const;

    IWatchReader& m_roReader;
    mutable std::mutex m_oMutex;
    std::condition_variable m_oChanged;
    MessagePtr m_poMessage;
    uint64_t m_uiBeats = 0; // grows while there is nothing else to say
    std::chrono::steady_clock::time_point m_oLastSaid;
    std::set<CListener*> m_apoListeners;
    bool m_bIsEnding = false;
    std::thread m_oThread; // the last member: it uses all others
};

#endif
