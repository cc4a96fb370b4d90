/*
 * Asks an open capture node what the remark behind its name is made of. Called on one thread, while devices are listed.
 */
#ifndef LINUX_BOARD_INPUT_PROBE_H
#define LINUX_BOARD_INPUT_PROBE_H

#include "InputRemark.h"
#include "V4l2Node.h"

/* szVideo: "video0". bOwn: an idle input is going to be streamed by us. */
SInputFacts InputProbe_Facts(const CV4l2Node& roNode, const std::string& szVideo, bool bOwn);

#endif
