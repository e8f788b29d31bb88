#include "PrintfFormat.h"

#include <QTest>

class TestPrintfFormat : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void withoutArguments_data();
    void withoutArguments();
    void withArguments();
    void hostileWidthIsCapped();
};

void TestPrintfFormat::withoutArguments_data()
{
    QTest::addColumn<QByteArray>("format");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("plain text") << QByteArray("hello") << QByteArray("hello");
    QTest::newRow("escaped percent") << QByteArray("100%% sure") << QByteArray("100% sure");
    QTest::newRow("integer is zero") << QByteArray("a %d b") << QByteArray("a 0 b");
    QTest::newRow("length modifiers") << QByteArray("%ld %lld %hhu %zu %lx") << QByteArray("0 0 0 0 0");
    QTest::newRow("width and flags") << QByteArray("[%5d|%-3d|%05x]") << QByteArray("[    0|0  |00000]");
    QTest::newRow("floating") << QByteArray("%.3f %g %e") << QByteArray("0.000 0 0.000000e+00");
    QTest::newRow("object is nil") << QByteArray("x=%@") << QByteArray("x=(null)");
    QTest::newRow("string is null") << QByteArray("%s|%10s|") << QByteArray("(null)|    (null)|");
    QTest::newRow("pointer") << QByteArray("%p") << QByteArray("(nil)");
    QTest::newRow("char prints nothing") << QByteArray("[%c]") << QByteArray("[]");
    QTest::newRow("n writes nothing") << QByteArray("a%nb%hhnc") << QByteArray("abc");
    QTest::newRow("star width consumes") << QByteArray("[%*d][%.*f]") << QByteArray("[0][0.000000]");
    QTest::newRow("trailing percent kept") << QByteArray("50%") << QByteArray("50%");
    QTest::newRow("unknown kept") << QByteArray("%y %k") << QByteArray("%y %k");
    QTest::newRow("utf-8 passes") << QByteArray("caf\xc3\xa9 %d") << QByteArray("caf\xc3\xa9 0");
}

void TestPrintfFormat::withoutArguments()
{
    QFETCH(QByteArray, format);
    QFETCH(QByteArray, expected);
    QCOMPARE(PrintfFormat::render(format), expected);
}

void TestPrintfFormat::withArguments()
{
    const QList<PrintfFormat::Argument> args{QByteArray("one"), std::nullopt, QByteArray("three")};
    QCOMPARE(PrintfFormat::render("%@-%@-%@-%@", args), QByteArray("one-(null)-three-(null)"));
    // Every directive takes its argument in turn, numeric ones too.
    QCOMPARE(PrintfFormat::render("%d %@ %s", args), QByteArray("0 (null) three"));
    QCOMPARE(PrintfFormat::render("%-6@|%.2s|", {QByteArray("ab"), QByteArray("xyz")}),
             QByteArray("ab    |xy|"));
    // An argument's own percent signs are not a format.
    QCOMPARE(PrintfFormat::render("%@", {QByteArray("%d%n%s")}), QByteArray("%d%n%s"));
}

void TestPrintfFormat::hostileWidthIsCapped()
{
    const QByteArray out = PrintfFormat::render("%999999999999d|%.99999999f|%99999999999s");
    QVERIFY(out.size() < 4 * PrintfFormat::maxFieldWidth);
    QVERIFY(out.startsWith(QByteArray(PrintfFormat::maxFieldWidth - 1, ' ').append('0')));
}

QTEST_APPLESS_MAIN(TestPrintfFormat)
#include "tst_printfformat.moc"
