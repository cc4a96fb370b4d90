#include "TraceFeed.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

extern "C" {
#include <kbuffer.h>
}

#include "GiveBack.h"
#include "TraceInstance.h"
#include "TraceRecord.h"

namespace
{

std::string PreparedInstance(const std::string& szVideo)
{
    const char* szDirectory = TraceInstance_Directory();
    return szDirectory == nullptr ? std::string()
                                  : std::string(szDirectory) + "/instances/" TRACE_INSTANCE_PREFIX + szVideo;
}

bool IsAllowed(const std::string& szPath, int iMode)
{
    return faccessat(AT_FDCWD, szPath.c_str(), iMode, AT_EACCESS) == 0;
}

/* The pipes of an instance in any order, as many as the machine has processors; empty when one may not be read. */
std::vector<CFileDescriptor> PipesOf(const std::string& szInstance)
{
    std::vector<CFileDescriptor> aoPipes;
    std::error_code oError;
    for (std::filesystem::directory_iterator itCpu(szInstance + "/per_cpu", oError), itEnd; !oError && itCpu != itEnd;
         itCpu.increment(oError))
    {
        const std::string szPipe = itCpu->path().string() + "/trace_pipe_raw";
        aoPipes.emplace_back(open(szPipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (!aoPipes.back().IsOpen())
        {
            return {};
        }
    }
    return aoPipes;
}

/* What one reader has fetched no other gets, so that the second one must know. The lock goes with the descriptor. */
bool Claim(const std::vector<CFileDescriptor>& raoPipes)
{
    return std::all_of(raoPipes.begin(), raoPipes.end(),
                       [](const CFileDescriptor& roPipe) { return flock(roPipe.Get(), LOCK_EX | LOCK_NB) == 0; });
}

} // namespace

void CTraceFeed::SKbufferFree::operator()(kbuffer* poBuffer) const
{
    kbuffer_free(poBuffer);
}

void CTraceFeed::Close()
{
    m_aoPipes.clear();
    TraceInstance_Destroy(std::exchange(m_poInstance, nullptr));
    GiveBack_Drop(std::exchange(m_poNote, nullptr));
}

ETraceAccess CTraceFeed::Access(const std::string& szVideo)
{
    const char* szDirectory = TraceInstance_Directory();
    if (szDirectory == nullptr)
    {
        return ETraceAccess::ABSENT;
    }
    const std::vector<CFileDescriptor> aoPipes = PipesOf(PreparedInstance(szVideo));
    if (!aoPipes.empty() && Claim(aoPipes))
    {
        return ETraceAccess::GRANTED;
    }
    const std::string szEnable = "/events/" TRACE_INSTANCE_SYSTEM "/" TRACE_INSTANCE_EVENT "/enable";
    if (IsAllowed(std::string(szDirectory) + "/instances", W_OK | X_OK) &&
        IsAllowed(std::string(szDirectory) + szEnable, W_OK))
    {
        return TraceInstance_CanCreate() ? ETraceAccess::GRANTED : ETraceAccess::REFUSED;
    }
    return aoPipes.empty() ? ETraceAccess::NONE : ETraceAccess::TAKEN;
}

bool CTraceFeed::OpenPipes(const std::string& szInstance)
{
    m_aoPipes = PipesOf(szInstance);
    m_poDecoder.reset(kbuffer_alloc(KBUFFER_LSIZE_SAME_AS_HOST, KBUFFER_ENDIAN_SAME_AS_HOST));
    m_aoPage.resize(static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    if (m_poDecoder == nullptr || TraceInstance_ReadLayout(szInstance.c_str(), &m_oLayout) != 0)
    {
        m_aoPipes.clear();
    }
    return IsOpen();
}

bool CTraceFeed::OpenPrepared(const std::string& szVideo)
{
    m_bForeignRecords = true;
    if (OpenPipes(PreparedInstance(szVideo)) && !Claim(m_aoPipes))
    {
        m_aoPipes.clear();
    }
    return IsOpen();
}

bool CTraceFeed::OpenOwn(const std::string& szVideo, uint32_t uiFramesPerSecond)
{
    m_bForeignRecords = false;
    m_poInstance = TraceInstance_Create(szVideo.c_str(), m_uiMinor, TraceRecord_BufferKb(uiFramesPerSecond));
    const std::unique_ptr<char, decltype(&std::free)> szInstance(
        m_poInstance == nullptr ? nullptr : TraceInstance_PathOf(m_poInstance), &std::free);
    if (szInstance != nullptr)
    {
        m_poNote = GiveBack_NoteTrace(szInstance.get());
    }
    if (szInstance == nullptr || !OpenPipes(szInstance.get()))
    {
        Close();
    }
    return IsOpen();
}

bool CTraceFeed::Open(const std::string& szVideo, uint32_t uiMinor, uint32_t uiFramesPerSecond)
{
    Close();
    m_uiMinor = uiMinor;
    return Access(szVideo) == ETraceAccess::GRANTED && (OpenPrepared(szVideo) || OpenOwn(szVideo, uiFramesPerSecond));
}

void CTraceFeed::TakePage(uint64_t uiNowNs)
{
    if (kbuffer_load_subbuffer(m_poDecoder.get(), m_aoPage.data()) != 0)
    {
        return;
    }
    // Negative: some, nobody knows how many. Of a trace that others share, who knows whose they were.
    const int iMissed = kbuffer_missed_events(m_poDecoder.get());
    if (iMissed < 0 || (iMissed > 0 && m_bForeignRecords))
    {
        m_oBatch.uiUnseen = CFieldTracker::msc_uiUnknown;
    }
    else if (m_oBatch.uiUnseen != CFieldTracker::msc_uiUnknown)
    {
        m_oBatch.uiUnseen += static_cast<uint64_t>(iMissed);
    }
    unsigned long long uiMoment = 0;
    for (void* pvEvent = kbuffer_read_event(m_poDecoder.get(), &uiMoment); pvEvent != nullptr;
         pvEvent = kbuffer_next_event(m_poDecoder.get(), &uiMoment))
    {
        const auto* pRecord = static_cast<const std::byte*>(pvEvent);
        const auto uiSize = static_cast<size_t>(kbuffer_event_size(m_poDecoder.get()));
        STracedBuffer oBuffer;
        if (!TraceRecord_Read(m_oLayout, {pRecord, uiSize}, oBuffer) || !oBuffer.bCapture ||
            oBuffer.uiMinor != m_uiMinor)
        {
            continue;
        }
        if (!oBuffer.bMonotonicStamp)
        {
            oBuffer.oFrame.uiStampNs = uiNowNs;
        }
        m_oBatch.aoEntries.push_back({uiMoment, oBuffer.oFrame});
    }
}

bool CTraceFeed::ReadPage(const CFileDescriptor& roPipe, uint64_t uiNowNs)
{
    ssize_t iLength = 0;
    do
    {
        iLength = read(roPipe.Get(), m_aoPage.data(), m_aoPage.size());
    } while (iLength < 0 && errno == EINTR);
    if (iLength <= 0)
    {
        return false;
    }
    TakePage(uiNowNs);
    return true;
}

const STraceBatch& CTraceFeed::Read(std::span<const pollfd> aoPolled, uint64_t uiNowNs)
{
    m_oBatch.aoEntries.clear();
    m_oBatch.uiUnseen = 0;
    for (size_t uiPipe = 0; uiPipe < m_aoPipes.size(); uiPipe++)
    {
        if (aoPolled.empty())
        {
            while (ReadPage(m_aoPipes[uiPipe], uiNowNs))
            {
                ;
            }
        }
        else if (uiPipe < aoPolled.size() && aoPolled[uiPipe].revents != 0)
        {
            ReadPage(m_aoPipes[uiPipe], uiNowNs);
        }
    }
    if (m_oBatch.aoEntries.size() > 1)
    {
        std::stable_sort(m_oBatch.aoEntries.begin(), m_oBatch.aoEntries.end(),
                         [](const STraceBatch::SEntry& roOne, const STraceBatch::SEntry& roOther)
                         { return roOne.uiMoment < roOther.uiMoment; });
    }
    return m_oBatch;
}
