#include "ExportCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "CsvExport.h"
#include "Notice.h"
#include "PerfettoExport.h"
#include "RecordingFile.h"

namespace
{

struct SFileCloser
{
    void operator()(FILE* poFile) const { static_cast<void>(std::fclose(poFile)); }
};

std::string FindName(const CRecordingReader& roReader, const SStreamKey& roStream)
{
    std::string szName;
    for (const SRecordedDescription& roDescription : roReader.GetDescriptions())
    {
        szName = roDescription.oStream == roStream ? roDescription.szName : szName;
    }
    return szName;
}

// A stream as far as the other side takes it.
CFault ExportStream(CRecordingReader& roReader, const SRecordedStream& roStream, IRecordingExport& roExport,
                    bool& rbIsTaken)
{
    rbIsTaken = rbIsTaken && roExport.BeginStream(roStream.oKey, FindName(roReader, roStream.oKey));
    CFault oFault = roReader.ForEachField(roStream, [&](const SFieldRecord& roField)
                                          { rbIsTaken = rbIsTaken && roExport.AddField(roField); });
    for (const SWatchEvent& roEvent : roReader.GetEvents())
    {
        rbIsTaken = rbIsTaken && (roEvent.oKey != roStream.oKey || roExport.AddEvent(roEvent));
    }
    rbIsTaken = rbIsTaken && roExport.EndStream();
    return oFault;
}

CFault Export(CRecordingReader& roReader, IRecordingExport& roExport, bool& rbIsTaken)
{
    rbIsTaken = roExport.Begin(roReader.GetAbout(), roReader.GetClocks().back());
    for (const SRecordedStream& roStream : roReader.GetStreams())
    {
        if (CFault oFault = ExportStream(roReader, roStream, roExport, rbIsTaken))
        {
            return oFault;
        }
    }
    return {};
}

CFault Run(const SExportOptions& roOptions)
{
    CRecordingReader oReader;
    if (CFault oFault = oReader.Open(roOptions.szFile))
    {
        return oFault;
    }
    const bool bToFile = !roOptions.szOutput.empty() && roOptions.szOutput != "-";
    const std::unique_ptr<FILE, SFileCloser> poOwned(bToFile ? std::fopen(roOptions.szOutput.c_str(), "wbe") : nullptr);
    if (bToFile && !poOwned)
    {
        return CFault(roOptions.szOutput + ": " + std::strerror(errno));
    }
    FILE* poOut = bToFile ? poOwned.get() : stdout;
    const ExportSink fnSink = [poOut](std::string_view szBytes)
    { return std::fwrite(szBytes.data(), 1, szBytes.size(), poOut) == szBytes.size(); };
    const std::unique_ptr<IRecordingExport> poExport =
        roOptions.eForm == EExportForm::PERFETTO ? PerfettoExport_Make(fnSink) : CsvExport_Make(fnSink);
    bool bIsTaken = true;
    CFault oFault = Export(oReader, *poExport, bIsTaken);
    if (!oFault && (!bIsTaken || std::fflush(poOut) != 0))
    {
        oFault = CFault((bToFile ? roOptions.szOutput : "standard output") + ": cannot be written (" +
                        std::strerror(errno) + ")");
    }
    return oFault;
}

} // namespace

int ExportCommand_Run(const SExportOptions& roOptions)
{
    if (const CFault oFault = Run(roOptions))
    {
        Notice_Say(oFault.GetText());
        return iExitFailure;
    }
    return iExitOk;
}
