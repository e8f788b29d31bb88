#include "FuzzSupport.h"

#include "LogSink.h"
#include "Platform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace {

class DiscardingLogSink final : public LogSink {
public:
    void write(const QByteArray&) override { }
};

} // namespace

void FuzzSupport::silenceLog()
{
    PlatformServices services;
    services.logSink = std::make_shared<DiscardingLogSink>();
    Platform::replace(services);
}

QString FuzzSupport::scratchFolder()
{
    static QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/zq-fuzz-XXXXXX"));
    if (!folder.isValid())
        fail("a scratch folder can be made", __FILE__, __LINE__);
    return folder.path();
}

void FuzzSupport::writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    FUZZ_CHECK(file.write(bytes) == bytes.size());
}

void FuzzSupport::fail(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: expectation failed: %s\n", file, line, condition);
    std::abort();
}
