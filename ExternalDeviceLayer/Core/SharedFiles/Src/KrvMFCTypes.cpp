#include "KrvMFCTypes.h"

#include "AssertReport.h"

// The report names the template source, whatever file the check stands in.
void KrvMFCTypes_ReportAssert(EKrvMFCTypesAssert eAssert)
{
    ReportFailedAssert("KrvMFCTypes", eAssert);
}
