/*
 * Reads one table of a scenario key by key, checking types and ranges, and in the end that no key was left unread.
 *
 * Every reader returns true when the key was there and right. A wrong value sets the fault, and the caller may go on:
 * the first fault stands, and is asked for once at the end. Only a key that nobody reads goes before one that is
 * missing: it is probably the same one, misspelt. So a section reads all its keys, whatever is wrong with some of them.
 */
#ifndef SIMULATED_BOARD_SCENARIO_SECTION_H
#define SIMULATED_BOARD_SCENARIO_SECTION_H

#include <array>
#include <limits>
#include <span>
#include <string_view>

#include "Scenario.h"
#include "TomlTree.h"

using SScenarioNode = STomlNode;

template <typename T> struct SNamedValue
{
    std::string_view szName;
    T eValue;
};

class CScenarioSection
{
public:
    CScenarioSection(const SScenarioNode& roTable, SScenarioFault& roFault)
        : m_roTable(roTable), m_roFault(roFault), m_abUsed(roTable.aoChildren.size(), false)
    {
    }

    bool ReadInteger(std::string_view szKey, int64_t iMin, int64_t iMax, int64_t& riValue);
    /* Integers and floats. */
    bool ReadFloat(std::string_view szKey, double flMin, double flMax, double& rflValue);
    bool ReadBoolean(std::string_view szKey, bool& rbValue);
    bool ReadText(std::string_view szKey, size_t uiMaxBytes, std::string& rszValue);
    /* A counter of 64 bits: an integer from 0, or a text "0x..." for what TOML's integers do not reach. */
    bool ReadCounter(std::string_view szKey, uint64_t& ruiValue);
    /* An array of integers, at least one. */
    bool ReadIntegers(std::string_view szKey, uint32_t uiMax, size_t uiMaxLength, std::vector<uint32_t>& rauiValues);
    /* The table of a key; null when it is not there. */
    const SScenarioNode* ReadTable(std::string_view szKey);
    /* The tables of an array of tables. */
    std::span<const SScenarioNode> ReadTables(std::string_view szKey, size_t uiMaxLength);

    template <typename T>
    requires(std::is_unsigned_v<T> && sizeof(T) == 4) bool Read(std::string_view szKey, T uiMin, T uiMax, T& ruiValue)
    {
        int64_t iValue = 0;
        const bool bRead = ReadInteger(szKey, uiMin, uiMax, iValue);
        ruiValue = bRead ? static_cast<T>(iValue) : ruiValue;
        return bRead;
    }

    template <typename T> bool ReadName(std::string_view szKey, std::span<const SNamedValue<T>> aoNames, T& reValue)
    {
        std::string szName;
        if (!ReadText(szKey, 64, szName))
        {
            return false;
        }
        for (const SNamedValue<T>& roName : aoNames)
        {
            if (roName.szName == szName)
            {
                reValue = roName.eValue;
                return true;
            }
        }
        std::vector<std::string> aszNames;
        for (const SNamedValue<T>& roName : aoNames)
        {
            aszNames.emplace_back(roName.szName);
        }
        RefuseName(szKey, szName, aszNames);
        return false;
    }

    bool Has(std::string_view szKey) const;
    /* The line of a key, or of the table when it is not there. */
    uint32_t GetLine(std::string_view szKey) const;
    uint32_t GetLine() const { return m_roTable.uiLine; }
    /* The first of several keys that is there, or the first of all. */
    std::string_view FindFirst(std::initializer_list<std::string_view> aszKeys) const;
    /* Sets the fault at the line of a key: "<key>: <what>". */
    void Refuse(std::string_view szKey, std::string_view szWhat);
    /* The same for a word that is none of the known ones; lists them. */
    void RefuseName(std::string_view szKey, const std::string& rszName, const std::vector<std::string>& raszKnown);
    /* Reads a key that may not be there now. */
    void Forbid(std::string_view szKey, std::string_view szWhat);
    void Require(std::string_view szKey);
    /*
     * Sets the fault when a key has not been read. With bOnlyMisspelt, for a section that could not go on: only when it
     * looks like one that has.
     */
    void Finish(bool bOnlyMisspelt = false);

private:
    const SScenarioNode* Take(std::string_view szKey);
    const SScenarioNode* TakeOf(std::string_view szKey, SScenarioNode::EKind eKind, std::string_view szKind);

    const SScenarioNode& m_roTable;
    SScenarioFault& m_roFault;
    std::vector<bool> m_abUsed;
    std::vector<std::string> m_aszAsked; // every key that this table may have, as far as was read
    bool m_bMissing = false;             // the fault that stands is a key missing here
};

#endif
