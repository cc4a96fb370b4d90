/*
 * Keeps two watches from writing one store: their events would overwrite each other. Held for as long as the store is
 * open for writing; gone with the process, however that ends. One thread.
 */
#ifndef STORE_LOCK_H
#define STORE_LOCK_H

#include <string>

class CStoreLock
{
public:
    CStoreLock() = default;
    ~CStoreLock() { Release(); }
    CStoreLock(const CStoreLock&) = delete;
    CStoreLock& operator=(const CStoreLock&) = delete;

    /* Takes the lock of a file that is there. False when another one has it. */
    bool Take(const std::string& rszFile);

    /* Gives it back. Only after the database is closed: closing a second descriptor of it would drop its own locks. */
    void Release();

private:
    int m_iFile = -1;
};

#endif
