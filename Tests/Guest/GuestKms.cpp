/*
 * Plays the program that drives displays: becomes master of cards, sets modes, flips buffers, switches off and on.
 * Its arguments are the orders, obeyed one after the other:
 *   card <node>                 opens a card and becomes its master; later orders are for it
 *   watch <node>                opens a card without becoming its master
 *   blanks <ms>                 waits for each vertical blank of the card, and does nothing else
 *   mode <kHz> <8 positions>    sets a mode on the first connector (hdisplay ... vtotal)
 *   phase <us>                  starts the card's vertical blanks so much later than those of the first card
 *   late <permille> <permille>  from now on buffers are set this part of a field after its start, in turn; 0 at first
 *   flip <ms>                   flips in every field of all cards that have a mode
 *   hold <ms>                   does nothing
 *   off | on                    switches the CRTC off, and on again with the same mode
 *   vrr <0|1>                   whether the CRTC may stretch its fields
 *   truth                       prints the stamp of each card's last vertical blank
 *   verbose                     from now on each flip is printed: card, sequence, stamp in us
 */
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <map>
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
    std::array<uint32_t, 3> auiFramebuffers{};
    size_t uiShown = 0;
    uint64_t uiFlips = 0;
    CClock::time_point oFieldStart;
    bool bPending = false;
    bool bOn = false;

    double Hz() const { return oMode.clock * 1000.0 / (oMode.htotal * oMode.vtotal); }
};

// When in a field buffers are set, in turn.
std::array<int, 2> g_aiLatePermille{};
bool g_bVerbose = false;

[[noreturn]] void Fail(const char* szWhat)
{
    std::printf("FAILED %s: %s\n", szWhat, std::strerror(errno));
    std::exit(1);
}

void Check(int iResult, const char* szWhat)
{
    if (iResult != 0)
    {
        Fail(szWhat);
    }
}

SCard OpenCard(const char* szNode, bool bMaster)
{
    SCard oCard;
    oCard.szNode = szNode;
    oCard.iFd = open(szNode, O_RDWR | O_CLOEXEC);
    if (oCard.iFd < 0)
    {
        Fail("open");
    }
    if (bMaster)
    {
        Check(drmSetMaster(oCard.iFd), "drmSetMaster");
    }
    drmModeRes* poResources = drmModeGetResources(oCard.iFd);
    if (poResources == nullptr || poResources->count_connectors == 0 || poResources->count_crtcs == 0)
    {
        Fail("drmModeGetResources");
    }
    oCard.uiConnector = poResources->connectors[0];
    oCard.uiCrtc = poResources->crtcs[0];
    drmModeFreeResources(poResources);
    std::printf("%s %s\n", bMaster ? "master" : "opened", szNode);
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
    {
        *apuiPositions[uiIndex] = static_cast<uint16_t>(rauiTimings[uiIndex + 1]);
    }
    std::snprintf(roMode.name, sizeof(roMode.name), "test");
    for (uint32_t& ruiFramebuffer : roCard.auiFramebuffers)
    {
        ruiFramebuffer = MakeFramebuffer(roCard);
    }
    SwitchOn(roCard);
}

uint64_t StampNs(const SCard& roCard)
{
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    Check(drmCrtcGetSequence(roCard.iFd, roCard.uiCrtc, &uiSequence, &uiStampNs), "drmCrtcGetSequence");
    return uiStampNs;
}

// The virtual card counts its fields from the moment at which somebody first wants to know of them.
void StartAtPhase(const SCard& roFirst, SCard& roCard, int iUs)
{
    constexpr CClock::duration SWITCHING{std::chrono::milliseconds(50)};
    SwitchOff(roCard);
    SwitchOn(roCard);
    const CClock::duration oPeriod{static_cast<int64_t>(1e9 / roFirst.Hz())};
    CClock::time_point oStart{std::chrono::nanoseconds(StampNs(roFirst)) + std::chrono::microseconds(iUs)};
    while (oStart < CClock::now() + SWITCHING)
    {
        oStart += oPeriod;
    }
    while (CClock::now() < oStart)
    {
    }
    uint64_t uiQueued = 0;
    Check(drmCrtcQueueSequence(roCard.iFd, roCard.uiCrtc, DRM_CRTC_SEQUENCE_RELATIVE, 1, &uiQueued, 0),
          "drmCrtcQueueSequence");
}

void OnFlip(int /*iFd*/, unsigned int uiSequence, unsigned int uiSeconds, unsigned int uiMicroseconds, void* pvCard)
{
    auto* poCard = static_cast<SCard*>(pvCard);
    poCard->bPending = false;
    poCard->uiFlips++;
    poCard->oFieldStart =
        CClock::time_point(std::chrono::seconds(uiSeconds) + std::chrono::microseconds(uiMicroseconds));
    if (g_bVerbose)
    {
        std::printf("flip %s %u %u%06u\n", poCard->szNode.c_str(), uiSequence, uiSeconds, uiMicroseconds);
    }
}

void OnSequence(int /*iFd*/, uint64_t /*uiSequence*/, uint64_t /*uiNs*/, uint64_t /*uiUser*/) {}

// Flips a card whose moment has come; otherwise brings roWake forward to it.
void FlipWhenDue(SCard& roCard, CClock::time_point& roWake)
{
    if (!roCard.bOn || roCard.bPending)
    {
        return;
    }
    const CClock::duration oPeriod{static_cast<int64_t>(1e9 / roCard.Hz())};
    const CClock::time_point oDue = roCard.oFieldStart + oPeriod * g_aiLatePermille[roCard.uiFlips % 2] / 1000;
    if (oDue > CClock::now())
    {
        roWake = std::min(roWake, oDue);
        return;
    }
    roCard.uiShown = (roCard.uiShown + 1) % roCard.auiFramebuffers.size();
    Check(drmModePageFlip(roCard.iFd, roCard.uiCrtc, roCard.auiFramebuffers[roCard.uiShown], DRM_MODE_PAGE_FLIP_EVENT,
                          &roCard),
          "drmModePageFlip");
    roCard.bPending = true;
}

void HandleEvents(SCard& roCard)
{
    drmEventContext oContext{};
    oContext.version = 4;
    oContext.page_flip_handler = OnFlip;
    oContext.sequence_handler = OnSequence;
    drmHandleEvent(roCard.iFd, &oContext);
}

void Flip(std::deque<SCard>& raoCards, int iMs)
{
    const auto oEnd = CClock::now() + std::chrono::milliseconds(iMs);
    while (CClock::now() < oEnd)
    {
        std::vector<pollfd> aoPolled;
        CClock::time_point oWake = CClock::now() + std::chrono::milliseconds(50);
        for (SCard& roCard : raoCards)
        {
            aoPolled.push_back({roCard.iFd, POLLIN, 0});
            FlipWhenDue(roCard, oWake);
        }
        const auto oWaitNs = std::chrono::nanoseconds(oWake - CClock::now()).count();
        const timespec oWait{0, std::clamp<long>(oWaitNs, 0, 999999999)};
        ppoll(aoPolled.data(), aoPolled.size(), &oWait, nullptr);
        for (size_t uiCard = 0; uiCard < raoCards.size(); uiCard++)
        {
            if ((aoPolled[uiCard].revents & POLLIN) != 0)
            {
                HandleEvents(raoCards[uiCard]);
            }
        }
    }
    for (SCard& roCard : raoCards)
    { // a flip that is under way must not meet the next order
        if (roCard.bPending)
        {
            HandleEvents(roCard);
        }
    }
}

void WaitForBlanks(const SCard& roCard, int iMs)
{
    const auto oEnd = CClock::now() + std::chrono::milliseconds(iMs);
    while (CClock::now() < oEnd)
    {
        drmVBlank oBlank{};
        oBlank.request.type = DRM_VBLANK_RELATIVE;
        oBlank.request.sequence = 1;
        Check(drmWaitVBlank(roCard.iFd, &oBlank), "drmWaitVBlank");
    }
}

void SetVariable(const SCard& roCard, int iOn)
{
    drmModeObjectProperties* poProperties = drmModeObjectGetProperties(roCard.iFd, roCard.uiCrtc, DRM_MODE_OBJECT_CRTC);
    for (uint32_t uiIndex = 0; poProperties != nullptr && uiIndex < poProperties->count_props; uiIndex++)
    {
        const drmModePropertyRes* poProperty = drmModeGetProperty(roCard.iFd, poProperties->props[uiIndex]);
        if (poProperty != nullptr && std::strcmp(poProperty->name, "VRR_ENABLED") == 0)
        {
            Check(drmModeObjectSetProperty(roCard.iFd, roCard.uiCrtc, DRM_MODE_OBJECT_CRTC, poProperty->prop_id,
                                           static_cast<uint64_t>(iOn)),
                  "drmModeObjectSetProperty");
        }
    }
}

void PrintTruth(const std::deque<SCard>& raoCards)
{
    for (const SCard& roCard : raoCards)
    {
        std::printf("truth %s stamp %llu hz %.9f flips %llu\n", roCard.szNode.c_str(),
                    static_cast<unsigned long long>(StampNs(roCard)), roCard.Hz(),
                    static_cast<unsigned long long>(roCard.uiFlips));
    }
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::vector<std::string> aszOrders(pszArguments + 1, pszArguments + iArguments);
    std::deque<SCard> aoCards; // its elements stay where they are: the kernel hands their addresses back
    size_t uiAt = 0;
    const auto Next = [&] { return ++uiAt < aszOrders.size() ? aszOrders[uiAt].c_str() : ""; };
    const auto Number = [&] { return std::atoi(Next()); };
    const std::map<std::string, std::function<void()>> aoOrders = {
        {"card", [&] { aoCards.push_back(OpenCard(Next(), true)); }},
        {"watch", [&] { aoCards.push_back(OpenCard(Next(), false)); }},
        {"blanks", [&] { WaitForBlanks(aoCards.back(), Number()); }},
        {"mode",
         [&]
         {
             std::array<uint32_t, 9> auiTimings;
             std::ranges::generate(auiTimings, [&] { return static_cast<uint32_t>(Number()); });
             SetMode(aoCards.back(), auiTimings);
         }},
        {"phase", [&] { StartAtPhase(aoCards.front(), aoCards.back(), Number()); }},
        {"late", [&] { std::ranges::generate(g_aiLatePermille, Number); }},
        {"verbose", [&] { g_bVerbose = true; }},
        {"flip", [&] { Flip(aoCards, Number()); }},
        {"hold", [&] { poll(nullptr, 0, Number()); }},
        {"off", [&] { SwitchOff(aoCards.back()); }},
        {"on", [&] { SwitchOn(aoCards.back()); }},
        {"vrr", [&] { SetVariable(aoCards.back(), Number()); }},
        {"truth", [&] { PrintTruth(aoCards); }},
    };
    for (; uiAt < aszOrders.size(); uiAt++)
    {
        const auto itOrder = aoOrders.find(aszOrders[uiAt]);
        if (itOrder == aoOrders.end())
        {
            Fail(("unknown order " + aszOrders[uiAt]).c_str());
        }
        itOrder->second();
    }
    std::printf("done\n");
    return 0;
}
