#include "Board.h"

#include "Remark.h"

#include <cstdlib>
#include <string>
#include <string_view>

namespace LinuxBoard
{

namespace
{

constexpr const char* szModeVariable = "VELTRANO_INPUT_MODE";

std::string Joined(const std::vector<std::string>& raszTexts)
{
    std::string szAll;
    for (const std::string& rszText : raszTexts)
        szAll += (szAll.empty() ? "" : ", ") + rszText;
    return szAll;
}

bool AsksForOwnInputs()
{
    const char* szMode = std::getenv(szModeVariable);
    if (szMode == nullptr || std::string_view(szMode) == "observe")
        return false;
    if (std::string_view(szMode) == "own")
        return true;
    Remark_Say(std::string(szModeVariable) + " takes own or observe, not '" + szMode + "': observing");
    return false;
}

void Report(const SDeviceList& roDevices)
{
    const std::string szRefused =
        roDevices.aszRefused.empty() ? "nothing was refused" : "refused: " + Joined(roDevices.aszRefused);
    if (roDevices.aoInputs.empty() && roDevices.aoOutputs.empty())
        Remark_Say(
            "nothing to watch: looked for connected and enabled connectors in /sys/class/drm and for video capture "
            "nodes in /sys/class/video4linux; " +
            szRefused);
    else if (!roDevices.aszRefused.empty())
        Remark_Say(szRefused);
    for (const std::string& rszText : roDevices.aszLong)
        Remark_Say(rszText);
}

} // namespace

CBoard& CBoard::Get()
{
    // Never destroyed: a thread that is still inside when the process ends must not find it gone.
    static auto* s_poBoard = new CBoard;
    return *s_poBoard;
}

VtDevice_Handle CBoard::OpenChip()
{
    if (!m_bLoaded || m_bScanned)
        return m_hChip;
    m_bScanned = true;
    auto poChip = std::make_unique<CChip>(AsksForOwnInputs());
    const SDeviceList& roDevices = poChip->Devices();
    Report(roDevices);
    if (!roDevices.aoInputs.empty() || !roDevices.aoOutputs.empty())
        m_hChip = m_oChips.Add(std::move(poChip));
    return m_hChip;
}

void CBoard::Unload()
{
    m_oInputs.Clear();
    m_oOutputs.Clear();
    m_oChips.Clear();
    m_hChip = nullptr;
    m_bScanned = false;
    m_bLoaded = false;
}

} // namespace LinuxBoard
