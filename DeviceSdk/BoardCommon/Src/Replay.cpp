// See Replay.h.
#include "Replay.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sys/stat.h>
#include <system_error>

#include "Sqlite.h"

namespace
{

constexpr int64_t iApplicationId = 0x56745672;
constexpr int64_t iNewestVersion = 1;
constexpr size_t uiMostDescriptions = 100'000; // of a stream
constexpr uint32_t uiMostStreams = 32;         // of a direction
constexpr size_t uiMostNameBytes = 256;
constexpr uint64_t uiMostTick = uint64_t{1} << 61U;

bool Refuse(std::string& rszWhy, const std::string& rszSays)
{
    rszWhy = rszSays;
    return false;
}

std::string PrintId(const SReplayStream& roStream)
{
    return (roStream.bIsInput ? "IN_" : "OUT_") + std::string(roStream.uiIndex < 10 ? "0" : "") +
           std::to_string(roStream.uiIndex);
}

bool CheckLayout(CSqlite& roFile, std::string& rszWhy)
{
    const int64_t iTables = roFile.Ask("SELECT count(*) FROM sqlite_schema WHERE type='table' AND name IN "
                                       "('about', 'streams', 'descriptions', 'fields', 'events', 'clock')");
    if (iTables < 0)
    {
        return Refuse(rszWhy, roFile.GetFault());
    }
    if (roFile.Ask("PRAGMA application_id") != iApplicationId)
    {
        return Refuse(rszWhy, "is a database, but no recording");
    }
    const int64_t iVersion = roFile.Ask("PRAGMA user_version");
    if (iVersion > iNewestVersion)
    {
        return Refuse(rszWhy, "is of a newer layout (" + std::to_string(iVersion) + ", known is " +
                                  std::to_string(iNewestVersion) + ")");
    }
    // Neither a view nor a column that is worked out: reading a row must cost no more than its bytes.
    const int64_t iActive = roFile.Ask("SELECT count(*) FROM sqlite_schema WHERE type IN ('view', 'trigger') "
                                       "OR sql LIKE 'create virtual%' OR sql LIKE '% as (%' OR sql LIKE '% as(%'");
    return (iTables == 6 && iActive == 0) || Refuse(rszWhy, "has not the tables of a recording");
}

bool ReadClock(CSqlite& roFile, SReplay& roReplay, std::string& rszWhy)
{
    CSqliteRows oAbout(roFile, "SELECT value FROM about WHERE key='tick_frequency_hz'");
    const std::string szFrequency = oAbout.Next() ? oAbout.GetText() : std::string();
    std::from_chars(szFrequency.data(), szFrequency.data() + szFrequency.size(), roReplay.uiTickFreqHz);
    if (roReplay.uiTickFreqHz == 0)
    {
        return Refuse(rszWhy, "table about: no frequency of the ticks");
    }
    CSqliteRows oClock(roFile, "SELECT tick, monotonic_ns FROM clock ORDER BY rowid DESC LIMIT 1");
    if (!oClock.Next())
    {
        return Refuse(rszWhy, "table clock is empty");
    }
    roReplay.uiClockTick = oClock.GetBounded(uiMostTick);
    roReplay.iClockNs = static_cast<int64_t>(oClock.GetBounded(INT64_MAX));
    return oClock.IsValid() || Refuse(rszWhy, "table clock: no moment");
}

// The row that the other tables name it by stands beside each.
using StreamRows = std::vector<std::pair<int64_t, SReplayStream>>;

bool ReadStreams(CSqlite& roFile, StreamRows& raoStreams, std::string& rszWhy)
{
    CSqliteRows oRows(roFile, "SELECT stream, direction, stream_index FROM streams ORDER BY direction, stream_index");
    uint32_t auiNext[2] = {};
    while (oRows.Next())
    {
        SReplayStream oStream;
        const int64_t iRow = oRows.GetInt();
        const std::string szDirection = oRows.GetText();
        oStream.bIsInput = szDirection == "input";
        oStream.uiIndex = static_cast<uint32_t>(oRows.GetBounded(uiMostStreams - 1));
        if (!oRows.IsValid() || (!oStream.bIsInput && szDirection != "output") ||
            oStream.uiIndex != auiNext[oStream.bIsInput ? 0 : 1]++)
        {
            return Refuse(rszWhy, "table streams: row " + std::to_string(iRow) + " is no stream, or one is left out");
        }
        raoStreams.emplace_back(iRow, std::move(oStream));
    }
    return !oRows.HasFailed() || Refuse(rszWhy, roFile.GetFault());
}

void ReadFlags(CSqliteRows& roRows, VtVideo_VidParam& roVidParam)
{
    roVidParam.bInterlaced = roRows.GetBounded(1) & 1U;
    roVidParam.bBottomFieldFirst = roRows.GetBounded(1) & 1U;
    roVidParam.bHorizontalSyncPositive = roRows.GetBounded(1) & 1U;
    roVidParam.bVerticalSyncPositive = roRows.GetBounded(1) & 1U;
    roVidParam.bIsYuv = roRows.GetBounded(1) & 1U;
    roVidParam.fColorSpace = roRows.GetBounded(15) & 15U;
    roVidParam.fChromaSubSampling = roRows.GetBounded(3) & 3U;
    roVidParam.fColorDepth = roRows.GetBounded(3) & 3U;
    roVidParam.fIs3GLevelB = roRows.GetBounded(1) & 1U;
}

bool ReadDescriptions(CSqlite& roFile, int64_t iRow, SReplayStream& roStream, std::string& rszWhy)
{
    CSqliteRows oRows(roFile,
                      "SELECT moment_ns, h_active, v_active, v_rate_hz, h_rate_khz, pixel_clock_khz, h_front_porch, "
                      "h_sync, h_back_porch, v_front_porch, v_sync, v_back_porch, interlaced, bottom_field_first, "
                      "h_sync_positive, v_sync_positive, yuv, color_space, chroma_subsampling, color_depth, "
                      "is_3g_level_b, pixel_format, width, height, buffers, capture_state, power_state, name "
                      "FROM descriptions WHERE stream=? ORDER BY moment_ns",
                      iRow);
    while (oRows.Next())
    {
        SReplayDescription oDescription;
        VtVideo_VidParam& roVidParam = oDescription.oVidParam;
        oDescription.iMomentNs = static_cast<int64_t>(oRows.GetBounded(INT64_MAX));
        for (uint32_t VtVideo_VidParam::*puiMember :
             {&VtVideo_VidParam::uiHActive, &VtVideo_VidParam::uiVActive, &VtVideo_VidParam::uiVRate_Hz,
              &VtVideo_VidParam::uiHRate_kHz, &VtVideo_VidParam::uiPixelClock_kHz, &VtVideo_VidParam::uiHFPorch,
              &VtVideo_VidParam::uiHSync, &VtVideo_VidParam::uiHBPorch, &VtVideo_VidParam::uiVFPorch,
              &VtVideo_VidParam::uiVSync, &VtVideo_VidParam::uiVBPorch})
        {
            roVidParam.*puiMember = static_cast<uint32_t>(oRows.GetBounded(UINT32_MAX));
        }
        ReadFlags(oRows, roVidParam);
        oDescription.ePixelFormat = static_cast<VtPixelFormat>(oRows.GetBounded(UINT32_MAX));
        for (uint32_t SReplayDescription::*puiMember :
             {&SReplayDescription::uiWidth, &SReplayDescription::uiHeight, &SReplayDescription::uiBuffers,
              &SReplayDescription::uiCaptureState, &SReplayDescription::uiPowerState})
        {
            oDescription.*puiMember = static_cast<uint32_t>(oRows.GetBounded(UINT32_MAX));
        }
        roStream.szName = oRows.GetText().substr(0, uiMostNameBytes);
        if (!oRows.IsValid() || roStream.aoDescriptions.size() == uiMostDescriptions)
        {
            return Refuse(rszWhy, "table descriptions: one of " + PrintId(roStream) + " is none");
        }
        roStream.aoDescriptions.push_back(oDescription);
    }
    return !oRows.HasFailed() || Refuse(rszWhy, roFile.GetFault());
}

// What a wait told of its field; false when it told only some of it.
bool ReadField(CSqliteRows& roRows, SReplayWait& roWait)
{
    const bool bIsField = !roRows.IsNextNull();
    SReplayWait oField;
    oField.uiTick = roRows.GetBounded(uiMostTick);
    oField.uiFieldCounter = static_cast<uint64_t>(roRows.GetInt());
    oField.uiSetBufferCounter = static_cast<uint64_t>(roRows.GetInt());
    oField.bIsTopField = roRows.GetBounded(1) != 0;
    oField.bHasBuffers = !roRows.IsNextNull();
    oField.uiReady = static_cast<uint16_t>(roRows.GetBounded(UINT16_MAX));
    oField.uiLoaned = static_cast<uint16_t>(roRows.GetBounded(UINT16_MAX));
    oField.uiInternal = static_cast<uint16_t>(roRows.GetBounded(UINT16_MAX));
    oField.bHasSkipped = !roRows.IsNextNull();
    oField.uiSkipped = static_cast<uint64_t>(roRows.GetInt());
    oField.iWaitBeginNs = static_cast<int64_t>(roRows.GetBounded(INT64_MAX));
    oField.iArrivalNs = static_cast<int64_t>(roRows.GetBounded(INT64_MAX));
    oField.eResult = static_cast<EReplayResult>(roRows.GetBounded(3) & 3U);
    if (oField.eResult == EReplayResult::FIELD)
    {
        roWait = oField;
        return bIsField && roRows.IsValid();
    }
    roWait.iWaitBeginNs = oField.iWaitBeginNs;
    roWait.iArrivalNs = oField.iArrivalNs;
    roWait.eResult = oField.eResult;
    return !bIsField && roRows.IsValid();
}

bool ReadWaits(CSqlite& roFile, int64_t iRow, SReplayStream& roStream, uint64_t& ruiLeft, std::string& rszWhy)
{
    CSqliteRows oRows(roFile,
                      "SELECT tick, field_counter, set_buffer_counter, parity, ready, loaned, internal, skipped, "
                      "wait_begin_ns, arrival_ns, result FROM fields WHERE stream=? ORDER BY rowid",
                      iRow);
    SReplayWait oWait;
    while (oRows.Next())
    {
        if (!ReadField(oRows, oWait))
        {
            return Refuse(rszWhy, "table fields: row " + std::to_string(roStream.aoWaits.size() + 1) + " of " +
                                      PrintId(roStream) + " is no field");
        }
        if (ruiLeft-- == 0)
        {
            return Refuse(rszWhy, "has more than " + std::to_string(uiMostReplayWaits) + " waits");
        }
        roStream.aoWaits.push_back(oWait);
    }
    return !oRows.HasFailed() || Refuse(rszWhy, roFile.GetFault());
}

} // namespace

bool Replay_Read(const std::string& rszFile, SReplay& roReplay, std::string& rszWhy)
{
    // Only a file is opened: the name of a queue would wait for somebody who writes.
    struct stat oStat = {};
    if (stat(rszFile.c_str(), &oStat) != 0)
    {
        return Refuse(rszWhy, std::generic_category().message(errno));
    }
    if (!S_ISREG(oStat.st_mode))
    {
        return Refuse(rszWhy, "is no regular file");
    }
    CSqlite oFile;
    StreamRows aoStreams;
    if (!oFile.Open(rszFile, rszWhy) || !CheckLayout(oFile, rszWhy) || !ReadClock(oFile, roReplay, rszWhy) ||
        !ReadStreams(oFile, aoStreams, rszWhy))
    {
        return false;
    }
    uint64_t uiLeft = uiMostReplayWaits;
    for (auto& [iRow, oStream] : aoStreams)
    {
        if (!ReadDescriptions(oFile, iRow, oStream, rszWhy) || !ReadWaits(oFile, iRow, oStream, uiLeft, rszWhy))
        {
            return false;
        }
        (oStream.bIsInput ? roReplay.aoInputs : roReplay.aoOutputs).push_back(std::move(oStream));
    }
    return !aoStreams.empty() || Refuse(rszWhy, "has no streams");
}
