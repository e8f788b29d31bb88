// Writes COUNT keys PREFIX-0 .. PREFIX-(COUNT-1) into a defaults suite, one
// write each, so several of these running at once exercise the file lock.
// Each key is printed once its write has returned.
#include "DefaultsStore.h"
#include "DefaultsSuite.h"
#include "Platform.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        return 2;
    const int count = args[3].toInt();
    for (int i = 0; i < count; ++i) {
        const QString key = args[2] + u'-' + QString::number(i);
        auto suite = Platform::defaults().open(args[1]);
        if (!suite || !suite->setValue(key, QString::number(i)))
            return 1;
        std::printf("%s\n", qPrintable(key));
        std::fflush(stdout);
    }
    return 0;
}
