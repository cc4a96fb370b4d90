/*
 * Plays a USB camera for the kernel's own uvcvideo driver, over a gadget controller made of software.
 *   GuestCamera <controller> <ms> [ms...]   plugs it in; frames follow each other at these distances, over and over;
 *                                           0 stands for the distance that was agreed on
 * Prints a line for each request that concerns the stream, with the moment in ns of CLOCK_MONOTONIC, and at SIGTERM,
 * which pulls the plug, how many frames were taken. The main thread answers the host, a second one sends frames.
 */
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usb/raw_gadget.h>
#include <linux/usb/video.h>
#include <string>
#include <sys/ioctl.h>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{

using CClock = std::chrono::steady_clock;

constexpr uint8_t WIDTH = 80;
constexpr uint8_t HEIGHT = 60;
constexpr std::array<uint32_t, 2> FRAME_BYTES = {
    WIDTH * HEIGHT * 2,
    WIDTH* HEIGHT / 2}; // of both sizes; one transfer each, so that none is cut by the end of a stream
constexpr uint32_t HEADER_BYTES = 2;
constexpr uint32_t INTERVAL_30 = 333333; // in 100 ns
constexpr uint32_t INTERVAL_15 = 666666;
constexpr uint8_t ENDPOINT = 0x81;

constexpr uint8_t Byte(uint32_t uiValue, int iByte)
{
    return static_cast<uint8_t>(uiValue >> (8 * iByte));
}

// The bytes of a descriptor: a single one stands as it is, a wider number is laid out from its lowest byte on.
struct SWord
{
    uint32_t uiValue;
    int iBytes;
};
constexpr SWord Two(uint32_t uiValue)
{
    return {uiValue, 2};
}
constexpr SWord Four(uint32_t uiValue)
{
    return {uiValue, 4};
}
template <size_t SIZE, typename... TParts> constexpr std::array<uint8_t, SIZE> Bytes(TParts... roParts)
{
    std::array<uint8_t, SIZE> auiBytes{};
    size_t uiAt = 0;
    const auto Append = [&](auto oPart)
    {
        if constexpr (std::is_same_v<decltype(oPart), SWord>)
        {
            for (int iByte = 0; iByte < oPart.iBytes; iByte++)
            {
                auiBytes.at(uiAt++) = Byte(oPart.uiValue, iByte);
            }
        }
        else
        {
            auiBytes.at(uiAt++) = static_cast<uint8_t>(oPart);
        }
    };
    (Append(roParts), ...);
    if (uiAt != SIZE)
    {
        throw "a descriptor of another length"; // at compile time
    }
    return auiBytes;
}

constexpr auto DEVICE = Bytes<18>(18, USB_DT_DEVICE, Two(0x0200), USB_CLASS_MISC, 2, 1, 64, Two(0x1209), Two(0x0001),
                                  Two(0x0100), 0, 1, 0, 1);

// One control interface with camera and output terminal; one streaming interface with one format, two sizes and one
// endpoint.
// clang-format off
constexpr auto CONFIGURATION = Bytes<191>(
    9, USB_DT_CONFIG, Two(191), 2, 1, 0, USB_CONFIG_ATT_ONE, 50,
    8, USB_DT_INTERFACE_ASSOCIATION, 0, 2, USB_CLASS_VIDEO, UVC_SC_VIDEO_INTERFACE_COLLECTION, 0, 0,
    9, USB_DT_INTERFACE, 0, 0, 0, USB_CLASS_VIDEO, UVC_SC_VIDEOCONTROL, 0, 0,
    13, USB_DT_CS_INTERFACE, UVC_VC_HEADER, Two(0x0100), Two(40), Four(48000000), 1, 1,
    18, USB_DT_CS_INTERFACE, UVC_VC_INPUT_TERMINAL, 1, Two(0x0201), 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0,
    9, USB_DT_CS_INTERFACE, UVC_VC_OUTPUT_TERMINAL, 2, Two(0x0101), 0, 1, 0,
    9, USB_DT_INTERFACE, 1, 0, 1, USB_CLASS_VIDEO, UVC_SC_VIDEOSTREAMING, 0, 0,
    14, USB_DT_CS_INTERFACE, UVC_VS_INPUT_HEADER, 1, Two(109), ENDPOINT, 0, 2, 0, 0, 0, 1, 0,
    27, USB_DT_CS_INTERFACE, UVC_VS_FORMAT_UNCOMPRESSED, 1, 2,
        'Y', 'U', 'Y', '2', 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71, 16, 1, 0, 0, 0, 0,
    34, USB_DT_CS_INTERFACE, UVC_VS_FRAME_UNCOMPRESSED, 1, 0, Two(WIDTH), Two(HEIGHT),
        Four(FRAME_BYTES[0] * 8 * 15), Four(FRAME_BYTES[0] * 8 * 30), Four(FRAME_BYTES[0]),
        Four(INTERVAL_30), 2, Four(INTERVAL_30), Four(INTERVAL_15),
    34, USB_DT_CS_INTERFACE, UVC_VS_FRAME_UNCOMPRESSED, 2, 0, Two(WIDTH / 2), Two(HEIGHT / 2),
        Four(FRAME_BYTES[1] * 8 * 15), Four(FRAME_BYTES[1] * 8 * 30), Four(FRAME_BYTES[1]),
        Four(INTERVAL_30), 2, Four(INTERVAL_30), Four(INTERVAL_15),
    7, USB_DT_ENDPOINT, ENDPOINT, USB_ENDPOINT_XFER_BULK, Two(512), 0);
// clang-format on
constexpr const auto* STREAM_ENDPOINT = CONFIGURATION.data() + CONFIGURATION.size() - USB_DT_ENDPOINT_SIZE;

using CProbe = std::array<uint8_t, 26>; // what host and camera agree on, as version 1.0 lays it out

struct SCamera
{
    int iFd = -1;
    std::vector<uint32_t> auiDistancesMs;
    CProbe auiProbe{};
    std::atomic<uint32_t> uiInterval{INTERVAL_30};
    std::atomic<uint32_t> uiFrameBytes{FRAME_BYTES[0]};
    std::atomic<int> iEndpoint{-1};
    std::atomic<uint32_t> uiFrames{0};
};

SCamera g_oCamera;

[[noreturn]] void Fail(const char* szWhat)
{
    std::printf("FAILED %s: %s\n", szWhat, std::strerror(errno));
    std::_Exit(1);
}

void Print(const char* szWhat, uint32_t uiNumber)
{
    std::printf("%s %u at %lld\n", szWhat, uiNumber,
                static_cast<long long>(CClock::now().time_since_epoch() / std::chrono::nanoseconds(1)));
}

extern "C" void OnTerminate(int /*iSignal*/)
{
    Print("frames", g_oCamera.uiFrames);
    std::_Exit(0);
}

// One transfer over an endpoint; of the control endpoint's both directions, and of the stream's, only the order
// differs.
template <size_t SIZE> struct STransfer
{
    uint16_t uiEndpoint = 0; // the kernel's own record ends in an array without a size, which C++ does not embed
    uint16_t uiFlags = 0;
    uint32_t uiLength = 0;
    std::array<uint8_t, SIZE> auiData{};
};

void Stall()
{
    ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EP0_STALL, 0);
}

void Answer(const uint8_t* puiData, size_t uiSize, size_t uiAsked)
{
    STransfer<256> oTransfer;
    oTransfer.uiLength = static_cast<uint32_t>(std::min(uiSize, uiAsked));
    std::copy_n(puiData, oTransfer.uiLength, oTransfer.auiData.begin());
    ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EP0_WRITE, &oTransfer);
}

STransfer<256> Receive(size_t uiSize)
{
    STransfer<256> oTransfer;
    oTransfer.uiLength = static_cast<uint32_t>(std::min(uiSize, oTransfer.auiData.size()));
    ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EP0_READ, &oTransfer);
    return oTransfer;
}

void SendFrames()
{
    STransfer<HEADER_BYTES + FRAME_BYTES[0]> oTransfer;
    oTransfer.uiEndpoint = static_cast<uint16_t>(g_oCamera.iEndpoint.load());
    oTransfer.auiData[0] = HEADER_BYTES;
    auto oNext = CClock::now();
    for (size_t uiFrame = 0;; uiFrame++)
    {
        const uint32_t uiMs = g_oCamera.auiDistancesMs[uiFrame % g_oCamera.auiDistancesMs.size()];
        oNext += uiMs != 0 ? CClock::duration(std::chrono::milliseconds(uiMs))
                           : std::chrono::nanoseconds(uint64_t{g_oCamera.uiInterval} * 100);
        std::this_thread::sleep_until(oNext);
        oTransfer.uiLength = HEADER_BYTES + g_oCamera.uiFrameBytes;
        // The end of a frame is also the end of its one transfer; the lowest bit changes from frame to frame.
        oTransfer.auiData[1] = static_cast<uint8_t>(0x82 | (uiFrame & 1));
        if (ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EP_WRITE, &oTransfer) < 0)
        {
            return;
        }
        g_oCamera.uiFrames++;
        // A host that did not take frames for a while gets the next one in time, not all at once.
        oNext = std::max(oNext, CClock::now() - std::chrono::milliseconds(8));
    }
}

void Configure()
{
    usb_endpoint_descriptor oDescriptor{};
    std::memcpy(&oDescriptor, STREAM_ENDPOINT, USB_DT_ENDPOINT_SIZE);
    g_oCamera.iEndpoint = ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EP_ENABLE, &oDescriptor);
    if (g_oCamera.iEndpoint < 0 || ioctl(g_oCamera.iFd, USB_RAW_IOCTL_CONFIGURE, 0) < 0)
    {
        Fail("configure");
    }
    std::thread(SendFrames).detach();
    Receive(0);
    Print("configured", 1);
}

void AnswerDescriptor(const usb_ctrlrequest& roRequest)
{
    static constexpr std::array<uint8_t, 4> LANGUAGES = {4, USB_DT_STRING, 0x09, 0x04};
    static constexpr std::array<uint8_t, 14> NAME = {14, USB_DT_STRING, 'C', 0, 'a', 0, 'm', 0, 'e', 0, 'r', 0, 'a', 0};
    switch (roRequest.wValue >> 8)
    {
    case USB_DT_DEVICE:
        return Answer(DEVICE.data(), DEVICE.size(), roRequest.wLength);
    case USB_DT_CONFIG:
        return Answer(CONFIGURATION.data(), CONFIGURATION.size(), roRequest.wLength);
    case USB_DT_STRING:
        return (roRequest.wValue & 0xff) == 0 ? Answer(LANGUAGES.data(), LANGUAGES.size(), roRequest.wLength)
                                              : Answer(NAME.data(), NAME.size(), roRequest.wLength);
    default:
        return Stall();
    }
}

// The host's wish, with what this camera does not leave open.
void Agree(const STransfer<256>& roWish)
{
    std::copy_n(roWish.auiData.begin(), g_oCamera.auiProbe.size(), g_oCamera.auiProbe.begin());
    CProbe& rauiProbe = g_oCamera.auiProbe;
    uint32_t uiInterval = 0;
    std::memcpy(&uiInterval, &rauiProbe[4], sizeof(uiInterval));
    uiInterval = uiInterval == INTERVAL_15 ? INTERVAL_15 : INTERVAL_30;
    rauiProbe[2] = 1;
    rauiProbe[3] = rauiProbe[3] == 2 ? 2 : 1;
    g_oCamera.uiFrameBytes = FRAME_BYTES.at(rauiProbe[3] - 1U);
    std::memcpy(&rauiProbe[4], &uiInterval, sizeof(uiInterval));
    g_oCamera.uiInterval = uiInterval;
    const std::array<uint32_t, 2> SIZES = {g_oCamera.uiFrameBytes, HEADER_BYTES + g_oCamera.uiFrameBytes};
    std::memcpy(&rauiProbe[18], SIZES.data(), sizeof(SIZES));
}

void AnswerStreamRequest(const usb_ctrlrequest& roRequest)
{
    const int iSelector = roRequest.wValue >> 8;
    if ((roRequest.wIndex & 0xff) != 1 || (iSelector != UVC_VS_PROBE_CONTROL && iSelector != UVC_VS_COMMIT_CONTROL))
    {
        return Stall();
    }
    const char* const szWhat = iSelector == UVC_VS_PROBE_CONTROL ? "probe" : "commit";
    static constexpr std::array<uint8_t, 2> LENGTH = {26, 0};
    static constexpr std::array<uint8_t, 1> INFO = {3};
    switch (roRequest.bRequest)
    {
    case UVC_SET_CUR:
        Agree(Receive(roRequest.wLength));
        return Print(szWhat, g_oCamera.uiInterval);
    case UVC_GET_LEN:
        return Answer(LENGTH.data(), LENGTH.size(), roRequest.wLength);
    case UVC_GET_INFO:
        return Answer(INFO.data(), INFO.size(), roRequest.wLength);
    default:
        Print(szWhat, roRequest.bRequest);
        return Answer(g_oCamera.auiProbe.data(), g_oCamera.auiProbe.size(), roRequest.wLength);
    }
}

void OnControl(const usb_ctrlrequest& roRequest)
{
    if ((roRequest.bRequestType & USB_TYPE_MASK) == USB_TYPE_CLASS)
    {
        return AnswerStreamRequest(roRequest);
    }
    switch (roRequest.bRequest)
    {
    case USB_REQ_GET_DESCRIPTOR:
        return AnswerDescriptor(roRequest);
    case USB_REQ_SET_CONFIGURATION:
        return Configure();
    case USB_REQ_SET_INTERFACE:
        Receive(0);
        return;
    default:
        return Stall();
    }
}

void Plug(const char* szController)
{
    g_oCamera.iFd = open("/dev/raw-gadget", O_RDWR | O_CLOEXEC);
    usb_raw_init oInit{};
    std::snprintf(reinterpret_cast<char*>(oInit.driver_name), sizeof(oInit.driver_name), "dummy_udc");
    std::snprintf(reinterpret_cast<char*>(oInit.device_name), sizeof(oInit.device_name), "dummy_udc.%s", szController);
    oInit.speed = USB_SPEED_HIGH;
    if (g_oCamera.iFd < 0 || ioctl(g_oCamera.iFd, USB_RAW_IOCTL_INIT, &oInit) < 0 ||
        ioctl(g_oCamera.iFd, USB_RAW_IOCTL_RUN, 0) < 0)
    {
        Fail("plug in");
    }
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    for (int iArgument = 2; iArgument < iArguments; iArgument++)
    {
        g_oCamera.auiDistancesMs.push_back(static_cast<uint32_t>(std::atoi(pszArguments[iArgument])));
    }
    if (g_oCamera.auiDistancesMs.empty())
    {
        Fail("no distance of frames given");
    }
    Agree({});
    std::signal(SIGTERM, OnTerminate);
    Plug(pszArguments[1]);
    struct
    {
        uint32_t uiType;
        uint32_t uiLength;
        usb_ctrlrequest oRequest;
    } oEvent{};
    for (;;)
    {
        oEvent.uiLength = sizeof(oEvent.oRequest);
        if (ioctl(g_oCamera.iFd, USB_RAW_IOCTL_EVENT_FETCH, &oEvent) < 0)
        {
            Fail("fetch an event");
        }
        if (oEvent.uiType == USB_RAW_EVENT_CONTROL)
        {
            OnControl(oEvent.oRequest);
        }
    }
}
