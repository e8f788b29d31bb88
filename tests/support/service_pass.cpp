// Runs one service pass with the real platform and reports its completion:
// "completions=N thread=main|other" on standard output, then exits.
#include "ServiceEnableHandler.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    std::atomic<int> completions{0};
    std::atomic<bool> onMain{false};
    ServiceEnableHandler::handleEnabled([&] {
        onMain = QThread::currentThread() == app.thread();
        if (++completions == 1) {
            // Wait a little for a second, wrong call before reporting.
            QMetaObject::invokeMethod(
                &app, [&app] { QTimer::singleShot(300, &app, &QCoreApplication::quit); },
                Qt::QueuedConnection);
        }
    });
    QTimer::singleShot(20000, &app, &QCoreApplication::quit); // a missing completion still ends
    app.exec();
    std::printf("completions=%d thread=%s\n", completions.load(), onMain ? "main" : "other");
    return 0;
}
