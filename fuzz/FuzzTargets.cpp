// Every reader of outside input as a fuzz target: with ZQ_FUZZ_TARGET set, its libFuzzer program; without, a
// replayer of saved inputs (every seed, every input that once failed) for the ordinary test builds.
#include "DesktopEntry.h"
#include "LogSink.h"
#include "Platform.h"
#include "PlistDocument.h"
#include "PrintfFormat.h"
#include "SUAppcast.h"
#include "XdgLoginItems.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QUrl>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

// Aborts, so that libFuzzer keeps the input and the replay test fails.
#define FUZZ_CHECK(condition)                                                                                \
    ((condition) ? void() : qFatal("%s:%d: failed: %s", __FILE__, __LINE__, #condition))

namespace {

struct Target {
    const char* name;
    void (*init)(const QString& scratch); // with a fresh private folder
    void (*run)(const QByteArray& input);
};

QString g_file;  // the file a target reads its input from
QString g_other; // a second file or folder it needs

const Target targets[] = {
    // The update feed comes from the network.
    {"fuzz_appcast", nullptr,
     [](const QByteArray& input) {
         QString error;
         const auto appcast = SUAppcast::parse(input, &error);
         FUZZ_CHECK(appcast || !error.isEmpty());
         for (const QString& os : {u"linux"_s, u"macos"_s})
             if (const auto best = appcast ? appcast->bestItem(os) : std::nullopt) {
                 FUZZ_CHECK(!best->versionString.isEmpty() && (best->os.isEmpty() || best->os == os));
                 (void)best->downloadPage().scheme();
             }
     }},
    // Any program of the user can write the defaults file; what was read stays readable once a key is stored.
    {"fuzz_defaults_plist", nullptr,
     [](const QByteArray& input) {
         auto document = PlistDocument::parse(input);
         if (!document)
             return;
         (void)document->toMap();
         FUZZ_CHECK(document->setValue(u"QREnabled"_s, u"1"_s));
         const auto reread = PlistDocument::parse(document->toXml());
         FUZZ_CHECK(reread && reread->value(u"QREnabled"_s) == QVariant(u"1"_s));
     }},
    // Any program of the user can write entries; the service's copy in autostart runs the same command.
    {"fuzz_desktop_entry",
     [](const QString& scratch) {
         for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_DIRS"})
             qputenv(name, QFile::encodeName(scratch + u'/' + QLatin1StringView(name)));
         QDir().mkpath(scratch + u"/XDG_DATA_HOME/applications"_s);
         g_file = scratch + u"/XDG_DATA_HOME/applications/com.example.Fuzz.desktop"_s;
         g_other = scratch + u"/XDG_CONFIG_HOME/autostart/com.example.Fuzz.desktop"_s;
     },
     [](const QByteArray& input) {
         QFile file(g_file);
         FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(input) == input.size()
                    && file.flush());
         const auto arguments = [](const QString& path) {
             const auto entry = DesktopEntry::read(path);
             const auto* read = std::get_if<DesktopEntry>(&entry);
             return read ? read->arguments() : std::nullopt;
         };
         QFile::remove(g_other);
         if (XdgLoginItems().setEnabled(u"com.example.Fuzz"_s, true)) {
             auto expected = arguments(g_file);
             const auto program = expected ? DesktopEntry::findProgram(expected->value(0)) : std::nullopt;
             FUZZ_CHECK(program);
             (*expected)[0] = *program;
             FUZZ_CHECK(arguments(g_other) == expected);
         }
     }},
    // Log lines are formats carrying outside text (the format, then NUL-separated arguments): within bound.
    {"fuzz_log_format", nullptr,
     [](const QByteArray& input) {
         QList<QByteArray> parts = input.split('\0');
         const QByteArray format = parts.takeFirst();
         QList<PrintfFormat::Argument> args;
         for (const QByteArray& part : parts)
             args.append(part == "(nil)" ? PrintfFormat::Argument() : PrintfFormat::Argument(part));
         FUZZ_CHECK(PrintfFormat::render(format, args).size() <= PrintfFormat::maxLineBytes);
         FUZZ_CHECK(PrintfFormat::render(format).size() <= PrintfFormat::maxLineBytes);
     }},
};

const Target* g_target = nullptr;

struct DiscardingLogSink final : LogSink {
    void write(const QByteArray&) override { }
};

bool select(const char* name)
{
    for (const Target& target : targets)
        if (qstrcmp(target.name, name) == 0)
            g_target = &target;
    if (!g_target)
        return false;
    // Quiet: a run is not to be slowed down by its own error reports.
    PlatformServices services;
    services.logSink = std::make_shared<DiscardingLogSink>();
    Platform::replace(services);
    static QTemporaryDir scratch(QDir::tempPath() + u"/zq-fuzz-XXXXXX"_s);
    FUZZ_CHECK(scratch.isValid());
    if (g_target->init)
        g_target->init(scratch.path());
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    g_target->run(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    return 0;
}

#ifdef ZQ_FUZZ_TARGET
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return select(ZQ_FUZZ_TARGET) ? 0 : 1;
}
#else
// fuzz_replay TARGET FILE...
int main(int argc, char* argv[])
{
    if (argc < 3 || !select(argv[1])) { // no inputs means the corpus went missing
        std::fprintf(stderr, "usage: %s TARGET FILE...\n", argv[0]);
        return 2;
    }
    for (int i = 2; i < argc; ++i) {
        QFile file(QFile::decodeName(argv[i]));
        FUZZ_CHECK(file.open(QIODevice::ReadOnly));
        g_target->run(file.readAll());
    }
    std::printf("replayed %d inputs\n", argc - 2);
    return 0;
}
#endif
