/*
 * The query of a request, read strictly: a parameter that is unknown, given twice or out of its range makes one line
 * that names it. The first fault counts; later readings of a faulty query give their defaults.
 */
#ifndef API_QUERY_H
#define API_QUERY_H

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "StreamKey.h"

/*
 * Appends a text with its %41 decoded; a plus sign is a space in queries alone. False when a percent sign is followed
 * by anything but two hexadecimal digits.
 */
bool ApiQuery_DecodePercent(std::string_view szText, bool bPlusIsSpace, std::string& rszDecoded);

class CApiQuery
{
public:
    /*
     *   szQuery   in  what follows the question mark, percent-encoded
     *   aszNames  in  the parameters that may be there
     */
    CApiQuery(std::string_view szQuery, std::span<const char* const> aszNames);

    // Empty when all is well so far.
    const std::string& GetProblem() const { return m_szProblem; }

    bool Has(const char* szName) const { return m_oValues.contains(szName); }
    uint64_t GetNumber(const char* szName, uint64_t uiDefault, uint64_t uiLeast, uint64_t uiMost);
    int64_t GetUtc(const char* szName, int64_t iDefault);

    // The parts of a list that commas separate; empty when it is not there.
    std::vector<std::string> GetList(const char* szName) const;

    // One stream, which must be there.
    SStreamKey GetStream(const char* szName);

    void SetProblem(const std::string& szProblem);

private:
    std::map<std::string, std::string> m_oValues;
    std::string m_szProblem;
};

#endif
