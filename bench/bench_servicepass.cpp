// One enabled launch pass against the real Linux adapters, with about 500 of
// the user's processes running and the service already up. The election
// command is replaced by a no-op so its own run time is left out.
#include "ServiceEnableHandler.h"
#include "CommandRunner.h"
#include "LoginItems.h"
#include "Workspace.h"
#include "Platform.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <csignal>

#include <sys/wait.h>

using namespace Qt::Literals::StringLiterals;

namespace {

class NoCommand : public CommandRunner {
public:
    int run(const QString&, const QStringList&) override { return 0; }
};

struct Fixture {
    QTemporaryDir home;
    QList<qint64> pids;

    Fixture(int processes, int desktopEntries)
    {
        const QString data = home.path() + u"/data"_s;
        const QString system = home.path() + u"/system"_s;
        QDir().mkpath(data + u"/applications"_s);
        QDir().mkpath(system + u"/applications"_s);
        qputenv("HOME", home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", (home.path() + u"/config"_s).toUtf8());
        qputenv("XDG_DATA_HOME", data.toUtf8());
        qputenv("XDG_DATA_DIRS", system.toUtf8());
        qputenv("XDG_CONFIG_DIRS", (home.path() + u"/etc"_s).toUtf8());

        // A desktop's worth of other applications, each naming a real program.
        const QStringList programs{u"sh"_s, u"cat"_s, u"ls"_s, u"env"_s, u"true"_s, u"false"_s};
        for (int i = 0; i < desktopEntries; ++i)
            write(system + u"/applications/org.example.App"_s + QString::number(i) + u".desktop"_s,
                  u"[Desktop Entry]\nType=Application\nName=App\nExec="_s + programs[i % programs.size()]
                      + u" %F\n"_s);

        const QString service = home.path() + u"/quorin-service"_s;
        QFile::copy(u"/bin/sleep"_s, service);
        write(data + u"/applications/com.zelna.Quorin.Service.desktop"_s,
              u"[Desktop Entry]\nType=Application\nName=Service\nExec="_s + service + u" 3600\n"_s);
        for (int i = 0; i < processes; ++i) {
            qint64 pid = 0;
            QProcess::startDetached(i == processes - 1 ? service : u"/bin/sleep"_s, {u"3600"_s}, {}, &pid);
            pids.append(pid);
        }
        PlatformServices services;
        services.commandRunner = std::make_shared<NoCommand>();
        Platform::replace(services);
    }

    ~Fixture()
    {
        for (qint64 pid : std::as_const(pids))
            ::kill(static_cast<pid_t>(pid), SIGKILL);
    }

    static void write(const QString& path, const QString& text)
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(text.toUtf8());
    }
};

Fixture& sharedFixture()
{
    static Fixture fixture(500, 200);
    return fixture;
}

void BM_EnabledPassServiceRunning(benchmark::State& state)
{
    static Fixture& fixture = sharedFixture();
    (void)fixture;
    int completions = 0;
    for (auto _ : state)
        ServiceEnableHandler::handleEnabled([&completions] { ++completions; });
    if (completions != state.iterations())
        state.SkipWithError("the completion did not run once per pass");
}
BENCHMARK(BM_EnabledPassServiceRunning)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The pieces of one pass, to see where its time goes.
void BM_RunningApplications(benchmark::State& state)
{
    static Fixture& fixture = sharedFixture();
    (void)fixture;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            Platform::workspace().runningApplications(ServiceEnableHandler::serviceBundleIdentifier));
}
BENCHMARK(BM_RunningApplications)->Unit(benchmark::kMillisecond);

void BM_LoginItemOn(benchmark::State& state)
{
    static Fixture& fixture = sharedFixture();
    (void)fixture;
    for (auto _ : state)
        Platform::loginItems().setEnabled(ServiceEnableHandler::serviceBundleIdentifier, true);
}
BENCHMARK(BM_LoginItemOn)->Unit(benchmark::kMillisecond);

void BM_ReadFlag(benchmark::State& state)
{
    static Fixture& fixture = sharedFixture();
    (void)fixture;
    for (auto _ : state)
        benchmark::DoNotOptimize(ServiceEnableHandler::userDefaultsHandler(std::nullopt));
}
BENCHMARK(BM_ReadFlag)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
