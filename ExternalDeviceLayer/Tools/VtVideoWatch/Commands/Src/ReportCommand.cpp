#include "ReportCommand.h"

#include <cstdio>

#include "Notice.h"
#include "ReportPrint.h"

int ReportCommand_Run(const SReportOptions& roOptions)
{
    CStoreReader oStore(roOptions.szStore);
    if (const CFault oFault = oStore.Open())
    {
        Notice_Say(oFault.GetText());
        return iExitFailure;
    }
    const SReport oReport = ReportData_Collect(oStore, roOptions.iFromUtcNs, roOptions.iToUtcNs);
    const std::string szText = roOptions.eForm == EReportForm::CSV    ? ReportPrint_Csv(oReport)
                               : roOptions.eForm == EReportForm::JSON ? ReportPrint_Json(oReport)
                                                                      : ReportPrint_Table(oReport);
    if (std::fputs(szText.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    {
        Notice_Say("the report could not be written");
        return iExitFailure;
    }
    if (const CFault oFault = oStore.GetFault())
    {
        Notice_Say(oFault.GetText() + "; the report has what could be read");
        return iExitFailure;
    }
    return iExitOk;
}
