#include "AssertReport.h"

#include "KrvTools.h"
#include "OsServices.h"

void ReportFailedAssert(const char* szSourcePath, uint32_t uiLine)
{
    OsServices::WriteErrorMsg("%s(%d) Assertion failed\n", OsServices::GetFileNameOnlySubSring(szSourcePath),
                              static_cast<int32_t>(uiLine));
    KrvTools_Assert(0, szSourcePath, uiLine);
}
