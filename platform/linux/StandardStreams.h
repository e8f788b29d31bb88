#pragma once

#include <QByteArray>

// Standard input, output and error as the surroundings hand them over: possibly closed, possibly a
// pipe whose reader has gone or stopped reading, possibly a full disk.
class StandardStreams {
public:
    // Before anything opens a file: closed standard descriptors are opened on /dev/null, so that no
    // file or socket of the launcher's own takes their numbers and receives log lines; a reader that
    // went away no longer ends the process; Qt's own messages go out as writeError() writes.
    static void secure();

    // Writes text to standard error in one call, never waiting: what cannot go out at once (closed,
    // full, a reader gone or not reading) is dropped.
    static void writeError(const QByteArray& text);
};
