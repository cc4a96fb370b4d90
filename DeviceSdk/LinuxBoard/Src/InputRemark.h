/*
 * What the name of an input says of its figures, from what is known of the input. Text only; entered by any thread,
 * keeps nothing.
 */
#ifndef LINUX_BOARD_INPUT_REMARK_H
#define LINUX_BOARD_INPUT_REMARK_H

#include <string>

enum class EFrameSource
{
    OWN,           /* we stream the input */
    TRACE,         /* the kernel's trace of what its owner fetches */
    NO_TRACE,      /* the trace may not be read */
    NO_TRACEFS,    /* there is none */
    TRACE_REFUSED, /* the kernel makes none */
    TRACE_TAKEN,   /* another process reads the prepared trace, which has one reader */
    READ_BY_CALLS, /* its owner uses read(), which the trace does not record */
};

struct SInputFacts
{
    EFrameSource eSource = EFrameSource::OWN;
    bool bRateFixed = true;    /* by the signal */
    bool bHidden = false;      /* its driver tells nobody but an owner of the buffers */
    bool bStampsStart = false; /* stamps mark the start of a frame */
    bool bInUse = false;       /* another program is known to have it */
};

struct SInputRemark
{
    std::string szFull;   /* empty when there is nothing to say */
    std::string szShort;  /* for a name that has no room for the full one */
    std::string szRemedy; /* what can be done about it; empty when nothing need be */
};

SInputRemark InputRemark_Of(const SInputFacts& roFacts);

#endif
