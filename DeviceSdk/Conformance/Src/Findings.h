// What one check has found. Any number of threads may report into it.
#ifndef FINDINGS_H
#define FINDINGS_H

#include <mutex>
#include <string>
#include <vector>

#include "Sdk.h"

// How a check ended.
enum class EOutcome
{
    HOLDS,
    FAILS,
    SKIPPED
};

class CFindings
{
public:
    /* A promise that must hold; otherwise the text says, in a maker's words, what was seen instead. True when it holds.
     */
    bool Expect(bool bHolds, const char* szFormat, ...) __attribute__((format(printf, 3, 4)));
    /* The same for the status of a call, which rszCall names as a maker would write it. */
    bool ExpectStatus(VtStatus eGot, VtStatus eExpected, const std::string& rszCall);
    /* A part that this board, as it stands, gives no occasion to check. */
    void Skip(const char* szFormat, ...) __attribute__((format(printf, 2, 3)));
    /* Some part could be checked: where others are skipped, the check holds instead of being skipped as a whole. */
    void Checked();
    /* What was measured, to be read whatever the outcome. */
    void Note(const char* szFormat, ...) __attribute__((format(printf, 2, 3)));

    EOutcome Outcome() const;
    /* A line per fault, note or skipped part: of the faults the first few, and how many there were besides. */
    std::vector<std::string> Lines() const;

private:
    mutable std::mutex m_oMutex;
    std::vector<std::string> m_aszFaults;
    std::vector<std::string> m_aszNotes;
    std::vector<std::string> m_aszSkipped;
    size_t m_uiFaults = 0;
    bool m_bChecked = false;
};

#endif
