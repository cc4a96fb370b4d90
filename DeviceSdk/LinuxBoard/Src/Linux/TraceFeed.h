/*
 * The frames of an input that another program owns, from the kernel's trace of dequeued buffers: its binary pages, one
 * pipe per processor. Uses a trace instance of its own, so that nobody else's tracing is touched, or one that an
 * administrator prepared for readers without rights ("vtvideomonitor-video0"). Belongs to one thread at a time.
 */
#ifndef LINUX_BOARD_TRACE_FEED_H
#define LINUX_BOARD_TRACE_FEED_H

#include <cstdint>
#include <memory>
#include <poll.h>
#include <span>
#include <string>
#include <vector>

#include "FieldTracker.h"
#include "FileDescriptor.h"
#include "TraceLayout.h"

struct tracefs_instance;
struct kbuffer;

struct SGiveBackNote;

enum class ETraceAccess
{
    NONE,
    ABSENT,  /* the kernel's trace is not mounted */
    REFUSED, /* the kernel makes no instance, as for want of memory */
    TAKEN,   /* another reader has the prepared trace */
    GRANTED
};

struct STraceBatch
{
    struct SEntry
    {
        uint64_t uiMoment = 0; /* of the trace's own clock: orders what comes from several processors */
        SCapturedFrame oFrame;
    };
    std::vector<SEntry> aoEntries;
    uint64_t uiUnseen = 0; /* records that the kernel dropped, because nobody read them in time */
};

class CTraceFeed
{
public:
    CTraceFeed() = default;
    ~CTraceFeed() { Close(); }
    CTraceFeed(const CTraceFeed&) = delete;
    CTraceFeed& operator=(const CTraceFeed&) = delete;

    /* Whether this process may follow the node ("video0"), without creating anything. */
    static ETraceAccess Access(const std::string& szVideo);

    /* False when the trace may not be read; the input then has no per-frame data. uiFramesPerSecond: 0 when unknown. */
    bool Open(const std::string& szVideo, uint32_t uiMinor, uint32_t uiFramesPerSecond);
    void Close();

    bool IsOpen() const { return !m_aoPipes.empty(); }
    std::span<const CFileDescriptor> Pipes() const { return m_aoPipes; }

    /*
     * The frames that have come, without waiting, good until the next call. Of the pipes that aoPolled, in the order of
     * Pipes, shows as readable; of all, and all that they hold, when it is empty. uiNowNs stands in for stamps of
     * another clock.
     */
    const STraceBatch& Read(std::span<const pollfd> aoPolled, uint64_t uiNowNs);

private:
    struct SKbufferFree
    {
        void operator()(kbuffer* poBuffer) const;
    };

    bool OpenPrepared(const std::string& szVideo);
    bool OpenOwn(const std::string& szVideo, uint32_t uiFramesPerSecond);
    bool OpenPipes(const std::string& szInstance);
    bool ReadPage(const CFileDescriptor& roPipe, uint64_t uiNowNs);
    void TakePage(uint64_t uiNowNs);

    tracefs_instance* m_poInstance = nullptr; /* our own, removed at the end */
    SGiveBackNote* m_poNote = nullptr;        /* that it has to be removed */
    std::vector<CFileDescriptor> m_aoPipes;
    std::unique_ptr<kbuffer, SKbufferFree> m_poDecoder;
    std::vector<std::byte> m_aoPage;
    STraceLayout m_oLayout{};
    STraceBatch m_oBatch;
    uint32_t m_uiMinor = 0;
    bool m_bForeignRecords = false; /* the trace is not ours and may hold those of other nodes */
};

#endif
