// See WatchBench.h.
#include "WatchBench.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "FieldRates.h"

namespace
{

constexpr uint64_t gc_uiStartNs = 5'000'000'000'000;           // CLOCK_MONOTONIC when the board is loaded
constexpr int64_t gc_iUtcOffsetNs = 1'790'000'000'123'456'789; // CLOCK_REALTIME beyond it
constexpr uint64_t gc_uiBetweenWaitsNs = 3'000;
constexpr uint64_t gc_uiHandedInNs = 100'000'000; // after a whole second
constexpr uint64_t gc_uiAnalysedNs = 160'000'000;

} // namespace

CWatchBench::CWatchBench(const std::string& rszChip, const SBenchSetup& roSetup)
    : m_oSetup(roSetup), m_oRandom(roSetup.uiSeed), m_uiNowNs(gc_uiStartNs)
{
    const std::string szText =
        "seed = " + std::to_string(roSetup.uiSeed) + "\n[time]\nmode = 'stepped'\n[[chip]]\n" + rszChip;
    std::array<char, 512> szFault{};
    if (VtSim_SetScenario(szText.c_str(), szFault.data(), szFault.size()) != VtStatus_OK)
    {
        ADD_FAILURE() << szFault.data();
        return;
    }
    Veltrano_LoadLite();
    VtDevice_Handle hDev = Veltrano_GetDevice(0);
    std::array<uint32_t, 2> auiCount = {};
    VtVideoIn_GetCount(hDev, &auiCount[0]);
    VtVideoOut_GetCount(hDev, &auiCount[1]);
    VtBoard_GetTickReferenceFrequency(hDev, &m_oSetup.oSettings.uiTickFrequencyHz);
    m_uiStartTick = roSetup.uiStartTick != 0 ? roSetup.uiStartTick : m_oSetup.oSettings.uiTickFrequencyHz;
    m_poEngine = std::make_unique<CWatchEngine>(m_oSetup.oSettings, auiCount[0], auiCount[1]);
    for (uint32_t uiDirection = 0; uiDirection < 2; ++uiDirection)
    {
        for (uint32_t uiIndex = 0; uiIndex < auiCount[uiDirection]; ++uiIndex)
        {
            SStream& roStream = m_aoStreams.emplace_back();
            roStream.eDirection = static_cast<EStreamDirection>(uiDirection);
            roStream.uiIndex = uiIndex;
            roStream.uiWaitNs = roStream.uiAheadNs = gc_uiStartNs;
            roStream.poPort = std::make_unique<CStreamPort>(hDev, roStream.GetKey());
            EXPECT_TRUE(roStream.poPort->Open());
        }
    }
}

CWatchBench::~CWatchBench()
{
    Veltrano_UnLoad();
    VtSim_SetScenario(nullptr, nullptr, 0);
}

VtSim_Stream CWatchBench::Name(const SStream& roStream) const
{
    return {0, roStream.eDirection == EStreamDirection::INPUT ? VtSim_Direction_INPUT : VtSim_Direction_OUTPUT,
            roStream.uiIndex};
}

CWatchBench::SStream& CWatchBench::Find(EStreamDirection eDirection, uint32_t uiIndex)
{
    return *std::ranges::find_if(m_aoStreams, [&](const SStream& roStream)
                                 { return roStream.eDirection == eDirection && roStream.uiIndex == uiIndex; });
}

uint64_t CWatchBench::ToMonotonicNs(uint64_t uiTick) const
{
    const auto flTicks = static_cast<double>(static_cast<int64_t>(uiTick - m_uiStartTick));
    const double flNs = flTicks * 1e9 / m_oSetup.oSettings.uiTickFrequencyHz;
    return gc_uiStartNs + static_cast<uint64_t>(std::llround(flNs));
}

int64_t CWatchBench::ToUtcNs(uint64_t uiTick) const
{
    return static_cast<int64_t>(ToMonotonicNs(uiTick)) + gc_iUtcOffsetNs;
}

int64_t CWatchBench::GetHandedInUtcNs() const
{
    return static_cast<int64_t>(m_uiNowNs + gc_uiHandedInNs) + gc_iUtcOffsetNs;
}

uint64_t CWatchBench::DrawLatency()
{
    return static_cast<uint64_t>(m_oSetup.flLatencyNs +
                                 std::exponential_distribution(1.0 / m_oSetup.flSpreadNs)(m_oRandom));
}

VtSim_Field CWatchBench::GetTruth(EStreamDirection eDirection, uint32_t uiIndex, uint64_t uiField)
{
    VtSim_Field oField{};
    const auto eSim = eDirection == EStreamDirection::INPUT ? VtSim_Direction_INPUT : VtSim_Direction_OUTPUT;
    EXPECT_EQ(VtSim_GetField({0, eSim, uiIndex}, uiField, &oField), VtStatus_OK);
    return oField;
}

// When the wait comes back although its field started earlier: the board has moved on meanwhile. 0: it has not.
uint64_t CWatchBench::FindHang(SStream& roStream) const
{
    uint64_t uiPosition = 0;
    VtSim_GetPosition(Name(roStream), &uiPosition);
    const bool bPassedOver = uiPosition > roStream.uiPosition + 1;
    roStream.uiPosition = uiPosition;
    return bPassedOver ? ToMonotonicNs(GetTruth(roStream.eDirection, roStream.uiIndex, uiPosition - 1).uiTickRefCounter)
                       : 0;
}

void CWatchBench::Step(SStream& roStream)
{
    SFieldRecord oRecord = {};
    roStream.poPort->Wait(oRecord);
    oRecord.uiWaitBeginNs = roStream.uiWaitNs;
    uint64_t uiDueNs = roStream.uiWaitNs + uiFieldWaitTimeOutMs * 1'000'000ULL;
    if (oRecord.eResult == EWaitResult::FIELD)
    {
        roStream.uiAheadNs = ToMonotonicNs(oRecord.uiTick);
        uiDueNs = std::max(roStream.uiAheadNs, FindHang(roStream)) + DrawLatency();
    }
    else if (oRecord.eResult == EWaitResult::CANCELED)
    {
        uint64_t uiPosition = 0;
        VtSim_GetPosition(Name(roStream), &uiPosition);
        uiDueNs = ToMonotonicNs(GetTruth(roStream.eDirection, roStream.uiIndex, uiPosition - 1).uiTickRefCounter);
        roStream.uiAheadNs = uiDueNs;
    }
    else
    {
        roStream.uiAheadNs = uiDueNs;
    }
    oRecord.uiArrivalNs = std::max({uiDueNs, roStream.uiWaitNs + 1000, roStream.uiNotBeforeNs});
    oRecord.uiRunDelayNs = roStream.uiRunDelayNs;
    roStream.uiRunDelayNs = 0;
    roStream.uiNotBeforeNs = 0;
    roStream.uiWaitNs = oRecord.uiArrivalNs + gc_uiBetweenWaitsNs;
    m_poEngine->TakeRecord(roStream.GetKey(), oRecord);
    if (fnField)
    {
        fnField(roStream.GetKey(), oRecord);
    }
    if (oRecord.eResult == EWaitResult::FIELD)
    {
        Describe(roStream, oRecord.uiArrivalNs, true);
    }
}

// Others than before are described at their first field.
void CWatchBench::Describe(SStream& roStream, uint64_t uiMomentNs, bool bOnlyOtherTimings)
{
    SDescriptionRecord oRecord = {};
    SStreamDescription& roDescription = oRecord.oDescription;
    roStream.poPort->Describe(oRecord);
    roDescription.uiMomentNs = uiMomentNs;
    if (bOnlyOtherTimings && std::memcmp(&roDescription.oTimings, &roStream.oTimings, sizeof(roStream.oTimings)) == 0)
    {
        return;
    }
    roStream.oTimings = roDescription.oTimings;
    m_poEngine->TakeDescription(roStream.GetKey(), roDescription);
    if (fnDescription)
    {
        fnDescription(roStream.GetKey(), roDescription);
    }
}

void CWatchBench::Run(uint32_t uiSeconds, const std::function<void()>& fnSnapshot)
{
    for (uint32_t uiSecond = 0; uiSecond < uiSeconds; ++uiSecond)
    {
        m_uiNowNs += 1'000'000'000;
        for (SStream& roStream : m_aoStreams)
        {
            // The analysis comes a while after the second, and more than that is handed in.
            while (std::max(roStream.uiAheadNs, roStream.uiWaitNs) < m_uiNowNs + gc_uiHandedInNs)
            {
                Step(roStream);
            }
            Describe(roStream, m_uiNowNs, false);
        }
        SClockReading oClock = {};
        oClock.uiMonotonicNs = m_uiNowNs + gc_uiAnalysedNs;
        oClock.iUtcNs = static_cast<int64_t>(oClock.uiMonotonicNs) + gc_iUtcOffsetNs;
        oClock.iTaiOffsetSeconds = m_oSetup.iTaiOffsetSeconds;
        oClock.bIsSynchronised = true;
        oClock.flEstimatedErrorSeconds = 1e-6;
        oClock.flLeastWakeSeconds = std::max(1.0, 0.5 * m_oSetup.flLatencyNs) * 1e-9;
        while (m_poEngine->Analyse(oClock, oSnapshot))
        {
            const auto aoNew = m_poEngine->TakeEvents();
            aoEvents.insert(aoEvents.end(), aoNew.begin(), aoNew.end());
            if (fnSecond)
            {
                fnSecond(*m_poEngine, aoNew);
            }
            if (fnSnapshot)
            {
                fnSnapshot();
            }
        }
    }
}

// Leaves out the fields that start before a moment; the start of the next one.
uint64_t CWatchBench::StepOver(const SStream& roStream, uint64_t uiUntilNs) const
{
    uint64_t uiPosition = 0;
    VtSim_GetPosition(Name(roStream), &uiPosition);
    for (;; ++uiPosition)
    {
        const uint64_t uiTick = GetTruth(roStream.eDirection, roStream.uiIndex, uiPosition).uiTickRefCounter;
        if (ToMonotonicNs(uiTick) >= uiUntilNs)
        {
            return ToMonotonicNs(uiTick);
        }
        VtSim_StepOver(Name(roStream), 1);
    }
}

void CWatchBench::Delay(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds)
{
    SStream& roStream = Find(eDirection, uiIndex);
    roStream.uiWaitNs += static_cast<uint64_t>(flSeconds * 1e9);
    StepOver(roStream, roStream.uiWaitNs);
}

void CWatchBench::Starve(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds, uint64_t uiRunDelayNs)
{
    SStream& roStream = Find(eDirection, uiIndex);
    roStream.uiNotBeforeNs = StepOver(roStream, 0) + static_cast<uint64_t>(flSeconds * 1e9);
    roStream.uiRunDelayNs = uiRunDelayNs;
    StepOver(roStream, roStream.uiNotBeforeNs);
}

void CWatchBench::StarveUntil(EStreamDirection eDirection, uint32_t uiIndex, double flSeconds)
{
    uint64_t uiPosition = 0;
    VtSim_GetPosition(Name(Find(eDirection, uiIndex)), &uiPosition);
    const uint64_t uiDueNs = ToMonotonicNs(GetTruth(eDirection, uiIndex, uiPosition).uiTickRefCounter);
    const auto flDue = static_cast<double>(static_cast<int64_t>(uiDueNs - m_uiNowNs - gc_uiHandedInNs)) * 1e-9;
    Starve(eDirection, uiIndex, std::max(0.0, flSeconds - flDue), 0);
}

const SPairFigures& CWatchBench::GetPair(uint32_t uiFirst, uint32_t uiSecond) const
{
    const std::vector<SPairFigures>& raoPairs = oSnapshot.aoDirections[0].aoPairs;
    return *std::ranges::find_if(raoPairs, [&](const SPairFigures& roPair)
                                 { return roPair.uiFirst == uiFirst && roPair.uiSecond == uiSecond; });
}

uint64_t CWatchBench::Sum(EWatchEventKind eKind, uint32_t uiIndex) const
{
    uint64_t uiSum = 0;
    for (const SWatchEvent& roEvent : aoEvents)
    {
        uiSum += roEvent.eKind == eKind && roEvent.oKey.uiIndex == uiIndex ? roEvent.uiCount : 0;
    }
    return uiSum;
}

uint64_t CWatchBench::Count(EWatchEventKind eKind, uint32_t uiIndex) const
{
    return static_cast<uint64_t>(
        std::ranges::count_if(aoEvents, [&](const SWatchEvent& roEvent)
                              { return roEvent.eKind == eKind && roEvent.oKey.uiIndex == uiIndex; }));
}

const SWatchEvent* CWatchBench::Find(EWatchEventKind eKind, uint32_t uiIndex) const
{
    const auto itEvent = std::ranges::find_if(aoEvents, [&](const SWatchEvent& roEvent)
                                              { return roEvent.eKind == eKind && roEvent.oKey.uiIndex == uiIndex; });
    return itEvent == aoEvents.end() ? nullptr : &*itEvent;
}
