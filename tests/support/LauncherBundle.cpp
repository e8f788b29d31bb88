#include "LauncherBundle.h"

#include <QFileInfo>
#include <QTest>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString networkModule = u"lib/zelna-quorin/plugins/libzq-feed-download.so"_s;
const QString windowsModule = u"lib/zelna-quorin/plugins/libzq-windows.so"_s;
const char* const feedXml = "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
                            "<channel><item><sparkle:version>%1</sparkle:version></item></channel></rss>";
const char* const infoXml = "<plist><dict>%1<key>CFBundleIdentifier</key><string>com.zelna.Quorin</string>"
                            "<key>CFBundleShortVersionString</key><string>1.0.0</string>"
                            "<key>CFBundleVersion</key><string>1.0.0</string></dict></plist>";

} // namespace

std::unique_ptr<LauncherBundle> LauncherBundle::make()
{
    std::unique_ptr<LauncherBundle> bundle(new LauncherBundle);
    // The service a copy of its own, so that only this bundle's is ever ended.
    QList<std::pair<QString, QString>> parts{{QStringLiteral(ZQ_LAUNCHER), u"bin/zelna-quorin"_s},
                                             {QStringLiteral(ZQ_FAKE_PLUGINKIT), u"bin/pluginkit"_s},
                                             {QStringLiteral(ZQ_TEST_SERVICE), u"bin/zq-test-service"_s}};
    const QString built = QFileInfo(QStringLiteral(ZQ_LAUNCHER)).absolutePath() + u"/../"_s;
    for (const QString& part :
         {u"share/zelna-quorin/Main.ui"_s, u"share/zelna-quorin/translations/zelna-quorin_de.qm"_s,
          u"share/zelna-quorin/translations/zelna-quorin_fr.qm"_s, networkModule, windowsModule,
          u"lib/zelna-quorin/plugins/libzq-ui-reader.so"_s})
        parts.append({built + part, part});
    for (const auto& [from, to] : parts)
        if (!QDir().mkpath(QFileInfo(bundle->path(u"bundle/"_s + to)).absolutePath())
            || !QFile::copy(from, bundle->path(u"bundle/"_s + to)))
            return nullptr;
    bundle->m_home.applyToProcess();
    QProcessEnvironment& env = bundle->env = QProcessEnvironment::systemEnvironment();
    env.insert(u"PATH"_s, bundle->path(u"bundle/bin:"_s) + env.value(u"PATH"_s));
    env.insert(u"TMPDIR"_s, bundle->path(u"tmp"_s));
    env.insert(u"ZQ_PLUGINKIT_LOG"_s, bundle->path(u"pluginkit.log"_s));
    env.insert(u"ZQ_SERVICE_STARTS"_s, bundle->path(u"service-starts"_s));
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    env.insert(u"QT_LOGGING_RULES"_s, u"zelna.*.debug=true"_s);
    return QDir().mkpath(bundle->path(u"tmp"_s)) ? std::move(bundle) : nullptr;
}

std::unique_ptr<Launch> LauncherBundle::launch(const QStringList& arguments, bool display,
                                               const QString& prepare, const QStringList& wrapper) const
{
    auto run = std::make_unique<Launch>();
    QProcessEnvironment runEnv = env;
    for (const QString& name : {u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s, u"QT_QPA_PLATFORM"_s})
        display ? void() : runEnv.remove(name);
    run->setProcessEnvironment(runEnv);
    run->setProcessChannelMode(QProcess::MergedChannels);
    run->setWorkingDirectory(m_home.path());
    const QStringList command = wrapper + QStringList{path(u"bundle/bin/zelna-quorin"_s)} + arguments;
    run->start(u"/bin/sh"_s,
               QStringList{u"-c"_s, prepare + u"\nexec 7</dev/null; exec \"$0\" \"$@\""_s} + command);
    return run;
}

bool LauncherBundle::writeInfo(QByteArray feed) const
{
    if (feed == "no windows") {
        if (!QFile::remove(path(u"bundle/"_s + windowsModule)))
            return false;
        feed = "2.0";
    }
    const QString appcast = path(u"appcast.xml"_s);
    if ((feed == "1.0" || feed == "2.0")
        && !TempHome::writeFile(appcast, QByteArray(feedXml).replace("%1", feed)))
        return false;
    if (feed == "1.0" || feed == "2.0" || feed == "none")
        feed = "<key>SUFeedURL</key><string>" + QUrl::fromLocalFile(appcast).toEncoded() + "</string>";
    return TempHome::writeFile(path(u"bundle/share/zelna-quorin/Info.plist"_s),
                               QByteArray(infoXml).replace("%1", feed));
}

bool LauncherBundle::startDisplay()
{
    // Not reset when the last client leaves: a launcher connecting then would be refused.
    m_display.start(u"Xvfb"_s,
                    {u"-displayfd"_s, u"1"_s, u"-noreset"_s, u"-screen"_s, u"0"_s, u"1280x800x24"_s});
    if (!m_display.waitForReadyRead(10000))
        return false;
    env.insert(u"DISPLAY"_s, u':' + m_display.output().trimmed());
    env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    return true;
}
