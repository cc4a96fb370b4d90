#include "RecordingKeeper.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "EventKinds.h"
#include "Notice.h"
#include "Threads.h"

namespace
{

namespace fs = std::filesystem;

constexpr mode_t uiFolderMode = 0750;
constexpr size_t uiMostEvents = 10'000;                                      // of a recording
constexpr uint64_t uiPieceNs = 10 * static_cast<uint64_t>(iNsPerSecond);     // of the recorder, that is copied at once
constexpr uint64_t uiMostPauseNs = 20 * static_cast<uint64_t>(iNsPerSecond); // between two copies
constexpr char szSuffix[] = ".vtrec";
constexpr char szInfix[] = "Z-incident-";
constexpr char szRequestName[] = "request.vtrec";
constexpr char szTooEarly[] = "the first snapshot is not there yet";

// By their names recordings stand in the order of their begins: 20261122T035109Z-incident-7.vtrec.
std::string MakeName(int64_t iUtcNs, uint64_t uiIncident)
{
    const auto iSeconds = static_cast<time_t>(iUtcNs / iNsPerSecond);
    tm oUtc = {};
    gmtime_r(&iSeconds, &oUtc);
    char szMoment[32] = {};
    std::strftime(szMoment, sizeof(szMoment), "%Y%m%dT%H%M%S", &oUtc);
    return std::string(szMoment) + szInfix + std::to_string(uiIncident) + szSuffix;
}

bool IsOurName(const std::string& rszName)
{
    return rszName.ends_with(szSuffix) && rszName.find(szInfix) == std::strlen("20261122T035109");
}

struct SKept
{
    fs::path oFile;
    uint64_t uiBytes = 0;
};

// Recordings of incidents in a folder, the oldest first. Anything else there is somebody else's.
std::vector<SKept> FindKept(const std::string& rszFolder)
{
    std::vector<SKept> aoKept;
    std::error_code oError;
    for (const fs::directory_entry& roEntry : fs::directory_iterator(rszFolder, oError))
    {
        const bool bIsOurs = IsOurName(roEntry.path().filename()) && !roEntry.is_symlink(oError) &&
                             roEntry.is_regular_file(oError) && RecordingFile_IsOne(roEntry.path());
        if (bIsOurs)
        {
            const uintmax_t uiBytes = roEntry.file_size(oError);
            aoKept.push_back({roEntry.path(), oError ? 0 : uiBytes});
        }
    }
    std::ranges::sort(aoKept, {}, &SKept::oFile);
    return aoKept;
}

// What a watch that was killed was writing.
void RemoveStale(const std::string& rszFolder)
{
    std::error_code oError;
    for (const fs::directory_entry& roEntry : fs::directory_iterator(rszFolder, oError))
    {
        std::string szName = roEntry.path().filename();
        const bool bIsPart = szName.ends_with(szRecordingPart);
        szName.resize(szName.size() - (bIsPart ? std::strlen(szRecordingPart) : 0));
        if ((bIsPart && IsOurName(szName)) || szName == szRequestName)
        {
            fs::remove(roEntry.path(), oError);
        }
    }
}

// One of those that are there, by its name alone.
CFault ReadKept(const std::string& rszFolder, const std::string& rszName, const SStreamKey& roStream,
                const CRecordingReader::Take& rfnTake, SRecordedFields& roFields)
{
    const std::vector<SKept> aoKept = FindKept(rszFolder);
    const auto itKept =
        std::ranges::find_if(aoKept, [&](const SKept& roKept) { return roKept.oFile.filename() == rszName; });
    if (itKept == aoKept.end())
    {
        return CFault("there is no such recording");
    }
    CRecordingReader oReader;
    if (CFault oFault = oReader.Open(itKept->oFile))
    {
        return oFault;
    }
    roFields.uiTickFrequencyHz = oReader.GetAbout().uiTickFrequencyHz;
    roFields.uiMonotonicNs = oReader.GetClocks().back().uiMonotonicNs;
    roFields.iUtcNs = oReader.GetClocks().back().iUtcNs;
    const auto itStream = std::ranges::find(oReader.GetStreams(), roStream, &SRecordedStream::oKey);
    return itStream == oReader.GetStreams().end() ? CFault("the recording has no such stream")
                                                  : oReader.ForEachField(*itStream, rfnTake);
}

uint64_t GetMomentNs(const SWatchPublication& roPublication)
{
    return roPublication.oSnapshot.oClock.uiMonotonicNs;
}

uint64_t GoBack(uint64_t uiFromNs, uint64_t uiByNs)
{
    return uiFromNs - std::min(uiFromNs, uiByNs);
}

} // namespace

CFault CRecordingKeeper::Open()
{
    const auto fnRefuse = [this](const char* szWhy)
    { return CFault("recordings " + m_oSetup.szFolder + ": " + szWhy); };
    const char* szFolder = m_oSetup.szFolder.c_str();
    if (mkdir(szFolder, uiFolderMode) != 0 && errno != EEXIST)
    {
        return fnRefuse(std::strerror(errno));
    }
    m_iFolder = open(szFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_iFolder < 0 || access(szFolder, W_OK | X_OK) != 0)
    {
        return fnRefuse(std::strerror(errno));
    }
    if (flock(m_iFolder, LOCK_EX | LOCK_NB) != 0)
    {
        return fnRefuse("another watch keeps its own there");
    }
    RemoveStale(m_oSetup.szFolder);
    Prune(0);
    return {};
}

CFault CRecordingKeeper::Start()
{
    return Thread_Start(m_oThread, "recordings", [this] { Run(); });
}

void CRecordingKeeper::Put(const SWatchStep& roStep)
{
    const uint64_t uiNowNs = GetMomentNs(*roStep.poPublication);
    const uint64_t uiReachNs =
        (uint64_t{m_oSetup.uiSeconds} + uiMostRecordedSeconds) * static_cast<uint64_t>(iNsPerSecond);
    {
        const std::lock_guard oGuard(m_oMutex);
        m_poLatest = roStep.poPublication;
        while (!m_aoEvents.empty() && m_aoEvents.front().uiMomentNs + uiReachNs < uiNowNs)
        {
            m_aoEvents.pop_front();
        }
        if (!roStep.aoEvents.empty())
        {
            m_aoEvents.push_back({uiNowNs, {roStep.aoEvents.begin(), roStep.aoEvents.end()}});
        }
        for (const SWatchEvent& roEvent : roStep.aoEvents)
        {
            if (EventKind_Get(roEvent.eKind).bIsOfIncident && m_aoNews.size() < uiMostEvents)
            {
                m_aoNews.push_back({uiNowNs, roStep.poPublication->oSnapshot.oClock.iUtcNs, roEvent.uiGroup,
                                    roEvent.eKind == EWatchEventKind::INCIDENT_BEGAN});
            }
        }
        m_bHasMore = true;
    }
    m_oMore.notify_one();
}

void CRecordingKeeper::BeginEnd()
{
    {
        const std::lock_guard oGuard(m_oMutex);
        m_bIsToEnd = true;
    }
    m_oMore.notify_one();
}

void CRecordingKeeper::Close()
{
    Thread_End(m_oThread, m_oMutex, m_oMore, [this] { m_bIsToEnd = true; });
    if (m_iFolder >= 0)
    {
        close(m_iFolder);
        m_iFolder = -1;
    }
}

void CRecordingKeeper::AddCosts(SWatchCosts& roCosts)
{
    const std::lock_guard oGuard(m_oMutex);
    roCosts.uiRecordings = m_uiWritten;
    roCosts.uiRecordingFailures = m_uiFailures;
    roCosts.bRecordingIsFailing = m_bIsFailing;
}

void CRecordingKeeper::Run()
{
    Thread_LowerPriority();
    bool bIsToEnd = false;
    while (!bIsToEnd)
    {
        WatchPublicationPtr poLatest;
        std::vector<SNews> aoNews;
        {
            std::unique_lock oLock(m_oMutex);
            m_oMore.wait(oLock, [this] { return m_bHasMore || m_bIsToEnd; });
            m_bHasMore = false;
            bIsToEnd = m_bIsToEnd;
            poLatest = m_poLatest;
            aoNews.swap(m_aoNews);
        }
        for (const SNews& roNews : aoNews)
        {
            Say(Advance(roNews.uiMomentNs, *poLatest, false));
            Say(Take(roNews, *poLatest));
        }
        if (poLatest)
        {
            Say(Advance(GetMomentNs(*poLatest), *poLatest, bIsToEnd));
        }
    }
}

// Goes on with the recording that is being written, up to a moment.
CFault CRecordingKeeper::Advance(uint64_t uiNowNs, const SWatchPublication& roLatest, bool bIsToEnd)
{
    const uint64_t uiPauseNs = std::clamp(m_oSetup.uiSeconds / 2 * static_cast<uint64_t>(iNsPerSecond),
                                          static_cast<uint64_t>(iNsPerSecond), uiMostPauseNs);
    const bool bIsOver = m_oCase && (bIsToEnd || IsOver(uiNowNs));
    if (!m_oCase || (!bIsOver && uiNowNs < m_oCase->uiCutNs + uiPauseNs))
    {
        return {};
    }
    CFault oFault = Cut(m_oCase->oMaker, m_oCase->uiCutNs, roLatest);
    if (!oFault)
    {
        m_oCase->uiCutNs = uiNowNs;
        Prune(m_oCase->oMaker.GetBytes() / 8 * 9); // with what its end adds
        oFault = bIsOver || !HasRoom(m_oCase->oMaker) ? Finish() : CFault();
    }
    if (oFault)
    {
        m_oCase.reset();
    }
    return oFault;
}

// Incidents that begin while a recording is being written become part of it.
CFault CRecordingKeeper::Take(const SNews& roNews, const SWatchPublication& roLatest)
{
    CFault oFault = roNews.bBegan && !m_oCase ? Begin(roNews, roLatest) : CFault();
    if (m_oCase && roNews.bBegan)
    {
        m_oCase->auiOpen.insert(roNews.uiIncident);
    }
    if (m_oCase && !roNews.bBegan && m_oCase->auiOpen.erase(roNews.uiIncident) > 0)
    {
        m_oCase->uiQuietNs = roNews.uiMomentNs;
    }
    return oFault;
}

CFault CRecordingKeeper::Begin(const SNews& roNews, const SWatchPublication& roLatest)
{
    m_oCase.emplace();
    m_oCase->uiBeginNs = roNews.uiMomentNs;
    m_oCase->uiFromNs = GoBack(roNews.uiMomentNs, GetSecondsBefore(roLatest) * static_cast<uint64_t>(iNsPerSecond));
    m_oCase->uiCutNs = m_oCase->uiFromNs;
    CFault oFault = m_oCase->oMaker.Begin(m_oSetup.szFolder + "/" + MakeName(roNews.iUtcNs, roNews.uiIncident),
                                          roLatest, "incident " + std::to_string(roNews.uiIncident), m_oCase->uiFromNs);
    if (oFault)
    {
        m_oCase.reset();
    }
    return oFault;
}

// What comes before must leave room for what comes behind.
uint64_t CRecordingKeeper::GetSecondsBefore(const SWatchPublication& roLatest) const
{
    constexpr uint64_t uiBytesPerSecond = 6000; // of a stream
    uint64_t uiStreams = 1;
    WatchPublication_ForEachStream(roLatest.oSnapshot, [&uiStreams](const SStreamFigures&) { ++uiStreams; });
    return std::min<uint64_t>(m_oSetup.uiSeconds, m_oSetup.uiKeepBytes / 2 / (uiStreams * uiBytesPerSecond));
}

// An index comes at the end, and the copy that is being added is not cut.
bool CRecordingKeeper::HasRoom(const CRecordingMaker& roMaker) const
{
    return roMaker.GetBytes() < m_oSetup.uiKeepBytes / 4 * 3;
}

bool CRecordingKeeper::IsOver(uint64_t uiNowNs) const
{
    constexpr auto uiNsPerSecond = static_cast<uint64_t>(iNsPerSecond);
    const bool bIsQuiet =
        m_oCase->auiOpen.empty() && uiNowNs >= m_oCase->uiQuietNs + uiRecordedAfterSeconds * uiNsPerSecond;
    return bIsQuiet || uiNowNs >= m_oCase->uiBeginNs + uiMostRecordedSeconds * uiNsPerSecond;
}

// In pieces, so that whoever owns the recorder is never kept for long.
CFault CRecordingKeeper::Cut(CRecordingMaker& roMaker, uint64_t uiFromNs, const SWatchPublication& roLatest)
{
    const uint64_t uiNowNs = GetMomentNs(roLatest);
    do
    {
        const bool bIsLast = uiFromNs + uiPieceNs >= uiNowNs;
        const std::optional<CRecorderCut> oCut =
            m_oSetup.fnAwaitCut({uiFromNs, bIsLast ? UINT64_MAX : uiFromNs + uiPieceNs});
        uiFromNs += uiPieceNs;
        if (oCut && !roMaker.AddCut(*oCut, roLatest))
        {
            return roMaker.Fail();
        }
    } while (uiFromNs < uiNowNs && HasRoom(roMaker));
    return {};
}

CFault CRecordingKeeper::Finish()
{
    if (!m_oCase->oMaker.AddEvents(GetEvents(m_oCase->uiFromNs)))
    {
        return m_oCase->oMaker.Fail();
    }
    CFault oFault = m_oCase->oMaker.Finish();
    m_oCase.reset();
    if (!oFault)
    {
        Prune(0);
        const std::lock_guard oGuard(m_oMutex);
        ++m_uiWritten;
        if (m_bIsFailing)
        {
            m_bIsFailing = false;
            Notice_Say("recordings " + m_oSetup.szFolder +
                       " are written again; lost so far: " + std::to_string(m_uiFailures));
        }
    }
    return oFault;
}

std::vector<SWatchEvent> CRecordingKeeper::GetEvents(uint64_t uiFromNs)
{
    const std::lock_guard oGuard(m_oMutex);
    std::vector<SWatchEvent> aoEvents;
    for (const SEvents& roEvents : m_aoEvents)
    {
        const bool bFits = roEvents.uiMomentNs >= uiFromNs && aoEvents.size() < uiMostEvents;
        aoEvents.insert(aoEvents.end(), roEvents.aoEvents.begin(),
                        bFits ? roEvents.aoEvents.end() : roEvents.aoEvents.begin());
    }
    return aoEvents;
}

void CRecordingKeeper::Say(const CFault& roFault)
{
    if (!roFault)
    {
        return;
    }
    const std::lock_guard oGuard(m_oMutex);
    ++m_uiFailures;
    if (!m_bIsFailing)
    {
        m_bIsFailing = true;
        Notice_Say(roFault.GetText() + "; the watch goes on, and the next one is tried");
    }
}

WatchPublicationPtr CRecordingKeeper::GetLatest()
{
    const std::lock_guard oGuard(m_oMutex);
    return m_poLatest;
}

std::vector<SKeptRecording> CRecordingKeeper::ListRecordings()
{
    std::vector<SKeptRecording> aoRecordings;
    for (const SKept& roKept : FindKept(m_oSetup.szFolder))
    {
        aoRecordings.push_back({roKept.oFile.filename(), roKept.uiBytes});
    }
    std::ranges::reverse(aoRecordings);
    return aoRecordings;
}

CFault CRecordingKeeper::ReadFields(const std::string& rszRecording, const SStreamKey& roStream, uint32_t uiSeconds,
                                    size_t uiMost, SRecordedFields& roFields)
{
    const auto fnTake = [&](const SFieldRecord& roField)
    {
        if (roFields.aoFields.size() < uiMost)
        {
            roFields.aoFields.push_back(roField);
        }
    };
    if (!rszRecording.empty())
    {
        return ReadKept(m_oSetup.szFolder, rszRecording, roStream, fnTake, roFields);
    }
    const WatchPublicationPtr poLatest = GetLatest();
    if (!poLatest)
    {
        return CFault(szTooEarly, true);
    }
    const SClockFigures& roClock = poLatest->oSnapshot.oClock;
    const uint64_t uiFromNs = GoBack(roClock.uiMonotonicNs, uiSeconds * static_cast<uint64_t>(iNsPerSecond));
    roFields.uiTickFrequencyHz = poLatest->oSnapshot.uiTickFrequencyHz;
    roFields.uiMonotonicNs = roClock.uiMonotonicNs;
    roFields.iUtcNs = roClock.iUtcNs;
    if (const std::optional<CRecorderCut> oCut = m_oSetup.fnAwaitCut({uiFromNs}))
    {
        oCut->ForEach(uiFromNs,
                      [&](const SStreamKey& roKey, const SFieldRecord& roField)
                      {
                          if (roKey == roStream)
                          {
                              fnTake(roField);
                          }
                      });
    }
    return {};
}

uint32_t CRecordingKeeper::GetMostSeconds() const
{
    return std::min(m_oSetup.uiSeconds, uiMostRecordedSeconds);
}

CFault CRecordingKeeper::MakeRecording(uint32_t uiSeconds, int& riFile)
{
    const std::unique_lock oTurn(m_oRequest, std::try_to_lock);
    if (!oTurn.owns_lock())
    {
        return CFault("another one is being made", true);
    }
    const WatchPublicationPtr poLatest = GetLatest();
    if (!poLatest)
    {
        return CFault(szTooEarly, true);
    }
    const uint64_t uiFromNs = GoBack(GetMomentNs(*poLatest), uiSeconds * static_cast<uint64_t>(iNsPerSecond));
    const std::string szFile = m_oSetup.szFolder + "/" + szRequestName;
    CRecordingMaker oMaker;
    CFault oFault = oMaker.Begin(szFile, *poLatest, "asked for", uiFromNs);
    oFault = oFault ? oFault : Cut(oMaker, uiFromNs, *poLatest);
    if (!oFault)
    {
        oFault = oMaker.AddEvents(GetEvents(uiFromNs)) ? oMaker.Finish() : oMaker.Fail();
    }
    if (!oFault)
    {
        riFile = open(szFile.c_str(), O_RDONLY | O_CLOEXEC);
        oFault = riFile < 0 ? CFault("recording " + szFile + ": " + std::strerror(errno)) : CFault();
        unlink(szFile.c_str());
    }
    return oFault;
}

// The oldest give way until the rest has room.
void CRecordingKeeper::Prune(uint64_t uiOwnBytes) const
{
    const std::vector<SKept> aoKept = FindKept(m_oSetup.szFolder);
    uint64_t uiBytes = uiOwnBytes;
    for (const SKept& roKept : aoKept)
    {
        uiBytes += roKept.uiBytes;
    }
    for (const SKept& roKept : aoKept)
    {
        std::error_code oError;
        if (uiBytes <= m_oSetup.uiKeepBytes)
        {
            return;
        }
        fs::remove(roKept.oFile, oError);
        uiBytes -= roKept.uiBytes;
    }
}
