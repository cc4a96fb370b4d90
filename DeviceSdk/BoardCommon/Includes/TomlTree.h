/*
 * A TOML text as a tree of plain values with line numbers: the only place that knows the TOML library. Entered by one
 * thread at a time per tree, keeps nothing.
 */
#ifndef BOARD_COMMON_TOML_TREE_H
#define BOARD_COMMON_TOML_TREE_H

#include <string_view>
#include <vector>

#include "TextFault.h"

struct STomlNode
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
    uint32_t uiLine = 0; // where the value begins
    std::string szKey;   // in the table that holds it
    int64_t iInteger = 0;
    double flFloat = 0.0;
    bool bBoolean = false;
    std::string szText;
    std::vector<STomlNode> aoChildren; // of an array or table
};

// Longest text that is read, bytes.
inline constexpr size_t uiTomlTextLimit = 1U << 20;

// How deep tables and arrays may stand in each other.
inline constexpr uint32_t uiTomlDepthLimit = 16;

/* False with roFault set when the text is too long, nested too deeply, or is no TOML. Never throws. */
bool TomlTree_Parse(std::string_view szText, STomlNode& roRoot, STextFault& roFault);

#endif
