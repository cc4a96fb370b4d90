/*
 * Which connector carries a stream, and what it is called. No state; any thread.
 */
#ifndef CONNECTOR_NAMES_H
#define CONNECTOR_NAMES_H

#include <cstdint>

#include "KrvTypes.h"
#include "VtTypes.h"

/* No board has more connectors; one that says so would keep its caller asking for hours. */
inline constexpr uint32_t uiMaxNbOfConnectors = 256;

enum class EConnectorSearch
{
    FOUND,
    COUNT_FAILED,  // the board cannot count its connectors
    NO_CONNECTORS, // it has none
    QUERY_FAILED,  // it cannot describe one of them
    NO_MATCH       // none of them carries the stream
};

struct SConnectorSearch
{
    EConnectorSearch eOutcome;
    VtStatus eStatus; // of the last call of the board; VtStatus_FAIL without connectors or their count
};

/*
 * Finds the name of the connector that carries a stream. The first match wins.
 *   hDev           in   the board
 *   uiVideoIndex   in   index of the input or output
 *   bIsVideoInput  in   1 for an input, 0 for an output
 *   szVideoName    out  the name, printable; empty unless the outcome is FOUND
 */
SConnectorSearch FindConnectorName(VtDevice_Handle hDev, uint32_t uiVideoIndex, Bool32 bIsVideoInput,
                                   VTSTR64& szVideoName);

#endif
