// Writes COUNT keys PREFIX-0 .. PREFIX-(COUNT-1) into a defaults suite, one
// write each, so several of these running at once exercise the file lock.
#include "platform/DefaultsStore.h"
#include "platform/DefaultsSuite.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QStringList>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        return 2;
    const int count = args[3].toInt();
    for (int i = 0; i < count; ++i) {
        auto suite = Platform::defaults().open(args[1]);
        if (!suite || !suite->setValue(args[2] + u'-' + QString::number(i), QString::number(i)))
            return 1;
    }
    return 0;
}
