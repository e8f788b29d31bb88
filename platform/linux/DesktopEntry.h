#pragma once

#include "ZLError.h"

#include <QStringList>

#include <memory>
#include <optional>
#include <variant>

// GLib's own declaration, by its own name: its headers stay out of the adapters' users.
typedef struct _GKeyFile GKeyFile; // NOLINT(bugprone-reserved-identifier, modernize-use-using)

// A desktop entry file, read once with GKeyFile (comments and translations kept, so that a copy can be
// written from it), and the command it runs as GIO builds it.
class DesktopEntry {
public:
    static constexpr const char* group = "Desktop Entry";
    static constexpr qint64 maxSize = 1024 * 1024;

    // The entry in a regular file of at most maxSize bytes; else why it cannot be read.
    static std::variant<DesktopEntry, ZLError> read(const QString& path);

    const QString& path() const { return m_path; }
    GKeyFile* keyFile() const { return m_keyFile.get(); }

    // An application that can run: Type=Application, not Hidden, with an Exec and any TryExec found on PATH.
    bool runnable() const;

    // What a start with no files runs, as GIO builds it: the field codes of the Exec line expanded first,
    // wherever they stand (inside a word or quotes too): %% to "%", %i to "--icon" and the icon, %c to the
    // name, %k to this file, any other to nothing; then the line split as the shell would. Nothing when it
    // cannot be split or is empty.
    std::optional<QStringList> arguments() const;

    // An Exec line that runs exactly these arguments.
    static QString execLine(const QStringList& arguments);
    // The program found on PATH now, as GIO finds it.
    static std::optional<QString> findProgram(const QString& program);

private:
    using KeyFilePtr = std::unique_ptr<GKeyFile, void (*)(GKeyFile*)>;
    DesktopEntry(QString path, KeyFilePtr keyFile)
        : m_path(std::move(path))
        , m_keyFile(std::move(keyFile)) { }
    QString string(const char* key) const;

    QString m_path;
    KeyFilePtr m_keyFile;
};
