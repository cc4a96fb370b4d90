#include "HttpConnections.h"

#include <algorithm>
#include <sys/socket.h>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int iLookMs = 250;

Clock::duration GetLimit(EHttpPhase ePhase)
{
    switch (ePhase)
    {
    case EHttpPhase::EXPECTED:
    case EHttpPhase::READING:
        return std::chrono::seconds(3);
    case EHttpPhase::ANSWERING:
        return std::chrono::seconds(8);
    case EHttpPhase::KEPT:
        return std::chrono::seconds(90);
    default:
        return std::chrono::hours(1000000);
    }
}

// Who goes first when there is no room; 0: nobody may take its place.
int GetIdleness(EHttpPhase ePhase)
{
    switch (ePhase)
    {
    case EHttpPhase::EXPECTED:
        return 4;
    case EHttpPhase::READING:
        return 3;
    case EHttpPhase::KEPT:
        return 2;
    case EHttpPhase::ANSWERING:
        return 1;
    default:
        return 0;
    }
}

// What everybody has before somebody else may take his place: time for a handshake and a request, or to read on.
Clock::duration GetGrace(EHttpPhase ePhase)
{
    switch (ePhase)
    {
    case EHttpPhase::EXPECTED:
    case EHttpPhase::READING:
        return std::chrono::milliseconds(150);
    case EHttpPhase::ANSWERING:
        return std::chrono::seconds(1);
    default:
        return {};
    }
}

} // namespace

void CHttpConnections::End(SHttpConnection& roConnection)
{
    // The socket is open: who closes it takes the connection away before.
    shutdown(roConnection.iSocket, SHUT_RDWR);
    roConnection.ePhase = EHttpPhase::ENDED;
    ++m_uiEnded;
    ++m_uiDropped;
}

bool CHttpConnections::EndIdleLocked()
{
    SHttpConnection* poIdlest = nullptr;
    for (const auto& [iSocket, rpoConnection] : m_oConnections)
    {
        const int iIdleness = GetIdleness(rpoConnection->ePhase);
        const int iMost = poIdlest == nullptr ? 0 : GetIdleness(poIdlest->ePhase);
        if (iIdleness > iMost || (iIdleness > 0 && iIdleness == iMost && rpoConnection->oSince < poIdlest->oSince))
        {
            poIdlest = rpoConnection.get();
        }
    }
    if (poIdlest == nullptr || Clock::now() - poIdlest->oSince < GetGrace(poIdlest->ePhase))
    {
        return false;
    }
    End(*poIdlest);
    return true;
}

bool CHttpConnections::EndIdle()
{
    const std::lock_guard oGuard(m_oMutex);
    return EndIdleLocked();
}

bool CHttpConnections::MakeRoom()
{
    const std::lock_guard oGuard(m_oMutex);
    // Those that are ended are gone in a moment, unless they come faster than that.
    return m_oConnections.size() < 2 * m_uiMost && (m_oConnections.size() - m_uiEnded < m_uiMost || EndIdleLocked());
}

void CHttpConnections::Enter(int iSocket, const SHttpListener& roListener, std::shared_ptr<SHttpDaemonState> poDaemon)
{
    const std::lock_guard oGuard(m_oMutex);
    auto poConnection = std::make_shared<SHttpConnection>();
    poConnection->iSocket = iSocket;
    poConnection->poListener = &roListener;
    poConnection->poDaemon = std::move(poDaemon);
    poConnection->oSince = Clock::now();
    m_oConnections[iSocket] = std::move(poConnection);
}

HttpConnectionPtr CHttpConnections::Find(int iSocket) const
{
    const std::lock_guard oGuard(m_oMutex);
    const auto oFound = m_oConnections.find(iSocket);
    return oFound == m_oConnections.end() ? nullptr : oFound->second;
}

void CHttpConnections::SetPhase(SHttpConnection& roConnection, EHttpPhase ePhase)
{
    const std::lock_guard oGuard(m_oMutex);
    if (roConnection.ePhase != EHttpPhase::ENDED)
    {
        roConnection.ePhase = ePhase;
        roConnection.oSince = Clock::now();
    }
}

void CHttpConnections::SetCall(SHttpConnection& roConnection, std::shared_ptr<SHttpCall> poCall)
{
    const std::lock_guard oGuard(m_oMutex);
    roConnection.poCall.swap(poCall);
}

void CHttpConnections::Leave(int iSocket)
{
    const std::lock_guard oGuard(m_oMutex);
    const auto oFound = m_oConnections.find(iSocket);
    if (oFound != m_oConnections.end())
    {
        m_uiEnded -= oFound->second->ePhase == EHttpPhase::ENDED ? 1U : 0U;
        m_oConnections.erase(oFound);
    }
}

int CHttpConnections::EndOverdue()
{
    const std::lock_guard oGuard(m_oMutex);
    const Clock::time_point oNow = Clock::now();
    for (const auto& [iSocket, rpoConnection] : m_oConnections)
    {
        if (rpoConnection->ePhase != EHttpPhase::ENDED &&
            oNow - rpoConnection->oSince > GetLimit(rpoConnection->ePhase))
        {
            End(*rpoConnection);
        }
    }
    return m_oConnections.empty() ? -1 : iLookMs;
}

std::vector<std::shared_ptr<SHttpCall>> CHttpConnections::GetCalls(const SHttpDaemonState& roDaemon) const
{
    const std::lock_guard oGuard(m_oMutex);
    std::vector<std::shared_ptr<SHttpCall>> apoCalls;
    for (const auto& [iSocket, rpoConnection] : m_oConnections)
    {
        if (rpoConnection->poCall != nullptr && rpoConnection->poDaemon.get() == &roDaemon)
        {
            apoCalls.push_back(rpoConnection->poCall);
        }
    }
    return apoCalls;
}

size_t CHttpConnections::GetOpen() const
{
    const std::lock_guard oGuard(m_oMutex);
    return m_oConnections.size() - m_uiEnded;
}

uint64_t CHttpConnections::GetDropped() const
{
    const std::lock_guard oGuard(m_oMutex);
    return m_uiDropped;
}
