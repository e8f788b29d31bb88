#include "SUAppcast.h"
#include "SUStandardVersionComparator.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

// The update feed and the order of versions.
class TestFeed : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Both ways round and reflexive; a separator after the shared run lengthens, a stray one loses.
    void versionOrder()
    {
        const auto compare = &SUStandardVersionComparator::compareVersions;
        const QStringList rows
            = u"1 = 1.0.0.0|1.0.1 > 1.0|1.0 < 1.1|1.10 > 1.9|2 < 10|01.002 = 1.2|1.0b1 < 1.0|1.0a1 < 1.0b1|"
              "1.0b2 < 1.0b10|1.0rc1 > 1.0b9|1.0b < 1.0|1.0.1b1 > 1.0|1.0 beta > 1.0|1.0 = 1.0-beta|"
              "1.0-2 = 1.0-1|2.0-rc > 1.9|1..0 < 1.0|1.0 = 1.0.|abc < abd|B < a| = | < 1|100 > 99.9|"
              "99999999999999999999 > 1"_s.split(u'|');
        QStringList read;
        for (const QString& row : rows) {
            const QString a = row.section(u' ', 0, -3), b = row.section(u' ', -1);
            const int order = compare(a, b);
            const bool consistent = compare(b, a) == -order && !compare(a, a) && !compare(b, b);
            read << a + u' ' + (consistent ? u"<=>"_s.at(order + 1) : u'?') + u' ' + b;
        }
        QCOMPARE(read, rows);
    }

    // Elements win over the enclosure's attributes; the newest item is of no named channel, for this system.
    void readsItemsAndPicksTheNewestForThisSystem()
    {
        const auto appcast = SUAppcast::parse( // any prefix for the update framework's namespace
            "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
            "<item><s:version>1.9</s:version></item><item><s:version>200</s:version><s:os>linux</s:os>"
            "<link>https://example.com/2</link><enclosure url=\"x\" s:version=\"199\" s:os=\"macos\"/></item>"
            "<item><enclosure url=\"https://example.com/1\" s:version=\"100\" s:shortVersionString=\"1.0\" "
            "s:os=\"macos\"/></item><item><s:version> </s:version><enclosure url=\"x\"/></item>"
            "<item><s:version>4.0</s:version><s:channel>beta</s:channel></item>"
            "<item><s:version>1.10</s:version></item></channel></rss>");
        QStringList items;
        for (const SUAppcastItem& i : appcast->items())
            items << u"%1 %2 %3 %4"_s.arg(i.versionString, i.displayVersionString, i.os,
                                          i.downloadPage().toString());
        QCOMPARE(items,
                 (QStringList{u"1.9 1.9  "_s, u"200 200 linux https://example.com/2"_s,
                              u"100 1.0 macos https://example.com/1"_s, u"4.0 4.0  "_s, u"1.10 1.10  "_s}));
        QCOMPARE(appcast->bestItem(u"linux"_s)->versionString, u"200"_s);
        QCOMPARE(appcast->bestItem(u"windows"_s)->versionString, u"1.10"_s);
    }
};

QTEST_APPLESS_MAIN(TestFeed)
#include "tst_feed.moc"
