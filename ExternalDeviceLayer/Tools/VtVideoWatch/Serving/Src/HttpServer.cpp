#include "HttpServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "HttpCall.h"
#include "HttpDaemon.h"
#include "HttpFiles.h"
#include "HttpSockets.h"
#include "ListenAddress.h"
#include "Memory.h"
#include "Threads.h"

namespace
{

// What it may have open at once, and what must be left for the rest of the program where files are scarce.
constexpr size_t uiMostConnections = 256;
constexpr size_t uiLeastConnections = 4;
constexpr size_t uiFilesForOthers = 8;
constexpr int iAcceptsPerTurn = 256;
constexpr int iNoRoomMs = 20;

// Of the files that may still be opened, at most half are for connections, and there may be twice as many for a moment.
size_t CountConnections()
{
    const size_t uiFree = HttpSockets_CountFreeFiles();
    return std::min(uiMostConnections, uiFree < uiFilesForOthers ? 0 : (uiFree - uiFilesForOthers) / 2);
}

} // namespace

struct SHttpServerParts
{
    SHttpServerParts() : uiConnections(CountConnections()), oService(uiConnections) {}
    ~SHttpServerParts();
    SHttpServerParts(const SHttpServerParts&) = delete;
    SHttpServerParts& operator=(const SHttpServerParts&) = delete;

    const size_t uiConnections;
    SHttpService oService;
    SHttpFiles oFiles;
    std::vector<SHttpListener> aoListeners;
    std::vector<std::string> aszAddresses;
    std::mutex oDaemonMutex; // for what follows
    SHttpKeys oKeys;
    std::unique_ptr<CHttpDaemon> poPlain;
    std::unique_ptr<CHttpDaemon> poTls; // null: everything is plain
    std::atomic<bool> bIsEnding = false;
    int iEnd = -1;                   // eventfd: readable at the end
    std::vector<pollfd> aoDoorFiles; // what the thread at the door looks at: the end, and the listeners
    std::thread oDoor;
};

namespace
{

bool IsSecured(const SListenAddress& roAddress)
{
    return roAddress.eKind != EListenKind::UNIX;
}

void TakeOver(SHttpServerParts& roParts, const SHttpListener& roListener, int iSocket)
{
    const std::lock_guard oGuard(roParts.oDaemonMutex);
    CHttpDaemon& roDaemon =
        roParts.poTls != nullptr && IsSecured(roListener.oAddress) ? *roParts.poTls : *roParts.poPlain;
    if (!Memory_Do("a connection",
                   [&] { roParts.oService.oConnections.Enter(iSocket, roListener, roDaemon.GetState()); }))
    {
        close(iSocket);
        return;
    }
    roDaemon.Add(iSocket);
}

// The listener whose turn it is of those that somebody waits at; null when there is nobody.
//   raoFiles  in/out  the end, and then the listeners
const SHttpListener* FindNext(const SHttpServerParts& roParts, std::vector<pollfd>& raoFiles, size_t& ruiTurn)
{
    const size_t uiListeners = roParts.aoListeners.size();
    const bool bIsSomebody = poll(raoFiles.data() + 1, uiListeners, 0) > 0;
    for (size_t i = 0; i < uiListeners && bIsSomebody; ++i)
    {
        const size_t uiListener = ruiTurn++ % uiListeners;
        if ((raoFiles[uiListener + 1].revents & POLLIN) != 0)
        {
            return &roParts.aoListeners[uiListener];
        }
    }
    return nullptr;
}

// Takes in who waits outside, from one listener after the other, so that a crowd at one delays nobody at the others.
// False when there is no room, or files are scarce.
bool TakeIn(SHttpServerParts& roParts, std::vector<pollfd>& raoFiles, size_t& ruiTurn)
{
    for (int i = 0; i < iAcceptsPerTurn && !roParts.bIsEnding; ++i)
    {
        const SHttpListener* poListener = FindNext(roParts, raoFiles, ruiTurn);
        if (poListener == nullptr)
        {
            return true;
        }
        if (!roParts.oService.oConnections.MakeRoom())
        {
            return false;
        }
        const int iSocket = HttpSockets_Accept(*poListener);
        if (iSocket >= 0)
        {
            TakeOver(roParts, *poListener, iSocket);
        }
        else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
        {
            roParts.oService.oConnections.EndIdle();
            return false;
        }
    }
    return true;
}

// The thread that stands at the door.
void Stand(SHttpServerParts& roParts)
{
    std::vector<pollfd>& raoFiles = roParts.aoDoorFiles;
    bool bHasRoom = true;
    size_t uiTurn = 0;
    while (!roParts.bIsEnding)
    {
        const int iLookMs = roParts.oService.oConnections.EndOverdue();
        poll(raoFiles.data(), bHasRoom ? raoFiles.size() : 1, bHasRoom ? iLookMs : iNoRoomMs);
        bHasRoom = TakeIn(roParts, raoFiles, uiTurn);
    }
}

CFault Listen(SHttpServerParts& roParts, const SHttpSetup& roSetup)
{
    if (CFault oFault = HttpSockets_TakeGiven(roParts.aoListeners))
    {
        return oFault;
    }
    std::vector<std::string> aszListen = roSetup.aszListen;
    if (aszListen.empty() && roParts.aoListeners.empty())
    {
        aszListen.emplace_back(szDefaultListen);
    }
    for (const std::string& rszListen : aszListen)
    {
        SListenAddress oAddress;
        SHttpListener oListener;
        CFault oFault = ListenAddress_Read(rszListen, oAddress);
        oFault = oFault ? oFault : HttpSockets_Listen(oAddress, roSetup.oSocketFile, oListener);
        if (oFault)
        {
            return oFault;
        }
        roParts.aoListeners.push_back(std::move(oListener));
    }
    for (const SHttpListener& roListener : roParts.aoListeners)
    {
        roParts.aszAddresses.push_back(ListenAddress_Print(roListener.oAddress));
    }
    return {};
}

// Does something in a thread of a lower priority, which the threads that it starts inherit. False when there is none.
template <typename FDo> bool DoHumbly(const FDo& roDo)
{
    const CSignalsBlocked oBlocked;
    bool bIsDone = false;
    std::thread oThread;
    const bool bIsStarted = Thread_Make(oThread,
                                        [&]
                                        {
                                            HttpSockets_LowerThreadPriority();
                                            Memory_Do("serving", [&] { bIsDone = roDo(); });
                                        });
    if (bIsStarted)
    {
        oThread.join();
    }
    return bIsDone;
}

std::unique_ptr<CHttpDaemon> MakeDaemon(SHttpServerParts& roParts, const SHttpKeys* poKeys)
{
    auto poDaemon = std::make_unique<CHttpDaemon>(roParts.oService);
    const auto uiMost = static_cast<unsigned>(3 * roParts.uiConnections);
    return DoHumbly([&] { return poDaemon->Start(uiMost, poKeys); }) ? std::move(poDaemon) : nullptr;
}

bool OpenDoor(SHttpServerParts& roParts)
{
    roParts.aoDoorFiles = {{roParts.iEnd, POLLIN, 0}};
    for (const SHttpListener& roListener : roParts.aoListeners)
    {
        roParts.aoDoorFiles.push_back({roListener.iSocket, POLLIN, 0});
    }
    return Thread_Make(roParts.oDoor, [&roParts] { Stand(roParts); });
}

bool StartThreads(SHttpServerParts& roParts)
{
    roParts.poPlain = MakeDaemon(roParts, nullptr);
    roParts.poTls = roParts.oKeys.szCertificate.empty() ? nullptr : MakeDaemon(roParts, &roParts.oKeys);
    const bool bHasDaemons =
        roParts.poPlain != nullptr && (roParts.poTls != nullptr || roParts.oKeys.szCertificate.empty());
    return bHasDaemons &&
           DoHumbly(
               [&roParts]
               { return OpenDoor(roParts) && roParts.oService.oJobs.Start() && roParts.oService.oChecks.Start(); });
}

CFault ReadFiles(SHttpServerParts& roParts, SHttpKeys& roKeys)
{
    std::vector<SUser> aoUsers;
    CFault oFault = HttpFiles_ReadKeys(roParts.oFiles, roKeys);
    oFault = oFault ? oFault : HttpFiles_ReadUsers(roParts.oFiles, aoUsers);
    if (!oFault)
    {
        roParts.oService.oUsers.Set(std::move(aoUsers));
    }
    return oFault;
}

} // namespace

SHttpServerParts::~SHttpServerParts()
{
    bIsEnding = true;
    if (oDoor.joinable())
    {
        static_cast<void>(eventfd_write(iEnd, 1));
        oDoor.join();
    }
    for (SHttpListener& roListener : aoListeners)
    {
        HttpSockets_Close(roListener);
    }
    oService.oJobs.End();
    oService.oChecks.End();
    if (iEnd >= 0)
    {
        close(iEnd);
    }
}

CHttpServer::CHttpServer() : m_poParts(std::make_unique<SHttpServerParts>()) {}

CHttpServer::~CHttpServer() = default;

CFault CHttpServer::Start(SHttpSetup oSetup)
{
    SHttpServerParts& roParts = *m_poParts;
    roParts.oService.oIsSlow = std::move(oSetup.oIsSlow);
    roParts.oService.oAnswer = [this, oHandler = std::move(oSetup.oHandler)](const SHttpRequest& roRequest)
    { return oHandler(*this, roRequest); };
    if (roParts.uiConnections < uiLeastConnections)
    {
        return CFault("cannot serve: too few files may be opened (see ulimit -n)");
    }
    roParts.oFiles = oSetup.oFiles;
    CFault oFault = ReadFiles(roParts, roParts.oKeys);
    oFault = oFault ? oFault : Listen(roParts, oSetup);
    if (oFault)
    {
        return oFault;
    }
    roParts.iEnd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return roParts.iEnd < 0 || !StartThreads(roParts) ? CFault("cannot serve: the system gives no threads or files")
                                                      : CFault();
}

const std::vector<std::string>& CHttpServer::GetAddresses() const
{
    return m_poParts->aszAddresses;
}

std::vector<std::string> CHttpServer::GetUrls() const
{
    std::vector<std::string> aszUrls;
    for (const SHttpListener& roListener : m_poParts->aoListeners)
    {
        const std::string szAddress = ListenAddress_Print(roListener.oAddress);
        const char* szScheme = m_poParts->oFiles.szCertificate.empty() ? "http://" : "https://";
        aszUrls.push_back(IsSecured(roListener.oAddress) ? szScheme + szAddress + "/" : szAddress);
    }
    return aszUrls;
}

std::string CHttpServer::GetWarning() const
{
    const SHttpFiles& roFiles = m_poParts->oFiles;
    const auto oOpen = std::ranges::find_if(m_poParts->aoListeners, [](const SHttpListener& roListener)
                                            { return !roListener.oAddress.bIsLoopback; });
    const bool bAsks = !roFiles.szUsers.empty() || !roFiles.szClientCa.empty();
    if (oOpen == m_poParts->aoListeners.end() || (bAsks && !roFiles.szCertificate.empty()))
    {
        return {};
    }
    const char* szWhat = bAsks                           ? " may read passwords on their way: see --tls-certificate"
                         : roFiles.szCertificate.empty() ? " may read everything: see --users and --tls-certificate"
                                                         : " may read everything: see --users and --tls-client-ca";
    return "whoever reaches " + ListenAddress_Print(oOpen->oAddress) + szWhat;
}

CFault CHttpServer::Reload()
{
    SHttpKeys oKeys;
    if (CFault oFault = ReadFiles(*m_poParts, oKeys))
    {
        return oFault;
    }
    std::unique_ptr<CHttpDaemon> poDaemon;
    const std::lock_guard oGuard(m_poParts->oDaemonMutex);
    if (oKeys == m_poParts->oKeys)
    {
        return {};
    }
    poDaemon = MakeDaemon(*m_poParts, &oKeys);
    if (poDaemon == nullptr)
    {
        return CFault("the new certificate cannot be used");
    }
    m_poParts->oKeys = std::move(oKeys);
    m_poParts->poTls.swap(poDaemon);
    return {};
}

SHttpCounts CHttpServer::GetCounts() const
{
    const SHttpService& roService = m_poParts->oService;
    SHttpCounts oCounts;
    std::ranges::transform(roService.auiCounts, oCounts.auiAnswers.begin(),
                           [](const auto& ruiCount) { return ruiCount.load(std::memory_order_relaxed); });
    oCounts.uiOpen = roService.oConnections.GetOpen();
    oCounts.uiDropped = roService.oConnections.GetDropped();
    return oCounts;
}
