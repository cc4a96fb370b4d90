#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <span>
#include <tuple>

#include "InputRemark.h"
#include "StreamName.h"
#include "TraceRecord.h"

namespace
{

// The event of a kernel of today, with the fields where it has them.
constexpr STraceLayout oTraceLayout = {1234, {0, 2}, {8, 4}, {16, 4}, {24, 4}, {28, 4}, {32, 8}, {56, 4}};

struct SRecord
{
    uint16_t uiEventId = 1234;
    uint8_t acCommon[6]{};
    int32_t iMinor = 2;
    uint32_t uiIndex = 3;
    uint32_t uiType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    uint32_t uiBytes = 614400;
    uint32_t uiFlags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_ERROR;
    uint32_t uiField = V4L2_FIELD_BOTTOM;
    int64_t iStampNs = 12345000111;
    uint8_t acTimeCode[16]{};
    uint32_t uiSequence = 4294967295;
    uint32_t uiPadding = 0;
};
static_assert(sizeof(SRecord) == 64);

} // namespace

TEST(TraceRecord, ReadsWhatTheKernelWritesAndNothingElse)
{
    SRecord oRecord;
    const auto aoBytes = std::as_bytes(std::span(&oRecord, 1));
    STracedBuffer oBuffer;
    ASSERT_TRUE(TraceRecord_Read(oTraceLayout, aoBytes, oBuffer));
    EXPECT_EQ(oBuffer.uiMinor, 2U);
    EXPECT_TRUE(oBuffer.bCapture && oBuffer.bMonotonicStamp && oBuffer.oFrame.bError);
    EXPECT_EQ(oBuffer.oFrame.uiSequence, 4294967295U);
    EXPECT_EQ(oBuffer.oFrame.uiStampNs, 12345000111U);
    EXPECT_EQ(oBuffer.oFrame.eParity, EFieldParity::BOTTOM);
    oRecord.uiType = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    oRecord.uiFlags = V4L2_BUF_FLAG_TIMESTAMP_COPY;
    EXPECT_TRUE(TraceRecord_Read(oTraceLayout, aoBytes, oBuffer));
    EXPECT_FALSE(oBuffer.bCapture || oBuffer.bMonotonicStamp || oBuffer.oFrame.bError);
    EXPECT_FALSE(TraceRecord_Read(oTraceLayout, aoBytes.first(58), oBuffer)) << "cut in the sequence";
    oRecord.uiType = V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    oRecord.uiField = V4L2_FIELD_TOP;
    EXPECT_TRUE(TraceRecord_Read(oTraceLayout, aoBytes, oBuffer) && oBuffer.bCapture);
    EXPECT_EQ(oBuffer.oFrame.eParity, EFieldParity::TOP);
    oRecord.uiEventId = 1235;
    EXPECT_FALSE(TraceRecord_Read(oTraceLayout, aoBytes, oBuffer)) << "another event";
    EXPECT_GE(TraceRecord_BufferKb(240) * 1024, 240U * 72);
    EXPECT_GT(TraceRecord_BufferKb(0), 0U);
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
        {std::string(70, '\x80'), "", "", "", true},
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
        {{EFrameSource::OWN, true, false, true}, "", ""},
        {{EFrameSource::TRACE, true, false, false}, "end of frame", "end of frame"},
        {{EFrameSource::TRACE, false, true, true},
         "buffers not told, nominal rate unknown",
         "buffers not told, rate unknown"},
        {{EFrameSource::TRACE, false, true, true, true},
         "in use, buffers not told, nominal rate unknown",
         "in use, rate unknown"},
        {{EFrameSource::READ_BY_CALLS, false, false, false},
         "no per-frame data: its owner uses read()",
         "no per-frame data: read()"},
        {{EFrameSource::NO_TRACEFS, true, false, false},
         "no per-frame data: the kernel's trace is not mounted",
         "no per-frame data: no trace"},
    };
    for (const auto& [oFacts, pszFull, pszShort] : aoRows)
    {
        EXPECT_EQ(InputRemark_Of(oFacts).szFull, pszFull);
        EXPECT_EQ(InputRemark_Of(oFacts).szShort, pszShort);
        EXPECT_EQ(InputRemark_Of(oFacts).szRemedy.empty(),
                  oFacts.eSource == EFrameSource::OWN || oFacts.eSource == EFrameSource::TRACE);
    }
}
