#include "SystemJournal.h"

#include <sys/uio.h>
#include <vector>

// Entries are found by their identifiers; where in the source they are made says nothing to whoever reads them.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

void SystemJournal_Put(std::span<const std::string> aszFields)
{
    std::vector<iovec> aoParts;
    for (const std::string& rszField : aszFields)
    {
        // The library reads them only.
        aoParts.push_back({const_cast<char*>(rszField.data()), rszField.size()});
    }
    static_cast<void>(sd_journal_sendv(aoParts.data(), static_cast<int>(aoParts.size())));
}
