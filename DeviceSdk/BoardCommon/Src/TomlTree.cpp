// See TomlTree.h.
#include "TomlTree.h"

// Compiled here alone, and without exceptions: a fault comes back as a value.
#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0

#include <algorithm>
#include <toml++/toml.h>

#include "TomlGuard.h"

namespace
{

bool Convert(const toml::node& roFrom, uint32_t uiDepth, STomlNode& roTo, STextFault& roFault);

bool ConvertTable(const toml::table& roFrom, uint32_t uiDepth, STomlNode& roTo, STextFault& roFault)
{
    for (const auto& [roKey, roValue] : roFrom)
    {
        STomlNode& roChild = roTo.aoChildren.emplace_back();
        roChild.szKey = std::string(roKey.str());
        if (!Convert(roValue, uiDepth + 1, roChild, roFault))
        {
            return false;
        }
        roChild.uiLine = std::max<uint32_t>(roKey.source().begin.line, 1);
    }
    // The library sorts by key; whoever reads a report of faults wants them from top to bottom.
    std::ranges::stable_sort(roTo.aoChildren, {}, &STomlNode::uiLine);
    return true;
}

bool Convert(const toml::node& roFrom, uint32_t uiDepth, STomlNode& roTo, STextFault& roFault)
{
    roTo.uiLine = std::max<uint32_t>(roFrom.source().begin.line, 1);
    if (uiDepth > uiTomlDepthLimit)
    {
        roFault.Set(roTo.uiLine, "nested too deeply");
        return false;
    }
    switch (roFrom.type())
    {
    case toml::node_type::table:
        roTo.eKind = STomlNode::EKind::TABLE;
        return ConvertTable(*roFrom.as_table(), uiDepth, roTo, roFault);
    case toml::node_type::array:
        roTo.eKind = STomlNode::EKind::ARRAY;
        for (const toml::node& roElement : *roFrom.as_array())
        {
            if (!Convert(roElement, uiDepth + 1, roTo.aoChildren.emplace_back(), roFault))
            {
                return false;
            }
        }
        return true;
    case toml::node_type::string:
        roTo.eKind = STomlNode::EKind::TEXT;
        roTo.szText = roFrom.as_string()->get();
        return true;
    case toml::node_type::integer:
        roTo.eKind = STomlNode::EKind::INTEGER;
        roTo.iInteger = roFrom.as_integer()->get();
        return true;
    case toml::node_type::floating_point:
        roTo.eKind = STomlNode::EKind::FLOAT;
        roTo.flFloat = roFrom.as_floating_point()->get();
        return true;
    case toml::node_type::boolean:
        roTo.eKind = STomlNode::EKind::BOOLEAN;
        roTo.bBoolean = roFrom.as_boolean()->get();
        return true;
    default:
        roTo.eKind = STomlNode::EKind::OTHER;
        return true;
    }
}

} // namespace

bool TomlTree_Parse(std::string_view szText, STomlNode& roRoot, STextFault& roFault)
{
    roRoot = {};
    if (szText.size() > uiTomlTextLimit)
    {
        roFault.Set(1, "the text is longer than 1 MiB");
        return false;
    }
    if (!TomlGuard_Check(szText, roFault))
    {
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
