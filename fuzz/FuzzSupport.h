#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: quiet logging and the bytes as Qt sees them.
namespace FuzzSupport {

// Sends log lines nowhere, so a run is not slowed down by its own error reports.
void silenceLog();

inline QByteArray bytes(const std::uint8_t* data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), qsizetype(size));
}

// A fresh private folder for targets that must go through real files.
QString scratchFolder();

// Replaces the file's contents with the input; stops the run when it cannot.
void writeFile(const QString& path, const QByteArray& bytes);

} // namespace FuzzSupport

// Stops the run where a fuzz target's expectation does not hold.
#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            FuzzSupport::fail(#condition, __FILE__, __LINE__);                                               \
    } while (false)

namespace FuzzSupport {
[[noreturn]] void fail(const char* condition, const char* file, int line);
}
