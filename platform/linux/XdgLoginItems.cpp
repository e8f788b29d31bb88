#include "XdgLoginItems.h"

#include "SystemLog.h"
#include "DesktopApplications.h"
#include "GLibPtr.h"
#include "RegularFile.h"
#include "WholeFile.h"
#include "XdgDirs.h"
#include "ZLError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr const char* group = "Desktop Entry";

GKeyFilePtr loadEntry(const QString& path)
{
    const auto bytes = RegularFile::read(path, DesktopApplications::maxEntrySize);
    if (const auto* failure = std::get_if<ZLError>(&bytes)) {
        SystemLog::logText(u"Cannot read desktop entry "_s + path + u": "_s + failure->description());
        return nullptr;
    }
    GKeyFilePtr keyFile(g_key_file_new());
    const QByteArray& data = std::get<QByteArray>(bytes);
    GError* error = nullptr;
    if (!g_key_file_load_from_data(keyFile.get(), data.constData(), gsize(data.size()),
                                   GKeyFileFlags(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS),
                                   &error)) {
        const GErrorPtr owned(error);
        SystemLog::logText(u"Cannot read desktop entry "_s + path + u": "_s
                           + QString::fromUtf8(owned ? owned->message : "unknown error"));
        return nullptr;
    }
    return keyFile;
}

bool writeEntry(GKeyFile* keyFile, const QString& target)
{
    g_key_file_set_string(keyFile, group, "Version", "1.4");
    gsize length = 0;
    const GCharPtr data(g_key_file_to_data(keyFile, &length, nullptr));
    const QByteArray bytes(data.get(), qsizetype(length));
    // Already so: spare the disk a rewrite at every launch. Anything else in its place is replaced.
    const auto existing = RegularFile::read(target, bytes.size());
    if (std::holds_alternative<QByteArray>(existing) && std::get<QByteArray>(existing) == bytes)
        return true;
    if (!QDir().mkpath(QFileInfo(target).absolutePath())) {
        SystemLog::logText(u"Cannot create the autostart directory for "_s + target + u": "_s
                           + ZLError::reason(errno));
        return false;
    }
    if (const auto error = WholeFile::write(target, bytes, WholeFile::Mode::Replace)) {
        SystemLog::logText(u"Cannot write autostart entry "_s + target + u": "_s
                           + error->localizedDescription());
        return false;
    }
    return true;
}

std::optional<QString> systemAutostartEntry(const QString& fileName)
{
    for (const QString& dir : XdgDirs::configDirs()) {
        const QString candidate = dir + u"/autostart/"_s + fileName;
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}

bool needsQuoting(const QString& text)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    for (const QChar c : text) {
        if (reserved.contains(c))
            return true;
    }
    return false;
}

} // namespace

QString XdgLoginItems::execWithProgram(const QString& exec, const QString& absoluteProgram)
{
    // The first word ends at the first blank outside quotes, the way GLib splits
    // the line: "/usr/bin/en"v is one word.
    const auto blank = [](QChar c) { return c == u' ' || c == u'\t' || c == u'\n'; };
    qsizetype i = 0;
    while (i < exec.size() && blank(exec[i]))
        ++i;
    QChar quote;
    for (; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quote.isNull() && blank(c))
            break;
        if (c == u'\\' && quote != u'\'') {
            ++i;
        } else if (quote.isNull() && (c == u'"' || c == u'\'')) {
            quote = c;
        } else if (c == quote) {
            quote = QChar();
        }
    }
    QString program = absoluteProgram;
    program.replace(u'%', u"%%"_s);
    if (needsQuoting(program)) {
        QString quoted;
        for (const QChar c : std::as_const(program)) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                quoted += u'\\';
            quoted += c;
        }
        program = u'"' + quoted + u'"';
    }
    return program + exec.mid(std::min(i, exec.size()));
}

bool XdgLoginItems::enable(const QString& bundleIdentifier, const QString& target)
{
    const auto entryPath = DesktopApplications::installedEntryPath(bundleIdentifier);
    if (!entryPath) {
        SystemLog::logText(u"No installed application "_s + bundleIdentifier + u" to start at login"_s);
        return false;
    }
    const GKeyFilePtr keyFile = loadEntry(*entryPath);
    if (!keyFile)
        return false;
    const GCharPtr exec(g_key_file_get_string(keyFile.get(), group, "Exec", nullptr));
    const QString oldExec = QString::fromUtf8(exec ? exec.get() : "");
    const auto program = DesktopApplications::absoluteProgram(oldExec);
    if (!program)
        return false;
    const QString newExec = execWithProgram(oldExec, *program);
    g_key_file_set_string(keyFile.get(), group, "Exec", newExec.toUtf8().constData());
    g_key_file_set_boolean(keyFile.get(), group, "X-GNOME-Autostart-enabled", TRUE);
    g_key_file_remove_key(keyFile.get(), group, "Hidden", nullptr);
    return writeEntry(keyFile.get(), target);
}

bool XdgLoginItems::disable(const QString& bundleIdentifier, const QString& target)
{
    // A system-wide entry of the same name would still start the program:
    // only a user entry with Hidden=true switches it off.
    if (const auto systemEntry = systemAutostartEntry(bundleIdentifier + u".desktop"_s)) {
        const GKeyFilePtr keyFile = loadEntry(*systemEntry);
        if (!keyFile)
            return false;
        g_key_file_set_boolean(keyFile.get(), group, "Hidden", TRUE);
        return writeEntry(keyFile.get(), target);
    }
    // Removed without looking first: a look that fails must not pass for an entry that is not there.
    if (::unlink(QFile::encodeName(target).constData()) != 0 && errno != ENOENT) {
        SystemLog::logText(u"Cannot remove autostart entry "_s + target + u": "_s + ZLError::reason(errno));
        return false;
    }
    return true;
}

bool XdgLoginItems::setEnabled(const QString& bundleIdentifier, bool enabled)
{
    const auto configHome = XdgDirs::configHome();
    if (!configHome || bundleIdentifier.isEmpty() || bundleIdentifier.contains(u'/'))
        return false;
    const QString target = *configHome + u"/autostart/"_s + bundleIdentifier + u".desktop"_s;
    return enabled ? enable(bundleIdentifier, target) : disable(bundleIdentifier, target);
}
