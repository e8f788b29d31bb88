#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

// Writing the enabled flag or the preview file onto a full disk or a read-only
// folder: a clear log line, the old data where the behaviour keeps it, no crash.
class TestWriteFaults : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void faults_data();
    void faults();
};

void TestWriteFaults::faults_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QStringList>("after"); // what the file still holds
    QTest::addColumn<QString>("logged");

    const QStringList oldFlag{u"<key>QREnabled</key>"_s, u"<string>1</string>"_s, u"<key>Other</key>"_s};
    QTest::newRow("flag, disk full") << u"full-disk"_s << u"flag"_s << u"no"_s << oldFlag
                                     << u"is the disk full?"_s;
    QTest::newRow("flag, read-only") << u"read-only"_s << u"flag"_s << u"no"_s << oldFlag
                                     << u"Read-only file system"_s;
    // The preview file is removed before it is written: a failed write leaves none.
    QTest::newRow("preview, disk full")
        << u"full-disk"_s << u"preview"_s << u"yes"_s << QStringList{u"(no file)"_s}
        << u"Error Domain=NSPOSIXErrorDomain Code=28 "_s;
    QTest::newRow("preview, read-only")
        << u"read-only"_s << u"preview"_s << u"yes"_s << QStringList{u"{\"previewEnabled\":true}"_s}
        << u"Error Domain=NSPOSIXErrorDomain Code=30 "_s;
}

void TestWriteFaults::faults()
{
    QFETCH(QString, fault);
    QFETCH(QString, file);
    QFETCH(QString, stored);
    QFETCH(QStringList, after);
    QFETCH(QString, logged);

    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    QProcess writer;
    writer.start(QStringLiteral(ZQ_FAULT_WRITER), {fault, file, folder.path()});
    QVERIFY(writer.waitForFinished(30000));
    const QString err = QString::fromUtf8(writer.readAllStandardError());
    if (writer.exitCode() == 77)
        QSKIP(qPrintable(err));
    QCOMPARE(writer.exitStatus(), QProcess::NormalExit);
    QCOMPARE(writer.exitCode(), 0);

    const QString out = QString::fromUtf8(writer.readAllStandardOutput());
    QVERIFY2(out.startsWith(u"stored="_s + stored + u'\n'), qPrintable(out));
    for (const QString& piece : after)
        QVERIFY2(out.contains(piece), qPrintable(out));
    const QStringList lines = err.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains(logged), qPrintable(err));
}

QTEST_GUILESS_MAIN(TestWriteFaults)
#include "tst_writefaults.moc"
