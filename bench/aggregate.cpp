// Runs one whole file aggregation of the given paths and reports the count,
// the time and the memory: resident before, resident with the result held,
// and the peak. Used by aggregation.sh.
#include "ZLFileManager.h"
#include "LogSink.h"
#include "Platform.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <cstdio>

namespace {

class QuietLog : public LogSink {
public:
    void write(const QByteArray&) override { }
};

qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qsizetype(qstrlen(field))).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    PlatformServices services;
    services.logSink = std::make_shared<QuietLog>();
    Platform::replace(services);
    const QStringList paths = app.arguments().mid(1);
    ZLFileManager manager;
    const qint64 before = statusKiB("VmRSS:");
    QElapsedTimer clock;
    clock.start();
    QList<QUrl> result;
    manager.fileAggregation(paths, [&](QList<QUrl> files, const std::optional<ZLError>& error) {
        const qint64 ms = clock.elapsed();
        result = std::move(files);
        std::printf("files %lld ms %lld rss_before_kib %lld rss_with_result_kib %lld peak_kib %lld%s\n",
                    qint64(result.size()), ms, before, statusKiB("VmRSS:"), statusKiB("VmHWM:"),
                    error ? " error" : "");
        QCoreApplication::quit();
    });
    return app.exec();
}
