#include "StoreLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

// A lock of flock's own kind, which does not meet those that the database takes.
bool CStoreLock::Take(const std::string& rszFile)
{
    Release();
    m_iFile = open(rszFile.c_str(), O_RDONLY | O_CLOEXEC);
    return m_iFile >= 0 && flock(m_iFile, LOCK_EX | LOCK_NB) == 0;
}

void CStoreLock::Release()
{
    if (m_iFile >= 0)
    {
        close(m_iFile);
        m_iFile = -1;
    }
}
