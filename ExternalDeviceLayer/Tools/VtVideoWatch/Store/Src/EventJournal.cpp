#include "EventJournal.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Memory.h"
#include "Notice.h"
#include "Threads.h"

namespace
{

constexpr std::chrono::seconds oRetry{1};
constexpr mode_t uiFileMode = 0640; // who may read the system's logs may read this one

} // namespace

CFault CEventJournal::Open()
{
    struct stat oFile = {};
    if (m_szFile != "-" && stat(m_szFile.c_str(), &oFile) == 0 && S_ISFIFO(oFile.st_mode))
    {
        // Opening it would wait for a reader for ever.
        return CFault("journal " + m_szFile + ": is a pipe (- is standard output)");
    }
    return Reach() ? CFault() : CFault("journal " + m_szFile + ": " + std::strerror(errno));
}

CFault CEventJournal::Start()
{
    return Thread_Start(m_oThread, "journal", [this] { Run(); });
}

void CEventJournal::Put(std::span<const SWatchEvent> aoEvents)
{
    if (aoEvents.empty())
    {
        return;
    }
    {
        const std::lock_guard oGuard(m_oMutex);
        if (!Memory_Do("lines of the journal",
                       [&] { m_aoWaiting.insert(m_aoWaiting.end(), aoEvents.begin(), aoEvents.end()); }))
        {
            m_uiDropped += aoEvents.size();
        }
        while (m_aoWaiting.size() > uiMostWaitingLines)
        {
            // The second one: the first may be half written.
            m_aoWaiting.erase(m_aoWaiting.begin() + 1);
            ++m_uiDropped;
        }
        m_bHasMore = true;
    }
    m_oMore.notify_one();
}

void CEventJournal::Reopen()
{
    {
        const std::lock_guard oGuard(m_oMutex);
        m_bIsToReopen = true;
    }
    m_oMore.notify_one();
}

void CEventJournal::Close()
{
    Thread_End(m_oThread, m_oMutex, m_oMore, [this] { m_bIsToEnd = true; });
    CloseFile();
}

void CEventJournal::AddCosts(SWatchCosts& roCosts)
{
    const std::lock_guard oGuard(m_oMutex);
    roCosts.uiJournalWriteFailures = m_uiFailures;
    roCosts.uiJournalLinesDropped = m_uiDropped;
    roCosts.bJournalIsFailing = m_bIsFailing;
}

void CEventJournal::Run()
{
    bool bIsToEnd = false;
    while (!bIsToEnd)
    {
        {
            std::unique_lock oLock(m_oMutex);
            const auto fnHasWork = [this] { return m_bHasMore || m_bIsToReopen || m_bIsToEnd; };
            if (m_bIsFailing)
            {
                m_oMore.wait_for(oLock, oRetry, fnHasWork);
            }
            else
            {
                m_oMore.wait(oLock, fnHasWork);
            }
            m_bHasMore = false;
            bIsToEnd = m_bIsToEnd;
            if (m_bIsToReopen)
            {
                CloseFile();
                m_bIsToReopen = false;
            }
        }
        Say(Memory_Try([this] { return WriteWaiting(); }));
    }
}

// A file that was moved or removed without a word is opened anew; standard output stays what it is.
bool CEventJournal::Reach()
{
    if (m_szFile == "-")
    {
        m_iFile = STDOUT_FILENO;
        return true;
    }
    struct stat oOpen = {};
    struct stat oNamed = {};
    if (m_iFile >= 0 && (fstat(m_iFile, &oOpen) != 0 || stat(m_szFile.c_str(), &oNamed) != 0 ||
                         oOpen.st_ino != oNamed.st_ino || oOpen.st_dev != oNamed.st_dev))
    {
        CloseFile();
    }
    if (m_iFile < 0)
    {
        m_iFile = open(m_szFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, uiFileMode);
    }
    return m_iFile >= 0;
}

void CEventJournal::CloseFile()
{
    if (m_iFile >= 0 && m_szFile != "-")
    {
        close(m_iFile);
        m_uiLineBytes = 0;
    }
    m_iFile = -1;
}

// What a full disk has cut off is continued, so that the file has whole lines only.
bool CEventJournal::WriteLine(const std::string& rszLine)
{
    while (m_uiLineBytes < rszLine.size())
    {
        const ssize_t iWritten = write(m_iFile, rszLine.data() + m_uiLineBytes, rszLine.size() - m_uiLineBytes);
        if (iWritten < 0 && errno != EINTR)
        {
            return false;
        }
        m_uiLineBytes += iWritten > 0 ? static_cast<size_t>(iWritten) : 0;
    }
    m_uiLineBytes = 0;
    return true;
}

CFault CEventJournal::WriteWaiting()
{
    bool bIsWritten = Reach();
    while (bIsWritten)
    {
        std::string szLine;
        {
            const std::lock_guard oGuard(m_oMutex);
            if (m_aoWaiting.empty())
            {
                break;
            }
            szLine = m_fnPrint(m_aoWaiting.front()) + "\n";
        }
        bIsWritten = WriteLine(szLine);
        if (bIsWritten)
        {
            const std::lock_guard oGuard(m_oMutex);
            m_aoWaiting.pop_front();
        }
    }
    return bIsWritten ? CFault() : CFault(std::strerror(errno));
}

void CEventJournal::Say(const CFault& roFault)
{
    const bool bIsWritten = !roFault;
    const std::lock_guard oGuard(m_oMutex);
    m_uiFailures += bIsWritten ? 0 : 1;
    if (bIsWritten == m_bIsFailing)
    {
        m_bIsFailing = !bIsWritten;
        Notice_SayWriting("journal", m_szFile, "lines", roFault, m_uiDropped);
    }
}
