#include "Board.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "GiveBack.h"
#include "Remark.h"
#include "TextFile.h"
#include "TextLine.h"
#include "TomlTree.h"

namespace
{

constexpr const char* szRemedy = "; join the group video, or run as root (docs/LinuxBoard.md, \"Rights\")";

std::string Joined(const std::vector<std::string>& raszTexts)
{
    std::string szAll;
    for (const std::string& rszText : raszTexts)
    {
        szAll += (szAll.empty() ? "" : ", ") + rszText;
    }
    return szAll;
}

/* True for szYes, false for szNo and for anything else, which is said. */
bool Asks(const char* szVariable, std::string_view szNo, std::string_view szYes)
{
    const char* szValue = std::getenv(szVariable);
    if (szValue == nullptr || szValue == szNo)
    {
        return false;
    }
    if (szValue == szYes)
    {
        return true;
    }
    Remark_Say(std::string(szVariable) + " takes " + std::string(szYes) + " or " + std::string(szNo) + ", not '" +
               szValue + "': taken for " + std::string(szNo));
    return false;
}

std::string ConfigFile()
{
    const char* szFile = std::getenv("VELTRANO_LINUX_CONFIG");
    return szFile == nullptr ? std::string() : std::string(szFile);
}

/* False when the file that the environment names is wrong, which was said. Without one nothing is chosen. */
bool ReadConfig(SBoardConfig& roConfig)
{
    const std::string szFile = ConfigFile();
    if (szFile.empty())
    {
        return true;
    }
    SConfigFault oFault;
    std::string szText;
    if (TextFile_Read(szFile, uiTomlTextLimit, szText, oFault) && BoardConfig_Parse(szText, roConfig, oFault))
    {
        return true;
    }
    Remark_SayPlain(TextLine_OfFault(szFile, oFault)); // begins with the place, for editors and people to find it
    return false;
}

void Report(const SDeviceList& roDevices)
{
    const std::string szRefused =
        roDevices.aszRefused.empty() ? "nothing was refused" : "refused: " + Joined(roDevices.aszRefused) + szRemedy;
    if (roDevices.aoInputs.empty() && roDevices.aoOutputs.empty())
    {
        Remark_Say(
            "nothing to watch: looked for connected and enabled connectors in /sys/class/drm and for video "
            "capture nodes in /sys/class/video4linux; " +
            szRefused +
            "; for the simulated board: ./run --board simulated, or update-alternatives --config libVeltrano.so");
    }
    else if (!roDevices.aszRefused.empty())
    {
        Remark_Say(szRefused);
    }
    for (const std::string& rszText : roDevices.aszRemarks)
    {
        Remark_Say(rszText);
    }
    for (const SConfigFault& roFault : roDevices.aoUnmatched)
    {
        Remark_SayPlain(TextLine_OfFault(ConfigFile(), roFault));
    }
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
    {
        return m_hChip;
    }
    m_bScanned = true;
    GiveBack_Leftovers();
    const SInputOptions oOptions = {Asks("VELTRANO_INPUT_MODE", "observe", "own"),
                                    Asks("VELTRANO_INPUT_FORMAT", "keep", "smallest")};
    SBoardConfig oConfig;
    if (!ReadConfig(oConfig))
    {
        return m_hChip;
    }
    auto poChip = std::make_unique<CChip>(oConfig, oOptions);
    const SDeviceList& roDevices = poChip->Devices();
    Report(roDevices);
    if (!roDevices.aoInputs.empty() || !roDevices.aoOutputs.empty())
    {
        m_hChip = static_cast<VtDevice_Handle>(m_oChips.Open(EHandleKind::DEVICE, std::move(poChip)));
    }
    return m_hChip;
}

void CBoard::Unload()
{
    m_oInputs.CloseAll();
    m_oOutputs.CloseAll();
    m_oChips.CloseAll();
    GiveBack_End();
    m_hChip = nullptr;
    m_bScanned = false;
    m_bLoaded = false;
}
