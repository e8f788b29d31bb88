#include "DesktopEntryDirectories.h"

#include "XdgDirs.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QMap>

using namespace Qt::Literals::StringLiterals;

namespace {

// The ID may name a file directly or, at any of its dashes, a sub-folder.
std::optional<QString> findIn(const QString& directory, const QString& id)
{
    const QString direct = directory + u'/' + id;
    if (QFileInfo(direct).isFile())
        return direct;
    for (qsizetype dash = id.indexOf(u'-'); dash > 0; dash = id.indexOf(u'-', dash + 1)) {
        const QString folder = directory + u'/' + id.left(dash);
        if (QFileInfo(folder).isDir()) {
            if (auto found = findIn(folder, id.mid(dash + 1)))
                return found;
        }
    }
    return std::nullopt;
}

} // namespace

QStringList DesktopEntryDirectories::applicationDirectories()
{
    QStringList directories;
    if (const auto dataHome = XdgDirs::dataHome())
        directories << *dataHome + u"/applications"_s;
    QStringList dataDirs = qEnvironmentVariable("XDG_DATA_DIRS").split(u':', Qt::SkipEmptyParts);
    if (dataDirs.isEmpty())
        dataDirs = {u"/usr/local/share"_s, u"/usr/share"_s};
    for (const QString& dir : std::as_const(dataDirs)) {
        if (QDir::isAbsolutePath(dir))
            directories << QDir::cleanPath(dir) + u"/applications"_s;
    }
    directories.removeDuplicates();
    return directories;
}

std::optional<QString> DesktopEntryDirectories::find(const QString& desktopId)
{
    if (desktopId.contains(u'/') || !desktopId.endsWith(u".desktop"_s))
        return std::nullopt;
    for (const QString& directory : applicationDirectories()) {
        if (auto found = findIn(directory, desktopId))
            return found;
    }
    return std::nullopt;
}

QList<std::pair<QString, QString>> DesktopEntryDirectories::all()
{
    QMap<QString, QString> byId;
    for (const QString& directory : applicationDirectories()) {
        // A suffix test, not a name filter: Qt compiles name filters into regular
        // expressions, which costs more than the walk.
        QDirIterator files(directory, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            if (!path.endsWith(u".desktop"_s))
                continue;
            QString id = QDir(directory).relativeFilePath(path);
            id.replace(u'/', u'-');
            if (!byId.contains(id)) // an earlier folder wins
                byId.insert(id, path);
        }
    }
    QList<std::pair<QString, QString>> entries;
    for (auto it = byId.cbegin(); it != byId.cend(); ++it)
        entries.append({it.key(), it.value()});
    return entries;
}
