#include "InputRemark.h"
#include "StreamName.h"
#include "TraceLine.h"

#include <gtest/gtest.h>
#include <tuple>

using namespace LinuxBoard;

namespace
{

constexpr const char* szTraced =
    "  GuestVideo-123     [000] .....    12.345678: v4l2_dqbuf: minor = 2, index = 3, type = VIDEO_CAPTURE, "
    "bytesused = 614400, flags = MAPPED|TIMESTAMP_UNKNOWN|TIMESTAMP_MONOTONIC|0x10000, field = BOTTOM, timestamp = "
    "12345000111, "
    "timecode = { type = 0, flags = , frames = 0, seconds = 0, minutes = 0, hours = 0, userbits = { 0 0 0 0 } }, "
    "sequence = 4294967295";

std::string With(const std::string& rszOld, const std::string& rszNew)
{
    std::string szLine = szTraced;
    return szLine.replace(szLine.find(rszOld), rszOld.size(), rszNew);
}

} // namespace

TEST(TraceLine, ReadsWhatTheKernelWritesAndNothingElse)
{
    STracedBuffer oBuffer;
    ASSERT_TRUE(TraceLine_Parse(szTraced, oBuffer));
    EXPECT_EQ(oBuffer.iMinor, 2);
    EXPECT_TRUE(oBuffer.bCapture && oBuffer.bMonotonicStamp);
    EXPECT_EQ(oBuffer.oFrame.uiSequence, 4294967295U);
    EXPECT_EQ(oBuffer.oFrame.uiStampNs, 12345000111U);
    EXPECT_EQ(oBuffer.oFrame.eParity, EFieldParity::Bottom);
    EXPECT_TRUE(TraceLine_Parse(With("VIDEO_CAPTURE", "VIDEO_OUTPUT"), oBuffer) && !oBuffer.bCapture);
    EXPECT_TRUE(TraceLine_Parse(With("|TIMESTAMP_MONOTONIC", ""), oBuffer) && !oBuffer.bMonotonicStamp);
    for (const std::string& rszLine : {std::string("CPU:0 [LOST 12 EVENTS]"), std::string(szTraced).substr(0, 200),
                                       With("v4l2_dqbuf", "v4l2_qbuf"), With("minor = 2", "minor = x"), std::string()})
        EXPECT_FALSE(TraceLine_Parse(rszLine, oBuffer)) << rszLine;
}

TEST(StreamName, FitsAndKeepsTheRemark)
{
    const std::tuple<std::string, const char*, const char*, std::string, bool> aoRows[] = {
        {"card0-HDMI-A-1", "", "", "card0-HDMI-A-1", false},
        {"vivid-000-vid-cap", "end of frame", "", "vivid-000-vid-cap (end of frame)", false},
        {"vivid-000-vid-cap", "no per-frame data: not the owner, no trace access", "no per-frame data: no trace access",
         "vivid-000-vid-cap (no per-frame data: no trace access)", true},
        {std::string(70, 'n'), "end of frame", "", std::string(48, 'n') + " (end of frame)", true},
        {"a\x1b[2J", "", "", "a?[2J", false},
        {std::string(62, '1') + "\xC3\xA9", "", "", std::string(62, '1'), true},
    };
    for (const auto& [szName, pszRemark, pszShort, szExpected, bCut] : aoRows)
    {
        const SStreamName oName = StreamName_Build(szName.c_str(), pszRemark, pszShort);
        EXPECT_EQ(oName.szText, szExpected);
        EXPECT_EQ(oName.bCut, bCut) << szName;
    }
}

TEST(InputRemark, NamesWhatLacksAndNothingBesides)
{
    const std::tuple<SInputFacts, const char*, const char*> aoRows[] = {
        {{EFrameSource::Own, true, false, true}, "", ""},
        {{EFrameSource::Trace, true, false, false}, "end of frame", "end of frame"},
        {{EFrameSource::Trace, false, true, true},
         "in use, buffers not told, nominal rate unknown",
         "in use, rate unknown"},
        {{EFrameSource::ReadByCalls, false, false, false},
         "no per-frame data: its owner uses read()",
         "no per-frame data: read()"},
    };
    for (const auto& [oFacts, pszFull, pszShort] : aoRows)
    {
        EXPECT_EQ(InputRemark_Of(oFacts).szFull, pszFull);
        EXPECT_EQ(InputRemark_Of(oFacts).szShort, pszShort);
    }
}
