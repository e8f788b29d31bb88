// A client that knows the file gateway only by its registered name: no header
// of the launcher is included here, only Qt's own.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMetaType>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

class Receiver : public QObject {
    Q_OBJECT
public:
    QList<QUrl> files;
    QVariantMap error;
    int calls = 0;
public Q_SLOTS:
    void aggregated(const QList<QUrl>& found, const QVariantMap& failure)
    {
        files = found;
        error = failure;
        ++calls;
    }
};

class TestRuntimeClient : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void createdByNameAndMessagedByName();
};

void TestRuntimeClient::createdByNameAndMessagedByName()
{
    const QMetaType type = QMetaType::fromName("ZLFileManager*");
    QVERIFY(type.isValid());
    QVERIFY(type.metaObject());
    std::unique_ptr<QObject> manager(type.metaObject()->newInstance());
    QVERIFY(manager);

    QTemporaryDir dir;
    QFile(dir.filePath(u"a"_s)).open(QIODevice::WriteOnly);
    int kind = -1;
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "isDirAt", Q_RETURN_ARG(int, kind),
                                      Q_ARG(QUrl, QUrl::fromLocalFile(dir.path()))));
    QCOMPARE(kind, 1);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "isDirAt", Q_RETURN_ARG(int, kind),
                                      Q_ARG(QUrl, QUrl::fromLocalFile(dir.filePath(u"a"_s)))));
    QCOMPARE(kind, 2);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "isDirAt", Q_RETURN_ARG(int, kind),
                                      Q_ARG(QUrl, QUrl::fromLocalFile(dir.filePath(u"none"_s)))));
    QCOMPARE(kind, 3);

    Receiver receiver;
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "fileAggregationFrom", Q_ARG(QStringList, {dir.path()}),
                                      Q_ARG(QObject*, &receiver), Q_ARG(QByteArray, "aggregated")));
    QTRY_COMPARE(receiver.calls, 1);
    QCOMPARE(receiver.files, QList<QUrl>{QUrl::fromLocalFile(dir.filePath(u"a"_s))});
    QVERIFY(receiver.error.isEmpty());
}

QTEST_GUILESS_MAIN(TestRuntimeClient)
#include "tst_runtimeclient.moc"
