#include "MonitorGlobals.h"

OsServices g_oOsServices(nullptr);
OsMutex g_oMutex(g_oOsServices);

HSignal g_hStartSig = nullptr;

std::vector<HCpuThread> g_dahVideoOutMonitorThread;
std::vector<HCpuThread> g_dahVideoInMonitorThread;

uint32_t g_uiSelectedGpu = 0;
Bool32 g_bFilterError = 0;
Bool32 g_bMonitor = 0;
Bool32 g_bLog = 0;
const char* g_pszLogFileName = nullptr;
Bool32 g_bStatus = 0;
Bool32 g_bFrameLockStatus = 0;
Bool32 g_bCableLockStatus = 0;
uint32_t g_uiCableLockDurationSec = 0;
Bool32 g_bExtendedTimingStart = 0;

Bool32 g_bExtendVidTimingDetails = 0;
Bool32 g_bFpsDetailedInfo = 0;
Bool32 g_bAddTimeStamp = 0;
Bool32 g_bInitialLaunch = 1;
