#include "AttrManager.h"
#include "TempHome.h"

#include <QFile>
#include <QTest>

#include <cerrno>
#include <cstring>

#include <sys/xattr.h>

using namespace Qt::Literals::StringLiterals;

// Real extended attributes on the test's own file system.
class TestAttrManager : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void stubMarker_data();
    void stubMarker();
    void missingAttributeOrFile();
    void symbolicLinkIsFollowed();

private:
    QString file(const QString& name) const { return m_home.path() + u'/' + name; }
    TempHome m_home;
};

void TestAttrManager::initTestCase()
{
    const QString probe = file(u"probe"_s);
    QVERIFY(TempHome::writeFile(probe, "x"));
    if (setxattr(QFile::encodeName(probe).constData(), "user.is.zelna.stub", "Z", 1, 0) != 0)
        QSKIP(qPrintable(u"this file system refuses user extended attributes: "_s
                         + QString::fromLocal8Bit(std::strerror(errno))));
}

void TestAttrManager::stubMarker_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<bool>("stub");
    QTest::newRow("five bytes") << QByteArray("ZELNA") << true;
    QTest::newRow("with a zero byte") << QByteArray("ZELNA", 6) << true;
    QTest::newRow("any sixth byte") << QByteArray("ZELNAx") << true;
    QTest::newRow("seven bytes") << QByteArray("ZELNAxy") << false;
    QTest::newRow("lower case") << QByteArray("zelna") << false;
    QTest::newRow("shorter") << QByteArray("ZELN") << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("above 127") << QByteArray("ZEL\xc3\x91") << false;
}

void TestAttrManager::stubMarker()
{
    QFETCH(QByteArray, value);
    QFETCH(bool, stub);
    const QString path = file(u"f-"_s + QString::fromLatin1(QTest::currentDataTag()).replace(u' ', u'-'));
    QVERIFY(TempHome::writeFile(path, "content"));
    QCOMPARE(setxattr(QFile::encodeName(path).constData(), "user.is.zelna.stub", value.constData(),
                      size_t(value.size()), 0),
             0);
    QCOMPARE(AttrManager().isStub(QUrl::fromLocalFile(path)), stub);
}

void TestAttrManager::missingAttributeOrFile()
{
    const QString plain = file(u"plain"_s);
    QVERIFY(TempHome::writeFile(plain, "content"));
    AttrManager manager;
    QVERIFY(!manager.isStub(QUrl::fromLocalFile(plain)));
    QVERIFY(!manager.isStub(QUrl::fromLocalFile(file(u"absent"_s))));
    QVERIFY(!manager.isStub(QUrl(u"https://example.com/ZELNA"_s)));
    // Another attribute of the product does not make a stub.
    setxattr(QFile::encodeName(plain).constData(), "user.is.zelna.share", "ZELNA", 5, 0);
    QVERIFY(!manager.isStub(QUrl::fromLocalFile(plain)));
}

void TestAttrManager::symbolicLinkIsFollowed()
{
    const QString target = file(u"target"_s);
    QVERIFY(TempHome::writeFile(target, "content"));
    QCOMPARE(setxattr(QFile::encodeName(target).constData(), "user.is.zelna.stub", "ZELNA", 5, 0), 0);
    QVERIFY(QFile::link(target, file(u"link"_s)));
    QVERIFY(AttrManager().isStub(QUrl::fromLocalFile(file(u"link"_s))));
}

QTEST_GUILESS_MAIN(TestAttrManager)
#include "tst_attrmanager.moc"
