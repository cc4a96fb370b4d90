#include "BoardSession.h"

#include <chrono>
#include <thread>

#include "BoardLibrary.h"
#include "StreamCounts.h"
#include "StreamId.h"
#include "StreamPort.h"

namespace
{

constexpr std::chrono::milliseconds oStopPoll{2};

} // namespace

CFault CBoardSession::Open(const SBoardOptions& roOptions)
{
    Veltrano_LoadLite();
    m_bIsLoaded = true;
    m_poSetup->eRealTime.store(roOptions.bRealTime ? ERealTime::WANTED : ERealTime::OFF);
    m_poSetup->hDev = Veltrano_GetDevice(roOptions.uiChip);
    if (m_poSetup->hDev == nullptr)
    {
        return CFault("no board: " + BoardLibrary_GetFile() + " has no chip " + std::to_string(roOptions.uiChip));
    }
    uint32_t uiFrequencyHz = 0;
    if (VtBoard_GetTickReferenceFrequency(m_poSetup->hDev, &uiFrequencyHz) != VtStatus_OK || uiFrequencyHz == 0)
    {
        return CFault("the board does not tell the frequency of its reference counter");
    }
    m_poSetup->uiTickFrequencyHz = uiFrequencyHz;
    ReadFacts();
    return CountStreams();
}

void CBoardSession::ReadFacts()
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
}

CFault CBoardSession::CountStreams()
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
            poChannel->oKey = {eDirection, uiIndex};
            m_aoChannels[static_cast<size_t>(eDirection)].push_back(std::move(poChannel));
        }
    }
    return {};
}

VtVideo_VidParam CBoardSession::ReadTimings(const SStreamKey& roKey) const
{
    CStreamPort oPort(m_poSetup->hDev, roKey);
    SDescriptionRecord oRecord = {};
    if (oPort.Open())
    {
        oPort.Describe(oRecord);
    }
    return oRecord.oDescription.oTimings;
}

CFault CBoardSession::Start()
{
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

bool CBoardSession::Stop(uint32_t uiTimeOutMs)
{
    if (!m_bIsLoaded)
    {
        return true;
    }
    m_poSetup->bStop.store(true);
    const auto oDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(uiTimeOutMs);
    while (m_poSetup->uiRunning.load() > 0)
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
