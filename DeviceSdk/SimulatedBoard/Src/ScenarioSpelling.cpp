// See ScenarioSpelling.h.
#include "ScenarioSpelling.h"

#include <algorithm>
#include <cctype>

namespace
{

bool IsSame(char cFirst, char cSecond)
{
    return std::tolower(static_cast<unsigned char>(cFirst)) == std::tolower(static_cast<unsigned char>(cSecond));
}

// Letters added, left out, changed, or swapped with their neighbour: three rows of the usual table are enough.
size_t CountEdits(std::string_view szFirst, std::string_view szSecond)
{
    std::vector<size_t> auiBeforeLast(szSecond.size() + 1);
    std::vector<size_t> auiLast(szSecond.size() + 1);
    std::vector<size_t> auiRow(szSecond.size() + 1);
    for (size_t uiColumn = 0; uiColumn <= szSecond.size(); ++uiColumn)
    {
        auiRow[uiColumn] = uiColumn;
    }
    for (size_t uiRow = 1; uiRow <= szFirst.size(); ++uiRow)
    {
        auiBeforeLast.swap(auiLast);
        auiLast.swap(auiRow);
        auiRow[0] = uiRow;
        for (size_t uiColumn = 1; uiColumn <= szSecond.size(); ++uiColumn)
        {
            const bool bSame = IsSame(szFirst[uiRow - 1], szSecond[uiColumn - 1]);
            auiRow[uiColumn] =
                std::min({auiLast[uiColumn] + 1, auiRow[uiColumn - 1] + 1, auiLast[uiColumn - 1] + (bSame ? 0 : 1)});
            if (uiRow > 1 && uiColumn > 1 && IsSame(szFirst[uiRow - 1], szSecond[uiColumn - 2]) &&
                IsSame(szFirst[uiRow - 2], szSecond[uiColumn - 1]))
            {
                auiRow[uiColumn] = std::min(auiRow[uiColumn], auiBeforeLast[uiColumn - 2] + 1);
            }
        }
    }
    return auiRow[szSecond.size()];
}

} // namespace

const std::string* Spelling_FindNearest(std::string_view szWord, const std::vector<std::string>& raszKnown)
{
    const std::string* poNearest = nullptr;
    size_t uiFewest = std::clamp<size_t>(szWord.size() / 3, 1, 3) + 1;
    for (const std::string& rszKnown : raszKnown)
    {
        // A text of a megabyte may be one word.
        const size_t uiEdits = szWord.size() > 2 * rszKnown.size() + 1 ? uiFewest : CountEdits(szWord, rszKnown);
        if (uiEdits < uiFewest)
        {
            uiFewest = uiEdits;
            poNearest = &rszKnown;
        }
    }
    return poNearest;
}

std::string Spelling_Suggest(std::string_view szWord, const std::vector<std::string>& raszKnown)
{
    const std::string* poNearest = Spelling_FindNearest(szWord, raszKnown);
    std::string szText = poNearest == nullptr ? "" : "; did you mean " + *poNearest + "?";
    for (const std::string& rszKnown : raszKnown)
    {
        szText += (&rszKnown == raszKnown.data() ? " (" : ", ") + rszKnown;
    }
    return szText + (raszKnown.empty() ? "" : ")");
}
