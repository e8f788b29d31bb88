#include "TempHome.h"

#include "ProcFs.h"

#include <QFile>
#include <QFileInfo>

#include <grp.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

TempHome::TempHome() : m_dir(QDir::tempPath() + u"/zq-test-XXXXXX"_s)
{
    for (const QString& dir : QStringList{configHome(), applicationsDir(), path() + u"/runtime"_s})
        QDir().mkpath(dir);
    QFile::setPermissions(path() + u"/runtime"_s, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void TempHome::applyToProcess() const
{
    const QList<std::pair<const char*, QString>> variables{{"HOME", path()},
                                                           {"XDG_CONFIG_HOME", configHome()},
                                                           {"XDG_DATA_HOME", dataHome()},
                                                           {"XDG_DATA_DIRS", path() + u"/system-data"_s},
                                                           {"XDG_CONFIG_DIRS", path() + u"/system-config"_s},
                                                           {"XDG_RUNTIME_DIR", path() + u"/runtime"_s}};
    for (const auto& [name, value] : variables)
        qputenv(name, QFile::encodeName(value));
}

void TempHome::installApplication(const QString& identifier, const QString& exec) const
{
    const QString entry = u"[Desktop Entry]\nType=Application\nVersion=1.4\nName="_s + identifier
                          + u"\nExec="_s + exec + u"\nNoDisplay=true\n"_s;
    writeFile(applicationsDir() + u'/' + identifier + u".desktop"_s, entry.toUtf8());
}

QString TempHome::readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool TempHome::writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QList<qint64> TempHome::running(const QString& program)
{
    QList<qint64> found;
    for (const ProcFs::Process& process : ProcFs().processes())
        if (process.uid == ::geteuid() && process.executable == program)
            found << process.pid;
    return found;
}

void TempHome::killAll(const QString& program)
{
    for (const qint64 pid : running(program))
        ProcFs().kill(pid, program, ::geteuid());
}

void TempHome::runAsNobody(QProcess& process)
{
    // The other user cannot read this checkout (it may be private, or made with a strict umask): a sanitizer
    // told to read its suppressions from there would end the program before it starts.
    QProcessEnvironment env = process.processEnvironment();
    if (env.isEmpty())
        env = QProcessEnvironment::systemEnvironment();
    QStringList options = env.value(u"TSAN_OPTIONS"_s).split(u' ', Qt::SkipEmptyParts);
    options.removeIf([](const QString& option) { return option.startsWith(u"suppressions="_s); });
    env.insert(u"TSAN_OPTIONS"_s, options.join(u' '));
    process.setProcessEnvironment(env);
    process.setChildProcessModifier([] {
        constexpr uid_t nobody = 65534;
        if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)
            ::_exit(126);
    });
}

bool TempHome::letOthersThrough(const QString& folder)
{
    return QFile::setPermissions(folder, QFile::permissions(folder) | QFile::ExeGroup | QFile::ExeOther);
}
