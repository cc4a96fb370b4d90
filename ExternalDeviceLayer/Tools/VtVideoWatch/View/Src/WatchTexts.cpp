#include "WatchTexts.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "TimeUnits.h"

namespace
{

constexpr const char* szUnknown = "unknown";

constexpr std::array<const char*, 4> aszStates = {"running", "idle", "lost", "gone"};
static_assert(aszStates.size() == static_cast<size_t>(EStreamState::COUNT));
constexpr std::array<const char*, 5> aszLocks = {"locked", "passing", "free", "idle", "different"};
static_assert(aszLocks.size() == static_cast<size_t>(ELockState::COUNT));
constexpr std::array<const char*, 2> aszSlips = {"dropped", "repeated"};
constexpr std::array<const char*, 4> aszRateWindows = {"1s", "10s", "100s", "1000s"};
static_assert(aszRateWindows.size() == static_cast<size_t>(ERateWindow::COUNT));

template <typename EValue> struct SValueName
{
    EValue eValue;
    const char* szName;
};

constexpr SValueName<VtVideoIn_State> aoCaptureStates[] = {
    {VtVideoIn_State_INVALID, "invalid"},
    {VtVideoIn_State_NOT_INITIALIZED, "not_initialized"},
    {VtVideoIn_State_STARTED, "started"},
    {VtVideoIn_State_STOPPED, "stopped"},
};

constexpr SValueName<VtVideoOut_PowerState> aoPowerStates[] = {
    {VtVideoOut_PowerState_DISABLED, "disabled"}, {VtVideoOut_PowerState_ON, "on"},
    {VtVideoOut_PowerState_BLANKED, "blanked"},   {VtVideoOut_PowerState_STANDBY, "standby"},
    {VtVideoOut_PowerState_SUSPEND, "suspend"},   {VtVideoOut_PowerState_OFF, "off"},
};

template <typename EValue, size_t uiCount>
const char* GetName(const std::array<const char*, uiCount>& raszNames, EValue eValue)
{
    const auto uiValue = static_cast<size_t>(eValue);
    return uiValue < uiCount ? raszNames[uiValue] : szUnknown;
}

template <typename EValue, size_t uiCount>
const char* GetName(const SValueName<EValue> (&raoNames)[uiCount], EValue eValue)
{
    for (const auto& roName : raoNames)
    {
        if (roName.eValue == eValue)
        {
            return roName.szName;
        }
    }
    return szUnknown;
}

// Takes a number of exactly so many digits, and what follows it, off the front of a text.
bool TakeDigits(std::string_view& rszText, size_t uiDigits, char chAfter, int& riValue)
{
    if (rszText.size() < uiDigits)
    {
        return false;
    }
    const auto oResult = std::from_chars(rszText.data(), rszText.data() + uiDigits, riValue);
    if (oResult.ec != std::errc() || oResult.ptr != rszText.data() + uiDigits || riValue < 0)
    {
        return false;
    }
    rszText.remove_prefix(uiDigits);
    if (chAfter != '\0')
    {
        if (!rszText.starts_with(chAfter))
        {
            return false;
        }
        rszText.remove_prefix(1);
    }
    return true;
}

// What stands behind the whole seconds: nothing or ".123", then "Z".
bool TakeFraction(std::string_view szText, int64_t& riNs)
{
    if (!szText.ends_with('Z'))
    {
        return false;
    }
    szText.remove_suffix(1);
    if (szText.empty())
    {
        return true;
    }
    if (szText.front() != '.' || szText.size() < 2 || szText.size() > 10)
    {
        return false;
    }
    szText.remove_prefix(1);
    int64_t iUnit = iNsPerSecond;
    for (const char ch : szText)
    {
        if (ch < '0' || ch > '9')
        {
            return false;
        }
        iUnit /= 10;
        riNs += (ch - '0') * iUnit;
    }
    return true;
}

std::optional<int64_t> FindIso(std::string_view szText)
{
    std::tm oTime = {};
    int64_t iNs = 0;
    const bool bHasTime = szText.size() > 10;
    if (!TakeDigits(szText, 4, '-', oTime.tm_year) || !TakeDigits(szText, 2, '-', oTime.tm_mon) ||
        !TakeDigits(szText, 2, bHasTime ? 'T' : '\0', oTime.tm_mday))
    {
        return std::nullopt;
    }
    if (bHasTime && (!TakeDigits(szText, 2, ':', oTime.tm_hour) || !TakeDigits(szText, 2, ':', oTime.tm_min) ||
                     !TakeDigits(szText, 2, '\0', oTime.tm_sec) || !TakeFraction(szText, iNs)))
    {
        return std::nullopt;
    }
    if (oTime.tm_year < 1970 || oTime.tm_year > 2261 || oTime.tm_hour > 23 || oTime.tm_min > 59 || oTime.tm_sec > 59)
    {
        return std::nullopt;
    }
    oTime.tm_year -= 1900;
    oTime.tm_mon -= 1;
    const std::tm oAsked = oTime;
    const time_t iSeconds = timegm(&oTime);
    // timegm makes the 31st of June the 1st of July.
    if (oTime.tm_mon != oAsked.tm_mon || oTime.tm_mday != oAsked.tm_mday)
    {
        return std::nullopt;
    }
    return iSeconds * iNsPerSecond + iNs;
}

} // namespace

const char* WatchTexts_GetState(EStreamState eState)
{
    return GetName(aszStates, eState);
}
const char* WatchTexts_GetLock(ELockState eLock)
{
    return GetName(aszLocks, eLock);
}
const char* WatchTexts_GetSlip(ESlip eSlip)
{
    return GetName(aszSlips, eSlip);
}
const char* WatchTexts_GetCaptureState(VtVideoIn_State eState)
{
    return GetName(aoCaptureStates, eState);
}
const char* WatchTexts_GetPowerState(VtVideoOut_PowerState eState)
{
    return GetName(aoPowerStates, eState);
}
const char* WatchTexts_GetRateWindow(ERateWindow eWindow)
{
    return GetName(aszRateWindows, eWindow);
}

std::string WatchTexts_GetUtc(int64_t iUtcNs)
{
    int64_t iSeconds = iUtcNs / iNsPerSecond;
    int64_t iNs = iUtcNs % iNsPerSecond;
    if (iNs < 0)
    {
        iNs += iNsPerSecond;
        --iSeconds;
    }
    const time_t iTime = iSeconds;
    std::tm oTime = {};
    gmtime_r(&iTime, &oTime);
    char szTime[64];
    const size_t uiLength = std::strftime(szTime, sizeof(szTime), "%Y-%m-%dT%H:%M:%S", &oTime);
    std::snprintf(szTime + uiLength, sizeof(szTime) - uiLength, ".%09lldZ", static_cast<long long>(iNs));
    return szTime;
}

std::optional<int64_t> WatchTexts_FindUtc(std::string_view szText)
{
    int64_t iMilliseconds = 0;
    const char* pchEnd = szText.data() + szText.size();
    const auto oResult = std::from_chars(szText.data(), pchEnd, iMilliseconds);
    if (oResult.ec == std::errc() && oResult.ptr == pchEnd)
    {
        if (iMilliseconds < 0 || iMilliseconds > INT64_MAX / iNsPerMillisecond)
        {
            return std::nullopt;
        }
        return iMilliseconds * iNsPerMillisecond;
    }
    return FindIso(szText);
}
