/*
 * How long the calling thread has stood ready without a processor, by the kernel's own account. One per thread.
 */
#ifndef RUN_DELAY_H
#define RUN_DELAY_H

#include <cstdint>

class CRunDelay
{
public:
    CRunDelay(); // of the thread that makes it
    ~CRunDelay();
    CRunDelay(const CRunDelay&) = delete;
    CRunDelay& operator=(const CRunDelay&) = delete;

    /*
     * Nanoseconds since the last reading, or since the thread began. Where the kernel keeps no such account: 0. A
     * system call of about a microsecond, so not for every field.
     */
    uint64_t ReadGrowthNs();

private:
    int m_iFile;
    uint64_t m_uiLastNs = 0;
};

#endif
