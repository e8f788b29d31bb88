#pragma once

#include "ZLError.h"

#include <QByteArray>

#include <optional>

// Writes the files the launcher keeps so that no failure leaves one cut short: the bytes go to an
// unnamed file in the target's folder, reach the disk, and only then take the target's name. After
// a full disk, a read-only folder, an I/O error or a kill, the target is the old file or the new
// one, whole.
class WholeFile {
public:
    enum class Mode {
        Replace,   // takes the place of whatever file is there, in one step; a link is followed
        CreateNew, // only where nothing is: fails on anything at the name, a planted link too
    };

    // Nothing, or why the file is as it was before.
    static std::optional<ZLError> write(const QString& path, const QByteArray& bytes, Mode mode);

    // The name a new file has for the moment between being named and replacing the old one (and
    // where file systems without unnamed files write it). A write killed then leaves it behind;
    // the next write of the same file removes it. Never a desktop entry's or a list's name.
    static QByteArray pendingName(const QByteArray& fileName) { return '.' + fileName + ".new"; }
};
