#pragma once

#include "ZLError.h"

#include <QByteArray>

#include <variant>

// Reads files that other programs of the user can replace: opened without blocking, so that a pipe
// or a device in a file's place is an error rather than a hang, and read only up to a bound.
class RegularFile {
public:
    // The whole of a regular file of at most maxBytes bytes; anything else is an error.
    static std::variant<QByteArray, ZLError> read(const QString& path, qint64 maxBytes);
};
