// A client that knows the file gateway only by its registered name: no header
// of the launcher is included here, only Qt's own.
#include <QFile>
#include <QMetaType>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

class TestRuntimeClient : public QObject {
    Q_OBJECT
    QList<QUrl> m_files;
    QVariantMap m_error;
    int m_calls = 0;

public Q_SLOTS:
    void aggregated(const QList<QUrl>& files, const QVariantMap& error)
    {
        m_files = files;
        m_error = error;
        ++m_calls;
    }

private Q_SLOTS:
    void createdByNameAndMessagedByName()
    {
        const QMetaType type = QMetaType::fromName("ZLFileManager*");
        QVERIFY(type.isValid() && type.metaObject());
        std::unique_ptr<QObject> manager(type.metaObject()->newInstance());
        QVERIFY(manager);
        QTemporaryDir dir;
        QVERIFY(QFile(dir.filePath(u"a"_s)).open(QIODevice::WriteOnly));
        const QList<std::pair<QString, int>> kinds{
            {dir.path(), 1}, {dir.filePath(u"a"_s), 2}, {dir.filePath(u"none"_s), 3}};
        for (const auto& [path, expected] : kinds) {
            int kind = -1;
            QVERIFY(QMetaObject::invokeMethod(manager.get(), "isDirAt", Q_RETURN_ARG(int, kind),
                                              Q_ARG(QUrl, QUrl::fromLocalFile(path))));
            QCOMPARE(kind, expected);
        }
        QVERIFY(QMetaObject::invokeMethod(manager.get(), "fileAggregationFrom",
                                          Q_ARG(QStringList, {dir.path()}), Q_ARG(QObject*, this),
                                          Q_ARG(QByteArray, "aggregated")));
        QTRY_COMPARE(m_calls, 1);
        QCOMPARE(m_files, QList<QUrl>{QUrl::fromLocalFile(dir.filePath(u"a"_s))});
        QVERIFY(m_error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestRuntimeClient)
#include "tst_runtimeclient.moc"
