#include "ReportCommand.h"
int ReportCommand_Run(const SReportOptions& /*roOptions*/)
{
    return 1;
}
