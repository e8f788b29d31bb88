#include "XdgLoginItems.h"
#include "RecordingLogSink.h"
#include "TempHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {
const QString service = u"com.zelna.Quorin.Service"_s;
const QString testService = QStringLiteral(ZQ_TEST_SERVICE);

// desktop-file-validate's verdict: empty when the entry is clean.
QString validate(const QString& file)
{
    QProcess process;
    process.start(u"desktop-file-validate"_s, {file});
    process.waitForFinished(30000);
    return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError()).trimmed();
}
} // namespace

class TestXdgLoginItems : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void execGetsAnAbsoluteProgram_data();
    void execGetsAnAbsoluteProgram();
    void enablingWritesAValidAutostartEntry();
    void disablingRemovesTheEntry();
    void disablingHidesASystemWideEntry();
    void anUninstalledApplicationCannotBeEnabled();

private:
    QString autostartEntry() const { return m_home.autostartDir() + u'/' + service + u".desktop"_s; }
    TempHome m_home;
    XdgLoginItems m_items;
};

void TestXdgLoginItems::initTestCase()
{
    RecordingLogSink::install();
    m_home.applyToProcess();
    // Found on PATH by its bare name, as installed services usually are.
    const QString binDir = m_home.path() + u"/bin"_s;
    QVERIFY(QDir().mkpath(binDir));
    QVERIFY(QFile::link(testService, binDir + u"/quorin-service"_s));
    qputenv("PATH", (binDir + u':' + qEnvironmentVariable("PATH")).toUtf8());
    m_home.installApplication(service, u"quorin-service --background %U"_s);
}

void TestXdgLoginItems::init()
{
    QFile::remove(autostartEntry());
}

void TestXdgLoginItems::execGetsAnAbsoluteProgram_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("expected");
    QTest::newRow("bare name with field code")
        << u"svc --bg %U"_s << u"/usr/bin/svc"_s << u"/usr/bin/svc --bg %U"_s;
    QTest::newRow("program only") << u"svc"_s << u"/opt/svc"_s << u"/opt/svc"_s;
    QTest::newRow("quoted program") << u"\"my svc\" -x"_s << u"/opt/my svc"_s << u"\"/opt/my svc\" -x"_s;
    QTest::newRow("escapes inside quotes") << u"\"a\\\"b\" -x"_s << u"/o/a\"b$"_s << u"\"/o/a\\\"b\\$\" -x"_s;
    QTest::newRow("percent in path") << u"svc"_s << u"/o/100%"_s << u"/o/100%%"_s;
    // GLib reads these as one word; a cut inside it would name another program.
    QTest::newRow("quoted part joined to plain")
        << u"\"/usr/bin/en\"v -x"_s << u"/usr/bin/env"_s << u"/usr/bin/env -x"_s;
    QTest::newRow("single quotes with a blank")
        << u"'my svc' %U"_s << u"/opt/my svc"_s << u"\"/opt/my svc\" %U"_s;
}

void TestXdgLoginItems::execGetsAnAbsoluteProgram()
{
    QFETCH(QString, exec);
    QFETCH(QString, program);
    QFETCH(QString, expected);
    QCOMPARE(XdgLoginItems::execWithProgram(exec, program), expected);
}

void TestXdgLoginItems::enablingWritesAValidAutostartEntry()
{
    QVERIFY(m_items.setEnabled(service, true));
    const QString entry = TempHome::readFile(autostartEntry());
    QVERIFY2(entry.contains(u"\nExec="_s + m_home.path() + u"/bin/quorin-service --background %U\n"_s),
             qPrintable(entry));
    QVERIFY(entry.contains(u"\nX-GNOME-Autostart-enabled=true\n"_s));
    QVERIFY(entry.contains(u"\nVersion=1.4\n"_s));
    QVERIFY(!entry.contains(u"Hidden"_s));
    if (QStandardPaths::findExecutable(u"desktop-file-validate"_s).isEmpty())
        QSKIP("desktop-file-validate is not installed");
    QCOMPARE(validate(autostartEntry()), QString());
}

void TestXdgLoginItems::disablingRemovesTheEntry()
{
    QVERIFY(m_items.setEnabled(service, true));
    QVERIFY(QFile::exists(autostartEntry()));
    QVERIFY(m_items.setEnabled(service, false));
    QVERIFY(!QFile::exists(autostartEntry()));
    QVERIFY(m_items.setEnabled(service, false)); // nothing to remove is fine
}

void TestXdgLoginItems::disablingHidesASystemWideEntry()
{
    const QString systemEntry = m_home.systemConfigDir() + u"/autostart/"_s + service + u".desktop"_s;
    QVERIFY(TempHome::writeFile(systemEntry,
                                "[Desktop Entry]\nType=Application\nName=Svc\nExec=quorin-service\n"));
    QVERIFY(m_items.setEnabled(service, false));
    const QString entry = TempHome::readFile(autostartEntry());
    QVERIFY2(entry.contains(u"\nHidden=true\n"_s), qPrintable(entry));
    QVERIFY(entry.contains(u"\nName=Svc\n"_s));
    // Enabling again drops the Hidden key.
    QVERIFY(m_items.setEnabled(service, true));
    QVERIFY(!TempHome::readFile(autostartEntry()).contains(u"Hidden"_s));
    QFile::remove(systemEntry);
}

void TestXdgLoginItems::anUninstalledApplicationCannotBeEnabled()
{
    QVERIFY(!m_items.setEnabled(u"com.example.NotInstalled"_s, true));
    QVERIFY(!QFile::exists(m_home.autostartDir() + u"/com.example.NotInstalled.desktop"_s));
    QVERIFY(!m_items.setEnabled(u"../escape"_s, true));
}

QTEST_GUILESS_MAIN(TestXdgLoginItems)
#include "tst_xdgloginitems.moc"
