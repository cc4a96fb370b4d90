#include "InputProbe.h"

#include "OwnedCapture.h"
#include "TraceFeed.h"

namespace
{

/*
 * Whether the stamps of an input mark the start of a frame. Only buffers tell; without any, the drivers that are known
 * to stamp the start are, and the kernel's rule for all others is the end.
 */
bool StampsFrameStart(const CV4l2Node& roNode, bool bOwn)
{
    SBufferCensus oCensus = roNode.CountBuffers();
    if (oCensus.uiTotal == 0 && bOwn)
    {
        oCensus = COwnedCapture::TryBuffers(roNode);
    }
    if (oCensus.uiTotal == 0)
    {
        return roNode.Driver() == "uvcvideo";
    }
    return (oCensus.uiFlags & V4L2_BUF_FLAG_TSTAMP_SRC_MASK) == V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
}

EFrameSource ObservedSource(ETraceAccess eAccess, const SBufferCensus& roCensus)
{
    switch (eAccess)
    {
    case ETraceAccess::NONE:
        return EFrameSource::NO_TRACE;
    case ETraceAccess::ABSENT:
        return EFrameSource::NO_TRACEFS;
    case ETraceAccess::REFUSED:
        return EFrameSource::TRACE_REFUSED;
    case ETraceAccess::TAKEN:
        return EFrameSource::TRACE_TAKEN;
    case ETraceAccess::GRANTED:
        break;
    }
    return roCensus.IsReadByCalls() ? EFrameSource::READ_BY_CALLS : EFrameSource::TRACE;
}

} // namespace

SInputFacts InputProbe_Facts(const CV4l2Node& roNode, const std::string& szVideo, bool bOwn)
{
    const SBufferCensus oCensus = roNode.CountBuffers();
    SInputFacts oFacts;
    oFacts.bInUse = bOwn && oCensus.bHidden && !COwnedCapture::IsFree(roNode);
    oFacts.bHidden = oCensus.bHidden && (!bOwn || oFacts.bInUse);
    oFacts.bRateFixed = roNode.IsRateFixed();
    if (bOwn && oCensus.uiTotal == 0 && !oFacts.bInUse)
    {
        oFacts.eSource = EFrameSource::OWN;
    }
    else
    {
        oFacts.eSource = ObservedSource(CTraceFeed::Access(szVideo), oCensus);
    }
    oFacts.bStampsStart = StampsFrameStart(roNode, oFacts.eSource == EFrameSource::OWN);
    return oFacts;
}
