#include "InputRemark.h"

namespace
{

constexpr const char* szTraceRemedy =
    "prepare its trace for your group, run as root, or set VELTRANO_INPUT_MODE=own (docs/LinuxBoard.md, \"Rights\")";
constexpr const char* szMountRemedy = "mount it (mount -t tracefs nodev /sys/kernel/tracing), or set "
                                      "VELTRANO_INPUT_MODE=own (docs/LinuxBoard.md, \"Rights\")";
constexpr const char* szRefusedRemedy = "see what the kernel lacks (dmesg), prepare its trace after boot, or set "
                                        "VELTRANO_INPUT_MODE=own (docs/LinuxBoard.md, \"Rights\")";
constexpr const char* szTakenRemedy = "end the other program, or run this one as root (docs/LinuxBoard.md, \"Rights\")";
constexpr const char* szReadRemedy = "let its owner stream, as with v4l2-ctl --stream-mmap (docs/LinuxBoard.md, "
                                     "\"What there is\")";

void Add(SInputRemark& roRemark, const char* szFull, const char* szShort)
{
    roRemark.szFull += (roRemark.szFull.empty() ? "" : ", ") + std::string(szFull);
    roRemark.szShort += (roRemark.szShort.empty() ? "" : ", ") + std::string(szShort);
}

} // namespace

SInputRemark InputRemark_Of(const SInputFacts& roFacts)
{
    switch (roFacts.eSource)
    {
    case EFrameSource::NO_TRACE:
        return {"no per-frame data: not the owner, no trace access", "no per-frame data: no trace access",
                szTraceRemedy};
    case EFrameSource::NO_TRACEFS:
        return {"no per-frame data: the kernel's trace is not mounted", "no per-frame data: no trace", szMountRemedy};
    case EFrameSource::TRACE_REFUSED:
        return {"no per-frame data: the kernel makes no trace", "no per-frame data: no trace", szRefusedRemedy};
    case EFrameSource::TRACE_TAKEN:
        return {"no per-frame data: another program reads its prepared trace", "no per-frame data: trace taken",
                szTakenRemedy};
    case EFrameSource::READ_BY_CALLS:
        return {"no per-frame data: its owner uses read()", "no per-frame data: read()", szReadRemedy};
    case EFrameSource::OWN:
    case EFrameSource::TRACE:
        break;
    }
    SInputRemark oRemark;
    if (roFacts.bHidden && roFacts.bInUse)
    {
        Add(oRemark, "in use, buffers not told", "in use");
    }
    else if (roFacts.bHidden)
    {
        Add(oRemark, "buffers not told", "buffers not told");
    }
    if (!roFacts.bRateFixed)
    {
        Add(oRemark, "nominal rate unknown", "rate unknown");
    }
    if (!roFacts.bStampsStart)
    {
        Add(oRemark, "end of frame", "end of frame");
    }
    return oRemark;
}
