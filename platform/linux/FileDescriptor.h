#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

// Owns one open file descriptor and closes it once. Closing keeps errno as it was, so an owner
// can be reset or dropped between a failed call and the report of its reason.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) noexcept : m_fd(fd) { }
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.release()) { }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int release() { return std::exchange(m_fd, -1); }
    void reset(int fd = -1)
    {
        if (m_fd >= 0) {
            const int saved = errno;
            ::close(m_fd);
            errno = saved;
        }
        m_fd = fd;
    }

private:
    int m_fd;
};
