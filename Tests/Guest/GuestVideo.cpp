/*
 * Plays the program that captures video, and turns the virtual driver's screws. Its arguments are the orders, obeyed
 * one after the other:
 *   node <node>                  opens a capture node; later orders are for it
 *   timings <w> <h> <p|i> <hz>   sets the digital timings that the driver lists under this size and field rate
 *   field <none|alternate|interlaced>  sets how fields come
 *   control <name> <value>       sets a control by its name
 *   stream <ms> <hold ms>        captures, keeping each buffer for a while, and prints what came
 *   format                       prints the format
 *   hold <ms>                    does nothing
 */
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

namespace
{

using CClock = std::chrono::steady_clock;

constexpr uint32_t uiBuffers = 4;
int g_iFd = -1;

[[noreturn]] void Fail(const std::string& rszWhat)
{
    std::printf("FAILED %s: %s\n", rszWhat.c_str(), std::strerror(errno));
    std::exit(1);
}

void Do(unsigned long uiRequest, void* pvArgument, const char* szWhat)
{
    if (ioctl(g_iFd, uiRequest, pvArgument) != 0)
        Fail(szWhat);
}

double FieldRate(const v4l2_bt_timings& roTimings)
{
    const double flPixels =
        static_cast<double>(V4L2_DV_BT_FRAME_WIDTH(&roTimings)) * V4L2_DV_BT_FRAME_HEIGHT(&roTimings);
    return static_cast<double>(roTimings.pixelclock) / flPixels * (roTimings.interlaced != 0 ? 2 : 1);
}

void SetTimings(uint32_t uiWidth, uint32_t uiHeight, bool bInterlaced, double flHz)
{
    for (uint32_t uiIndex = 0;; uiIndex++)
    {
        v4l2_enum_dv_timings oListed{};
        oListed.index = uiIndex;
        Do(VIDIOC_ENUM_DV_TIMINGS, &oListed, "no such timings");
        const v4l2_bt_timings oTimings = oListed.timings.bt;
        if (oTimings.width != uiWidth || oTimings.height != uiHeight || (oTimings.interlaced != 0) != bInterlaced ||
            std::abs(FieldRate(oTimings) - flHz) > 0.3)
            continue;
        Do(VIDIOC_S_DV_TIMINGS, &oListed.timings, "VIDIOC_S_DV_TIMINGS");
        std::printf("timings %ux%u%c hz %.6f\n", uiWidth, uiHeight, bInterlaced ? 'i' : 'p', FieldRate(oTimings));
        return;
    }
}

v4l2_format Format()
{
    v4l2_format oFormat{};
    oFormat.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    Do(VIDIOC_G_FMT, &oFormat, "VIDIOC_G_FMT");
    return oFormat;
}

void PrintFormat()
{
    const v4l2_format oFormat = Format();
    std::printf("format %ux%u %.4s field %u\n", oFormat.fmt.pix.width, oFormat.fmt.pix.height,
                reinterpret_cast<const char*>(&oFormat.fmt.pix.pixelformat), oFormat.fmt.pix.field);
}

void SetField(const std::string& rszField)
{
    v4l2_format oFormat = Format();
    oFormat.fmt.pix.field = rszField == "alternate"    ? V4L2_FIELD_ALTERNATE
                            : rszField == "interlaced" ? V4L2_FIELD_INTERLACED
                                                       : V4L2_FIELD_NONE;
    Do(VIDIOC_S_FMT, &oFormat, "VIDIOC_S_FMT");
    PrintFormat();
}

void SetControl(const std::string& rszName, int iValue)
{
    v4l2_query_ext_ctrl oQuery{};
    for (;;)
    {
        oQuery.id |= V4L2_CTRL_FLAG_NEXT_CTRL;
        Do(VIDIOC_QUERY_EXT_CTRL, &oQuery, "no such control");
        if (rszName == oQuery.name)
            break;
    }
    v4l2_control oControl{oQuery.id, iValue};
    Do(VIDIOC_S_CTRL, &oControl, "VIDIOC_S_CTRL");
    std::printf("control %s %d\n", rszName.c_str(), iValue);
}

v4l2_buffer Buffer(uint32_t uiIndex)
{
    v4l2_buffer oBuffer{};
    oBuffer.index = uiIndex;
    oBuffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    oBuffer.memory = V4L2_MEMORY_MMAP;
    return oBuffer;
}

void Request(uint32_t uiCount)
{
    v4l2_requestbuffers oRequest{};
    oRequest.count = uiCount;
    oRequest.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    oRequest.memory = V4L2_MEMORY_MMAP;
    Do(VIDIOC_REQBUFS, &oRequest, "VIDIOC_REQBUFS");
}

void Stream(int iMs, int iHoldMs)
{
    int iType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    uint32_t uiFrames = 0;
    uint32_t uiLost = 0;
    uint32_t uiLast = 0;
    Request(uiBuffers);
    for (uint32_t uiIndex = 0; uiIndex < uiBuffers; uiIndex++)
    {
        v4l2_buffer oBuffer = Buffer(uiIndex);
        Do(VIDIOC_QBUF, &oBuffer, "VIDIOC_QBUF");
    }
    Do(VIDIOC_STREAMON, &iType, "VIDIOC_STREAMON");
    std::printf("streaming\n");
    const auto oEnd = CClock::now() + std::chrono::milliseconds(iMs);
    while (CClock::now() < oEnd)
    {
        pollfd oPolled = {g_iFd, POLLIN, 0};
        v4l2_buffer oBuffer = Buffer(0);
        if (poll(&oPolled, 1, 100) == 0)
            continue;
        if (ioctl(g_iFd, VIDIOC_DQBUF, &oBuffer) != 0)
        {
            std::printf("stream ended: %s\n", std::strerror(errno));
            return;
        }
        if (iHoldMs > 0)
            poll(nullptr, 0, iHoldMs);
        if (uiFrames++ > 0 && oBuffer.sequence > uiLast + 1)
            uiLost += oBuffer.sequence - uiLast - 1;
        uiLast = oBuffer.sequence;
        Do(VIDIOC_QBUF, &oBuffer, "VIDIOC_QBUF");
    }
    std::printf("streamed frames %u lost %u\n", uiFrames, uiLost);
    Do(VIDIOC_STREAMOFF, &iType, "VIDIOC_STREAMOFF");
    Request(0);
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::vector<std::string> aszOrders(pszArguments + 1, pszArguments + iArguments);
    for (size_t uiAt = 0; uiAt < aszOrders.size(); uiAt++)
    {
        const std::string& rszOrder = aszOrders[uiAt];
        const auto Next = [&] { return ++uiAt < aszOrders.size() ? aszOrders[uiAt] : std::string(); };
        const auto Number = [&] { return std::atoi(Next().c_str()); };
        if (rszOrder == "node")
            g_iFd = open(Next().c_str(), O_RDWR | O_CLOEXEC);
        else if (rszOrder == "timings")
        {
            const auto uiWidth = static_cast<uint32_t>(Number());
            const auto uiHeight = static_cast<uint32_t>(Number());
            const bool bInterlaced = Next() == "i";
            SetTimings(uiWidth, uiHeight, bInterlaced, std::atof(Next().c_str()));
        }
        else if (rszOrder == "field")
            SetField(Next());
        else if (rszOrder == "control")
        {
            const std::string szName = Next();
            SetControl(szName, Number());
        }
        else if (rszOrder == "stream")
        {
            const int iMs = Number();
            Stream(iMs, Number());
        }
        else if (rszOrder == "format")
            PrintFormat();
        else if (rszOrder == "hold")
            poll(nullptr, 0, Number());
        else
            Fail("unknown order " + rszOrder);
    }
    std::printf("done\n");
    return 0;
}
