#include "PrintfFormat.h"
#include "Testing.h"

// The log lines' formatting.
class TestCore : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Missing arguments print as zero or null, "%n" writes nothing, hostile widths are capped.
    void format()
    {
        using Args = QList<PrintfFormat::Argument>;
        const Args three{"one", std::nullopt, "three"};
        const QList<std::tuple<QByteArray, Args, QByteArray>> cases{
            {"100%% %d %ld %lld %hhu %zu %lx [%5d|%-3d|%05x]", {}, "100% 0 0 0 0 0 0 [    0|0  |00000]"},
            {"%.3f %g %e|%@|%s|%10s|%p", {}, "0.000 0 0.000000e+00|(null)|(null)|    (null)|(nil)"},
            {"[%c]a%nb%hhnc[%*d][%.*f]", {}, "[]abc[0][0.000000]"},
            {"%y %k caf\xc3\xa9 50%", {}, "%y %k caf\xc3\xa9 50%"}, // unknown directives kept as written
            {"%@-%@-%@ %d %f %s %@", three + three, "one-(null)-three 0 0.000000 three (null)"}, // in turn
            {"%-6@|%.2s|%@", {"ab", "xyz", "%d%n%s"}, "ab    |xy|%d%n%s"},
            {"%n%c%@", {"n", "c", "shown"}, "shown"}};
        for (const auto& [format, args, expected] : cases)
            QCOMPARE(PrintfFormat::render(format, args), expected);
        const int max = PrintfFormat::maxFieldWidth;
        QCOMPARE(PrintfFormat::render("%999999999999d|%.99999999f|%99999999999s"),
                 QByteArray(max - 1, ' ') + "0|0." + QByteArray(max, '0') + '|' + QByteArray(max - 6, ' ')
                     + "(null)");
        // Lines end at 4 KiB, never inside a UTF-8 sequence, however many directives follow.
        QCOMPARE(PrintfFormat::render(QByteArray(4095, 'a') + "\xc3\xa9%d"), QByteArray(4095, 'a'));
        QCOMPARE(PrintfFormat::render(QByteArray("%999d").repeated(1 << 16)).size(), 4096);
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
