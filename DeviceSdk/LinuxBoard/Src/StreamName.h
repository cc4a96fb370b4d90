/*
 * The name of a stream as the tool shows it: the device's own, and in brackets what a reader of its figures must know.
 * Bounded by the interface's field. Text only; entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_STREAM_NAME_H
#define LINUX_BOARD_STREAM_NAME_H

#include <string>
#include <string_view>

struct SStreamName
{
    std::string szText;
    bool bCut = false; /* the long remark or a part of the name had to go */
};

/*
 * "szName (szRemark)", or "szName" alone without a remark. What does not fit loses first the long remark for the short
 * one (when there is a short one), then the end of the name; a remark is never cut. Control characters become '?'.
 */
SStreamName StreamName_Build(std::string_view szName, std::string_view szRemark, std::string_view szShortRemark = {});

#endif
