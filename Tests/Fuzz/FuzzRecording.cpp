// Whatever a file holds is a recording or is refused in one line, by the watch and by the board that would play it.
#include <string>
#include <unistd.h>

#include "RecordingFile.h"
#include "Replay.h"
#include "Require.h"

namespace
{

void ReadAsWatch(std::span<const uint8_t> aoBytes)
{
    CRecordingReader oReader;
    if (const CFault oFault = oReader.OpenBytes(aoBytes))
    {
        RequireOneLine(oFault.GetText());
        return;
    }
    Require(oReader.GetAbout().uiTickFrequencyHz > 0 && !oReader.GetClocks().empty());
    for (const SRecordedStream& roStream : oReader.GetStreams())
    {
        const CFault oFault = oReader.ForEachField(
            roStream, [](const SFieldRecord& roField)
            { Require(roField.eResult <= EWaitResult::GONE && roField.uiArrivalNs <= INT64_MAX); });
        Require(!oFault || oFault.GetText().find('\n') == std::string::npos);
    }
}

void ReadAsBoard(std::span<const uint8_t> aoBytes)
{
    static const std::string szFile = "/tmp/FuzzRecording." + std::to_string(getpid());
    FILE* poFile = std::fopen(szFile.c_str(), "wb");
    Require(poFile != nullptr);
    std::fwrite(aoBytes.data(), 1, aoBytes.size(), poFile);
    std::fclose(poFile);
    SReplay oReplay;
    std::string szWhy;
    if (!Replay_Read(szFile, oReplay, szWhy))
    {
        Require(!szWhy.empty());
    }
    else
    {
        Require(oReplay.uiTickFreqHz > 0 && oReplay.aoInputs.size() <= 32 && oReplay.aoOutputs.size() <= 32);
    }
    unlink(szFile.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* puiData, size_t uiSize)
{
    ReadAsWatch({puiData, uiSize});
    ReadAsBoard({puiData, uiSize});
    return 0;
}
