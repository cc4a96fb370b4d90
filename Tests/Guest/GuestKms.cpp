/*
 * Plays the program that drives displays: becomes master of cards, sets modes, flips buffers, switches off and on.
 * Its arguments are the orders, obeyed one after the other:
 *   card <node>                 opens a card and becomes its master; later orders are for it
 *   mode <kHz> <8 positions>    sets a mode on the first connector (hdisplay ... vtotal)
 *   flip <ms>                   flips on every vertical blank of all cards that have a mode
 *   hold <ms>                   does nothing
 *   off | on                    switches the CRTC off, and on again with the same mode
 *   truth                       prints the stamp of each card's last vertical blank
 */
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <vector>
#include <xf86drm.h>
#include <xf86drmMode.h>

namespace
{

using CClock = std::chrono::steady_clock;

struct SCard
{
    std::string szNode;
    int iFd = -1;
    uint32_t uiConnector = 0;
    uint32_t uiCrtc = 0;
    drmModeModeInfo oMode{};
    std::array<uint32_t, 2> auiFramebuffers{};
    size_t uiShown = 0;
    uint64_t uiFlips = 0;
    bool bPending = false;
    bool bOn = false;
};

[[noreturn]] void Fail(const char* szWhat)
{
    std::printf("FAILED %s: %s\n", szWhat, std::strerror(errno));
    std::exit(1);
}

void Check(int iResult, const char* szWhat)
{
    if (iResult != 0)
        Fail(szWhat);
}

SCard OpenCard(const char* szNode)
{
    SCard oCard;
    oCard.szNode = szNode;
    oCard.iFd = open(szNode, O_RDWR | O_CLOEXEC);
    if (oCard.iFd < 0)
        Fail("open");
    Check(drmSetMaster(oCard.iFd), "drmSetMaster");
    drmModeRes* poResources = drmModeGetResources(oCard.iFd);
    if (poResources == nullptr || poResources->count_connectors == 0 || poResources->count_crtcs == 0)
        Fail("drmModeGetResources");
    oCard.uiConnector = poResources->connectors[0];
    oCard.uiCrtc = poResources->crtcs[0];
    drmModeFreeResources(poResources);
    std::printf("master %s\n", szNode);
    return oCard;
}

uint32_t MakeFramebuffer(const SCard& roCard)
{
    uint32_t uiHandle = 0;
    uint32_t uiPitch = 0;
    uint32_t uiFramebuffer = 0;
    uint64_t uiSize = 0;
    Check(drmModeCreateDumbBuffer(roCard.iFd, roCard.oMode.hdisplay, roCard.oMode.vdisplay, 32, 0, &uiHandle, &uiPitch,
                                  &uiSize),
          "drmModeCreateDumbBuffer");
    Check(drmModeAddFB(roCard.iFd, roCard.oMode.hdisplay, roCard.oMode.vdisplay, 24, 32, uiPitch, uiHandle,
                       &uiFramebuffer),
          "drmModeAddFB");
    return uiFramebuffer;
}

void SwitchOn(SCard& roCard)
{
    Check(drmModeSetCrtc(roCard.iFd, roCard.uiCrtc, roCard.auiFramebuffers[roCard.uiShown], 0, 0, &roCard.uiConnector,
                         1, &roCard.oMode),
          "drmModeSetCrtc");
    roCard.bOn = true;
}

void SwitchOff(SCard& roCard)
{
    Check(drmModeSetCrtc(roCard.iFd, roCard.uiCrtc, 0, 0, 0, nullptr, 0, nullptr), "drmModeSetCrtc off");
    roCard.bOn = false;
}

void SetMode(SCard& roCard, const std::array<uint32_t, 9>& rauiTimings)
{
    drmModeModeInfo& roMode = roCard.oMode;
    roMode = {};
    roMode.clock = rauiTimings[0];
    uint16_t* const apuiPositions[] = {&roMode.hdisplay, &roMode.hsync_start, &roMode.hsync_end, &roMode.htotal,
                                       &roMode.vdisplay, &roMode.vsync_start, &roMode.vsync_end, &roMode.vtotal};
    for (size_t uiIndex = 0; uiIndex < std::size(apuiPositions); uiIndex++)
        *apuiPositions[uiIndex] = static_cast<uint16_t>(rauiTimings[uiIndex + 1]);
    std::snprintf(roMode.name, sizeof(roMode.name), "test");
    for (uint32_t& ruiFramebuffer : roCard.auiFramebuffers)
        ruiFramebuffer = MakeFramebuffer(roCard);
    SwitchOn(roCard);
}

void OnFlip(int /*iFd*/, unsigned int /*uiSequence*/, unsigned int /*uiSeconds*/, unsigned int /*uiMicroseconds*/,
            void* pvCard)
{
    auto* poCard = static_cast<SCard*>(pvCard);
    poCard->bPending = false;
    poCard->uiFlips++;
}

void Flip(std::deque<SCard>& raoCards, int iMs)
{
    drmEventContext oContext{};
    oContext.version = 2;
    oContext.page_flip_handler = OnFlip;
    const auto oEnd = CClock::now() + std::chrono::milliseconds(iMs);
    while (CClock::now() < oEnd)
    {
        std::vector<pollfd> aoPolled;
        for (SCard& roCard : raoCards)
        {
            aoPolled.push_back({roCard.iFd, POLLIN, 0});
            if (!roCard.bOn || roCard.bPending)
                continue;
            roCard.uiShown = 1 - roCard.uiShown;
            Check(drmModePageFlip(roCard.iFd, roCard.uiCrtc, roCard.auiFramebuffers[roCard.uiShown],
                                  DRM_MODE_PAGE_FLIP_EVENT, &roCard),
                  "drmModePageFlip");
            roCard.bPending = true;
        }
        poll(aoPolled.data(), aoPolled.size(), 50);
        for (const pollfd& roPolled : aoPolled)
            if ((roPolled.revents & POLLIN) != 0)
                drmHandleEvent(roPolled.fd, &oContext);
    }
    for (SCard& roCard : raoCards) // a flip that is under way must not meet the next order
        if (roCard.bPending)
            drmHandleEvent(roCard.iFd, &oContext);
}

void PrintTruth(const std::deque<SCard>& raoCards)
{
    for (const SCard& roCard : raoCards)
    {
        uint64_t uiSequence = 0;
        uint64_t uiStampNs = 0;
        Check(drmCrtcGetSequence(roCard.iFd, roCard.uiCrtc, &uiSequence, &uiStampNs), "drmCrtcGetSequence");
        const drmModeModeInfo& roMode = roCard.oMode;
        std::printf("truth %s stamp %llu hz %.9f flips %llu\n", roCard.szNode.c_str(),
                    static_cast<unsigned long long>(uiStampNs), roMode.clock * 1000.0 / (roMode.htotal * roMode.vtotal),
                    static_cast<unsigned long long>(roCard.uiFlips));
    }
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::vector<std::string> aszOrders(pszArguments + 1, pszArguments + iArguments);
    std::deque<SCard> aoCards; // its elements stay where they are: the kernel hands their addresses back
    for (size_t uiAt = 0; uiAt < aszOrders.size(); uiAt++)
    {
        const std::string& rszOrder = aszOrders[uiAt];
        const auto Next = [&] { return ++uiAt < aszOrders.size() ? aszOrders[uiAt].c_str() : ""; };
        if (rszOrder == "card")
            aoCards.push_back(OpenCard(Next()));
        else if (rszOrder == "mode")
        {
            std::array<uint32_t, 9> auiTimings;
            for (uint32_t& ruiTiming : auiTimings)
                ruiTiming = static_cast<uint32_t>(std::atoi(Next()));
            SetMode(aoCards.back(), auiTimings);
        }
        else if (rszOrder == "flip")
            Flip(aoCards, std::atoi(Next()));
        else if (rszOrder == "hold")
            poll(nullptr, 0, std::atoi(Next()));
        else if (rszOrder == "off")
            SwitchOff(aoCards.back());
        else if (rszOrder == "on")
            SwitchOn(aoCards.back());
        else if (rszOrder == "truth")
            PrintTruth(aoCards);
        else
            Fail(("unknown order " + rszOrder).c_str());
    }
    std::printf("done\n");
    return 0;
}
