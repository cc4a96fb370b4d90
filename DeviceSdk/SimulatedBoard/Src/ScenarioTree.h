/*
 * A scenario text as a tree of plain values with line numbers. The only place that knows the TOML library.
 */
#ifndef SIMULATED_BOARD_SCENARIO_TREE_H
#define SIMULATED_BOARD_SCENARIO_TREE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Scenario.h"

struct SScenarioNode
{
    enum class EKind : uint8_t
    {
        INTEGER,
        FLOAT,
        BOOLEAN,
        TEXT,
        ARRAY,
        TABLE,
        OTHER // dates and times, which no key takes
    };

    EKind eKind = EKind::TABLE;
    uint32_t uiLine = 0;
    std::string szKey; // in the table that holds it
    int64_t iInteger = 0;
    double flFloat = 0.0;
    bool bBoolean = false;
    std::string szText;
    std::vector<SScenarioNode> aoChildren; // of an array or table
};

// Longest text that is read, bytes.
inline constexpr size_t uiScenarioTextLimit = 1U << 20;

/* False with roFault set when the text is too long or is no TOML. */
bool ScenarioTree_Parse(std::string_view szText, SScenarioNode& roRoot, SScenarioFault& roFault);

#endif
