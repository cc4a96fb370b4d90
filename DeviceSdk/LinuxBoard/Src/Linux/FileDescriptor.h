/*
 * A file descriptor that closes itself.
 */
#ifndef LINUX_BOARD_FILE_DESCRIPTOR_H
#define LINUX_BOARD_FILE_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class CFileDescriptor
{
public:
    CFileDescriptor() = default;
    explicit CFileDescriptor(int iFd) : m_iFd(iFd) {}
    CFileDescriptor(CFileDescriptor&& roOther) noexcept : m_iFd(std::exchange(roOther.m_iFd, -1)) {}
    CFileDescriptor& operator=(CFileDescriptor&& roOther) noexcept
    {
        std::swap(m_iFd, roOther.m_iFd);
        return *this;
    }
    CFileDescriptor(const CFileDescriptor&) = delete;
    CFileDescriptor& operator=(const CFileDescriptor&) = delete;
    ~CFileDescriptor() { Close(); }

    int Get() const { return m_iFd; }
    bool IsOpen() const { return m_iFd >= 0; }
    void Close()
    {
        if (m_iFd >= 0)
        {
            close(std::exchange(m_iFd, -1));
        }
    }

private:
    int m_iFd = -1;
};

#endif
