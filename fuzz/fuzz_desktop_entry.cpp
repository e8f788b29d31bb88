// Desktop entries on the data folders can be written by any program of the user;
// the service's entry is also copied into the user's autostart folder.
#include "FuzzSupport.h"

#include "DesktopApplications.h"
#include "XdgLoginItems.h"

#include <QDir>
#include <QFile>

namespace {
const QString identifier = QStringLiteral("com.example.Fuzz");
QString entryPath;
QString autostartPath;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    const QString root = FuzzSupport::scratchFolder();
    qputenv("XDG_DATA_HOME", QFile::encodeName(root + QStringLiteral("/data")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root + QStringLiteral("/none")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + QStringLiteral("/config")));
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root + QStringLiteral("/none")));
    QDir().mkpath(root + QStringLiteral("/data/applications"));
    entryPath = root + QStringLiteral("/data/applications/") + identifier + QStringLiteral(".desktop");
    autostartPath = root + QStringLiteral("/config/autostart/") + identifier + QStringLiteral(".desktop");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::writeFile(entryPath, FuzzSupport::bytes(data, size));
    if (const auto entry = DesktopApplications::readEntry(entryPath)) {
        FUZZ_CHECK(!entry->exec.isEmpty());
        (void)XdgLoginItems::execWithProgram(entry->exec, QStringLiteral("/usr/bin/true"));
    }
    // A login item written from any entry must start the same program.
    QFile::remove(autostartPath);
    if (XdgLoginItems().setEnabled(identifier, true)) {
        const auto written = DesktopApplications::readEntry(autostartPath);
        FUZZ_CHECK(written.has_value());
        const auto program = DesktopApplications::absoluteProgram(written->exec);
        FUZZ_CHECK(program.has_value());
        FUZZ_CHECK(program
                   == DesktopApplications::absoluteProgram(DesktopApplications::readEntry(entryPath)->exec));
    }
    return 0;
}
