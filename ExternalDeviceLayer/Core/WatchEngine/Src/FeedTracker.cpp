// See FeedTracker.h.
#include "FeedTracker.h"

#include <algorithm>

void CFeedTracker::Restart()
{
    const bool bHasFed = m_bHasFed;
    *this = CFeedTracker(static_cast<uint32_t>(m_uiSecond), m_bIsEstimated);
    m_bHasFed = bHasFed;
}

SFeedResult CFeedTracker::Take(int64_t iFields, uint64_t uiSet, uint64_t uiTick)
{
    SFeedResult oResult;
    oResult.uiTick = uiTick;
    if (!m_bHasStarted)
    {
        m_bHasStarted = true;
        return oResult;
    }
    if (uiSet > 0)
    {
        TakeNew(iFields, uiTick, oResult);
    }
    else if (m_uiNewTick != 0)
    {
        TakeRepeat(iFields, uiTick, oResult);
    }
    return oResult;
}

void CFeedTracker::TakeNew(int64_t iFields, uint64_t uiTick, SFeedResult& roResult)
{
    m_bHasFed = true;
    if (m_bIsStalled)
    {
        m_bIsStalled = false;
        roResult.bHasResumed = true;
        roResult.uiStalledTicks = uiTick - m_uiDueTick;
    }
    if (m_uiNewTick != 0)
    {
        m_auiRunTicks[m_uiNbOfRuns % msc_uiRuns] = uiTick - m_uiNewTick;
    }
    if (iFields == 1 && m_bIsRunWhole)
    {
        TakeRun(uiTick, roResult);
    }
    else
    {
        m_uiPhases = (1U << m_oCadence.uiNbOfRuns) - 1; // any
    }
    // In a gap nobody knows which field the picture began with.
    m_bIsRunWhole = iFields == 1;
    m_bIsBroken = false;
    m_uiRun = 1;
    m_uiNewTick = uiTick;
}

void CFeedTracker::TakeRepeat(int64_t iFields, uint64_t uiTick, SFeedResult& roResult)
{
    const uint32_t uiDue = m_oCadence.IsKnown() && m_bIsRunWhole ? GetDueRun() : 0;
    if (m_uiRun == 1 || (uiDue > 0 && m_uiRun == uiDue))
    {
        m_uiDueTick = uiTick;
    }
    m_uiRun += static_cast<uint32_t>(std::min<int64_t>(iFields, 1'000'000));
    if (uiDue > 0 && m_uiRun > uiDue + GetSlack(uiTick))
    {
        m_bIsBroken = true;
        Break(uiTick, roResult);
        roResult.uiBeyond = m_uiRun - uiDue;
    }
    else if (m_bIsBroken)
    {
        roResult.uiBeyond = static_cast<uint64_t>(iFields);
    }
    if (!m_bIsStalled && uiTick - m_uiNewTick > GetPatience())
    {
        m_bIsStalled = true;
        roResult.bHasStalled = true;
    }
}

// The present run is over: what it says of the cadence.
void CFeedTracker::TakeRun(uint64_t uiTick, SFeedResult& roResult)
{
    const uint32_t uiNext = GetNextPhases();
    if (m_oCadence.IsKnown() && uiNext == 0)
    {
        if (IsOfEstimate(uiTick))
        {
            return;
        }
        Break(uiTick, roResult);
    }
    m_uiPhases = uiNext;
    for (uint32_t uiLength = 1; uiLength <= SCadence::msc_uiMostRuns; ++uiLength)
    {
        const bool bMatches = m_uiNbOfRuns >= uiLength && m_uiRun <= msc_uiLongestRun && GetRun(uiLength) == m_uiRun;
        m_auiMatches[uiLength] = bMatches ? m_auiMatches[uiLength] + 1 : 0;
        m_auiMatchTicks[uiLength] = bMatches ? m_auiMatchTicks[uiLength] : uiTick;
    }
    m_auiRuns[m_uiNbOfRuns++ % msc_uiRuns] = m_uiRun;
    if (!m_oCadence.IsKnown())
    {
        FindCadence(uiTick, roResult);
    }
}

void CFeedTracker::FindCadence(uint64_t uiTick, SFeedResult& roResult)
{
    for (uint32_t uiLength = 1; uiLength <= SCadence::msc_uiMostRuns; ++uiLength)
    {
        if (m_auiMatches[uiLength] < msc_uiRepetitions * uiLength || uiTick - m_auiMatchTicks[uiLength] < m_uiSecond)
        {
            continue;
        }
        // Told from the turn that is largest, so that 2:3 and 3:2 are one.
        SCadence oCadence;
        oCadence.uiNbOfRuns = static_cast<uint8_t>(uiLength);
        for (uint32_t uiRun = 0; uiRun < uiLength; ++uiRun)
        {
            oCadence.auiRuns[uiRun] = static_cast<uint8_t>(GetRun(uiLength - uiRun));
        }
        SCadence oLargest = oCadence;
        uint32_t uiTurns = 0;
        for (uint32_t uiTurn = 1; uiTurn < uiLength; ++uiTurn)
        {
            std::rotate(oCadence.auiRuns.begin(), oCadence.auiRuns.begin() + 1, oCadence.auiRuns.begin() + uiLength);
            uiTurns = oCadence.auiRuns > oLargest.auiRuns ? uiTurn : uiTurns;
            oLargest = uiTurns == uiTurn ? oCadence : oLargest;
        }
        SetCadence(oLargest, uiTick, roResult);
        m_uiPhases = 1U << ((uiLength - uiTurns) % uiLength);
        return;
    }
}

void CFeedTracker::Break(uint64_t uiTick, SFeedResult& roResult)
{
    SetCadence({}, uiTick, roResult);
    m_auiMatches = {};
}

// The first one is no change.
void CFeedTracker::SetCadence(const SCadence& roCadence, uint64_t uiTick, SFeedResult& roResult)
{
    roResult.bCadenceChanged = m_oLastCadence.IsKnown();
    roResult.oBefore = m_oCadence;
    m_oCadence = roCadence;
    m_oLastCadence = roCadence.IsKnown() ? roCadence : m_oLastCadence;
    m_uiCadenceTick = uiTick;
}

// Which the next run may be, behind the one that is over; 0: that was none that was due.
uint32_t CFeedTracker::GetNextPhases() const
{
    uint32_t uiNext = 0;
    for (uint32_t uiPhase = 0; uiPhase < m_oCadence.uiNbOfRuns; ++uiPhase)
    {
        const bool bIsDue = (m_uiPhases >> uiPhase & 1U) != 0 && m_oCadence.auiRuns[uiPhase] == m_uiRun;
        uiNext |= bIsDue ? 1U << ((uiPhase + 1) % m_oCadence.uiNbOfRuns) : 0U;
    }
    return uiNext;
}

// How long the present run may be; behind a gap it may be any.
uint32_t CFeedTracker::GetDueRun() const
{
    uint32_t uiDue = 0;
    for (uint32_t uiPhase = 0; uiPhase < m_oCadence.uiNbOfRuns; ++uiPhase)
    {
        uiDue = (m_uiPhases >> uiPhase & 1U) != 0 ? std::max<uint32_t>(uiDue, m_oCadence.auiRuns[uiPhase]) : uiDue;
    }
    return uiDue;
}

// By how much the present run may be too long: a picture that was missed adds its own run.
uint32_t CFeedTracker::GetSlack(uint64_t uiTick) const
{
    const bool bIsPast = m_auiOddTicks[0] != 0 && uiTick - m_auiOddTicks[0] <= m_uiSecond;
    return m_bIsEstimated && !bIsPast ? *std::ranges::max_element(m_oCadence.auiRuns) : 0;
}

// Whether an odd run is taken for an error of the estimate.
bool CFeedTracker::IsOfEstimate(uint64_t uiTick)
{
    const bool bIs = m_uiRun <= GetDueRun() + GetSlack(uiTick) && GetSlack(uiTick) > 0;
    m_auiOddTicks = {m_auiOddTicks[1], uiTick};
    return bIs;
}

uint64_t CFeedTracker::GetPatience() const
{
    return std::max(m_uiSecond, 3 * *std::ranges::max_element(m_auiRunTicks));
}
