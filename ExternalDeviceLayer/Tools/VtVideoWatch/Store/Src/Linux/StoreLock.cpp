#include "StoreLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Whether a name still stands for the file that is open: who had it locked before may have removed it meanwhile.
bool IsNamed(int iFile, const std::string& rszFile)
{
    struct stat oOpen = {};
    struct stat oNamed = {};
    return fstat(iFile, &oOpen) == 0 && stat(rszFile.c_str(), &oNamed) == 0 && oOpen.st_ino == oNamed.st_ino &&
           oOpen.st_dev == oNamed.st_dev;
}

} // namespace

// On a file of its own: the system forgets the database's locks of a whole process when that closes any descriptor of
// the database.
bool CStoreLock::Take(const std::string& rszFile)
{
    Release();
    m_szFile = rszFile + "-lock";
    bool bIsTaken = false;
    do
    {
        Close();
        m_iFile = open(m_szFile.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0640);
        bIsTaken = m_iFile >= 0 && flock(m_iFile, LOCK_EX | LOCK_NB) == 0;
    } while (bIsTaken && !IsNamed(m_iFile, m_szFile));
    if (!bIsTaken)
    {
        Close();
    }
    return bIsTaken;
}

void CStoreLock::Release()
{
    if (m_iFile >= 0)
    {
        unlink(m_szFile.c_str());
        Close();
    }
}

void CStoreLock::Close()
{
    if (m_iFile >= 0)
    {
        close(m_iFile);
        m_iFile = -1;
    }
}
