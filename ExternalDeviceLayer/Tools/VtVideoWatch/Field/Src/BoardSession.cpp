#include "BoardSession.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <thread>
#include <utility>

#include "BoardLibrary.h"
#include "Memory.h"
#include "Notice.h"
#include "StreamCounts.h"
#include "StreamId.h"
#include "StreamPort.h"
#include "Threads.h"

namespace
{

constexpr std::chrono::milliseconds oStopPoll{2};
constexpr std::chrono::seconds oOpenPatience{2}; // of all other chips with one that does not answer

// How far the opening of several chips is.
struct SOpening
{
    std::mutex oMutex; // guards the rest
    std::condition_variable oChanged;
    std::vector<std::pair<uint32_t, std::string>> aoFaults; // by the chip's number
    size_t uiEnded = 0;
};

// In a thread of the chip's own, which may never end.
void OpenChip(CBoardChip& roChip, SOpening& roOpening)
{
    CFault oFault = Memory_Try([&roChip] { return roChip.Open(); });
    const std::lock_guard oGuard(roOpening.oMutex);
    if (oFault)
    {
        roOpening.aoFaults.emplace_back(roChip.GetNumber(), oFault.GetText());
    }
    ++roOpening.uiEnded;
    roOpening.oChanged.notify_all();
}

CFault BeginOpening(const std::shared_ptr<CBoardChip>& rpoChip, const std::shared_ptr<SOpening>& rpoOpening)
{
    std::thread oThread;
    rpoChip->GetSetup()->uiRunning.fetch_add(1);
    CFault oFault = Thread_Start(oThread, "chip " + std::to_string(rpoChip->GetNumber()),
                                 [poChip = rpoChip, poOpening = rpoOpening]
                                 {
                                     OpenChip(*poChip, *poOpening);
                                     static_cast<void>(poChip->StartIfAsked());
                                     poChip->GetSetup()->uiRunning.fetch_sub(1);
                                 });
    if (oFault)
    {
        rpoChip->GetSetup()->uiRunning.fetch_sub(1);
        return oFault;
    }
    oThread.detach();
    return oFault;
}

} // namespace

CFault CBoardChip::Open()
{
    uint32_t uiFrequencyHz = 0;
    if (VtBoard_GetTickReferenceFrequency(m_poSetup->hDev, &uiFrequencyHz) != VtStatus_OK || uiFrequencyHz == 0)
    {
        return CFault("the board does not tell the frequency of its reference counter");
    }
    m_poSetup->uiTickFrequencyHz = uiFrequencyHz;
    ReadFacts();
    CFault oFault = CountStreams();
    m_bIsOpen.store(!oFault, std::memory_order_release);
    return oFault;
}

void CBoardChip::ReadFacts()
{
    m_oFacts.szLibrary = BoardLibrary_GetFile();
    m_oFacts.uiVersion = Veltrano_Version();
    m_oFacts.bIsSimulated = BoardLibrary_IsSimulated();
    m_oFacts.uiTickFrequencyHz = m_poSetup->uiTickFrequencyHz;
    VtBoard_TickClockOut oClock = {};
    if (VtBoard_CustomCall(m_poSetup->hDev, VtBoard_CustomCallId_GET_TICK_CLOCK, nullptr, 0, &oClock, sizeof(oClock)) ==
            VtStatus_OK &&
        oClock.uiClockId == VtBoard_ClockId_MONOTONIC)
    {
        m_oFacts.bTicksAreMonotonic = true;
        m_oFacts.iTickOffsetNs = oClock.iOffsetNs;
    }
    VtBoard_SetBufferKindOut oKind = {};
    m_oFacts.bSetsAreEstimated = VtBoard_CustomCall(m_poSetup->hDev, VtBoard_CustomCallId_GET_SET_BUFFER_KIND, nullptr,
                                                    0, &oKind, sizeof(oKind)) == VtStatus_OK &&
                                 oKind.uiKind == VtBoard_SetBufferKind_ESTIMATED;
    VtBoard_SharedClockOut oShared = {};
    if (VtBoard_CustomCall(m_poSetup->hDev, VtBoard_CustomCallId_GET_SHARED_CLOCK, nullptr, 0, &oShared,
                           sizeof(oShared)) == VtStatus_OK)
    {
        m_oFacts.uiSharedClock = oShared.uiClockId;
        m_oFacts.iSharedOffsetNs = oShared.iOffsetNs;
    }
}

CFault CBoardChip::CountStreams()
{
    for (const EStreamDirection eDirection : aeDirections)
    {
        uint32_t uiCount = 0;
        const bool bIsInput = eDirection == EStreamDirection::INPUT;
        switch (::CountStreams(m_poSetup->hDev, bIsInput ? 1 : 0, uiCount))
        {
        case EStreamCount::COUNTED:
            break;
        case EStreamCount::FAILED:
            return CFault(std::string("the board cannot count its ") + StreamId_GetDirection(eDirection) + "s");
        case EStreamCount::TOO_MANY:
            return CFault(std::string("the board says that it has ") + std::to_string(uiCount) + " " +
                          StreamId_GetDirection(eDirection) + "s; there can be " + std::to_string(uiMaxNbOfVideo));
        }
        for (uint32_t uiIndex = 0; uiIndex < uiCount; ++uiIndex)
        {
            auto poChannel = std::make_shared<SStreamChannel>();
            poChannel->oKey = {eDirection, uiIndex, m_uiKey};
            m_aoChannels[static_cast<size_t>(eDirection)].push_back(std::move(poChannel));
        }
    }
    return {};
}

VtVideo_VidParam CBoardSession::ReadTimings(const SStreamKey& roKey) const
{
    SDescriptionRecord oRecord = {};
    const auto itChip = FindChip(roKey);
    if (itChip != m_apoChips.end() && (*itChip)->IsOpen())
    {
        CStreamPort oPort((*itChip)->GetSetup()->hDev, roKey);
        if (oPort.Open())
        {
            oPort.Describe(oRecord);
        }
    }
    return oRecord.oDescription.oTimings;
}

CFault CBoardChip::Start()
{
    {
        const std::lock_guard oGuard(m_oStartMutex);
        m_bIsToStart = true;
    }
    return StartIfAsked();
}

CFault CBoardChip::StartIfAsked()
{
    const std::lock_guard oGuard(m_oStartMutex);
    if (!m_bIsToStart || !IsOpen() || std::exchange(m_bHasStarted, true))
    {
        return {};
    }
    for (const StreamChannels& raoChannels : m_aoChannels)
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoChannels)
        {
            if (CFault oFault = StreamThread_Start(m_poSetup, rpoChannel))
            {
                return oFault;
            }
        }
    }
    return {};
}

CFault CBoardSession::FindChips(const SBoardOptions& roOptions)
{
    std::vector<uint32_t> auiNumbers = roOptions.auiChips;
    std::vector<VtDevice_Handle> ahDevices;
    if (auiNumbers.empty())
    {
        for (uint32_t uiNumber = 0; uiNumber < uiMaxChips; ++uiNumber)
        {
            if (VtDevice_Handle hDev = Veltrano_GetDevice(uiNumber); hDev != nullptr)
            {
                auiNumbers.push_back(uiNumber);
                ahDevices.push_back(hDev);
            }
        }
    }
    for (size_t uiChip = ahDevices.size(); uiChip < auiNumbers.size(); ++uiChip)
    {
        ahDevices.push_back(Veltrano_GetDevice(auiNumbers[uiChip]));
    }
    const auto fnFits = [&](uint32_t uiNumber) { return auiNumbers.size() == 1 || uiNumber < uiMaxChips; };
    for (size_t uiChip = 0; uiChip < auiNumbers.size(); ++uiChip)
    {
        ahDevices[uiChip] = fnFits(auiNumbers[uiChip]) ? ahDevices[uiChip] : nullptr;
    }
    const auto itMissing = std::ranges::find(ahDevices, nullptr);
    if (auiNumbers.empty() || itMissing != ahDevices.end())
    {
        const uint32_t uiMissing =
            auiNumbers.empty() ? 0 : auiNumbers[static_cast<size_t>(itMissing - ahDevices.begin())];
        return CFault("no board: " + BoardLibrary_GetFile() + " has no chip " + std::to_string(uiMissing));
    }
    for (size_t uiChip = 0; uiChip < auiNumbers.size(); ++uiChip)
    {
        const uint32_t uiNumber = auiNumbers[uiChip];
        auto poChip = std::make_shared<CBoardChip>(uiNumber, auiNumbers.size() > 1 ? uiNumber + 1 : 0);
        poChip->GetSetup()->hDev = ahDevices[uiChip];
        poChip->GetSetup()->eRealTime.store(roOptions.bRealTime ? ERealTime::WANTED : ERealTime::OFF);
        m_apoChips.push_back(std::move(poChip));
    }
    return {};
}

CFault CBoardSession::Open(const SBoardOptions& roOptions)
{
    Veltrano_LoadLite();
    m_bIsLoaded = true;
    if (CFault oFault = FindChips(roOptions))
    {
        return oFault;
    }
    return m_apoChips.size() == 1 ? m_apoChips.front()->Open() : OpenSeveral();
}

CFault CBoardSession::OpenSeveral()
{
    const auto poOpening = std::make_shared<SOpening>();
    for (const std::shared_ptr<CBoardChip>& rpoChip : m_apoChips)
    {
        if (CFault oFault = BeginOpening(rpoChip, poOpening))
        {
            return oFault;
        }
    }
    std::unique_lock oLock(poOpening->oMutex);
    poOpening->oChanged.wait_for(oLock, oOpenPatience, [&] { return poOpening->uiEnded == m_apoChips.size(); });
    const auto& raoFaults = poOpening->aoFaults;
    if (raoFaults.size() == m_apoChips.size())
    {
        return CFault("chip " + std::to_string(raoFaults.front().first) + ": " + raoFaults.front().second);
    }
    for (const auto& [uiNumber, szFault] : raoFaults)
    {
        Notice_Say("chip " + std::to_string(uiNumber) + ": " + szFault + "; the others are watched");
    }
    for (const std::shared_ptr<CBoardChip>& rpoChip : m_apoChips)
    {
        const auto fnIsIt = [&rpoChip](const auto& roFault) { return roFault.first == rpoChip->GetNumber(); };
        if (!rpoChip->IsOpen() && std::ranges::none_of(raoFaults, fnIsIt))
        {
            Notice_Say("chip " + std::to_string(rpoChip->GetNumber()) + " does not answer; the others are watched");
        }
    }
    return {};
}

CFault CBoardSession::Start()
{
    for (const std::shared_ptr<CBoardChip>& rpoChip : m_apoChips)
    {
        if (CFault oFault = rpoChip->Start())
        {
            return oFault;
        }
    }
    return {};
}

BoardChips::const_iterator CBoardSession::FindChip(const SStreamKey& roStream) const
{
    return std::ranges::find(m_apoChips, roStream.uiChip,
                             [](const std::shared_ptr<CBoardChip>& rpoChip) { return rpoChip->GetKey(); });
}

bool CBoardSession::MayHave(const SStreamKey& roStream) const
{
    const auto itChip = std::ranges::find(m_apoChips, roStream.uiChip,
                                          [](const std::shared_ptr<CBoardChip>& rpoChip) { return rpoChip->GetKey(); });
    return itChip != m_apoChips.end() &&
           (!(*itChip)->IsOpen() ||
            roStream.uiIndex < (*itChip)->GetChannels()[static_cast<size_t>(roStream.eDirection)].size());
}

ERealTime CBoardSession::GetRealTime() const
{
    const bool bIsRefused = std::ranges::any_of(m_apoChips, [](const std::shared_ptr<CBoardChip>& rpoChip)
                                                { return rpoChip->GetSetup()->eRealTime == ERealTime::REFUSED; });
    return bIsRefused           ? ERealTime::REFUSED
           : m_apoChips.empty() ? ERealTime::OFF
                                : m_apoChips.front()->GetSetup()->eRealTime.load();
}

bool CBoardSession::Stop(uint32_t uiTimeOutMs)
{
    if (!m_bIsLoaded)
    {
        return true;
    }
    for (const std::shared_ptr<CBoardChip>& rpoChip : m_apoChips)
    {
        rpoChip->GetSetup()->bStop.store(true);
    }
    const auto fnRuns = [](const std::shared_ptr<CBoardChip>& rpoChip)
    { return rpoChip->GetSetup()->uiRunning.load() > 0; };
    const auto oDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(uiTimeOutMs);
    while (std::ranges::any_of(m_apoChips, fnRuns))
    {
        if (std::chrono::steady_clock::now() >= oDeadline)
        {
            return false;
        }
        std::this_thread::sleep_for(oStopPoll);
    }
    Veltrano_UnLoad();
    m_bIsLoaded = false;
    return true;
}
