#include "SUAppcast.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {
QByteArray feed(const QByteArray& items)
{
    return "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><title>Q</title>"
           + items + "</channel></rss>";
}
} // namespace

class TestAppcast : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readsItemsInBothStyles();
    void picksTheNewestItemForThisSystem();
    void skipsItemsWithoutVersion();
    void rejectsWhatIsNotAFeed_data();
    void rejectsWhatIsNotAFeed();
    void entityExpansionIsBounded();
};

void TestAppcast::readsItemsInBothStyles()
{
    const auto appcast = SUAppcast::parse(feed(
        "<item><title>Two</title><sparkle:version>200</sparkle:version>"
        "<sparkle:shortVersionString>2.0</sparkle:shortVersionString><link>https://example.com/2</link>"
        "<description><![CDATA[<h1>New</h1><p>Things</p>]]></description>"
        "<enclosure url=\"https://example.com/q-2.tar.gz\" sparkle:version=\"199\" length=\"1\"/></item>"
        "<item><title>One</title><enclosure url=\"https://example.com/q-1.tar.gz\" sparkle:version=\"100\" "
        "sparkle:shortVersionString=\"1.0\" sparkle:os=\"linux\"/><unknown><x/></unknown></item>"));
    QVERIFY(appcast);
    QCOMPARE(appcast->items().size(), 2);
    const SUAppcastItem& two = appcast->items()[0];
    QCOMPARE(two.title, u"Two"_s);
    QCOMPARE(two.versionString, u"200"_s); // the element wins over the attribute
    QCOMPARE(two.displayVersionString, u"2.0"_s);
    QCOMPARE(two.itemDescription, u"<h1>New</h1><p>Things</p>"_s);
    QCOMPARE(two.downloadPage(), QUrl(u"https://example.com/2"_s));
    const SUAppcastItem& one = appcast->items()[1];
    QCOMPARE(one.versionString, u"100"_s);
    QCOMPARE(one.os, u"linux"_s);
    QCOMPARE(one.downloadPage(), QUrl(u"https://example.com/q-1.tar.gz"_s));
}

void TestAppcast::picksTheNewestItemForThisSystem()
{
    const auto appcast = SUAppcast::parse(
        feed("<item><sparkle:version>1.5</sparkle:version></item>"
             "<item><sparkle:version>3.0</sparkle:version><sparkle:os>macos</sparkle:os></item>"
             "<item><sparkle:version>4.0</sparkle:version><sparkle:channel>beta</sparkle:channel></item>"
             "<item><enclosure url=\"u\" sparkle:version=\"2.0b1\" sparkle:os=\"windows\"/></item>"
             "<item><sparkle:version>2.0</sparkle:version><sparkle:os>linux</sparkle:os></item>"
             "<item><sparkle:version>1.9</sparkle:version></item>"));
    QVERIFY(appcast);
    QCOMPARE(appcast->bestItem(u"linux"_s)->versionString, u"2.0"_s);
    QCOMPARE(appcast->bestItem(u"macos"_s)->versionString, u"3.0"_s);
}

void TestAppcast::skipsItemsWithoutVersion()
{
    const auto appcast = SUAppcast::parse(feed("<item><title>No version</title><enclosure url=\"x\"/></item>"
                                               "<item><sparkle:version>  </sparkle:version></item>"));
    QVERIFY(appcast);
    QCOMPARE(appcast->items().size(), 0);
    QVERIFY(!appcast->bestItem(u"linux"_s));
    QVERIFY(SUAppcast::parse(feed("")));
}

void TestAppcast::rejectsWhatIsNotAFeed_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << u"end of document"_s;
    QTest::newRow("not xml") << QByteArray("{\"version\": 2}") << u"tag expected"_s;
    QTest::newRow("other xml") << QByteArray("<html><body/></html>") << u"not an RSS feed"_s;
    QTest::newRow("no channel") << QByteArray("<rss version=\"2.0\"></rss>") << u"no channel"_s;
    QTest::newRow("cut short") << feed("<item><sparkle:version>2").left(120) << u"line"_s;
    QTest::newRow("mismatched") << QByteArray("<rss><channel><item></channel></rss>") << u"line 1"_s;
}

void TestAppcast::rejectsWhatIsNotAFeed()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    QString error;
    QVERIFY(!SUAppcast::parse(bytes, &error));
    QVERIFY2(error.contains(reason, Qt::CaseInsensitive), qPrintable(error));
}

void TestAppcast::entityExpansionIsBounded()
{
    QByteArray bomb = "<?xml version=\"1.0\"?><!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaa\">";
    for (char c = 'b'; c <= 'j'; ++c) {
        const QByteArray previous = QByteArray("&").append(char(c - 1)).append(';');
        bomb.append("<!ENTITY ").append(c).append(" \"").append(previous.repeated(10)).append("\">");
    }
    bomb += "]><rss><channel><item><title>&j;</title></item></channel></rss>";
    QString error;
    QVERIFY(!SUAppcast::parse(bomb, &error)); // refused, not expanded to gigabytes
}

QTEST_APPLESS_MAIN(TestAppcast)
#include "tst_appcast.moc"
