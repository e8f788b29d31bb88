// Writes the enabled flag or the preview file on a small private file system,
// then fills it up or makes it read-only and writes again. Prints the file as
// it is afterwards; the log goes to standard error as usual.
//
// zq-fault-writer full-disk|read-only flag|preview FOLDER
// Exits 77 where this machine does not allow a private mount.
#include "ZLFileManager.h"
#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

const QString suiteName = QStringLiteral("K4WQ7ZT2RB.group.zelna.Quorin");
constexpr int skipped = 77;

bool writeText(const char* path, const std::string& text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::write(fd, text.data(), text.size()) == ssize_t(text.size());
    ::close(fd);
    return ok;
}

// A mount namespace of our own: as root directly, otherwise as root of a new
// user namespace.
bool privateMounts()
{
    if (::geteuid() == 0)
        return ::unshare(CLONE_NEWNS) == 0
               && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeText("/proc/self/setgroups", "deny")
           && writeText("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1")
           && writeText("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")
           && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void fillUp(const QByteArray& folder)
{
    const int fd = ::open(QByteArray(folder + "/filler").constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const QByteArray block(4096, 'x');
    while (fd >= 0 && ::write(fd, block.constData(), size_t(block.size())) > 0) { }
    if (fd >= 0)
        ::close(fd);
}

bool writeValue(bool flag, bool value)
{
    if (!flag) {
        ZLFileManager manager;
        manager.setPreviewStateEnabled(value);
        return true;
    }
    auto suite = Platform::defaults().open(suiteName);
    return suite
           && suite->setValue(QStringLiteral("QREnabled"), value ? QStringLiteral("1") : QStringLiteral("0"));
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 4)
        return 2;
    const std::string fault = argv[1];
    const bool flag = std::strcmp(argv[2], "flag") == 0;
    const QByteArray folder = argv[3];
    if (!privateMounts() || ::mount("zq-fault", folder.constData(), "tmpfs", 0, "size=256k,mode=0700") != 0) {
        std::fprintf(stderr, "no private mount here: %s\n", std::strerror(errno));
        return skipped;
    }
    ::setenv("HOME", folder.constData(), 1);
    ::setenv("XDG_CONFIG_HOME", QByteArray(folder + "/config").constData(), 1);
    ::setenv("XDG_DATA_HOME", QByteArray(folder + "/data").constData(), 1);
    QCoreApplication app(argc, argv);
    ::mkdir(QByteArray(folder + "/data").constData(), 0700); // the user's data folder exists

    if (flag) {
        auto suite = Platform::defaults().open(suiteName);
        if (!suite || !suite->setValue(QStringLiteral("Other"), 5))
            return 1;
    }
    if (!writeValue(flag, true))
        return 1;
    if (fault == "full-disk") {
        // A second name keeps the old preview file's blocks in use after it is removed.
        if (!flag) {
            const QByteArray preview
                = QFile::encodeName(ZLFileManager().communicationFileURL()->toLocalFile());
            ::link(preview.constData(), QByteArray(folder + "/kept").constData());
        }
        fillUp(folder);
    } else if (::mount(nullptr, folder.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        return 1;

    const bool stored = writeValue(flag, false);
    const QString path
        = flag ? QString::fromUtf8(folder) + QStringLiteral("/config/") + suiteName + QStringLiteral(".plist")
               : ZLFileManager().communicationFileURL()->toLocalFile();
    QFile file(path);
    std::printf("stored=%s\n", stored ? "yes" : "no");
    if (file.open(QIODevice::ReadOnly))
        std::fwrite(file.readAll().constData(), 1, size_t(file.size()), stdout);
    else
        std::printf("(no file)");
    return 0;
}
