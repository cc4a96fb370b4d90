#include "StoreWriter.h"

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>
#include <utility>

#include "Memory.h"
#include "Notice.h"
#include "StoreRecovery.h"
#include "StoreRows.h"
#include "Threads.h"
#include "WatchClocks.h"

namespace
{

// Whether somebody has taken its content from a store: what is written without it is none.
bool IsEmptied(const std::string& rszFile)
{
    struct stat oFile = {};
    return stat(rszFile.c_str(), &oFile) == 0 && oFile.st_size == 0;
}

bool HasMoved(sqlite3* poFile)
{
    int iHasMoved = 0;
    return sqlite3_file_control(poFile, "main", SQLITE_FCNTL_HAS_MOVED, &iHasMoved) == SQLITE_OK && iHasMoved != 0;
}

} // namespace

CStoreWriter::CStoreWriter(std::string szFile, uint32_t uiKeepDays)
    : m_szFile(std::move(szFile)), m_iKeepNs(uiKeepDays * iNsPerDay)
{
}

CFault CStoreWriter::Open(int64_t iNowUtcNs, SStoreRemains& roRemains)
{
    m_iBeginUtcNs = iNowUtcNs;
    return OpenFile(iNowUtcNs, roRemains);
}

CFault CStoreWriter::OpenFile(int64_t iNowUtcNs, SStoreRemains& roRemains)
{
    CFault oFault = StoreFile_OpenForWriting(m_szFile, m_poFile);
    if (!oFault && !m_oLock.Take(m_szFile))
    {
        oFault = CFault("store " + m_szFile + ": another watch writes it");
    }
    else if (!oFault)
    {
        oFault = StoreRecovery_Run(m_poFile.get(), m_iBeginUtcNs, iNowUtcNs, roRemains);
        oFault = oFault ? CFault("store " + m_szFile + ": " + oFault.GetText(), true) : oFault;
    }
    if (oFault)
    {
        CloseFile(); // all of it is tried again
    }
    return oFault;
}

void CStoreWriter::CloseFile()
{
    m_poFile.reset();
    m_oLock.Release();
    m_iRun = 0;
}

CFault CStoreWriter::Start()
{
    return Thread_Start(m_oThread, "store", [this] { Run(); });
}

void CStoreWriter::SWaiting::Swap(SWaiting& roOther)
{
    aoEvents.swap(roOther.aoEvents);
    aoMinutes.swap(roOther.aoMinutes);
    aoIncidents.swap(roOther.aoIncidents);
    poLatest.swap(roOther.poLatest);
    std::swap(uiDelivered, roOther.uiDelivered);
    std::swap(bIsLast, roOther.bIsLast);
}

void CStoreWriter::SWaiting::Clear()
{
    aoEvents.clear();
    aoMinutes.clear();
    aoIncidents.clear();
    poLatest = nullptr;
    uiDelivered = 0;
    bIsLast = false;
}

void CStoreWriter::Put(const SWatchStep& roStep)
{
    {
        const std::lock_guard oGuard(m_oMutex);
        TakeOver(roStep);
        Bound();
        m_bHasMore = true;
    }
    m_oMore.notify_one();
}

// Under the lock.
void CStoreWriter::TakeOver(const SWatchStep& roStep)
{
    m_oWaiting.poLatest = roStep.poPublication;
    std::deque<SWatchEvent>& raoEvents = m_oWaiting.aoEvents;
    if (!Memory_Do("events of the store",
                   [&] { raoEvents.insert(raoEvents.end(), roStep.aoEvents.begin(), roStep.aoEvents.end()); }))
    {
        m_uiDropped += roStep.aoEvents.size();
    }
    for (const SMinuteSummary& roMinute : roStep.aoMinutes)
    {
        if (!Memory_Do("a minute of the store",
                       [&] {
                           m_oWaiting.aoMinutes[{roMinute.oPoint.iUtcNs, roMinute.oKey}] = roMinute;
                       }))
        {
            ++m_uiDropped;
        }
    }
    Memory_Do("incidents of the store", [&] { PutIncidents(*roStep.poPublication); });
}

// Under the lock. One that has ended is written once more, with its end.
void CStoreWriter::PutIncidents(const SWatchPublication& roPublication)
{
    const std::vector<SIncident>& raoIncidents = roPublication.oJudgement.aoIncidents;
    for (const SIncident& roIncident : raoIncidents)
    {
        const bool bIsOpen = roIncident.iEndUtcNs == 0;
        if (bIsOpen || m_oOpenIncidents.erase(roIncident.uiNumber) > 0 || roIncident.uiNumber > m_uiLastIncident)
        {
            m_oWaiting.aoIncidents[roIncident.uiNumber] = roIncident;
        }
        if (bIsOpen)
        {
            m_oOpenIncidents.insert(roIncident.uiNumber);
        }
    }
    m_uiLastIncident = raoIncidents.empty() ? m_uiLastIncident : std::max(m_uiLastIncident, raoIncidents[0].uiNumber);
}

void CStoreWriter::KeepDelivered(uint64_t uiEvent)
{
    const std::lock_guard oGuard(m_oMutex);
    m_oWaiting.uiDelivered = uiEvent;
}

// Under the lock.
void CStoreWriter::Bound()
{
    while (m_oWaiting.aoEvents.size() > uiMostWaitingEvents)
    {
        m_oWaiting.aoEvents.pop_front();
        ++m_uiDropped;
    }
    while (m_oWaiting.aoMinutes.size() > uiMostWaitingMinutes)
    {
        m_oWaiting.aoMinutes.erase(m_oWaiting.aoMinutes.begin());
        ++m_uiDropped;
    }
}

void CStoreWriter::Close()
{
    if (!m_oThread.joinable())
    {
        return;
    }
    Thread_End(m_oThread, m_oMutex, m_oMore, [this] { m_oWaiting.bIsLast = m_bHasMore = true; });
    static_cast<void>(StoreFile_Run(m_poFile.get(), "PRAGMA journal_mode=DELETE")); // the store alone stays
    CloseFile();
}

void CStoreWriter::AddCosts(SWatchCosts& roCosts)
{
    const std::lock_guard oGuard(m_oMutex);
    roCosts.uiStoreWriteFailures = m_uiFailures;
    roCosts.uiStoreRowsWaiting = m_bIsFailing ? m_oWaiting.aoEvents.size() + m_oWaiting.aoMinutes.size() : 0;
    roCosts.uiStoreRowsDropped = m_uiDropped;
    roCosts.bStoreIsFailing = m_bIsFailing;
}

void CStoreWriter::Run()
{
    bool bIsLast = false;
    while (!bIsLast)
    {
        {
            std::unique_lock oLock(m_oMutex);
            m_oMore.wait(oLock, [this] { return m_bHasMore; });
            m_bHasMore = false;
            m_oTaken.Swap(m_oWaiting);
        }
        bIsLast = m_oTaken.bIsLast;
        if (m_oTaken.poLatest == nullptr)
        {
            m_oTaken.poLatest = m_poLatest;
        }
        m_poLatest = m_oTaken.poLatest;
        WriteOrKeep(m_oTaken);
        m_oTaken.Clear();
    }
}

CFault CStoreWriter::WriteAll(const SWaiting& roWaiting)
{
    CFault oFault = Reach();
    return oFault || Write(roWaiting) ? oFault : CFault(sqlite3_errmsg(m_poFile.get()));
}

void CStoreWriter::WriteOrKeep(SWaiting& roWaiting)
{
    CFault oFault = Memory_Try([&] { return WriteAll(roWaiting); });
    if (oFault)
    {
        // What the transaction seemed to have written is to be written again.
        static_cast<void>(StoreFile_Run(m_poFile.get(), "ROLLBACK"));
        m_aaoWrittenTexts = {};
        TakeBack(roWaiting);
    }
    Say(oFault);
}

// Sees to it that there is a file to write to: the first may have been impossible to open, a later one may be gone.
CFault CStoreWriter::Reach()
{
    if (m_poFile != nullptr && HasMoved(m_poFile.get()))
    {
        CloseFile();
    }
    else if (m_poFile != nullptr && IsEmptied(m_szFile))
    {
        Notice_Say("store " + m_szFile + ": somebody has emptied it; it begins anew");
        CloseFile();
    }
    if (m_poFile != nullptr)
    {
        return {};
    }
    SStoreRemains oRemains;
    if (CFault oFault = OpenFile(ReadClockNs(CLOCK_REALTIME), oRemains))
    {
        return oFault;
    }
    // A file that comes back has this run already, with the numbers of its events.
    m_iRun = oRemains.iOwnRun;
    m_uiShift = m_iRun == 0 ? oRemains.uiLastEvent : m_uiShift;
    m_uiIncidentShift = m_iRun == 0 ? oRemains.uiLastIncident : m_uiIncidentShift;
    m_aaoWrittenTexts = {};
    return {};
}

void CStoreWriter::TakeBack(SWaiting& roWaiting)
{
    const std::lock_guard oGuard(m_oMutex);
    // Behind the older ones, in whose place both go on waiting.
    std::deque<SWatchEvent>& raoNewer = m_oWaiting.aoEvents;
    if (!Memory_Do("events of the store",
                   [&] { roWaiting.aoEvents.insert(roWaiting.aoEvents.end(), raoNewer.begin(), raoNewer.end()); }))
    {
        m_uiDropped += raoNewer.size();
    }
    raoNewer.swap(roWaiting.aoEvents);
    m_oWaiting.aoIncidents.merge(roWaiting.aoIncidents);
    m_oWaiting.uiDelivered = std::max(m_oWaiting.uiDelivered, roWaiting.uiDelivered);
    m_oWaiting.aoMinutes.merge(roWaiting.aoMinutes); // what has come since is newer and stays
    if (m_oWaiting.poLatest == nullptr)
    {
        m_oWaiting.poLatest = roWaiting.poLatest;
    }
    Bound();
}

void CStoreWriter::Say(const CFault& roFault)
{
    const bool bIsWritten = !roFault;
    const std::lock_guard oGuard(m_oMutex);
    m_uiFailures += bIsWritten ? 0 : 1;
    if (bIsWritten == m_bIsFailing)
    {
        m_bIsFailing = !bIsWritten;
        Notice_SayWriting("store", m_szFile, "rows", roFault, m_uiDropped);
    }
}

bool CStoreWriter::Write(const SWaiting& roWaiting)
{
    int64_t iRun = m_iRun;
    const bool bIsWritten = StoreFile_Run(m_poFile.get(), "BEGIN IMMEDIATE") && WriteRun(roWaiting, iRun) &&
                            WriteEvents(roWaiting) && WriteIncidents(roWaiting) && WriteMinutes(roWaiting) &&
                            (roWaiting.poLatest == nullptr ||
                             (WriteStreams(*roWaiting.poLatest) && Prune(roWaiting.poLatest->oSnapshot.oClock))) &&
                            StoreFile_Run(m_poFile.get(), "COMMIT");
    m_iRun = bIsWritten ? iRun : m_iRun;
    return bIsWritten;
}

bool CStoreWriter::WriteRun(const SWaiting& roWaiting, int64_t& riRun)
{
    if (roWaiting.poLatest == nullptr)
    {
        return true;
    }
    const SWatchPublication& roLatest = *roWaiting.poLatest;
    if (riRun == 0)
    {
        CStoreStatement oInsert(m_poFile.get(),
                                "INSERT INTO runs(begin_ns, end_ns, ending, host, board, board_version, inputs, "
                                "outputs) VALUES (?, 0, 0, ?, ?, ?, ?, ?)");
        oInsert.Bind(m_iBeginUtcNs).Bind(roLatest.szHost).Bind(roLatest.szBoard).Bind(roLatest.uiBoardVersion);
        oInsert.Bind(static_cast<uint64_t>(roLatest.aaoTexts[0].size()));
        oInsert.Bind(static_cast<uint64_t>(roLatest.aaoTexts[1].size()));
        if (!oInsert.Run())
        {
            return false;
        }
    }
    riRun = riRun == 0 ? sqlite3_last_insert_rowid(m_poFile.get()) : riRun;
    CStoreStatement oUpdate(m_poFile.get(), "UPDATE runs SET end_ns = ?, ending = ? WHERE id = ?");
    oUpdate.Bind(roLatest.oSnapshot.oClock.iUtcNs)
        .Bind(static_cast<int64_t>(roWaiting.bIsLast ? ERunEnd::CLOSED : ERunEnd::OPEN))
        .Bind(riRun);
    return oUpdate.Run();
}

bool CStoreWriter::WriteEvents(const SWaiting& roWaiting)
{
    CStoreStatement oInsert = StoreRows_Insert<SWatchEvent>(m_poFile.get(), "events");
    for (SWatchEvent oEvent : roWaiting.aoEvents)
    {
        oEvent.uiNumber += m_uiShift;
        if (!StoreRows_Bind(oInsert, oEvent).Run())
        {
            return false;
        }
    }
    return true;
}

bool CStoreWriter::WriteIncidents(const SWaiting& roWaiting)
{
    CStoreStatement oInsert = StoreRows_Insert<SIncident>(m_poFile.get(), "incidents");
    for (const auto& [uiNumber, roIncident] : roWaiting.aoIncidents)
    {
        SIncident oIncident = roIncident;
        oIncident.uiNumber += m_uiIncidentShift;
        oIncident.uiFirstEvent += oIncident.uiFirstEvent == 0 ? 0 : m_uiShift;
        if (!StoreRows_Bind(oInsert, oIncident).Run())
        {
            return false;
        }
    }
    return roWaiting.uiDelivered == 0 ||
           CStoreStatement(m_poFile.get(), "INSERT OR REPLACE INTO delivered(id, event) VALUES (1, ?)")
               .Bind(roWaiting.uiDelivered)
               .Run();
}

bool CStoreWriter::WriteMinutes(const SWaiting& roWaiting)
{
    CStoreStatement oComplete = StoreRows_Insert<SMinuteSummary>(m_poFile.get(), "minutes");
    CStoreStatement oRunning = StoreRows_Insert<SMinuteSummary>(m_poFile.get(), "running");
    for (const auto& [oKey, roMinute] : roWaiting.aoMinutes)
    {
        CStoreStatement& roInsert = roMinute.bIsComplete ? oComplete : oRunning;
        if (!StoreRows_Bind(roInsert, roMinute).Run())
        {
            return false;
        }
    }
    return true;
}

bool CStoreWriter::WriteStreams(const SWatchPublication& roPublication)
{
    m_aaoWrittenTexts.resize(roPublication.aaoTexts.size());
    for (size_t uiSlot = 0; uiSlot < m_aaoWrittenTexts.size(); ++uiSlot)
    {
        const std::vector<SStreamTexts>& raoTexts = roPublication.aaoTexts[uiSlot];
        std::vector<SStreamTexts>& raoWritten = m_aaoWrittenTexts[uiSlot];
        raoWritten.resize(raoTexts.size());
        for (uint32_t uiIndex = 0; uiIndex < raoTexts.size(); ++uiIndex)
        {
            const SStreamTexts& roTexts = raoTexts[uiIndex];
            SStreamTexts& roWritten = raoWritten[uiIndex];
            const bool bIsKnown = roWritten.szId == roTexts.szId && roWritten.szName == roTexts.szName &&
                                  roWritten.szStandard == roTexts.szStandard && roWritten.szFormat == roTexts.szFormat;
            if (bIsKnown)
            {
                continue;
            }
            if (!WriteStream(StreamKey_FromSlot(uiSlot, uiIndex), roTexts))
            {
                return false;
            }
            roWritten = roTexts;
        }
    }
    return true;
}

bool CStoreWriter::WriteStream(const SStreamKey& roKey, const SStreamTexts& roTexts)
{
    CStoreStatement oInsert(m_poFile.get(), "INSERT OR REPLACE INTO streams(direction, stream, name, standard, format) "
                                            "VALUES (?, ?, ?, ?, ?)");
    StoreRows_BindKey(oInsert, roKey);
    return oInsert.Bind(roTexts.szName).Bind(roTexts.szStandard).Bind(roTexts.szFormat).Run();
}

// Once an hour, when the clock has not been set for as long, and a day of each stream at most: a clock that is wrong
// for a moment must not empty the store. Stream by stream, because that is how minutes are ordered.
bool CStoreWriter::Prune(const SClockFigures& roClock)
{
    const int64_t iOffsetNs = roClock.iUtcNs - static_cast<int64_t>(roClock.uiMonotonicNs);
    const bool bIsSteady = m_iClockOffsetNs != 0 && std::abs(iOffsetNs - m_iClockOffsetNs) < iNsPerMinute;
    m_iClockOffsetNs = iOffsetNs;
    if (bIsSteady && roClock.uiMonotonicNs < m_uiNextPruneNs)
    {
        return true;
    }
    m_uiNextPruneNs = roClock.uiMonotonicNs + static_cast<uint64_t>(iNsPerHour);
    if (!bIsSteady)
    {
        return true;
    }
    CStoreStatement oFind(m_poFile.get(), "SELECT s.direction, s.stream, (SELECT min(utc_ns) FROM minutes m WHERE "
                                          "m.direction = s.direction AND m.stream = s.stream) FROM streams s");
    CStoreStatement oDelete(m_poFile.get(), "DELETE FROM minutes WHERE direction = ? AND stream = ? AND utc_ns < ?");
    while (oFind.Next())
    {
        const int64_t iDirection = oFind.GetInt();
        const int64_t iStream = oFind.GetInt();
        const int64_t iEndUtcNs = std::min(roClock.iUtcNs - m_iKeepNs, oFind.GetInt() + iNsPerDay);
        if (!oDelete.Bind(iDirection).Bind(iStream).Bind(iEndUtcNs).Run())
        {
            return false;
        }
    }
    return !oFind.HasFailed();
}
