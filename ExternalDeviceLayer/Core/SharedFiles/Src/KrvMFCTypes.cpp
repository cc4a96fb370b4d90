#include "KrvMFCTypes.h"

#include "AssertReport.h"

#if defined(__x86_64__) && defined(__LP64__)
static_assert(sizeof(CMArray<uint64_t, uint64_t>) == 32, "table, block, size, capacity, step, padding");
static_assert(sizeof(CMString) == sizeof(void*), "an element that is moved by raw copy");
#endif

// The report names the template source, whatever file the check stands in.
void KrvMFCTypes_ReportAssert(EKrvMFCTypesAssert eAssert)
{
    ReportFailedAssert("KrvMFCTypes", eAssert);
}
