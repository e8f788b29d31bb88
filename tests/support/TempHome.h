#pragma once

#include <QDir>
#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A throw-away home with its own XDG directories, so tests touch nothing of the user's.
class TempHome {
public:
    TempHome();

    QString path() const { return m_dir.path(); }
    QString configHome() const { return path() + QStringLiteral("/config"); }
    QString dataHome() const { return path() + QStringLiteral("/data"); }
    QString applicationsDir() const { return dataHome() + QStringLiteral("/applications"); }
    QString autostartDir() const { return configHome() + QStringLiteral("/autostart"); }
    // The defaults suite the launcher and the service share, with the enabled flag.
    QString flagsFile() const
    {
        return configHome() + QStringLiteral("/K4WQ7ZT2RB.group.zelna.Quorin.plist");
    }

    // Points this process and its children at the temporary home (before anything caches the variables).
    void applyToProcess() const;

    // Writes an application entry NAME.desktop whose Exec is the given command line.
    void installApplication(const QString& identifier, const QString& exec) const;

    static QString readFile(const QString& path);
    static bool writeFile(const QString& path, const QByteArray& bytes);
    // This user's processes running PROGRAM; ending them, never by a pid noted earlier (another's by now).
    static QList<qint64> running(const QString& program);
    static void killAll(const QString& program);

    // For tests that act as a second user (they need root). Call after setting the process's environment.
    static void runAsNobody(QProcess& process);
    // Lets other users pass through the folder.
    static bool letOthersThrough(const QString& folder);

private:
    QTemporaryDir m_dir;
};
