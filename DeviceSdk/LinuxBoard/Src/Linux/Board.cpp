#include "Board.h"

#include "GiveBack.h"
#include "Remark.h"

#include <cstdlib>
#include <string>
#include <string_view>

namespace LinuxBoard
{

namespace
{

std::string Joined(const std::vector<std::string>& raszTexts)
{
    std::string szAll;
    for (const std::string& rszText : raszTexts)
        szAll += (szAll.empty() ? "" : ", ") + rszText;
    return szAll;
}

/* True for szYes, false for szNo and for anything else, which is said. */
bool Asks(const char* szVariable, std::string_view szNo, std::string_view szYes)
{
    const char* szValue = std::getenv(szVariable);
    if (szValue == nullptr || szValue == szNo)
        return false;
    if (szValue == szYes)
        return true;
    Remark_Say(std::string(szVariable) + " takes " + std::string(szYes) + " or " + std::string(szNo) + ", not '" +
               szValue + "': taken for " + std::string(szNo));
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
    GiveBack_Leftovers();
    const SInputOptions oOptions = {Asks("VELTRANO_INPUT_MODE", "observe", "own"),
                                    Asks("VELTRANO_INPUT_FORMAT", "keep", "smallest")};
    auto poChip = std::make_unique<CChip>(oOptions);
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
    GiveBack_End();
    m_hChip = nullptr;
    m_bScanned = false;
    m_bLoaded = false;
}

} // namespace LinuxBoard
