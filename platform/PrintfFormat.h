#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

// printf-style rendering that never reads an argument it was not given.
// Each directive takes the next argument; a missing one counts as nil or zero,
// the way the system prints a zero argument. Text arguments feed "%@" and "%s";
// numeric directives always print zero. "%n" writes nothing anywhere. A line
// is at most maxLineBytes long.
class PrintfFormat {
public:
    using Argument = std::optional<QByteArray>;

    static QByteArray render(const QByteArray& format, const QList<Argument>& args = {});

    // Widths and precisions are capped so hostile text cannot make huge lines.
    static constexpr int maxFieldWidth = 1024;
    // A rendered line is cut to this many bytes (whole UTF-8 sequences only).
    static constexpr qsizetype maxLineBytes = 4096;
    static QByteArray fitLine(QByteArray line);
};
