#include "CutDesk.h"

#include <chrono>
#include <utility>

std::optional<CRecorderCut> CCutDesk::Await(const SRecorderSpan& roSpan, uint32_t uiTimeOutMs)
{
    const std::lock_guard oTurn(m_oTurn);
    std::unique_lock oLock(m_oMutex);
    m_oCut.reset();
    m_oSpan = roSpan;
    m_bIsAskedFor.store(!m_bIsClosed);
    m_oGiven.wait_for(oLock, std::chrono::milliseconds(uiTimeOutMs), [this] { return m_oCut || m_bIsClosed; });
    m_bIsAskedFor.store(false);
    return std::exchange(m_oCut, std::nullopt);
}

SRecorderSpan CCutDesk::GetSpan()
{
    const std::lock_guard oGuard(m_oMutex);
    return m_oSpan;
}

void CCutDesk::Give(CRecorderCut oCut)
{
    {
        const std::lock_guard oGuard(m_oMutex);
        m_oCut = std::move(oCut);
        m_bIsAskedFor.store(false);
    }
    m_oGiven.notify_all();
}

void CCutDesk::Close()
{
    {
        const std::lock_guard oGuard(m_oMutex);
        m_bIsClosed = true;
    }
    m_oGiven.notify_all();
}
