#include "StreamName.h"
#include "TraceLine.h"

#include <gtest/gtest.h>

using namespace LinuxBoard;

namespace
{

constexpr const char* szTraced =
    "  GuestVideo-123     [000] .....    12.345678: v4l2_dqbuf: minor = 2, index = 3, type = VIDEO_CAPTURE, bytesused "
    "= "
    "614400, flags = MAPPED|TIMESTAMP_UNKNOWN|TIMESTAMP_MONOTONIC|0x10000, field = BOTTOM, timestamp = 12345000111, "
    "timecode = { type = 0, flags = , frames = 0, seconds = 0, minutes = 0, hours = 0, userbits = { 0 0 0 0 } }, "
    "sequence = 4294967295";

std::string With(std::string szLine, const std::string& rszOld, const std::string& rszNew)
{
    return szLine.replace(szLine.find(rszOld), rszOld.size(), rszNew);
}

} // namespace

TEST(TraceLine, ReadsWhatTheKernelWrites)
{
    STracedBuffer oBuffer;
    ASSERT_TRUE(TraceLine_Parse(szTraced, oBuffer));
    EXPECT_EQ(oBuffer.iMinor, 2);
    EXPECT_TRUE(oBuffer.bCapture);
    EXPECT_TRUE(oBuffer.bMonotonicStamp);
    EXPECT_EQ(oBuffer.oFrame.uiSequence, 4294967295U);
    EXPECT_EQ(oBuffer.oFrame.uiStampNs, 12345000111U);
    EXPECT_EQ(oBuffer.oFrame.eParity, EFieldParity::Bottom);
    ASSERT_TRUE(TraceLine_Parse(With(szTraced, "VIDEO_CAPTURE", "VIDEO_OUTPUT"), oBuffer));
    EXPECT_FALSE(oBuffer.bCapture);
    ASSERT_TRUE(TraceLine_Parse(With(szTraced, "|TIMESTAMP_MONOTONIC", ""), oBuffer));
    EXPECT_FALSE(oBuffer.bMonotonicStamp);
}

TEST(TraceLine, RefusesEverythingElse)
{
    STracedBuffer oBuffer;
    for (const std::string& rszLine :
         {std::string("CPU:0 [LOST 12 EVENTS]"), std::string(), With(szTraced, "v4l2_dqbuf", "v4l2_qbuf"),
          std::string(szTraced).substr(0, 200), With(szTraced, "minor = 2", "minor = x")})
        EXPECT_FALSE(TraceLine_Parse(rszLine, oBuffer)) << rszLine;
}

TEST(StreamName, FitsAndKeepsTheRemark)
{
    struct SRow
    {
        const char* szName;
        const char* szRemark;
        const char* szShort;
        const char* szExpected;
        bool bCut;
    };
    const std::string szLongName(70, 'n');
    const std::string szCutName = std::string(48, 'n') + " (end of frame)";
    const SRow aoRows[] = {
        {"card0-HDMI-A-1", "", "", "card0-HDMI-A-1", false},
        {"vivid-000-vid-cap", "end of frame", "", "vivid-000-vid-cap (end of frame)", false},
        {"vivid-000-vid-cap", "no per-frame data: not the owner, no trace access", "no per-frame data: no trace access",
         "vivid-000-vid-cap (no per-frame data: no trace access)", true},
        {szLongName.c_str(), "end of frame", "", szCutName.c_str(), true},
        {"a\x1b[2J", "", "", "a?[2J", false},
        {"12345678901234567890123456789012345678901234567890123456789012\xC3\xA9", "", "",
         "12345678901234567890123456789012345678901234567890123456789012", true},
    };
    for (const SRow& roRow : aoRows)
    {
        const SStreamName oName = StreamName_Build(roRow.szName, roRow.szRemark, roRow.szShort);
        EXPECT_EQ(oName.szText, roRow.szExpected);
        EXPECT_EQ(oName.bCut, roRow.bCut) << roRow.szName;
    }
}
