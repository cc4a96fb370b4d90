// See ReferenceScene.h.
#include "ReferenceScene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <utility>

namespace
{

enum class EFault : uint8_t
{
    LOST,
    AWAY,
    STEPPED,
    OFF_GRID,
    JUMPED,
    REPEATED,
    WOKEN_LATE,
    CANCELED,
    GONE,
    COUNT
};

constexpr uint64_t gc_uiTimeOutNs = 50'000'000;
constexpr uint64_t gc_uiBetweenWaitsNs = 3'000;

// One stream's signal and the thread that waits for its fields.
class CWriter
{
public:
    CWriter(const SScene& roScene, SSceneStream& roStream, std::mt19937_64& roRandom)
        : m_roScene(roScene), m_roStream(roStream), m_roRandom(roRandom)
    {
    }
    void Write(double flFirstSeconds, double flPpm, bool bIsDisturbed);

private:
    double Draw(double flFrom, double flTo) { return std::uniform_real_distribution(flFrom, flTo)(m_roRandom); }
    double DrawSigned(double flFrom, double flTo) { return Draw(flFrom, flTo) * (Draw(-1.0, 1.0) < 0.0 ? -1.0 : 1.0); }
    uint64_t DrawLatencyNs() { return 20'000 + static_cast<uint64_t>(Draw(0.0, 15'000.0)); }
    void Begin(EFault eFault);
    void Field(double flStart);
    void End(EWaitResult eResult, uint64_t uiArrivalNs);

    const SScene& m_roScene;
    SSceneStream& m_roStream;
    std::mt19937_64& m_roRandom;
    SFieldRecord m_oNext = {};
    double m_flPeriod = 0.0;
    double m_flShift = 0.0; // of the grid, for good
    double m_flOnce = 0.0;  // of the next field
    double m_flLateSeconds = 0.0;
    uint32_t m_uiMissing = 0; // fields not to be delivered
    EWaitResult m_eMissing = EWaitResult::TIMED_OUT;
    bool m_bRepeats = false;
    uint64_t m_uiCounter = 16'000;
};

void CWriter::Begin(EFault eFault)
{
    switch (eFault)
    {
    case EFault::LOST:
        m_uiMissing = static_cast<uint32_t>(Draw(1.0, 6.0));
        m_eMissing = EWaitResult::TIMED_OUT;
        break;
    case EFault::AWAY:
        m_oNext.uiWaitBeginNs += static_cast<uint64_t>(Draw(0.3, 9.0) * m_flPeriod * 1e9);
        break;
    case EFault::STEPPED:
        m_flShift += DrawSigned(0.05, 0.3) * m_flPeriod;
        break;
    case EFault::OFF_GRID:
        m_flOnce = DrawSigned(0.006, 0.1) * m_flPeriod;
        break;
    case EFault::JUMPED:
        m_uiCounter = Draw(0.0, 1.0) < 0.5 ? 160 : m_uiCounter + 16 * static_cast<uint64_t>(Draw(500.0, 5000.0));
        break;
    case EFault::REPEATED:
        m_bRepeats = true;
        break;
    case EFault::WOKEN_LATE:
        m_flLateSeconds = Draw(0.2, 0.9) * m_flPeriod;
        break;
    case EFault::CANCELED:
    case EFault::GONE:
        m_uiMissing = static_cast<uint32_t>(Draw(0.2, 6.0) / m_flPeriod);
        m_eMissing = eFault == EFault::GONE ? EWaitResult::GONE : EWaitResult::CANCELED;
        break;
    case EFault::COUNT:
        break;
    }
}

void CWriter::End(EWaitResult eResult, uint64_t uiArrivalNs)
{
    m_oNext.eResult = eResult;
    m_oNext.uiArrivalNs = uiArrivalNs;
    m_roStream.aoRecords.push_back(m_oNext);
    m_oNext = {};
    m_oNext.uiWaitBeginNs = uiArrivalNs + gc_uiBetweenWaitsNs;
}

void CWriter::Field(double flStart)
{
    const uint64_t uiTick = static_cast<uint64_t>((static_cast<long double>(gc_uiSceneBeginSeconds) + flStart) *
                                                  m_roScene.oSettings.uiTickFrequencyHz);
    const uint64_t uiStartNs = Scene_ToNs(m_roScene, uiTick);
    m_uiCounter += m_bRepeats ? 0 : 16;
    m_bRepeats = false;
    if (uiStartNs < m_oNext.uiWaitBeginNs)
    {
        return;
    }
    while (uiStartNs > m_oNext.uiWaitBeginNs + gc_uiTimeOutNs)
    {
        End(EWaitResult::TIMED_OUT, m_oNext.uiWaitBeginNs + gc_uiTimeOutNs);
    }
    if (m_uiMissing > 0)
    {
        --m_uiMissing;
        if (m_eMissing != EWaitResult::TIMED_OUT)
        {
            End(m_eMissing, uiStartNs + DrawLatencyNs());
        }
        return;
    }
    m_oNext.uiTick = uiTick;
    m_oNext.uiFieldCounter = m_uiCounter;
    // Late in its second, where no stream loses fields that this would excuse.
    const double flLate = flStart - std::floor(flStart) > 0.75 ? std::exchange(m_flLateSeconds, 0.0) : 0.0;
    End(EWaitResult::FIELD, uiStartNs + DrawLatencyNs() + static_cast<uint64_t>(flLate * 1e9));
}

void CWriter::Write(double flFirstSeconds, double flPpm, bool bIsDisturbed)
{
    m_oNext.uiWaitBeginNs = gc_uiSceneBeginNs;
    m_flPeriod = (1.0 + flPpm * 1e-6) / m_roStream.flNominalHz;
    std::normal_distribution oJitter(0.0, m_roStream.flJitterSeconds);
    double flFault = bIsDisturbed ? std::floor(Draw(8.0, 40.0)) + Draw(0.05, 0.5) : 1e9;
    for (uint64_t uiField = 0;; ++uiField)
    {
        const double flGrid = flFirstSeconds + static_cast<double>(uiField) * m_flPeriod;
        if (flGrid > m_roScene.uiSeconds + 0.5)
        {
            return;
        }
        if (flGrid > flFault && flGrid < m_roScene.uiSeconds - 3)
        {
            Begin(static_cast<EFault>(m_roRandom() % static_cast<uint64_t>(EFault::COUNT)));
            flFault = std::floor(flGrid + m_uiMissing * m_flPeriod + Draw(2.0, 16.0)) + Draw(0.05, 0.5);
        }
        Field(flGrid + m_flShift + m_flOnce + oJitter(m_roRandom));
        m_flOnce = 0.0;
    }
}

// 1125 lines of so many pixels at 148.5 MHz.
void Describe(SSceneStream& roStream, uint32_t uiTotalPixels)
{
    VtVideo_VidParam& roTimings = roStream.oDescription.oTimings;
    roTimings.uiHActive = 1920;
    roTimings.uiVActive = 1080;
    roTimings.uiPixelClock_kHz = 148'500;
    roTimings.uiHFPorch = uiTotalPixels - 1920 - 44 - 148;
    roTimings.uiHSync = 44;
    roTimings.uiHBPorch = 148;
    roTimings.uiVFPorch = 4;
    roTimings.uiVSync = 5;
    roTimings.uiVBPorch = 36;
    roStream.oDescription.eCaptureState = VtVideoIn_State_STARTED;
    roStream.flNominalHz = 148.5e6 / 1125.0 / uiTotalPixels;
}

} // namespace

uint64_t Scene_ToNs(const SScene& roScene, uint64_t uiTick)
{
    const uint64_t uiFrequency = roScene.oSettings.uiTickFrequencyHz;
    const uint64_t uiSince = uiTick - gc_uiSceneBeginSeconds * uiFrequency;
    return gc_uiSceneBeginNs + uiSince / uiFrequency * 1'000'000'000 +
           uiSince % uiFrequency * 1'000'000'000 / uiFrequency;
}

uint64_t Scene_ToTick(const SScene& roScene, uint64_t uiNs)
{
    const uint64_t uiFrequency = roScene.oSettings.uiTickFrequencyHz;
    const uint64_t uiSince = uiNs - gc_uiSceneBeginNs;
    return (gc_uiSceneBeginSeconds + uiSince / 1'000'000'000) * uiFrequency +
           uiSince % 1'000'000'000 * uiFrequency / 1'000'000'000;
}

SScene Scene_Make(uint64_t uiSeed)
{
    std::mt19937_64 oRandom(uiSeed);
    std::uniform_real_distribution oUnit(0.0, 1.0);
    SScene oScene;
    oScene.uiSeconds = 200;
    oScene.oSettings.bTicksAreMonotonic = true;
    oScene.oSettings.uiTickFrequencyHz = 1'000'000'000;
    oScene.oSettings.iTickOffsetNs =
        static_cast<int64_t>(gc_uiSceneBeginNs) - static_cast<int64_t>(gc_uiSceneBeginSeconds * 1'000'000'000);
    oScene.aoInputs.resize(5);
    const double flFirst = 0.1 + 0.01 * oUnit(oRandom);
    for (size_t uiIndex = 0; uiIndex < oScene.aoInputs.size(); ++uiIndex)
    {
        SSceneStream& roStream = oScene.aoInputs[uiIndex];
        constexpr std::array<uint32_t, 5> auiTotals = {2200, 2200, 2200, 2200, 4400};
        Describe(roStream, uiSeed % 3 == 0 && uiIndex == 3 ? 2640 : auiTotals[uiIndex]);
        roStream.flJitterSeconds = 1e-7 + 1e-6 * oUnit(oRandom);
        const double flPpm = uiIndex == 1 ? 0.0 : 0.8 * (oUnit(oRandom) - 0.5);
        CWriter(oScene, roStream, oRandom).Write(flFirst + 4e-5 * (oUnit(oRandom) - 0.5), flPpm, uiIndex >= 2);
    }
    return oScene;
}
