#include "TraceFeed.h"

#include "../TraceLine.h"
#include "MonotonicClock.h"
#include "TraceInstance.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace LinuxBoard
{

namespace
{

std::string PreparedPipe(const std::string& szVideo)
{
    const char* szDirectory = TraceInstance_Directory();
    if (szDirectory == nullptr)
        return {};
    return std::string(szDirectory) + "/instances/" + TRACE_INSTANCE_PREFIX + szVideo + "/trace_pipe";
}

bool IsAllowed(const std::string& szPath, int iMode)
{
    return faccessat(AT_FDCWD, szPath.c_str(), iMode, AT_EACCESS) == 0;
}

} // namespace

void CTraceFeed::Close()
{
    m_oPipe.Close();
    TraceInstance_Destroy(std::exchange(m_poInstance, nullptr));
    m_szText.clear();
}

bool CTraceFeed::IsPossible(const std::string& szVideo)
{
    const char* szDirectory = TraceInstance_Directory();
    if (szDirectory == nullptr)
        return false;
    if (IsAllowed(PreparedPipe(szVideo), R_OK))
        return true;
    return IsAllowed(std::string(szDirectory) + "/instances", W_OK | X_OK) &&
           IsAllowed(std::string(szDirectory) + "/events/" TRACE_INSTANCE_SYSTEM "/" TRACE_INSTANCE_EVENT "/enable",
                     W_OK);
}

bool CTraceFeed::OpenPrepared(const std::string& szVideo)
{
    const std::string szPipe = PreparedPipe(szVideo);
    if (!szPipe.empty())
        m_oPipe = CFileDescriptor(open(szPipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return m_oPipe.IsOpen();
}

bool CTraceFeed::OpenOwn(const std::string& szVideo)
{
    if (!IsPossible(szVideo))
        return false;
    int iPipe = -1;
    m_poInstance = TraceInstance_Create(szVideo.c_str(), m_uiMinor, &iPipe);
    m_oPipe = CFileDescriptor(iPipe);
    return m_oPipe.IsOpen();
}

bool CTraceFeed::Open(const std::string& szVideo, uint32_t uiMinor)
{
    m_uiMinor = uiMinor;
    return OpenPrepared(szVideo) || OpenOwn(szVideo);
}

void CTraceFeed::ReadLines(const std::function<void(const SCapturedFrame&)>& rofnSink)
{
    size_t uiStart = 0;
    for (size_t uiEnd = m_szText.find('\n'); uiEnd != std::string::npos; uiEnd = m_szText.find('\n', uiStart))
    {
        STracedBuffer oBuffer;
        const std::string_view szLine = std::string_view(m_szText).substr(uiStart, uiEnd - uiStart);
        uiStart = uiEnd + 1;
        if (!TraceLine_Parse(szLine, oBuffer) || !oBuffer.bCapture || oBuffer.iMinor != static_cast<int32_t>(m_uiMinor))
            continue;
        // A stamp of another clock compares with nothing: the time of arrival does.
        if (!oBuffer.bMonotonicStamp)
            oBuffer.oFrame.uiStampNs = MonotonicClock_NowNs();
        rofnSink(oBuffer.oFrame);
    }
    m_szText.erase(0, uiStart);
}

void CTraceFeed::Read(const std::function<void(const SCapturedFrame&)>& rofnSink)
{
    std::array<char, 8192> acText;
    for (;;)
    {
        const ssize_t iLength = m_oPipe.IsOpen() ? read(m_oPipe.Get(), acText.data(), acText.size()) : 0;
        if (iLength < 0 && errno == EINTR)
            continue;
        if (iLength <= 0)
            return;
        m_szText.append(acText.data(), static_cast<size_t>(iLength));
        ReadLines(rofnSink);
    }
}

} // namespace LinuxBoard
