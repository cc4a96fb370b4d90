/* Compiled as C11, never run: each header stands alone when it comes first, and they agree with each other. */
#include "VtTypes.h"

#include "VtVideoTypes.h"

#include "VtBoard.h"

#include "VtVideoIn.h"

#include "VtVideoOut.h"

#include "Veltrano.h"

extern const VtBoard_ConnectorInfo g_oNoConnector;
const VtBoard_ConnectorInfo g_oNoConnector = {.uiSize = sizeof(VtBoard_ConnectorInfo)};
