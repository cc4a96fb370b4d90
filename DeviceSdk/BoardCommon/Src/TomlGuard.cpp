// See TomlGuard.h.
#include "TomlGuard.h"

#include <algorithm>

#include "TomlTree.h"

namespace
{

constexpr std::string_view szBlanks = " \t";
constexpr std::string_view szByteOrderMark = "\xEF\xBB\xBF";

bool IsBeyondAscii(char cCharacter)
{
    return (static_cast<unsigned char>(cCharacter) & 0x80U) != 0;
}

bool IsControl(char cCharacter)
{
    const auto uiCharacter = static_cast<unsigned char>(cCharacter);
    return (uiCharacter < 0x20U && std::string_view("\t\n\r").find(cCharacter) == std::string_view::npos) ||
           uiCharacter == 0x7FU;
}

bool IsDigit(char cCharacter)
{
    return cCharacter >= '0' && cCharacter <= '9';
}

bool BeginsKey(char cCharacter)
{
    return (cCharacter >= 'a' && cCharacter <= 'z') || (cCharacter >= 'A' && cCharacter <= 'Z') ||
           (cCharacter >= '0' && cCharacter <= '9') ||
           std::string_view("_-\"'").find(cCharacter) != std::string_view::npos;
}

// Walks over the text as the library does, quoted texts and comments in one step each. After a fault of the text that
// is left to the library the two may part ways, for the library reads no further than that.
class CTomlGuard
{
public:
    CTomlGuard(std::string_view szText, STextFault& roFault) : m_szText(szText), m_roFault(roFault) {}

    bool Check()
    {
        Skip(m_szText.starts_with(szByteOrderMark) ? szByteOrderMark.size() : 0);
        while (!m_szText.empty() && !m_roFault.IsSet())
        {
            PassOne();
        }
        return !m_roFault.IsSet();
    }

private:
    char Next() const { return m_szText.empty() ? '\0' : m_szText.front(); }

    bool Refuse(std::string szWhat)
    {
        m_roFault.Set(m_uiLine, std::move(szWhat));
        return false;
    }

    void Skip(size_t uiBytes)
    {
        const std::string_view szSkipped = m_szText.substr(0, uiBytes);
        m_uiLine += static_cast<uint32_t>(std::ranges::count(szSkipped, '\n'));
        m_szText.remove_prefix(szSkipped.size());
    }

    void SkipUntil(std::string_view szEnds) { Skip(std::min(m_szText.find_first_of(szEnds), m_szText.size())); }
    void SkipAny(std::string_view szSkipped) { Skip(std::min(m_szText.find_first_not_of(szSkipped), m_szText.size())); }

    /* What stands outside of quotes and comments. */
    void PassOne()
    {
        const char cCharacter = Next();
        const bool bBegin = m_bLineBegin;
        m_bLineBegin = cCharacter == '\n' || (bBegin && szBlanks.find(cCharacter) != std::string_view::npos);
        if (IsBeyondAscii(cCharacter) || IsControl(cCharacter))
        {
            Refuse(IsControl(cCharacter) ? "a control character"
                                         : "a character that may only stand in quotes or comments");
        }
        else if (cCharacter == '#')
        {
            SkipUntil("\n");
        }
        else if (cCharacter == '"' || cCharacter == '\'')
        {
            PassQuotedHere(cCharacter);
        }
        else if (cCharacter == '[' && bBegin && m_szOpen.empty())
        {
            PassHeader();
        }
        else
        {
            PassMark(cCharacter);
            Skip(1);
        }
        m_cBefore = cCharacter;
    }

    /* "[" or "[[" at the begin of a line: the name of a table follows. */
    void PassHeader()
    {
        m_uiDots = 0;
        m_szOpen = m_szText.starts_with("[[") ? "[[" : "[";
        Skip(m_szOpen.size());
        SkipAny(szBlanks);
        if (!m_szText.empty() && !BeginsKey(Next()))
        {
            Refuse("'[' without the name of a table");
        }
    }

    void PassMark(char cMark)
    {
        switch (cMark)
        {
        case '.':
            m_uiDots += 1;
            break;
        case '[':
        case '{':
            Open(cMark);
            break;
        case ']':
        case '}':
            Close(cMark == ']' ? '[' : '{');
            break;
        case '=':
            PassEquals();
            break;
        case ' ':
            PassBlank();
            break;
        case ',':
        case '\n':
            m_uiDots = 0;
            m_bInValue = m_bInValue && (cMark == ',' ? m_szOpen.ends_with('[') : !m_szOpen.empty());
            break;
        default:
            return;
        }
        if (std::max<size_t>(m_szOpen.size(), m_uiDots) > uiTomlDepthLimit)
        {
            Refuse("nested too deeply");
        }
    }

    void PassEquals()
    {
        if (m_bInValue)
        {
            Refuse("'=' within a value");
        }
        m_bInValue = true;
        m_uiDots = 0;
    }

    /* Only between a date and its time, which no key takes. */
    void PassBlank()
    {
        if (m_bInValue && !BeginsWord() && m_szText.size() > 1 && IsDigit(m_szText[1]))
        {
            Refuse("a blank within a value");
        }
    }

    void Open(char cBracket)
    {
        if (!BeginsWord())
        {
            Refuse("a bracket within a word");
        }
        m_szOpen += cBracket;
        m_bInValue = cBracket == '[';
        m_uiDots = 0;
    }

    void Close(char cOpening)
    {
        if (!m_szOpen.ends_with(cOpening))
        {
            Refuse("a bracket that closes nothing");
            return;
        }
        m_szOpen.pop_back();
        m_bInValue = true;
    }

    bool BeginsWord() const { return std::string_view(" \t\r\n=,[{").find(m_cBefore) != std::string_view::npos; }

    /* The library takes for a number what begins like one, up to the next blank. */
    void PassQuotedHere(char cQuote)
    {
        if (!BeginsWord() && (m_cBefore != '.' || m_bInValue))
        {
            Refuse("quotes within a word");
            return;
        }
        PassQuoted(cQuote);
    }

    /* From the opening quotes to behind the closing ones. */
    void PassQuoted(char cQuote)
    {
        const std::string szTriple(3, cQuote);
        const bool bManyLines = m_szText.starts_with(szTriple);
        const std::string szEnds = {cQuote, cQuote == '"' ? '\\' : cQuote, bManyLines ? cQuote : '\n'};
        Skip(bManyLines ? szTriple.size() : 1);
        for (SkipUntil(szEnds); !m_szText.empty() && Next() != '\n'; SkipUntil(szEnds))
        {
            if (Next() == '\\')
            {
                if (!PassEscape(bManyLines))
                {
                    return;
                }
            }
            else if (!bManyLines)
            {
                return Skip(1);
            }
            else if (const size_t uiRun = std::min(m_szText.find_first_not_of(cQuote), m_szText.size()); uiRun < 3)
            {
                Skip(uiRun);
            }
            else
            {
                // Up to two quotes may stand before the three that close.
                return Skip(std::min<size_t>(uiRun, 5));
            }
        }
    }

    /* A backslash: with what it escapes, or with the end of the line and all blanks that it swallows. */
    bool PassEscape(bool bManyLines)
    {
        Skip(1);
        const bool bSwallows = bManyLines && std::string_view(" \t\r\n").find(Next()) != std::string_view::npos;
        if (bSwallows)
        {
            SkipAny(" \t\r\n");
        }
        if (IsBeyondAscii(Next()))
        {
            return Refuse("a backslash before a character that it cannot escape");
        }
        Skip(bSwallows || Next() == '\n' ? 0 : 1);
        return true;
    }

    std::string_view m_szText; // what is left of it
    STextFault& m_roFault;
    uint32_t m_uiLine = 1;
    std::string m_szOpen;     // brackets
    uint32_t m_uiDots = 0;    // of the key, or of the value
    bool m_bLineBegin = true; // nothing but blanks since
    bool m_bInValue = false;  // behind "=", and not at a key again
    char m_cBefore = '\n';    // what was passed last
};

} // namespace

bool TomlGuard_Check(std::string_view szText, STextFault& roFault)
{
    return CTomlGuard(szText, roFault).Check();
}
