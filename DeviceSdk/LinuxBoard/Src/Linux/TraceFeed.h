/*
 * The frames of an input that another program owns, from the kernel's trace of dequeued buffers. Uses a trace instance
 * of its own, so that nobody else's tracing is touched, or one that an administrator prepared for readers without
 * rights ("vtvideomonitor-video0"). Belongs to one thread at a time.
 */
#ifndef LINUX_BOARD_TRACE_FEED_H
#define LINUX_BOARD_TRACE_FEED_H

#include "../FieldTracker.h"
#include "FileDescriptor.h"

#include <cstdint>
#include <functional>
#include <string>

struct tracefs_instance;

namespace LinuxBoard
{

class CTraceFeed
{
public:
    CTraceFeed() = default;
    ~CTraceFeed() { Close(); }
    CTraceFeed(const CTraceFeed&) = delete;
    CTraceFeed& operator=(const CTraceFeed&) = delete;

    /* Whether this process may follow the node ("video0"), without opening or creating anything. */
    static bool IsPossible(const std::string& szVideo);

    /* False when the trace may not be read; the input then has no per-frame data. */
    bool Open(const std::string& szVideo, uint32_t uiMinor);

    void Close();

    int Fd() const { return m_oPipe.Get(); } /* -1 without a trace */

    /* Hands over the frames that have come, without waiting. */
    void Read(const std::function<void(const SCapturedFrame&)>& rofnSink);

private:
    bool OpenPrepared(const std::string& szVideo);
    bool OpenOwn(const std::string& szVideo);
    void ReadLines(const std::function<void(const SCapturedFrame&)>& rofnSink);

    tracefs_instance* m_poInstance = nullptr; /* our own, removed at the end */
    CFileDescriptor m_oPipe;
    uint32_t m_uiMinor = 0;
    std::string m_szText; /* read, but not yet a whole line */
};

} // namespace LinuxBoard

#endif
