/*
 * Keeps two watches from writing one store: their events would overwrite each other. Held for as long as the store is
 * open for writing, by a file FILE-lock beside it; gone with the process, however that ends. One thread.
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

    /* Takes the lock of a store. False when another one has it, or none can be made. */
    bool Take(const std::string& rszFile);

    void Release();

private:
    void Close();

    std::string m_szFile;
    int m_iFile = -1;
};

#endif
