#include "ReportCommand.h"

#include <cstdio>

#include "Notice.h"
#include "RecordingReport.h"
#include "ReportPrint.h"

namespace
{

CFault CollectRecording(const std::string& rszFile, SReport& roReport)
{
    CRecordingReader oReader;
    CFault oFault = oReader.Open(rszFile);
    return oFault ? oFault : RecordingReport_Collect(oReader, roReport);
}

} // namespace

int ReportCommand_Run(const SReportOptions& roOptions)
{
    CStoreReader oStore(roOptions.szStore);
    SReport oReport;
    const bool bIsRecording = RecordingFile_IsOne(roOptions.szStore);
    if (const CFault oFault = bIsRecording ? CollectRecording(roOptions.szStore, oReport) : oStore.Open())
    {
        Notice_Say(oFault.GetText());
        return iExitFailure;
    }
    if (!bIsRecording)
    {
        oReport = ReportData_Collect(oStore, roOptions.iFromUtcNs, roOptions.iToUtcNs);
    }
    const std::string szText = roOptions.eForm == EReportForm::CSV    ? ReportPrint_Csv(oReport)
                               : roOptions.eForm == EReportForm::JSON ? ReportPrint_Json(oReport)
                                                                      : ReportPrint_Table(oReport);
    if (std::fputs(szText.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    {
        Notice_Say("the report could not be written");
        return iExitFailure;
    }
    if (const CFault oFault = bIsRecording ? CFault() : oStore.GetFault())
    {
        Notice_Say(oFault.GetText() + "; the report has what could be read");
        return iExitFailure;
    }
    return iExitOk;
}
