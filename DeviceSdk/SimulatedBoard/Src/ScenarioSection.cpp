// See ScenarioSection.h.
#include "ScenarioSection.h"

#include <charconv>
#include <cstdio>
#include <utility>

#include "ScenarioSpelling.h"

namespace
{

std::string FormatNumber(double flValue)
{
    std::array<char, 32> szNumber{};
    (void)std::snprintf(szNumber.data(), szNumber.size(), "%.15g", flValue);
    return szNumber.data();
}

template <typename T> std::string FormatRange(T Min, T Max)
{
    return FormatNumber(static_cast<double>(Min)) + " to " + FormatNumber(static_cast<double>(Max));
}

} // namespace

const SScenarioNode* CScenarioSection::Take(std::string_view szKey)
{
    m_aszAsked.emplace_back(szKey);
    for (size_t uiChild = 0; uiChild < m_roTable.aoChildren.size(); ++uiChild)
    {
        if (m_roTable.aoChildren[uiChild].szKey == szKey)
        {
            m_abUsed[uiChild] = true;
            return &m_roTable.aoChildren[uiChild];
        }
    }
    return nullptr;
}

const SScenarioNode* CScenarioSection::TakeOf(std::string_view szKey, SScenarioNode::EKind eKind,
                                              std::string_view szKind)
{
    const SScenarioNode* poNode = Take(szKey);
    if (poNode != nullptr && poNode->eKind != eKind)
    {
        Refuse(szKey, "must be " + std::string(szKind));
        return nullptr;
    }
    return poNode;
}

bool CScenarioSection::ReadInteger(std::string_view szKey, int64_t iMin, int64_t iMax, int64_t& riValue)
{
    const SScenarioNode* poNode = TakeOf(szKey, SScenarioNode::EKind::INTEGER, "an integer");
    if (poNode == nullptr)
    {
        return false;
    }
    if (poNode->iInteger < iMin || poNode->iInteger > iMax)
    {
        Refuse(szKey, "must be " + FormatRange(iMin, iMax));
        return false;
    }
    riValue = poNode->iInteger;
    return true;
}

bool CScenarioSection::ReadFloat(std::string_view szKey, double flMin, double flMax, double& rflValue)
{
    const SScenarioNode* poNode = Take(szKey);
    if (poNode == nullptr)
    {
        return false;
    }
    const bool bInteger = poNode->eKind == SScenarioNode::EKind::INTEGER;
    if (!bInteger && poNode->eKind != SScenarioNode::EKind::FLOAT)
    {
        Refuse(szKey, "must be a number");
        return false;
    }
    const double flValue = bInteger ? static_cast<double>(poNode->iInteger) : poNode->flFloat;
    if (!(flValue >= flMin && flValue <= flMax)) // also not a number
    {
        Refuse(szKey, "must be " + FormatRange(flMin, flMax));
        return false;
    }
    rflValue = flValue;
    return true;
}

bool CScenarioSection::ReadBoolean(std::string_view szKey, bool& rbValue)
{
    const SScenarioNode* poNode = TakeOf(szKey, SScenarioNode::EKind::BOOLEAN, "true or false");
    rbValue = poNode != nullptr ? poNode->bBoolean : rbValue;
    return poNode != nullptr;
}

bool CScenarioSection::ReadText(std::string_view szKey, size_t uiMaxBytes, std::string& rszValue)
{
    const SScenarioNode* poNode = TakeOf(szKey, SScenarioNode::EKind::TEXT, "a text");
    if (poNode == nullptr)
    {
        return false;
    }
    if (poNode->szText.size() > uiMaxBytes)
    {
        Refuse(szKey, "must be a text of at most " + std::to_string(uiMaxBytes) + " bytes");
        return false;
    }
    if (poNode->szText.find('\0') != std::string::npos)
    {
        Refuse(szKey, "may hold no NUL character");
        return false;
    }
    rszValue = poNode->szText;
    return true;
}

bool CScenarioSection::ReadCounter(std::string_view szKey, uint64_t& ruiValue)
{
    const SScenarioNode* poNode = Take(szKey);
    if (poNode == nullptr)
    {
        return false;
    }
    if (poNode->eKind == SScenarioNode::EKind::INTEGER && poNode->iInteger >= 0)
    {
        ruiValue = static_cast<uint64_t>(poNode->iInteger);
        return true;
    }
    const std::string& rszText = poNode->szText;
    if (poNode->eKind == SScenarioNode::EKind::TEXT && rszText.starts_with("0x"))
    {
        const char* pcEnd = rszText.data() + rszText.size();
        const auto oParsed = std::from_chars(rszText.data() + 2, pcEnd, ruiValue, 16);
        if (oParsed.ec == std::errc() && oParsed.ptr == pcEnd)
        {
            return true;
        }
    }
    Refuse(szKey, "must be an integer from 0 or a text \"0x...\" of at most 64 bits");
    return false;
}

bool CScenarioSection::ReadIntegers(std::string_view szKey, uint32_t uiMax, size_t uiMaxLength,
                                    std::vector<uint32_t>& rauiValues)
{
    const SScenarioNode* poNode = TakeOf(szKey, SScenarioNode::EKind::ARRAY, "an array of integers");
    if (poNode == nullptr)
    {
        return false;
    }
    std::vector<uint32_t> auiValues;
    uint32_t uiLine = poNode->uiLine;
    for (const SScenarioNode& roElement : poNode->aoChildren)
    {
        const bool bRight = roElement.eKind == SScenarioNode::EKind::INTEGER && roElement.iInteger >= 0 &&
                            roElement.iInteger <= int64_t{uiMax};
        if (!bRight || auiValues.size() == uiMaxLength)
        {
            auiValues.clear();
            uiLine = roElement.uiLine;
            break;
        }
        auiValues.push_back(static_cast<uint32_t>(roElement.iInteger));
    }
    if (auiValues.empty())
    {
        m_roFault.Set(uiLine, std::string(szKey) + ": must be 1 to " + std::to_string(uiMaxLength) +
                                  " integers of 0 to " + std::to_string(uiMax));
        return false;
    }
    rauiValues = std::move(auiValues);
    return true;
}

const SScenarioNode* CScenarioSection::ReadTable(std::string_view szKey)
{
    return TakeOf(szKey, SScenarioNode::EKind::TABLE, "a table");
}

std::span<const SScenarioNode> CScenarioSection::ReadTables(std::string_view szKey, size_t uiMaxLength)
{
    const SScenarioNode* poNode = TakeOf(szKey, SScenarioNode::EKind::ARRAY, "an array of tables");
    if (poNode == nullptr)
    {
        return {};
    }
    for (size_t uiElement = 0; uiElement < poNode->aoChildren.size(); ++uiElement)
    {
        const SScenarioNode& roElement = poNode->aoChildren[uiElement];
        if (roElement.eKind != SScenarioNode::EKind::TABLE)
        {
            m_roFault.Set(roElement.uiLine, std::string(szKey) + ": must be an array of tables");
            return {};
        }
        if (uiElement == uiMaxLength)
        {
            m_roFault.Set(roElement.uiLine, std::string(szKey) + ": more than " + std::to_string(uiMaxLength));
            return {};
        }
    }
    return poNode->aoChildren;
}

bool CScenarioSection::Has(std::string_view szKey) const
{
    return std::ranges::find(m_roTable.aoChildren, szKey, &SScenarioNode::szKey) != m_roTable.aoChildren.end();
}

uint32_t CScenarioSection::GetLine(std::string_view szKey) const
{
    const auto itChild = std::ranges::find(m_roTable.aoChildren, szKey, &SScenarioNode::szKey);
    return itChild == m_roTable.aoChildren.end() ? m_roTable.uiLine : itChild->uiLine;
}

std::string_view CScenarioSection::FindFirst(std::initializer_list<std::string_view> aszKeys) const
{
    const auto* poKey = std::ranges::find_if(aszKeys, [this](std::string_view szKey) { return Has(szKey); });
    return poKey == aszKeys.end() ? *aszKeys.begin() : *poKey;
}

void CScenarioSection::Refuse(std::string_view szKey, std::string_view szWhat)
{
    m_roFault.Set(GetLine(szKey), std::string(szKey) + ": " + std::string(szWhat));
}

void CScenarioSection::RefuseName(std::string_view szKey, const std::string& rszName,
                                  const std::vector<std::string>& raszKnown)
{
    Refuse(szKey, "\"" + rszName + "\" is none of its names" + Spelling_Suggest(rszName, raszKnown));
}

void CScenarioSection::Forbid(std::string_view szKey, std::string_view szWhat)
{
    if (Take(szKey) != nullptr)
    {
        Refuse(szKey, szWhat);
    }
}

void CScenarioSection::Require(std::string_view szKey)
{
    if (!Has(szKey))
    {
        m_bMissing = m_bMissing || !m_roFault.IsSet();
        m_roFault.Set(m_roTable.uiLine, std::string(szKey) + ": missing");
    }
}

void CScenarioSection::Finish(bool bOnlyMisspelt)
{
    for (size_t uiChild = 0; uiChild < m_abUsed.size() && (m_bMissing || !m_roFault.IsSet()); ++uiChild)
    {
        const SScenarioNode& roChild = m_roTable.aoChildren[uiChild];
        const std::string* poNearest = m_abUsed[uiChild] ? nullptr : Spelling_FindNearest(roChild.szKey, m_aszAsked);
        if (m_abUsed[uiChild] || (bOnlyMisspelt && poNearest == nullptr))
        {
            continue;
        }
        m_bMissing = false;
        m_roFault = {};
        m_roFault.Set(roChild.uiLine, "unknown key " + roChild.szKey +
                                          (poNearest == nullptr ? "" : ": did you mean " + *poNearest + "?"));
    }
}
