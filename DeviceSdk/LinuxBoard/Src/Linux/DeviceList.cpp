#include "DeviceList.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libudev.h>
#include <memory>
#include <string_view>

#include "InputProbe.h"
#include "InputRemark.h"
#include "StreamName.h"
#include "V4l2Node.h"

namespace
{

struct SUdevUnref
{
    void operator()(udev* poUdev) const { udev_unref(poUdev); }
    void operator()(udev_enumerate* poEnumerate) const { udev_enumerate_unref(poEnumerate); }
    void operator()(udev_device* poDevice) const { udev_device_unref(poDevice); }
};
using CUdev = std::unique_ptr<udev, SUdevUnref>;
using CUdevEnumerate = std::unique_ptr<udev_enumerate, SUdevUnref>;
using CUdevDevice = std::unique_ptr<udev_device, SUdevUnref>;

std::string_view OrEmpty(const char* szText)
{
    return szText == nullptr ? std::string_view() : szText;
}

bool Has(udev_device* poDevice, const char* szAttribute, std::string_view szValue)
{
    return OrEmpty(udev_device_get_sysattr_value(poDevice, szAttribute)) == szValue;
}

/* Devices of a class in the order that people count in: video2 before video10. */
std::vector<CUdevDevice> Devices(udev* poUdev, const char* szSubsystem, const char* szPattern)
{
    std::vector<CUdevDevice> apoDevices;
    const CUdevEnumerate poEnumerate(udev_enumerate_new(poUdev));
    if (poEnumerate == nullptr)
    {
        return apoDevices;
    }
    udev_enumerate_add_match_subsystem(poEnumerate.get(), szSubsystem);
    udev_enumerate_add_match_sysname(poEnumerate.get(), szPattern);
    udev_enumerate_scan_devices(poEnumerate.get());
    udev_list_entry* poEntry = nullptr;
    udev_list_entry_foreach(poEntry, udev_enumerate_get_list_entry(poEnumerate.get()))
    {
        CUdevDevice poDevice(udev_device_new_from_syspath(poUdev, udev_list_entry_get_name(poEntry)));
        if (poDevice != nullptr)
        {
            apoDevices.push_back(std::move(poDevice));
        }
    }
    std::sort(apoDevices.begin(), apoDevices.end(),
              [](const CUdevDevice& rpoOne, const CUdevDevice& rpoOther) {
                  return strverscmp(udev_device_get_sysname(rpoOne.get()), udev_device_get_sysname(rpoOther.get())) < 0;
              });
    return apoDevices;
}

VtBoard_ConnectorType TypeOf(std::string_view szName)
{
    static constexpr std::pair<std::string_view, VtBoard_ConnectorType> aoTypes[] = {
        {"HDMI", VtBoard_ConnectorType_HDMI},
        {"SDI", VtBoard_ConnectorType_SDI},
        {"DisplayPort", VtBoard_ConnectorType_DISPLAYPORT},
        {"DP-", VtBoard_ConnectorType_DISPLAYPORT},
        {"DVI", VtBoard_ConnectorType_DVI},
        {"VGA", VtBoard_ConnectorType_VGA},
    };
    for (const auto& [szPart, eType] : aoTypes)
    {
        if (szName.find(szPart) != std::string_view::npos)
        {
            return eType;
        }
    }
    return VtBoard_ConnectorType_UNKNOWN;
}

void Refuse(SDeviceList& roList, const std::string& szNode, int iError)
{
    const std::string szText = szNode + ": " + std::strerror(-iError);
    if (std::find(roList.aszRefused.begin(), roList.aszRefused.end(), szText) == roList.aszRefused.end())
    {
        roList.aszRefused.push_back(szText);
    }
}

/* The name as it is shown. What does not fit, and what can be done about it, is said besides. */
std::string Named(SDeviceList& roList, const std::string& szName, const SInputRemark& roRemark)
{
    SStreamName oName = StreamName_Build(szName, roRemark.szFull, roRemark.szShort);
    if (!roRemark.szRemedy.empty())
    {
        roList.aszRemarks.push_back(szName + ": " + roRemark.szFull + "; " + roRemark.szRemedy);
    }
    else if (oName.bCut)
    {
        roList.aszRemarks.push_back(szName + (roRemark.szFull.empty() ? "" : ": ") + roRemark.szFull);
    }
    return oName.szText;
}

/* The output is going to be opened to be watched, so asking it here whether it has field events spares nothing less. */
std::string RemarkOfOutput(const CKmsCard& roCard, const std::string& szConnector)
{
    uint32_t uiCrtcId = 0;
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    roCard.ReadCrtcOf(roCard.FindConnector(szConnector), uiCrtcId);
    if (uiCrtcId == 0)
    {
        return {};
    }
    if (roCard.ReadSequence(uiCrtcId, uiSequence, uiStampNs) == -EOPNOTSUPP)
    {
        return "no vblank support";
    }
    return roCard.IsRateVariable(uiCrtcId) ? "variable refresh" : "";
}

/* A device that can be watched, before anybody has chosen. */
struct SCandidate
{
    SDeviceFacts oFacts;
    udev_device* poDevice = nullptr;
    CV4l2Node oNode; /* of an input */
};

std::vector<SDeviceFacts> FactsOf(const std::vector<SCandidate>& raoCandidates)
{
    std::vector<SDeviceFacts> aoFacts;
    aoFacts.reserve(raoCandidates.size());
    for (const SCandidate& roCandidate : raoCandidates)
    {
        aoFacts.push_back(roCandidate.oFacts);
    }
    return aoFacts;
}

std::string BusPathOfUdev(udev_device* poDevice)
{
    return std::string(OrEmpty(udev_device_get_property_value(poDevice, "ID_PATH")));
}

void FindOutput(std::vector<SCandidate>& raoCandidates, udev_device* poDevice)
{
    udev_device* poCard = udev_device_get_parent(poDevice); // owned by poDevice
    const bool bActive =
        Has(poDevice, "status", "connected") && Has(poDevice, "enabled", "enabled") && Has(poDevice, "dpms", "On");
    if (!bActive || poCard == nullptr)
    {
        return;
    }
    SCandidate& roCandidate = raoCandidates.emplace_back();
    roCandidate.poDevice = poDevice;
    roCandidate.oFacts.szName = udev_device_get_sysname(poDevice);
    roCandidate.oFacts.aszBusPaths = {BusPathOfUdev(poCard)};
    udev_device* poBus = udev_device_get_parent(poCard);
    if (poBus == nullptr)
    {
        return;
    }
    roCandidate.oFacts.aszBusPaths.emplace_back(udev_device_get_sysname(poBus));
    roCandidate.oFacts.szDriver = OrEmpty(udev_device_get_driver(poBus));
}

void AddOutput(SDeviceList& roList, const SCandidate& roCandidate, const SDeviceChoice& roChoice, CCardKeeper& roKeeper)
{
    const std::string& rszSysName = roCandidate.oFacts.szName;
    SOutputSource oSource;
    oSource.szCardNode = OrEmpty(udev_device_get_devnode(udev_device_get_parent(roCandidate.poDevice)));
    oSource.szConnector = rszSysName.substr(rszSysName.find('-') + 1);
    oSource.eType = TypeOf(oSource.szConnector);
    CKmsCard oCard;
    int iError = roKeeper.Keep(oSource.szCardNode);
    if (iError == 0)
    {
        iError = oCard.Open(oSource.szCardNode);
    }
    if (iError != 0)
    {
        Refuse(roList, oSource.szCardNode, iError);
        return;
    }
    oSource.szName = Named(roList, roChoice.szName, {RemarkOfOutput(oCard, oSource.szConnector), "", ""});
    roList.aoOutputs.push_back(oSource);
}

void FindInput(SDeviceList& roList, std::vector<SCandidate>& raoCandidates, udev_device* poDevice)
{
    // Where udev has asked the node already, it need not be opened to learn that it captures no video.
    const std::string_view szKnown = OrEmpty(udev_device_get_property_value(poDevice, "ID_V4L_CAPABILITIES"));
    if (!szKnown.empty() && szKnown.find(":capture:") == std::string_view::npos)
    {
        return;
    }
    const std::string szNode(OrEmpty(udev_device_get_devnode(poDevice)));
    SCandidate oCandidate;
    SInputFormat oFormat;
    const int iError = oCandidate.oNode.Open(szNode, O_RDONLY);
    if (iError != 0)
    {
        Refuse(roList, szNode, iError);
        return;
    }
    const CV4l2Node& roNode = oCandidate.oNode;
    if (!roNode.IsCapture() || roNode.ReadFormat(oFormat) != 0 || (!roNode.IsDigital() && oFormat.uiWidth == 0))
    {
        return;
    }
    oCandidate.poDevice = poDevice;
    oCandidate.oFacts.szName = OrEmpty(udev_device_get_sysattr_value(poDevice, "name"));
    if (oCandidate.oFacts.szName.empty())
    {
        oCandidate.oFacts.szName = udev_device_get_sysname(poDevice);
    }
    oCandidate.oFacts.aszBusPaths = {roNode.BusPath(), BusPathOfUdev(poDevice)};
    oCandidate.oFacts.szDriver = roNode.Driver();
    raoCandidates.push_back(std::move(oCandidate));
}

void AddInput(SDeviceList& roList, SCandidate& roCandidate, const SDeviceChoice& roChoice,
              const SInputOptions& roDefaults)
{
    SInputSource oSource;
    oSource.oOptions = roDefaults;
    if (roChoice.poRule != nullptr)
    {
        oSource.oOptions = {roChoice.poRule->bOwn.value_or(roDefaults.bOwn),
                            roChoice.poRule->bSmallest.value_or(roDefaults.bSmallest)};
    }
    oSource.szNode = roCandidate.oNode.Path();
    oSource.szVideo = udev_device_get_sysname(roCandidate.poDevice);
    const int iError = oSource.oOptions.bOwn ? roCandidate.oNode.Open(oSource.szNode, O_RDWR) : 0;
    if (iError != 0)
    {
        Refuse(roList, oSource.szNode, iError);
        return;
    }
    oSource.eType = TypeOf(roCandidate.oNode.InputName());
    const SInputRemark oRemark =
        InputRemark_Of(InputProbe_Facts(roCandidate.oNode, oSource.szVideo, oSource.oOptions.bOwn));
    oSource.szName = Named(roList, roChoice.szName, oRemark);
    roList.aoInputs.push_back(oSource);
}

/* Says which rules found nothing, and which devices are too many. */
void Warn(SDeviceList& roList, std::span<const SDeviceRule> aoRules, const std::vector<SDeviceChoice>& raoChoices,
          const std::string& rszWhat)
{
    for (const SDeviceRule& roRule : aoRules)
    {
        if (std::none_of(raoChoices.begin(), raoChoices.end(),
                         [&roRule](const SDeviceChoice& roChoice) { return roChoice.poRule == &roRule; }))
        {
            roList.aoUnmatched.push_back(
                {roRule.uiLine, "no " + rszWhat + " is like this, or an earlier table has it"});
        }
    }
    std::string szBeyond;
    for (size_t uiChoice = uiMaxStreams; uiChoice < raoChoices.size(); uiChoice++)
    {
        szBeyond += (szBeyond.empty() ? "" : ", ") + raoChoices[uiChoice].szName;
    }
    if (!szBeyond.empty())
    {
        roList.aszRemarks.push_back("more than " + std::to_string(uiMaxStreams) + " " + rszWhat +
                                    "s; not watched: " + szBeyond + "; VELTRANO_LINUX_CONFIG chooses others");
    }
}

void ListOutputs(SDeviceList& roList, udev* poUdev, std::span<const SDeviceRule> aoRules, CCardKeeper& roKeeper)
{
    const std::vector<CUdevDevice> apoDevices = Devices(poUdev, "drm", "card*-*");
    std::vector<SCandidate> aoCandidates;
    for (const CUdevDevice& rpoDevice : apoDevices)
    {
        FindOutput(aoCandidates, rpoDevice.get());
    }
    const std::vector<SDeviceChoice> aoChoices = BoardConfig_Choose(aoRules, FactsOf(aoCandidates));
    for (size_t uiChoice = 0; uiChoice < std::min(aoChoices.size(), uiMaxStreams); uiChoice++)
    {
        AddOutput(roList, aoCandidates[aoChoices[uiChoice].uiDevice], aoChoices[uiChoice], roKeeper);
    }
    Warn(roList, aoRules, aoChoices, "output");
}

void ListInputs(SDeviceList& roList, udev* poUdev, std::span<const SDeviceRule> aoRules,
                const SInputOptions& roDefaults)
{
    const std::vector<CUdevDevice> apoDevices = Devices(poUdev, "video4linux", "video*");
    std::vector<SCandidate> aoCandidates;
    for (const CUdevDevice& rpoDevice : apoDevices)
    {
        FindInput(roList, aoCandidates, rpoDevice.get());
    }
    const std::vector<SDeviceChoice> aoChoices = BoardConfig_Choose(aoRules, FactsOf(aoCandidates));
    for (size_t uiChoice = 0; uiChoice < std::min(aoChoices.size(), uiMaxStreams); uiChoice++)
    {
        AddInput(roList, aoCandidates[aoChoices[uiChoice].uiDevice], aoChoices[uiChoice], roDefaults);
    }
    Warn(roList, aoRules, aoChoices, "input");
}

} // namespace

SDeviceList DeviceList_Scan(const SBoardConfig& roConfig, const SInputOptions& roDefaults, CCardKeeper& roKeeper)
{
    SDeviceList oList;
    const CUdev poUdev(udev_new());
    if (poUdev == nullptr)
    {
        return oList;
    }
    ListOutputs(oList, poUdev.get(), roConfig.aoOutputs, roKeeper);
    ListInputs(oList, poUdev.get(), roConfig.aoInputs, roDefaults);
    return oList;
}
