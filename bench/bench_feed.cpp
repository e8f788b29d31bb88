// Cost of reading hostile feeds: version comparison and parsing should grow
// linearly with the input (see the Complexity line of each benchmark).
#include "SUAppcast.h"
#include "SUStandardVersionComparator.h"

#include <benchmark/benchmark.h>

namespace {

// "1" against "1.1.1…" followed by words: the shorter one is padded to line up.
void BM_CompareLongVersions(benchmark::State& state)
{
    const auto parts = static_cast<qsizetype>(state.range(0));
    const QString a = QStringLiteral("1") + QStringLiteral(".a").repeated(parts);
    const QString b = QStringLiteral("1") + QStringLiteral(".1").repeated(parts);
    for (auto _ : state)
        benchmark::DoNotOptimize(SUStandardVersionComparator::compareVersions(a, b));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_CompareLongVersions)->RangeMultiplier(4)->Range(1 << 8, 1 << 16)->Complexity(benchmark::oN);

// A feed of many items whose versions are at the length bound.
void BM_ParseFeed(benchmark::State& state)
{
    QByteArray feed = "<rss><channel>";
    const QByteArray item
        = "<item><version>" + QByteArray(SUAppcast::maxVersionLength, '9') + "</version></item>";
    for (int64_t i = 0; i < state.range(0); ++i)
        feed += item;
    feed += "</channel></rss>";
    for (auto _ : state)
        if (const auto appcast = SUAppcast::parse(feed))
            benchmark::DoNotOptimize(appcast->bestItem(QStringLiteral("linux")));
    state.SetBytesProcessed(state.iterations() * feed.size());
    state.SetComplexityN(feed.size());
}
BENCHMARK(BM_ParseFeed)->RangeMultiplier(4)->Range(1 << 6, 1 << 12)->Complexity(benchmark::oN);

} // namespace

BENCHMARK_MAIN();
