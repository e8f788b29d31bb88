#include "SUAppcast.h"
#include "SUStandardVersionComparator.h"

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

// The update feed and the order of versions.
class TestFeed : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void compareVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected"); // compare(a, b)
        const char* rows[][3]
            = {{"1.0", "1.0", "0"},
               {"1.0", "1.0.0", "0"},
               {"1", "1.0.0.0", "0"},
               {"1.0.1", "1.0", "1"},
               {"1.0", "1.1", "-1"},
               {"1.10", "1.9", "1"},
               {"2", "10", "-1"},
               {"01.002", "1.2", "0"},
               {"1.0b1", "1.0", "-1"},
               {"1.0b1", "1.0.0", "-1"},
               {"1.0a1", "1.0b1", "-1"},
               {"1.0b2", "1.0b10", "-1"},
               {"1.0rc1", "1.0b9", "1"},
               {"1.0b", "1.0", "-1"},
               {"1.0.1b1", "1.0", "1"},
               {"1.0 beta", "1.0", "1"}, // a separator after the shared run makes it longer, not earlier
               {"1.0", "1.0-beta", "0"},
               {"1.0-2", "1.0-1", "0"},
               {"2.0-rc", "1.9", "1"},
               {"1..0", "1.0", "-1"}, // a stray separator loses to a number
               {"1.0", "1.0.", "0"},
               {"abc", "abd", "-1"},
               {"B", "a", "-1"},
               {"", "", "0"},
               {"", "1", "-1"},
               {"99999999999999999999", "1", "1"},
               {"1.2.3.4.5.6", "1.2.3.4.5.7", "-1"},
               {"100", "99.9", "1"}};
        for (const auto& row : rows)
            QTest::addRow("%s vs %s", row[0], row[1])
                << QString::fromUtf8(row[0]) << QString::fromUtf8(row[1]) << QByteArray(row[2]).toInt();
    }
    void compareVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(SUStandardVersionComparator::compareVersions(a, b), expected);
        QCOMPARE(SUStandardVersionComparator::compareVersions(b, a), -expected);
    }

    void readsItemsInBothStyles()
    {
        const auto appcast = SUAppcast::parse(feed(
            "<item><title>Two</title><sparkle:version>200</sparkle:version>"
            "<sparkle:shortVersionString>2.0</sparkle:shortVersionString><link>https://example.com/2</link>"
            "<description><![CDATA[<h1>New</h1>]]></description>"
            "<enclosure url=\"https://example.com/q-2.tar.gz\" sparkle:version=\"199\" length=\"1\"/></item>"
            "<item><title>One</title><enclosure url=\"https://example.com/q-1.tar.gz\" "
            "sparkle:version=\"100\" "
            "sparkle:shortVersionString=\"1.0\" sparkle:os=\"linux\"/><unknown><x/></unknown></item>"
            "<item><title>No version</title><enclosure url=\"x\"/></item>"
            "<item><sparkle:version>  </sparkle:version></item>"));
        QVERIFY(appcast);
        QCOMPARE(appcast->items().size(), 2); // those without a version are left out
        const SUAppcastItem& two = appcast->items()[0];
        QCOMPARE(two.title, u"Two"_s);
        QCOMPARE(two.versionString, u"200"_s); // the element wins over the attribute
        QCOMPARE(two.displayVersionString, u"2.0"_s);
        QCOMPARE(two.itemDescription, u"<h1>New</h1>"_s);
        QCOMPARE(two.downloadPage(), QUrl(u"https://example.com/2"_s));
        const SUAppcastItem& one = appcast->items()[1];
        QCOMPARE(one.versionString, u"100"_s);
        QCOMPARE(one.os, u"linux"_s);
        QCOMPARE(one.downloadPage(), QUrl(u"https://example.com/q-1.tar.gz"_s));
        QVERIFY(!SUAppcast::parse(feed(""))->bestItem(u"linux"_s));
    }

    void picksTheNewestItemForThisSystem()
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

    void rejectsWhatIsNotAFeed_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << u"end of document"_s;
        QTest::newRow("not xml") << QByteArray("{\"version\": 2}") << u"tag expected"_s;
        QTest::newRow("other xml") << QByteArray("<html><body/></html>") << u"not an RSS feed"_s;
        QTest::newRow("no channel") << QByteArray("<rss version=\"2.0\"></rss>") << u"no channel"_s;
        QTest::newRow("cut short") << feed("<item><sparkle:version>2").left(120) << u"line"_s;
        QTest::newRow("mismatched") << QByteArray("<rss><channel><item></channel></rss>") << u"line 1"_s;
        // Refused, not expanded to gigabytes.
        QByteArray bomb = "<?xml version=\"1.0\"?><!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaa\">";
        for (char c = 'b'; c <= 'j'; ++c)
            bomb += "<!ENTITY " + QByteArray(1, c) + " \""
                    + QByteArray("&" + QByteArray(1, char(c - 1)) + ";").repeated(10) + "\">";
        QTest::newRow("entity bomb")
            << bomb + "]><rss><channel><item><title>&j;</title></item></channel></rss>" << QString();
    }
    void rejectsWhatIsNotAFeed()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        QString error;
        QVERIFY(!SUAppcast::parse(bytes, &error));
        QVERIFY2(error.contains(reason, Qt::CaseInsensitive), qPrintable(error));
    }
};

QTEST_APPLESS_MAIN(TestFeed)
#include "tst_feed.moc"
