/*
 * The child process that gives back what is noted in a table as soon as its parent is gone, and the work that it does.
 */
#ifndef LINUX_BOARD_GUARDIAN_H
#define LINUX_BOARD_GUARDIAN_H

#include <sys/types.h>

#include "FileDescriptor.h"
#include "GiveBackNote.h"

/* Does what one note says. 0; -EBUSY when somebody has the device; another negative errno. */
int Guardian_Follow(const SGiveBackNote& roNote);

/* Follows all notes of a table, and drops them. Waits up to a second for descriptors that are being closed. */
void Guardian_GiveBack(SGiveBackTable& roTable);

class CGuardian
{
public:
    /*
     * roTable is in shared memory and stays there. szNoteFile is removed in the end; null when there is none. iNoteFd,
     * -1 for none, stays open in the child, whose lock it holds.
     */
    bool Start(SGiveBackTable& roTable, const char* szNoteFile, int iNoteFd);
    /* The child finds what is noted now, does its work and ends. */
    void End();
    bool IsRunning() const { return m_iPid > 0; }

private:
    CFileDescriptor m_oLifeline; /* its other end is told when this process ends */
    pid_t m_iPid = -1;
};

#endif
