#include "DeviceList.h"

#include "../InputRemark.h"
#include "../StreamName.h"
#include "OwnedCapture.h"
#include "TraceFeed.h"
#include "V4l2Node.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libudev.h>
#include <memory>
#include <string_view>

namespace LinuxBoard
{

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
        return apoDevices;
    udev_enumerate_add_match_subsystem(poEnumerate.get(), szSubsystem);
    udev_enumerate_add_match_sysname(poEnumerate.get(), szPattern);
    udev_enumerate_scan_devices(poEnumerate.get());
    udev_list_entry* poEntry = nullptr;
    udev_list_entry_foreach(poEntry, udev_enumerate_get_list_entry(poEnumerate.get()))
    {
        CUdevDevice poDevice(udev_device_new_from_syspath(poUdev, udev_list_entry_get_name(poEntry)));
        if (poDevice != nullptr)
            apoDevices.push_back(std::move(poDevice));
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
        if (szName.find(szPart) != std::string_view::npos)
            return eType;
    return VtBoard_ConnectorType_UNKNOWN;
}

void Refuse(SDeviceList& roList, const std::string& szNode, int iError)
{
    const std::string szText = szNode + ": " + std::strerror(-iError);
    if (std::find(roList.aszRefused.begin(), roList.aszRefused.end(), szText) == roList.aszRefused.end())
        roList.aszRefused.push_back(szText);
}

std::string Named(SDeviceList& roList, const std::string& szName, std::string_view szRemark, std::string_view szShort)
{
    SStreamName oName = StreamName_Build(szName, szRemark, szShort);
    if (oName.bCut)
        roList.aszLong.push_back(szName + ": " + std::string(szRemark));
    return oName.szText;
}

/* The output is going to be opened to be watched, so asking it here whether it has field events spares nothing less. */
bool HasVblank(const CKmsCard& roCard, const std::string& szConnector)
{
    uint32_t uiCrtcId = 0;
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    roCard.ReadCrtcOf(roCard.FindConnector(szConnector), uiCrtcId);
    return uiCrtcId == 0 || roCard.ReadSequence(uiCrtcId, uiSequence, uiStampNs) != -EOPNOTSUPP;
}

void AddOutput(SDeviceList& roList, udev_device* poDevice, CCardKeeper& roKeeper)
{
    udev_device* poCard = udev_device_get_parent(poDevice); // owned by poDevice
    const bool bActive =
        Has(poDevice, "status", "connected") && Has(poDevice, "enabled", "enabled") && Has(poDevice, "dpms", "On");
    if (!bActive || poCard == nullptr)
        return;
    const std::string szSysName = udev_device_get_sysname(poDevice);
    SOutputSource oSource;
    oSource.szCardNode = OrEmpty(udev_device_get_devnode(poCard));
    oSource.szConnector = szSysName.substr(szSysName.find('-') + 1);
    oSource.eType = TypeOf(oSource.szConnector);
    CKmsCard oCard;
    int iError = roKeeper.Keep(oSource.szCardNode);
    if (iError == 0)
        iError = oCard.Open(oSource.szCardNode);
    if (iError != 0)
    {
        Refuse(roList, oSource.szCardNode, iError);
        return;
    }
    oSource.szName = Named(roList, szSysName, HasVblank(oCard, oSource.szConnector) ? "" : "no vblank support", "");
    roList.aoOutputs.push_back(oSource);
}

/*
 * Whether the stamps of an input mark the start of a frame. Only buffers tell; without any, the drivers that are known
 * to stamp the start are, and the kernel's rule for all others is the end.
 */
bool StampsFrameStart(const CV4l2Node& roNode, bool bOwnInputs)
{
    SBufferCensus oCensus = roNode.CountBuffers();
    if (oCensus.uiTotal == 0 && bOwnInputs)
        oCensus = COwnedCapture::TryBuffers(roNode);
    if (oCensus.uiTotal == 0)
        return roNode.Driver() == "uvcvideo";
    return (oCensus.uiFlags & V4L2_BUF_FLAG_TSTAMP_SRC_MASK) == V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
}

EFrameSource ObservedSource(ETraceAccess eAccess, const SBufferCensus& roCensus)
{
    switch (eAccess)
    {
    case ETraceAccess::None:
        return EFrameSource::NoTrace;
    case ETraceAccess::Taken:
        return EFrameSource::TraceTaken;
    case ETraceAccess::Granted:
        break;
    }
    return roCensus.IsReadByCalls() ? EFrameSource::ReadByCalls : EFrameSource::Trace;
}

SInputFacts FactsOf(const CV4l2Node& roNode, const std::string& szVideo, bool bOwnInputs)
{
    const SBufferCensus oCensus = roNode.CountBuffers();
    SInputFacts oFacts;
    oFacts.bHidden = oCensus.bHidden;
    oFacts.bRateFixed = roNode.IsRateFixed();
    if (bOwnInputs && oCensus.uiTotal == 0 && !oCensus.bHidden)
        oFacts.eSource = EFrameSource::Own;
    else
        oFacts.eSource = ObservedSource(CTraceFeed::Access(szVideo), oCensus);
    oFacts.bStampsStart = StampsFrameStart(roNode, oFacts.eSource == EFrameSource::Own);
    return oFacts;
}

std::string InputName(SDeviceList& roList, udev_device* poDevice, const CV4l2Node& roNode, bool bOwnInputs)
{
    const std::string szVideo = udev_device_get_sysname(poDevice);
    std::string szName(OrEmpty(udev_device_get_sysattr_value(poDevice, "name")));
    if (szName.empty())
        szName = szVideo;
    const SInputRemark oRemark = InputRemark_Of(FactsOf(roNode, szVideo, bOwnInputs));
    return Named(roList, szName, oRemark.szFull, oRemark.szShort);
}

void AddInput(SDeviceList& roList, udev_device* poDevice, const SInputOptions& roOptions)
{
    // Where udev has asked the node already, it need not be opened to learn that it captures no video.
    const std::string_view szKnown = OrEmpty(udev_device_get_property_value(poDevice, "ID_V4L_CAPABILITIES"));
    if (!szKnown.empty() && szKnown.find(":capture:") == std::string_view::npos)
        return;
    SInputSource oSource;
    oSource.szNode = OrEmpty(udev_device_get_devnode(poDevice));
    oSource.szVideo = udev_device_get_sysname(poDevice);
    CV4l2Node oNode;
    SInputFormat oFormat;
    const int iError = oNode.Open(oSource.szNode, roOptions.bOwn ? O_RDWR : O_RDONLY);
    if (iError != 0)
    {
        Refuse(roList, oSource.szNode, iError);
        return;
    }
    if (!oNode.IsCapture() || oNode.ReadFormat(oFormat) != 0 || (!oNode.IsDigital() && oFormat.uiWidth == 0))
        return;
    oSource.eType = TypeOf(oNode.InputName());
    oSource.szName = InputName(roList, poDevice, oNode, roOptions.bOwn);
    oSource.oOptions = roOptions;
    roList.aoInputs.push_back(oSource);
}

} // namespace

SDeviceList DeviceList_Scan(const SInputOptions& roOptions, CCardKeeper& roKeeper)
{
    SDeviceList oList;
    const CUdev poUdev(udev_new());
    if (poUdev == nullptr)
        return oList;
    for (const CUdevDevice& rpoDevice : Devices(poUdev.get(), "drm", "card*-*"))
        if (oList.aoOutputs.size() < uiMaxStreams)
            AddOutput(oList, rpoDevice.get(), roKeeper);
    for (const CUdevDevice& rpoDevice : Devices(poUdev.get(), "video4linux", "video*"))
        if (oList.aoInputs.size() < uiMaxStreams)
            AddInput(oList, rpoDevice.get(), roOptions);
    return oList;
}

} // namespace LinuxBoard
