#include "SUStandardVersionComparator.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

class TestVersionComparator : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void compare_data();
    void compare();
};

void TestVersionComparator::compare_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("expected"); // sign of compare(a, b)
    const auto row = [](const char* a, const char* b, int expected) {
        QTest::addRow("%s vs %s", a, b) << QString::fromUtf8(a) << QString::fromUtf8(b) << expected;
    };
    row("1.0", "1.0", 0);
    row("1.0", "1.0.0", 0);
    row("1", "1.0.0.0", 0);
    row("1.0.1", "1.0", 1);
    row("1.0", "1.1", -1);
    row("1.10", "1.9", 1);
    row("2", "10", -1);
    row("01.002", "1.2", 0);
    row("1.0b1", "1.0", -1);
    row("1.0b1", "1.0.0", -1);
    row("1.0a1", "1.0b1", -1);
    row("1.0b2", "1.0b10", -1);
    row("1.0rc1", "1.0b9", 1);
    row("1.0b", "1.0", -1);
    row("1.0.1b1", "1.0", 1);
    row("1.0 beta", "1.0", 1); // a separator after the shared run makes it longer, not earlier
    row("1.0", "1.0-beta", 0);
    row("1.0-2", "1.0-1", 0);
    row("2.0-rc", "1.9", 1);
    row("1..0", "1.0", -1); // a stray separator loses to a number
    row("1.0", "1.0.", 0);
    row("abc", "abd", -1);
    row("B", "a", -1); // words compare by character code
    row("", "", 0);
    row("", "1", -1);
    row("99999999999999999999", "1", 1);
    row("1.2.3.4.5.6", "1.2.3.4.5.7", -1);
    row("100", "99.9", 1);
}

void TestVersionComparator::compare()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, expected);
    QCOMPARE(SUStandardVersionComparator::compareVersions(a, b), expected);
    QCOMPARE(SUStandardVersionComparator::compareVersions(b, a), -expected); // and symmetric
}

QTEST_APPLESS_MAIN(TestVersionComparator)
#include "tst_versioncomparator.moc"
