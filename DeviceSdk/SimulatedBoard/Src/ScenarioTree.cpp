// See ScenarioTree.h.
#include "ScenarioTree.h"

// Compiled here alone, and without exceptions: a fault comes back as a value.
#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

#include <algorithm>

namespace
{

// Tables in tables, arrays in arrays: deeper than any scenario needs, far from the end of the stack.
constexpr int gc_iDepthLimit = 16;

bool Convert(const toml::node& roFrom, int iDepth, SScenarioNode& roTo, SScenarioFault& roFault);

bool ConvertTable(const toml::table& roFrom, int iDepth, SScenarioNode& roTo, SScenarioFault& roFault)
{
    for (const auto& [roKey, roValue] : roFrom)
    {
        SScenarioNode& roChild = roTo.aoChildren.emplace_back();
        roChild.szKey = std::string(roKey.str());
        if (!Convert(roValue, iDepth + 1, roChild, roFault))
        {
            return false;
        }
        roChild.uiLine = std::max<uint32_t>(roKey.source().begin.line, 1);
    }
    // The library sorts by key; whoever reads a report of faults wants them from top to bottom.
    std::ranges::stable_sort(roTo.aoChildren, {}, &SScenarioNode::uiLine);
    return true;
}

bool Convert(const toml::node& roFrom, int iDepth, SScenarioNode& roTo, SScenarioFault& roFault)
{
    roTo.uiLine = std::max<uint32_t>(roFrom.source().begin.line, 1);
    if (iDepth > gc_iDepthLimit)
    {
        roFault.Set(roTo.uiLine, "nested too deeply");
        return false;
    }
    switch (roFrom.type())
    {
    case toml::node_type::table:
        roTo.eKind = SScenarioNode::EKind::TABLE;
        return ConvertTable(*roFrom.as_table(), iDepth, roTo, roFault);
    case toml::node_type::array:
        roTo.eKind = SScenarioNode::EKind::ARRAY;
        for (const toml::node& roElement : *roFrom.as_array())
        {
            if (!Convert(roElement, iDepth + 1, roTo.aoChildren.emplace_back(), roFault))
            {
                return false;
            }
        }
        return true;
    case toml::node_type::string:
        roTo.eKind = SScenarioNode::EKind::TEXT;
        roTo.szText = roFrom.as_string()->get();
        return true;
    case toml::node_type::integer:
        roTo.eKind = SScenarioNode::EKind::INTEGER;
        roTo.iInteger = roFrom.as_integer()->get();
        return true;
    case toml::node_type::floating_point:
        roTo.eKind = SScenarioNode::EKind::FLOAT;
        roTo.flFloat = roFrom.as_floating_point()->get();
        return true;
    case toml::node_type::boolean:
        roTo.eKind = SScenarioNode::EKind::BOOLEAN;
        roTo.bBoolean = roFrom.as_boolean()->get();
        return true;
    default:
        roTo.eKind = SScenarioNode::EKind::OTHER;
        return true;
    }
}

} // namespace

bool ScenarioTree_Parse(std::string_view szText, SScenarioNode& roRoot, SScenarioFault& roFault)
{
    roRoot = {};
    if (szText.size() > gc_uiScenarioTextLimit)
    {
        roFault.Set(1, "the text is longer than 1 MiB");
        return false;
    }
    const toml::parse_result oResult = toml::parse(szText);
    if (!oResult)
    {
        roFault.Set(std::max<uint32_t>(oResult.error().source().begin.line, 1),
                    std::string(oResult.error().description()));
        return false;
    }
    return Convert(oResult.table(), 0, roRoot, roFault);
}
